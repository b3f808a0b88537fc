/**
 * @file consumer.h
 * The bus object behind an event consumer.
 *
 * A Consumer is a GObject: made by consumer_new(), released with g_object_unref() on the thread of
 * the default main context. It owns its connection and its subscriptions. Its lock is held during
 * each operation and while its callbacks run; callbacks may call back into it. What sends on the
 * bus (consumer_init_dbus(), `consumer_send_*` save consumer_send_unsubscribe_prepare(),
 * `consumer_receive_*`) runs on the thread of the default main context, everything else on any
 * thread.
 */
#ifndef VARRO2_CONSUMER_H
#define VARRO2_CONSUMER_H

#include <varro2/event.h>
#include <varro2/macros.h>
#include <varro2/notification.h>
#include <varro2/propertystate.h>
#include <varro2/subscribeexpression.h>

G_BEGIN_DECLS

typedef struct Consumer Consumer;

/** One subscription, taken out of its consumer. */
typedef struct ConsumerSubscription ConsumerSubscription;

/** Whether the callbacks of a subscription get the sender's user id. */
typedef enum {
  SUBSCRIPTION_TYPE_NORMAL = 0, /**< They do not. */
  SUBSCRIPTION_TYPE_SECURE = 1  /**< They do: they have the secure type below. */
} SubscriptionType;

/** Gets a matching event, which it owns. */
typedef void (*ConsumerEventCallback)(Event *event, gpointer user_data);
/** The same with the sender's user id; 4294967295 when it cannot be read. */
typedef void (*ConsumerSecureEventCallback)(Event *event, guint32 uid, gpointer user_data);

/** Gets a notification of a declaration, which it owns. */
typedef void (*ConsumerNotificationCallback)(Notification *notification, gpointer user_data);
/** The same with the sender's user id; 4294967295 when it cannot be read. */
typedef void (*ConsumerSecureNotificationCallback)(Notification *notification, guint32 uid,
                                                   gpointer user_data);

/** @return the GObject type "Consumer". */
VARRO2_API GType consumer_get_type(void) VARRO2_NOEXCEPT;

/**
 * A consumer that is not connected yet.
 *
 * @param name is copied and served as the property Name.
 * @return the consumer; the caller owns one reference.
 */
VARRO2_API Consumer *consumer_new(const char *name) VARRO2_NOEXCEPT;

/**
 * Connects, serves the bus object and sends the subscriptions that are there already.
 *
 * @param error is required and empty.
 * @return FALSE, with *error set in the domain "libvarro2" and a negative errno as its code, when
 *   that failed. The consumer can be used and released all the same.
 */
VARRO2_API gboolean consumer_init_dbus(Consumer *consumer, GError **error) VARRO2_NOEXCEPT;

/** Removes every subscription, before the last reference is dropped. */
VARRO2_API void consumer_prepare_free(Consumer *consumer) VARRO2_NOEXCEPT;

/** @return whether there is a subscription with this token. */
VARRO2_API gboolean consumer_token_exists(Consumer *consumer, guint32 token) VARRO2_NOEXCEPT;

/**
 * Records a subscription, not sent yet; it replaces one with the same token.
 *
 * @param expression is serialised at once.
 * @param event_cb, notification_cb may be NULL: then none is delivered.
 * @param secure a SubscriptionType; when secure, both callbacks are secure ones, cast.
 */
VARRO2_API void consumer_prepare_subscribe(Consumer *consumer, guint32 token,
                                           const SubscribeExpression *expression,
                                           ConsumerEventCallback event_cb,
                                           ConsumerNotificationCallback notification_cb,
                                           gpointer user_data, guint32 secure) VARRO2_NOEXCEPT;

/** Sends the subscription if it exists and was not sent to the present switch. */
VARRO2_API void consumer_send_subscribe(Consumer *consumer, guint32 token) VARRO2_NOEXCEPT;

/** Asks for the current values of the properties that the subscription matches. */
VARRO2_API void consumer_send_refresh(Consumer *consumer, guint32 token) VARRO2_NOEXCEPT;

/**
 * Takes the subscription out: its callbacks are not called any more.
 *
 * @return what consumer_send_unsubscribe() takes over; NULL when the token is unknown.
 */
VARRO2_API ConsumerSubscription *consumer_send_unsubscribe_prepare(Consumer *consumer,
                                                                   guint32 token) VARRO2_NOEXCEPT;

/**
 * Sends Unsubscribe and frees the subscription.
 *
 * @param subscription is taken over; not NULL.
 */
VARRO2_API void consumer_send_unsubscribe(Consumer *consumer,
                                          ConsumerSubscription *subscription) VARRO2_NOEXCEPT;

/** Takes leave of the switch. */
VARRO2_API void consumer_send_disconnect(Consumer *consumer) VARRO2_NOEXCEPT;

/**
 * Asks the switch for the state of a property. Blocks for at most 60 seconds.
 *
 * @param error may be NULL, else is empty.
 * @return a new property state, owned by the caller; NULL, with the error set, on failure.
 */
VARRO2_API PropertyState *consumer_send_get_property_state(Consumer *consumer,
                                                           const SubscribeExpression *expression,
                                                           GError **error) VARRO2_NOEXCEPT;

/**
 * Delivers an event to the subscription of the token, if there is one.
 *
 * @param bytes the serialised event.
 * @param uid the sender's user id, for a secure subscription.
 */
VARRO2_API void consumer_receive_event(Consumer *consumer, GByteArray *bytes, guint32 token,
                                       guint32 uid) VARRO2_NOEXCEPT;

/** The same for a notification. @param bytes the serialised notification. */
VARRO2_API void consumer_receive_notification(Consumer *consumer, GByteArray *bytes, guint32 token,
                                              guint32 uid) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
