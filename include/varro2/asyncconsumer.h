/**
 * @file asyncconsumer.h
 * Event consumers (eventconsumer.h) for applications that want every result through a callback.
 *
 * No call waits for the bus or for the main-context thread. All callbacks run on that thread, in
 * the order of the calls that caused them. A handle made here may be handed to the functions of
 * eventconsumer.h once its setup callback has been called.
 */
#ifndef VARRO2_ASYNCCONSUMER_H
#define VARRO2_ASYNCCONSUMER_H

#include <varro2/eventconsumer.h>
#include <varro2/eventconsumer_int.h>

G_BEGIN_DECLS

/**
 * Makes a consumer and queues its whole set-up.
 * @param name copied.
 * @param setup_callback told of the end; may be NULL, then a failure is logged at critical level.
 * @return a new handle, for async_consumer_free(); NULL without a name.
 */
VARRO2_API EventConsumer *async_consumer_new(const char *name,
                                             EventConsumerSetupCallback setup_callback,
                                             gpointer user_data) VARRO2_NOEXCEPT;

/** Queues the end of a handle. @p done_callback may be NULL; it marks the end and gets the former
 * address. A NULL handle is ignored. */
VARRO2_API void async_consumer_free(EventConsumer *event_consumer,
                                    EventConsumerDoneCallback done_callback,
                                    gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Subscribes to all events that match an expression.
 * @param subscribe_expression not copied: it must stay as it is until @p subscribed_callback has
 *        been called.
 * @param subscribed_callback called after the subscription went to the switch; may be NULL.
 * @param event_callback must be given; for a secure subscription an
 *        EventConsumerSecureEventCallback under the type of the normal one.
 * @param notification_callback may be NULL; the same holds for it.
 * @param user_data for all three callbacks.
 * @param subscription_type SUBSCRIPTION_TYPE_NORMAL or SUBSCRIPTION_TYPE_SECURE.
 * @param error may be NULL; as for event_consumer_int_generate_token().
 * @return the token of the subscription; 0 on failure, which is not logged.
 */
VARRO2_API guint32 async_consumer_subscribe(EventConsumer *event_consumer,
                                            const SubscribeExpression *subscribe_expression,
                                            EventConsumerSubscribedCallback subscribed_callback,
                                            EventConsumerEventCallback event_callback,
                                            EventConsumerNotificationCallback notification_callback,
                                            gpointer user_data, guint32 subscription_type,
                                            GError **error) VARRO2_NOEXCEPT;

/** Asks for the state of the subscription's properties again. A missing handle aborts.
 * @p callback may be NULL; it gets EVENT_ERROR_NO_SUBSCR for an unknown token. */
VARRO2_API void async_consumer_refresh(EventConsumer *event_consumer, guint32 token,
                                       EventConsumerTokenCallback callback,
                                       gpointer user_data) VARRO2_NOEXCEPT;

/** Ends a subscription. A missing handle aborts. @p callback may be NULL; it gets
 * EVENT_ERROR_NO_SUBSCR for an unknown token. Events may still arrive until the command has run. */
VARRO2_API void async_consumer_unsubscribe(EventConsumer *event_consumer, guint32 token,
                                           EventConsumerTokenCallback callback,
                                           gpointer user_data) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
