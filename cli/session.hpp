// A command's life on the bus: the connection that tells whether bus and switch are there, the main
// loop, the handles. One thread, the default main context's.
#pragma once

#include "owned.hpp"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace varro2::cli {

struct SwitchOwner {
  std::string bus_name;
  std::uint32_t pid = 0;
  std::uint32_t uid = 0;
};

class Session {
 public:
  // Throws Failure when there is no bus.
  Session();
  ~Session();
  Session(const Session &) = delete;
  Session &operator=(const Session &) = delete;

  // Throws Failure when there is no switch.
  void require_switch();
  std::optional<SwitchOwner> switch_owner();
  // A call without arguments, for the bus below.
  OwnedMessage new_call_to_switch(const char *interface, const char *method) const;
  sd_bus *bus() const { return bus_; }
  // Told about the switch's comings (true) and goings.
  void on_switch(std::function<void(bool)> handler) { switch_handler_ = std::move(handler); }
  bool switch_is_there() const { return switch_there_; }

  // Runs the loop until quit(); returns its code. A bus that goes away throws Failure.
  int run();
  void quit(int code);
  // Asked to quit, or without a bus: for loops of a command's own.
  bool ended() const { return ended_ || bus_gone_; }
  // The code to end with then; throws Failure when it is the bus that has gone.
  int result() const;

  // Quits with the code after so many seconds; none when negative.
  void quit_after(double seconds, int code);
  // SIGINT and SIGTERM quit with the code.
  void quit_on_signals(int code);
  // Called once from the loop.
  void later(double seconds, std::function<void()> function);
  void cancel_timers();

  // Waits, for at most ten seconds, until the connections of freed handles have closed: what they
  // had still to deliver has then been delivered.
  void wait_for_farewells();

 private:
  static int on_disconnected(sd_bus_message *, void *self, sd_bus_error *) noexcept;
  void subscribe();
  std::vector<std::string> own_connections();

  GSource *source_ = nullptr;
  sd_bus *bus_ = nullptr;
  GMainLoop *loop_;
  BusWatcher watcher_{};
  std::string own_name_;
  std::function<void(bool)> switch_handler_;
  bool switch_there_ = false;
  bool bus_gone_ = false;
  bool ended_ = false;
  int code_ = 0;
  std::vector<guint> sources_;
};

// A consumer with one subscription. Its callbacks run inside Session::run().
class Subscriber {
 public:
  using OnEvent = std::function<void(const ::Event &, std::optional<std::uint32_t> uid)>;
  using OnNotification =
      std::function<void(const ::Notification &, std::optional<std::uint32_t> uid)>;

  explicit Subscriber(Session &session); // which has connected
  ~Subscriber();
  Subscriber(const Subscriber &) = delete;
  Subscriber &operator=(const Subscriber &) = delete;

  // Throws Failure. Secure: the callbacks are given the sender's user id.
  void subscribe(const SubscribeExpression &expression, bool secure, OnEvent on_event,
                 OnNotification on_notification = {});
  EventConsumer *get() const { return consumer_; }

 private:
  void subscribe_plain(const SubscribeExpression &expression);
  void subscribe_secure(const SubscribeExpression &expression);

  EventConsumer *consumer_;
  guint32 token_ = 0;
  OnEvent on_event_;
  OnNotification on_notification_;
};

// A producer. Freed by the destructor, which waits until everything has been handed over.
class Sender {
 public:
  explicit Sender(Session &session);
  ~Sender();
  Sender(const Sender &) = delete;
  Sender &operator=(const Sender &) = delete;
  EventProducer *get() const { return producer_; }

 private:
  Session &session_;
  EventProducer *producer_;
};

} // namespace varro2::cli
