#include "eventconsumer.hpp"

#include "failure.hpp"
#include "preconditions.hpp"

using namespace varro2;

namespace {

guint32 subscribe(EventConsumer *event_consumer, const SubscribeExpression *subscribe_expression,
                  EventConsumerEventCallback event_callback,
                  EventConsumerNotificationCallback notification_callback,
                  SubscriptionType subscription_type, gpointer user_data) {
  OwnedError error;
  const guint32 token = event_consumer_int_generate_token(
      event_consumer, subscribe_expression, event_callback, subscription_type, out_of(error));
  if (token == 0) {
    VARRO2_WARNING("%sFailed to subscribe: %s", error->message);
    return 0;
  }
  event_consumer_int_subscribe(event_consumer, token, subscribe_expression, NULL, event_callback,
                               notification_callback, subscription_type, user_data);
  return token;
}

// The checks of refresh and unsubscribe before anything is queued.
bool may_call(const EventConsumer *event_consumer, GError **error) {
  if (!event_consumer) {
    fail(error, EVENT_ERROR_NULL, "NULL object supplied");
    return false;
  }
  return !fail_if_slot_is_taken(error);
}

// Secure callbacks travel under the type of the normal ones; the subscription's type tells them
// apart when they are called.
template <typename Normal, typename Secure>
Normal as_normal(Secure callback) {
  return reinterpret_cast<Normal>(reinterpret_cast<void (*)()>(callback));
}

} // namespace

EventConsumer *event_consumer_new(const char *name) noexcept {
  VARRO2_EXPECT(name != NULL, NULL);
  EventConsumer *event_consumer = event_consumer_int_new_empty();
  event_consumer_int_setup(event_consumer, name, NULL, NULL);
  return event_consumer;
}

void event_consumer_free(EventConsumer *event_consumer) noexcept {
  if (event_consumer)
    event_consumer_int_free(event_consumer, NULL, NULL);
}

guint32 event_consumer_subscribe(EventConsumer *event_consumer,
                                 const SubscribeExpression *subscribe_expression,
                                 EventConsumerEventCallback event_callback,
                                 gpointer user_data) noexcept {
  return event_consumer_subscribe_full(event_consumer, subscribe_expression, event_callback, NULL,
                                       user_data);
}

guint32 event_consumer_subscribe_full(EventConsumer *event_consumer,
                                      const SubscribeExpression *subscribe_expression,
                                      EventConsumerEventCallback event_callback,
                                      EventConsumerNotificationCallback notification_callback,
                                      gpointer user_data) noexcept {
  return subscribe(event_consumer, subscribe_expression, event_callback, notification_callback,
                   SUBSCRIPTION_TYPE_NORMAL, user_data);
}

guint32 event_consumer_subscribe_secure(EventConsumer *event_consumer,
                                        const SubscribeExpression *subscribe_expression,
                                        EventConsumerSecureEventCallback event_callback,
                                        gpointer user_data) noexcept {
  return event_consumer_subscribe_secure_full(event_consumer, subscribe_expression, event_callback,
                                              NULL, user_data);
}

guint32 event_consumer_subscribe_secure_full(
    EventConsumer *event_consumer, const SubscribeExpression *subscribe_expression,
    EventConsumerSecureEventCallback event_callback,
    EventConsumerSecureNotificationCallback notification_callback, gpointer user_data) noexcept {
  return subscribe(event_consumer, subscribe_expression,
                   as_normal<EventConsumerEventCallback>(event_callback),
                   as_normal<EventConsumerNotificationCallback>(notification_callback),
                   SUBSCRIPTION_TYPE_SECURE, user_data);
}

gboolean event_consumer_refresh(EventConsumer *event_consumer, guint32 token,
                                GError **error) noexcept {
  return may_call(event_consumer, error) &&
         event_consumer_int_refresh(event_consumer, token, NULL, NULL, error);
}

gboolean event_consumer_refresh_async(EventConsumer *event_consumer, guint32 token) noexcept {
  return event_consumer_refresh(event_consumer, token, NULL);
}

gboolean event_consumer_unsubscribe_and_notify(EventConsumer *event_consumer, guint32 token,
                                               EventConsumerTokenCallback callback,
                                               gpointer user_data, GError **error) noexcept {
  return may_call(event_consumer, error) &&
         event_consumer_int_unsubscribe(event_consumer, token, callback, user_data, error);
}

gboolean event_consumer_unsubscribe(EventConsumer *event_consumer, guint32 token,
                                    GError **error) noexcept {
  return event_consumer_unsubscribe_and_notify(event_consumer, token, NULL, NULL, error);
}

PropertyState *event_consumer_get_property_state(EventConsumer *event_consumer,
                                                 const SubscribeExpression *subscribe_expression,
                                                 GError **error) noexcept {
  VARRO2_EXPECT(event_consumer != NULL, NULL);
  VARRO2_EXPECT(subscribe_expression != NULL, NULL);
  if (fail_if_slot_is_taken(error))
    return NULL;
  struct Question {
    const SubscribeExpression *expression;
    GError **error;
  } question{subscribe_expression, error};
  const CommandSourceQuery ask = [](gpointer data, gpointer user_data) noexcept -> gpointer {
    const auto *asked = static_cast<const Question *>(data);
    const auto *handle = static_cast<const EventConsumer *>(user_data);
    return consumer_send_get_property_state(handle->consumer.get(), asked->expression,
                                            asked->error);
  };
  return static_cast<PropertyState *>(
      command_source_run(event_consumer->commands.get(), ask, &question));
}
