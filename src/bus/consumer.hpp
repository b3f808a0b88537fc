// The state behind a Consumer. All its functions run with the lock held.
#pragma once

#include "busobject.hpp"

#include <varro2/consumer.h>

#include <cstdint>
#include <map>
#include <memory>

struct Consumer {
  GObject parent;
};

struct ConsumerSubscription final {
  varro2::BytesRef expression_data;
  ConsumerEventCallback event_cb = nullptr;
  ConsumerNotificationCallback notification_cb = nullptr;
  gpointer user_data = nullptr;
  guint32 token = 0;
  guint32 secure = SUBSCRIPTION_TYPE_NORMAL;
  bool sent = false;         // to the switch that is there now
  std::uint64_t attempt = 0; // which sending that was
};

namespace varro2 {

class ConsumerState final : public BusObject {
 public:
  explicit ConsumerState(Consumer *consumer);
  void retire() { Connection::retire(std::move(connection)); }

  bool init_dbus(GError **error);
  void prepare_free() { subscriptions_.clear(); }

  void add(std::unique_ptr<ConsumerSubscription> subscription);
  std::unique_ptr<ConsumerSubscription> take(guint32 token);
  ConsumerSubscription *find(guint32 token) const;

  void subscribe(guint32 token);
  void refresh(guint32 token);
  void unsubscribe(guint32 token);
  void disconnect();
  PropertyState *get_property_state(const SubscribeExpression &expression, GError **error);

  void receive_event(const GByteArray &bytes, guint32 token, guint32 uid);
  void receive_notification(const GByteArray &bytes, guint32 token, guint32 uid);

  void switch_online() { send_all_subscriptions(); }
  void switch_offline();

 private:
  void send_subscription(ConsumerSubscription &subscription);
  void send_all_subscriptions();
  void note_undelivered(guint32 token, std::uint64_t attempt);

  Consumer *consumer_; // the object that this is part of
  std::map<guint32, std::unique_ptr<ConsumerSubscription>> subscriptions_; // by token
  std::uint64_t attempts_ = 0;
};

// Make an object of the bytes and hand it over as the subscription wants it; the subscription may
// be gone afterwards.
void deliver_event(const ConsumerSubscription &subscription, const GByteArray &bytes, guint32 uid);
void deliver_notification(const ConsumerSubscription &subscription, const GByteArray &bytes,
                          guint32 uid);

using ConsumerClass = ObjectClass<Consumer, ConsumerState>;
using LockedConsumer = Locked<Consumer, ConsumerState>;

// For one operation.
inline LockedConsumer locked(Consumer *consumer) {
  return LockedConsumer{consumer};
}

extern const sd_bus_vtable consumer_vtable[];

// Sees every message first, and takes an event with less than the connection needs to find out
// whose method it is. All that is not plainly one goes that way.
int consumer_filter_bus(sd_bus_message *m, void *self, sd_bus_error *error) noexcept;

} // namespace varro2
