#include "consumer.hpp"

#include "buserrors.hpp"

#include <varro2/switch_bus_client.h>

#include <cerrno>

namespace varro2 {

namespace {

void consumer_online_handler(gpointer user_data) noexcept {
  locked(static_cast<Consumer *>(user_data))->switch_online();
}

void consumer_offline_handler(gpointer user_data) noexcept {
  locked(static_cast<Consumer *>(user_data))->switch_offline();
}

constexpr ServedInterface served_consumer_object{
    .interface = consumer_interface,
    .vtable = consumer_vtable,
    .filter = consumer_filter_bus,
    .online = consumer_online_handler,
    .offline = consumer_offline_handler,
    .register_failure = "Failed to register consumer server",
    .watch_failure = "Consumer failed to watch bus driver",
    .explain = true};

// Hands an object over to a callback in the form that its subscription asks for.
template <typename Secure, typename Object>
void deliver(void (*callback)(Object *, gpointer), const ConsumerSubscription &subscription,
             Object *object, guint32 uid) {
  if (subscription.secure == SUBSCRIPTION_TYPE_SECURE)
    reinterpret_cast<Secure>(reinterpret_cast<void (*)()>(callback))(object, uid,
                                                                     subscription.user_data);
  else
    callback(object, subscription.user_data);
}

} // namespace

ConsumerState::ConsumerState(Consumer *consumer)
    : BusObject{"/com/quor/Event/Consumer/", consumer}, consumer_{consumer} {}

bool ConsumerState::init_dbus(GError **error) {
  if (!connect_object(*this, consumer_, served_consumer_object, error))
    return false;
  send_all_subscriptions();
  return true;
}

/* ---- Subscriptions ---- */

ConsumerSubscription *ConsumerState::find(guint32 token) const {
  const auto found = subscriptions_.find(token);
  return found != subscriptions_.end() ? found->second.get() : nullptr;
}

void ConsumerState::add(std::unique_ptr<ConsumerSubscription> subscription) {
  const guint32 token = subscription->token;
  subscriptions_.insert_or_assign(token, std::move(subscription));
}

std::unique_ptr<ConsumerSubscription> ConsumerState::take(guint32 token) {
  auto node = subscriptions_.extract(token);
  return node.empty() ? nullptr : std::move(node.mapped());
}

void ConsumerState::subscribe(guint32 token) {
  if (ConsumerSubscription *subscription = find(token))
    send_subscription(*subscription);
}

void ConsumerState::send_subscription(ConsumerSubscription &subscription) {
  if (subscription.sent || !connection)
    return;
  const guint32 token = subscription.token;
  const auto message = build_switch_call(bus(), switch_consumer::subscribe, path.c_str(),
                                         name.c_str(), token, subscription.expression_data.get());
  subscription.sent = true;
  subscription.attempt = ++attempts_;
  connection->call_switch(
      message, subscription.expression_data->len,
      [this, token, attempt = subscription.attempt](CallEnd end, sd_bus_message *answer) {
        if (found_no_switch(end, answer))
          locked(consumer_)->note_undelivered(token, attempt);
      });
}

// There was no switch to take the subscription: the next one gets it. An answer to an earlier
// sending says nothing about the present one.
void ConsumerState::note_undelivered(guint32 token, std::uint64_t attempt) {
  ConsumerSubscription *subscription = find(token);
  if (subscription != nullptr && subscription->attempt == attempt)
    subscription->sent = false;
}

void ConsumerState::send_all_subscriptions() {
  for (const auto &[token, subscription] : subscriptions_)
    send_subscription(*subscription);
}

void ConsumerState::switch_offline() {
  connection->forget_switch();
  for (const auto &[token, subscription] : subscriptions_)
    subscription->sent = false;
}

void ConsumerState::refresh(guint32 token) {
  if (connection)
    connection->call_switch(
        build_switch_call(bus(), switch_consumer::refresh_property, path.c_str(), token));
}

void ConsumerState::unsubscribe(guint32 token) {
  if (connection)
    connection->call_switch(
        build_switch_call(bus(), switch_consumer::unsubscribe, path.c_str(), token));
}

void ConsumerState::disconnect() {
  if (connection)
    connection->take_leave(build_switch_call(bus(), switch_consumer::disconnect, path.c_str()));
}

PropertyState *ConsumerState::get_property_state(const SubscribeExpression &expression,
                                                 GError **error) {
  if (!connection) {
    g_propagate_error(error, new_bus_failure(ENOTCONN).release());
    return nullptr;
  }
  const auto expression_data = BytesRef::adopt(subscribe_expression_serialize(&expression));
  BusError failure;
  OwnedBytes data;
  gsize length = 0;
  const int r = com_quor_Event_Switch_Consumer_get_property_state(
      bus(), expression_data.get(), failure.get(), out_of(data), &length);
  if (r < 0) {
    g_propagate_error(error, new_bus_failure(*failure, -r).release());
    return nullptr;
  }
  const GByteArray bytes = view_bytes({data.get(), length});
  return property_state_deserialize(&bytes);
}

/* ---- Deliveries ---- */

void ConsumerState::receive_event(const GByteArray &bytes, guint32 token, guint32 uid) {
  if (const ConsumerSubscription *subscription = find(token))
    deliver_event(*subscription, bytes, uid);
}

void ConsumerState::receive_notification(const GByteArray &bytes, guint32 token, guint32 uid) {
  if (const ConsumerSubscription *subscription = find(token))
    deliver_notification(*subscription, bytes, uid);
}

void deliver_event(const ConsumerSubscription &subscription, const GByteArray &bytes, guint32 uid) {
  if (subscription.event_cb != nullptr)
    deliver<ConsumerSecureEventCallback>(subscription.event_cb, subscription,
                                         event_deserialize(&bytes), uid);
}

void deliver_notification(const ConsumerSubscription &subscription, const GByteArray &bytes,
                          guint32 uid) {
  if (subscription.notification_cb != nullptr)
    deliver<ConsumerSecureNotificationCallback>(subscription.notification_cb, subscription,
                                                notification_deserialize(&bytes), uid);
}

} // namespace varro2
