// A bus, a fake switch and the library's handles on it.
#pragma once

#include "fakeswitch.hpp"
#include "logcapture.hpp"
#include "mainloop.hpp"
#include "privatebus.hpp"
#include "wire.hpp"

#include <varro2/varro2.h>

#include <memory>
#include <string>
#include <vector>

namespace varro2::test {

template <typename T, auto release>
struct Release {
  void operator()(T *object) const noexcept { release(object); }
};
template <typename T, auto release>
using Held = std::unique_ptr<T, Release<T, release>>;

using HeldEvent = Held<Event, event_free>;
using HeldDeclaration = Held<EventDeclaration, event_declaration_free>;
using HeldExpression = Held<SubscribeExpression, subscribe_expression_free>;
using HeldNotification = Held<Notification, notification_free>;
using HeldState = Held<PropertyState, property_state_free>;

// Collects a GError and frees it.
class Failure {
 public:
  Failure() = default;
  ~Failure() { g_clear_error(&error_); }
  Failure(const Failure &) = delete;
  Failure &operator=(const Failure &) = delete;

  GError **slot() { return &error_; }
  bool is(int code, const std::string &text) const;
  bool is_set() const { return error_ != nullptr; }
  const GError *get() const { return error_; }

 private:
  GError *error_ = nullptr;
};

// Frees its handle when it goes, and waits until that has been done.
class ProducerHandle {
 public:
  explicit ProducerHandle(const char *name);
  ~ProducerHandle();
  ProducerHandle(const ProducerHandle &) = delete;
  ProducerHandle &operator=(const ProducerHandle &) = delete;

  EventProducer *get() const { return producer_; }
  void free();
  // What subscribers_changed reported, each time.
  const std::vector<std::vector<guint32>> &reports() const { return reports_; }

 private:
  EventProducer *producer_;
  std::vector<std::vector<guint32>> reports_;
};

class ConsumerHandle {
 public:
  explicit ConsumerHandle(const char *name);
  ~ConsumerHandle();
  ConsumerHandle(const ConsumerHandle &) = delete;
  ConsumerHandle &operator=(const ConsumerHandle &) = delete;

  EventConsumer *get() const { return consumer_; }
  void free();

 private:
  EventConsumer *consumer_;
};

// What a subscription's callbacks were given.
struct Inbox {
  std::vector<HeldEvent> events;
  std::vector<HeldNotification> notifications;
  std::vector<guint32> uids;

  static void on_event(Event *event, gpointer inbox);
  static void on_notification(Notification *notification, gpointer inbox);
  static void on_secure_event(Event *event, guint32 uid, gpointer inbox);
  static void on_secure_notification(Notification *notification, guint32 uid, gpointer inbox);
};

// topic0 = Greeting, text (open), count (open, an integer).
HeldDeclaration greeting();
wire::AndList greeting_pairs();                                   // as in its declaration
wire::AndList greeting_pairs(const std::string &text, int count); // as in an event

// topic0 = Door, open (a boolean without value, the state key).
HeldDeclaration door();
wire::AndList door_pairs(bool open);

// One test: the key has the value.
HeldExpression wants(const char *key, const char *value);

HeldEvent prepared_greeting(EventProducer *producer, guint32 local_id, const char *text,
                            gint32 count);
bool send_door(EventProducer *producer, guint32 local_id, gboolean open);

class Live : public ::testing::Test {
 protected:
  static constexpr guint32 producer_id = 7;

  // Declares and waits for the call.
  struct Declared {
    guint32 local_id;
    guint32 global_id;
    Call declare;
  };
  Declared declare(const ProducerHandle &producer, const EventDeclaration *declaration);
  // The switch's answers to it; the global id is the local one and 100.
  void identify(const Declared &declared);
  Declared declare_fully(const ProducerHandle &producer, const EventDeclaration *declaration);

  // Has the switch subscribe a peer, at its object path, with one test.
  void subscribe(const Declared &declared, const ForeignPeer &peer, const std::string &object,
                 std::uint32_t subscription_id, std::uint32_t token, const wire::AndList &tests,
                 bool clandestine = false);

  void TearDown() override;

  LogCapture log_;
  PrivateBus bus_;
  FakeSwitch switch_;
  bool expect_quiet_log_ = true; // TearDown fails on lines that no test has looked at
};

} // namespace varro2::test
