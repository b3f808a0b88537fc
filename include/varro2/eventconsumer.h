/**
 * @file eventconsumer.h
 * The handle through which an application subscribes to events and property states.
 *
 * Every function may be called from any thread. What touches the bus is queued to the thread that
 * iterates the default main context; all callbacks run on that thread.
 */
#ifndef VARRO2_EVENTCONSUMER_H
#define VARRO2_EVENTCONSUMER_H

#include <varro2/consumer.h>
#include <varro2/event.h>
#include <varro2/macros.h>
#include <varro2/notification.h>
#include <varro2/propertystate.h>
#include <varro2/subscribeexpression.h>

G_BEGIN_DECLS

/** A consumer of events. Opaque. */
typedef struct EventConsumer EventConsumer;

/** Receives an event, which the callee frees. */
typedef ConsumerEventCallback EventConsumerEventCallback;

/** Receives the notification that a matching declaration came or went; the callee frees it. */
typedef ConsumerNotificationCallback EventConsumerNotificationCallback;

/** As EventConsumerEventCallback, with the user id of the sender: G_MAXUINT32 when unknown. */
typedef ConsumerSecureEventCallback EventConsumerSecureEventCallback;

/** As EventConsumerNotificationCallback, with the user id of the sender. */
typedef ConsumerSecureNotificationCallback EventConsumerSecureNotificationCallback;

/** The end of a refresh or an unsubscribe. @p error is NULL on success; otherwise the callee frees
 * it. */
typedef void (*EventConsumerTokenCallback)(guint32 token, gpointer user_data, GError *error);

/**
 * Makes a consumer and queues its connection to the bus. The handle can be used at once; a
 * connection that fails is logged at critical level.
 * @param name the consumer's name on the bus; copied.
 * @return a new handle, for event_consumer_free(); NULL without a name.
 */
VARRO2_API EventConsumer *event_consumer_new(const char *name) VARRO2_NOEXCEPT;

/** Ends all subscriptions at once, takes leave of the switch and frees the handle. The handle must
 * not be used afterwards. NULL is ignored. */
VARRO2_API void event_consumer_free(EventConsumer *event_consumer) VARRO2_NOEXCEPT;

/**
 * Subscribes to all events that match an expression.
 * @param subscribe_expression only read during the call.
 * @param event_callback must be given.
 * @return the token of the subscription; 0 on failure, which is logged as a warning.
 */
VARRO2_API guint32 event_consumer_subscribe(EventConsumer *event_consumer,
                                            const SubscribeExpression *subscribe_expression,
                                            EventConsumerEventCallback event_callback,
                                            gpointer user_data) VARRO2_NOEXCEPT;

/** event_consumer_subscribe() with notifications of matching declarations.
 * @p notification_callback may be NULL. */
VARRO2_API guint32 event_consumer_subscribe_full(
    EventConsumer *event_consumer, const SubscribeExpression *subscribe_expression,
    EventConsumerEventCallback event_callback,
    EventConsumerNotificationCallback notification_callback, gpointer user_data) VARRO2_NOEXCEPT;

/** event_consumer_subscribe() with the sender's user id in the callback. */
VARRO2_API guint32 event_consumer_subscribe_secure(EventConsumer *event_consumer,
                                                   const SubscribeExpression *subscribe_expression,
                                                   EventConsumerSecureEventCallback event_callback,
                                                   gpointer user_data) VARRO2_NOEXCEPT;

/** event_consumer_subscribe_full() with the sender's user id in both callbacks. */
VARRO2_API guint32 event_consumer_subscribe_secure_full(
    EventConsumer *event_consumer, const SubscribeExpression *subscribe_expression,
    EventConsumerSecureEventCallback event_callback,
    EventConsumerSecureNotificationCallback notification_callback,
    gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Asks the producers of a subscription's properties to send their state again.
 * @param error may be NULL. EVENT_ERROR_NULL for a missing handle, EVENT_ERROR_NO_SUBSCR for an
 *        unknown token, EVENT_ERROR_ERROR_ALREADY_SET in place of an error that was already there.
 * @return TRUE when the request was accepted.
 */
VARRO2_API gboolean event_consumer_refresh(EventConsumer *event_consumer, guint32 token,
                                           GError **error) VARRO2_NOEXCEPT;

/** event_consumer_refresh() without an error slot. */
VARRO2_API gboolean event_consumer_refresh_async(EventConsumer *event_consumer,
                                                 guint32 token) VARRO2_NOEXCEPT;

/**
 * Ends a subscription. Once the call has returned no event reaches its callbacks any more.
 * @param callback called when the switch has been told, or with the error; may be NULL.
 * @param error may be NULL; as for event_consumer_refresh().
 * @return TRUE when the token was known.
 */
VARRO2_API gboolean event_consumer_unsubscribe_and_notify(EventConsumer *event_consumer,
                                                          guint32 token,
                                                          EventConsumerTokenCallback callback,
                                                          gpointer user_data,
                                                          GError **error) VARRO2_NOEXCEPT;

/** event_consumer_unsubscribe_and_notify() without a callback. */
VARRO2_API gboolean event_consumer_unsubscribe(EventConsumer *event_consumer, guint32 token,
                                               GError **error) VARRO2_NOEXCEPT;

/**
 * Asks the switch for the present state of a property. Waits for the answer, at most a minute; from
 * another thread than that of the main context it also waits for that thread. That thread does
 * nothing else meanwhile, so a producer that it serves cannot answer.
 * @param error may be NULL. EVENT_ERROR_DBUS_FAILED, or the code of the switch's answer.
 * @return a new property state, for property_state_free(); NULL on failure.
 */
VARRO2_API PropertyState *
event_consumer_get_property_state(EventConsumer *event_consumer,
                                  const SubscribeExpression *subscribe_expression,
                                  GError **error) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
