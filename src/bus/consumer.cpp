#include "consumer.hpp"

#include "preconditions.hpp"

using namespace varro2;

GType consumer_get_type(void) noexcept {
  return ConsumerClass::get_type("Consumer");
}

Consumer *consumer_new(const char *name) noexcept {
  VARRO2_EXPECT(name != NULL, nullptr);
  auto *consumer = static_cast<Consumer *>(g_object_new(consumer_get_type(), nullptr));
  locked(consumer)->name = name;
  return consumer;
}

gboolean consumer_init_dbus(Consumer *consumer, GError **error) noexcept {
  VARRO2_EXPECT(consumer != NULL, FALSE);
  VARRO2_ASSERT(error != NULL && *error == NULL);
  return locked(consumer)->init_dbus(error);
}

void consumer_prepare_free(Consumer *consumer) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  locked(consumer)->prepare_free();
}

/* ---- Subscriptions ---- */

gboolean consumer_token_exists(Consumer *consumer, guint32 token) noexcept {
  VARRO2_EXPECT(consumer != NULL, FALSE);
  return locked(consumer)->find(token) != nullptr;
}

void consumer_prepare_subscribe(Consumer *consumer, guint32 token,
                                const SubscribeExpression *expression,
                                ConsumerEventCallback event_cb,
                                ConsumerNotificationCallback notification_cb, gpointer user_data,
                                guint32 secure) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  VARRO2_EXPECT(expression != NULL);
  auto subscription = std::make_unique<ConsumerSubscription>();
  subscription->expression_data = BytesRef::adopt(subscribe_expression_serialize(expression));
  subscription->event_cb = event_cb;
  subscription->notification_cb = notification_cb;
  subscription->user_data = user_data;
  subscription->token = token;
  subscription->secure = secure;
  locked(consumer)->add(std::move(subscription));
}

void consumer_send_subscribe(Consumer *consumer, guint32 token) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  locked(consumer)->subscribe(token);
}

void consumer_send_refresh(Consumer *consumer, guint32 token) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  locked(consumer)->refresh(token);
}

ConsumerSubscription *consumer_send_unsubscribe_prepare(Consumer *consumer,
                                                        guint32 token) noexcept {
  VARRO2_EXPECT(consumer != NULL, nullptr);
  auto subscription = locked(consumer)->take(token);
  if (subscription)
    subscription->event_cb = nullptr;
  return subscription.release();
}

void consumer_send_unsubscribe(Consumer *consumer, ConsumerSubscription *subscription) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  VARRO2_EXPECT(subscription != NULL);
  const std::unique_ptr<ConsumerSubscription> owned{subscription};
  locked(consumer)->unsubscribe(owned->token);
}

/* ---- The switch ---- */

void consumer_send_disconnect(Consumer *consumer) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  locked(consumer)->disconnect();
}

PropertyState *consumer_send_get_property_state(Consumer *consumer,
                                                const SubscribeExpression *expression,
                                                GError **error) noexcept {
  VARRO2_EXPECT(consumer != NULL, nullptr);
  VARRO2_EXPECT(expression != NULL, nullptr);
  VARRO2_ASSERT(error == NULL || *error == NULL);
  return locked(consumer)->get_property_state(*expression, error);
}

void consumer_receive_event(Consumer *consumer, GByteArray *bytes, guint32 token,
                            guint32 uid) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  VARRO2_EXPECT(bytes != NULL);
  locked(consumer)->receive_event(*bytes, token, uid);
}

void consumer_receive_notification(Consumer *consumer, GByteArray *bytes, guint32 token,
                                   guint32 uid) noexcept {
  VARRO2_EXPECT(consumer != NULL);
  VARRO2_EXPECT(bytes != NULL);
  locked(consumer)->receive_notification(*bytes, token, uid);
}
