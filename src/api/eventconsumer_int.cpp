#include "eventconsumer.hpp"

#include "consumer.hpp"
#include "failure.hpp"
#include "preconditions.hpp"

using namespace varro2;

namespace {

OwnedError unknown_token(guint32 token) {
  return OwnedError{g_error_new(event_error_quark(), EVENT_ERROR_NO_SUBSCR,
                                "Cannot find subscription token %d", static_cast<gint32>(token))};
}

// What makes a subscription impossible; nullptr when nothing does.
OwnedError check_subscription(const EventConsumer *event_consumer,
                              const SubscribeExpression *subscribe_expression,
                              EventConsumerEventCallback event_callback,
                              guint32 subscription_type) {
  if (!event_consumer)
    return new_error(EVENT_ERROR_NULL, "Event consumer object was NULL");
  if (!subscribe_expression)
    return new_error(EVENT_ERROR_NULL, "Subscribe expression was NULL");
  if (!event_callback)
    return new_error(EVENT_ERROR_NULL, "Subscription callback was NULL");
  if (subscription_type > SUBSCRIPTION_TYPE_SECURE)
    return new_error(EVENT_ERROR_INVALID_TYPE, "Invalid subscription type");
  return nullptr;
}

} // namespace

EventConsumer *event_consumer_int_new_empty(void) noexcept {
  return std::make_unique<EventConsumer>().release();
}

void event_consumer_int_setup(EventConsumer *event_consumer, const char *name,
                              EventConsumerSetupCallback setup_callback,
                              gpointer user_data) noexcept {
  VARRO2_ASSERT(event_consumer != NULL);
  VARRO2_ASSERT(name != NULL);
  event_consumer->consumer = ConsumerRef::adopt(consumer_new(name));
  queue(*event_consumer, [setup_callback, user_data](EventConsumer &handle) {
    OwnedError error;
    consumer_init_dbus(handle.consumer.get(), out_of(error));
    report_setup(handle, std::move(error), setup_callback, user_data);
  });
}

void event_consumer_int_free(EventConsumer *event_consumer, EventConsumerDoneCallback done_callback,
                             gpointer user_data) noexcept {
  VARRO2_ASSERT(event_consumer != NULL);
  consumer_prepare_free(event_consumer->consumer.get());
  queue(*event_consumer, [event_consumer, done_callback, user_data](EventConsumer &handle) {
    consumer_send_disconnect(handle.consumer.get());
    delete &handle;
    if (done_callback)
      done_callback(event_consumer, user_data);
  });
}

guint32 event_consumer_int_generate_token(EventConsumer *event_consumer,
                                          const SubscribeExpression *subscribe_expression,
                                          EventConsumerEventCallback event_callback,
                                          guint32 subscription_type, GError **error) noexcept {
  if (fail_if_slot_is_taken(error))
    return 0;
  if (OwnedError failure = check_subscription(event_consumer, subscribe_expression, event_callback,
                                              subscription_type)) {
    fail(error, std::move(failure));
    return 0;
  }
  return idgenerator_reserve(event_consumer->ids.get());
}

void event_consumer_int_subscribe(EventConsumer *event_consumer, guint32 token,
                                  const SubscribeExpression *subscribe_expression,
                                  EventConsumerSubscribedCallback subscribed_callback,
                                  EventConsumerEventCallback event_callback,
                                  EventConsumerNotificationCallback notification_callback,
                                  guint32 subscription_type, gpointer user_data) noexcept {
  VARRO2_ASSERT(event_consumer != NULL);
  VARRO2_ASSERT(token != 0);
  VARRO2_ASSERT(subscribe_expression != NULL);
  VARRO2_ASSERT(event_callback != NULL);
  VARRO2_ASSERT(subscription_type == SUBSCRIPTION_TYPE_NORMAL ||
                subscription_type == SUBSCRIPTION_TYPE_SECURE);
  consumer_prepare_subscribe(event_consumer->consumer.get(), token, subscribe_expression,
                             event_callback, notification_callback, user_data, subscription_type);
  queue(*event_consumer, [token, subscribed_callback, user_data](EventConsumer &handle) {
    consumer_send_subscribe(handle.consumer.get(), token);
    if (subscribed_callback)
      subscribed_callback(token, user_data);
  });
}

gboolean event_consumer_int_refresh(EventConsumer *event_consumer, guint32 token,
                                    EventConsumerTokenCallback callback, gpointer user_data,
                                    GError **error) noexcept {
  VARRO2_ASSERT(error == NULL || *error == NULL);
  VARRO2_ASSERT(event_consumer != NULL);
  const bool known = consumer_token_exists(event_consumer->consumer.get(), token);
  if (!known)
    fail(error, unknown_token(token));
  queue(*event_consumer, [token, known, callback, user_data](EventConsumer &handle) {
    if (known)
      consumer_send_refresh(handle.consumer.get(), token);
    if (callback)
      callback(token, user_data, known ? nullptr : unknown_token(token).release());
  });
  return known;
}

gboolean event_consumer_int_unsubscribe(EventConsumer *event_consumer, guint32 token,
                                        EventConsumerTokenCallback callback, gpointer user_data,
                                        GError **error) noexcept {
  VARRO2_ASSERT(error == NULL || *error == NULL);
  VARRO2_ASSERT(event_consumer != NULL);
  // Taken out here, so that no event is delivered any more once the call has returned.
  std::unique_ptr<ConsumerSubscription> subscription{
      consumer_send_unsubscribe_prepare(event_consumer->consumer.get(), token)};
  const bool known = subscription != nullptr;
  if (!known)
    fail(error, unknown_token(token));
  queue(*event_consumer, [token, known, subscription = std::move(subscription), callback,
                          user_data](EventConsumer &handle) mutable {
    if (known)
      consumer_send_unsubscribe(handle.consumer.get(), subscription.release());
    if (callback)
      callback(token, user_data, known ? nullptr : unknown_token(token).release());
    idgenerator_release(handle.ids.get(), token);
  });
  return known;
}
