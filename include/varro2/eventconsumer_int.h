/**
 * @file eventconsumer_int.h
 * What the two faces of an event consumer (eventconsumer.h, asyncconsumer.h) are built from.
 *
 * Misuse of these functions aborts, unless one says otherwise. Callbacks of secure subscriptions
 * are passed under the type of the normal ones.
 */
#ifndef VARRO2_EVENTCONSUMER_INT_H
#define VARRO2_EVENTCONSUMER_INT_H

#include <varro2/eventconsumer.h>

G_BEGIN_DECLS

/** The end of the set-up. @p error is NULL on success; otherwise the callee frees it. */
typedef void (*EventConsumerSetupCallback)(EventConsumer *event_consumer, gpointer user_data,
                                           GError *error);

/** Called on the main-context thread after the subscription went to the switch. */
typedef void (*EventConsumerSubscribedCallback)(guint32 token, gpointer user_data);

/** The end of a handle. @p event_consumer is its former address, already freed. The bus has read
 * all that the handle sent, so that the process may end. */
typedef void (*EventConsumerDoneCallback)(EventConsumer *event_consumer, gpointer user_data);

/** @return a new handle that event_consumer_int_setup() must complete. */
VARRO2_API EventConsumer *event_consumer_int_new_empty(void) VARRO2_NOEXCEPT;

/**
 * Gives the handle its bus object and queues the connection.
 * @param name copied.
 * @param setup_callback told of the end; may be NULL, then a failure is logged at critical level.
 */
VARRO2_API void event_consumer_int_setup(EventConsumer *event_consumer, const char *name,
                                         EventConsumerSetupCallback setup_callback,
                                         gpointer user_data) VARRO2_NOEXCEPT;

/** Ends all subscriptions at once and queues the handle's end. @p done_callback may be NULL. */
VARRO2_API void event_consumer_int_free(EventConsumer *event_consumer,
                                        EventConsumerDoneCallback done_callback,
                                        gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Checks a subscription and reserves a token for it. Nothing aborts.
 * @param subscription_type SUBSCRIPTION_TYPE_NORMAL or SUBSCRIPTION_TYPE_SECURE.
 * @param error may be NULL. EVENT_ERROR_ERROR_ALREADY_SET, EVENT_ERROR_NULL or
 *        EVENT_ERROR_INVALID_TYPE.
 * @return the token; 0 on failure.
 */
VARRO2_API guint32 event_consumer_int_generate_token(
    EventConsumer *event_consumer, const SubscribeExpression *subscribe_expression,
    EventConsumerEventCallback event_callback, guint32 subscription_type,
    GError **error) VARRO2_NOEXCEPT;

/**
 * Records a subscription under a reserved token and queues it for the switch.
 * @param subscribe_expression only read during the call.
 * @param subscribed_callback, notification_callback may be NULL.
 */
VARRO2_API void event_consumer_int_subscribe(
    EventConsumer *event_consumer, guint32 token, const SubscribeExpression *subscribe_expression,
    EventConsumerSubscribedCallback subscribed_callback, EventConsumerEventCallback event_callback,
    EventConsumerNotificationCallback notification_callback, guint32 subscription_type,
    gpointer user_data) VARRO2_NOEXCEPT;

/** Queues a refresh. @p callback may be NULL; @p error may be NULL, otherwise it must be empty.
 * @return FALSE, with EVENT_ERROR_NO_SUBSCR, for an unknown token. */
VARRO2_API gboolean event_consumer_int_refresh(EventConsumer *event_consumer, guint32 token,
                                               EventConsumerTokenCallback callback,
                                               gpointer user_data, GError **error) VARRO2_NOEXCEPT;

/** Takes a subscription out at once and queues the message to the switch. @p callback may be NULL;
 * @p error may be NULL, otherwise it must be empty.
 * @return FALSE, with EVENT_ERROR_NO_SUBSCR, for an unknown token. */
VARRO2_API gboolean event_consumer_int_unsubscribe(EventConsumer *event_consumer, guint32 token,
                                                   EventConsumerTokenCallback callback,
                                                   gpointer user_data,
                                                   GError **error) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
