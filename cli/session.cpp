#include "session.hpp"

#include "failure.hpp"

#include <glib-unix.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <utility>

namespace varro2::cli {
namespace {

constexpr const char *switch_name = "com.quor.Event.Switch";
constexpr const char *switch_path = "/com/quor/Event/Switch";
constexpr const char *driver = "org.freedesktop.DBus";
constexpr const char *driver_path = "/org/freedesktop/DBus";
constexpr gint64 farewell_limit = 10 * G_USEC_PER_SEC;
constexpr guint farewell_step = 5; // milliseconds

std::string bus_address() {
  const char *address = g_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address != nullptr ? address : "unix:path=/run/dbus/system_bus_socket";
}

// The driver's answer to a question about a name; nothing when nobody has it.
OwnedMessage ask_driver(sd_bus *bus, const char *method, const char *name) {
  sd_bus_message *answer = nullptr;
  if (sd_bus_call_method(bus, driver, driver_path, driver, method, nullptr, &answer, "s", name) < 0)
    return nullptr;
  return OwnedMessage{answer};
}

std::uint32_t ask_number(sd_bus *bus, const char *method, const char *name) {
  std::uint32_t number = 0;
  if (const OwnedMessage answer = ask_driver(bus, method, name))
    sd_bus_message_read(answer.get(), "u", &number);
  return number;
}

struct Later {
  std::function<void()> function;
};

gboolean run_later(gpointer data) noexcept {
  static_cast<Later *>(data)->function();
  return G_SOURCE_REMOVE;
}

// For the loops inside destructors.
class Turn {
 public:
  void wait() {
    while (!done_)
      g_main_context_iteration(nullptr, TRUE);
  }
  void end() { done_ = true; }

 private:
  bool done_ = false;
};

} // namespace

Session::Session() : loop_{g_main_loop_new(nullptr, FALSE)} {
  GError *error = nullptr;
  if (connect_to_bus_and_attach_events(&source_, &bus_, &error) < 0) {
    const OwnedError owned{error};
    g_main_loop_unref(loop_);
    throw Failure{"no message bus at " + bus_address() +
                  (owned ? std::string{": "} + g_strerror(-owned->code) : "")};
  }
  subscribe();
}

void Session::subscribe() {
  const char *name = nullptr;
  sd_bus_get_unique_name(bus_, &name);
  own_name_ = name != nullptr ? name : "";
  watcher_.online = [](gpointer self) {
    auto &session = *static_cast<Session *>(self);
    session.switch_there_ = true;
    if (session.switch_handler_)
      session.switch_handler_(true);
  };
  watcher_.offline = [](gpointer self) {
    auto &session = *static_cast<Session *>(self);
    session.switch_there_ = false;
    if (session.switch_handler_)
      session.switch_handler_(false);
  };
  watcher_.user_data = this;
  watch_bus_driver(bus_, &watcher_);
  sd_bus_match_signal(bus_, nullptr, "org.freedesktop.DBus.Local", "/org/freedesktop/DBus/Local",
                      "org.freedesktop.DBus.Local", "Disconnected", on_disconnected, this);
}

Session::~Session() {
  cancel_timers();
  disconnect_from_bus_and_detach_events(source_, bus_);
  g_main_loop_unref(loop_);
}

int Session::on_disconnected(sd_bus_message *, void *self, sd_bus_error *) noexcept {
  auto &session = *static_cast<Session *>(self);
  session.bus_gone_ = true;
  session.quit(exit_failed);
  return 0;
}

std::optional<SwitchOwner> Session::switch_owner() {
  const OwnedMessage answer = ask_driver(bus_, "GetNameOwner", switch_name);
  const char *name = nullptr;
  if (!answer || sd_bus_message_read(answer.get(), "s", &name) < 0)
    return {};
  switch_there_ = true;
  return SwitchOwner{name, ask_number(bus_, "GetConnectionUnixProcessID", name),
                     ask_number(bus_, "GetConnectionUnixUser", name)};
}

OwnedMessage Session::new_call_to_switch(const char *interface, const char *method) const {
  sd_bus_message *call = nullptr;
  if (sd_bus_message_new_method_call(bus_, &call, switch_name, switch_path, interface, method) < 0)
    throw Failure{"the message bus went away"};
  sd_bus_message_set_auto_start(call, 0);
  return OwnedMessage{call};
}

void Session::require_switch() {
  if (!switch_owner())
    throw Failure{"there is no event switch on the bus (is varro2-switchd running?)"};
}

int Session::run() {
  if (!ended())
    g_main_loop_run(loop_);
  return result();
}

int Session::result() const {
  if (bus_gone_)
    throw Failure{"the message bus went away"};
  return code_;
}

void Session::quit(int code) {
  code_ = code;
  ended_ = true;
  g_main_loop_quit(loop_);
}

void Session::later(double seconds, std::function<void()> function) {
  const auto milliseconds = static_cast<guint>(std::min(seconds * 1000 + 0.5, 4e9));
  sources_.push_back(g_timeout_add_full(
      G_PRIORITY_DEFAULT, milliseconds, [](gpointer data) -> gboolean { return run_later(data); },
      new Later{std::move(function)}, [](gpointer data) { delete static_cast<Later *>(data); }));
}

void Session::cancel_timers() {
  for (const guint source : std::exchange(sources_, {}))
    if (GSource *found = g_main_context_find_source_by_id(nullptr, source))
      g_source_destroy(found);
}

void Session::quit_after(double seconds, int code) {
  if (seconds >= 0)
    later(seconds, [this, code] { quit(code); });
}

void Session::quit_on_signals(int code) {
  for (const int number : {SIGINT, SIGTERM})
    sources_.push_back(g_unix_signal_add_full(
        G_PRIORITY_DEFAULT, number,
        [](gpointer data) -> gboolean {
          static_cast<Later *>(data)->function();
          return G_SOURCE_CONTINUE;
        },
        new Later{[this, code] { quit(code); }},
        [](gpointer data) { delete static_cast<Later *>(data); }));
}

// Unique names of this process's other connections.
std::vector<std::string> Session::own_connections() {
  sd_bus_message *list = nullptr;
  if (sd_bus_call_method(bus_, driver, driver_path, driver, "ListNames", nullptr, &list, "") < 0)
    return {};
  const OwnedMessage owner{list};
  std::vector<std::string> connections;
  const char *name = nullptr;
  sd_bus_message_enter_container(list, 'a', "s");
  while (sd_bus_message_read(list, "s", &name) > 0)
    if (*name == ':' && name != own_name_ &&
        ask_number(bus_, "GetConnectionUnixProcessID", name) ==
            static_cast<std::uint32_t>(getpid()))
      connections.emplace_back(name);
  return connections;
}

void Session::wait_for_farewells() {
  std::vector<std::string> connections = own_connections();
  const gint64 end = g_get_monotonic_time() + farewell_limit;
  while (!connections.empty() && !bus_gone_ && g_get_monotonic_time() < end) {
    Turn turn;
    g_timeout_add(
        farewell_step,
        [](gpointer data) -> gboolean {
          static_cast<Turn *>(data)->end();
          return G_SOURCE_REMOVE;
        },
        &turn);
    turn.wait();
    std::erase_if(connections, [this](const std::string &name) {
      return ask_driver(bus_, "GetNameOwner", name.c_str()) == nullptr;
    });
  }
}

// ---- Subscriber

Subscriber::Subscriber(Session &) : consumer_{event_consumer_new("varro2")} {}

Subscriber::~Subscriber() {
  Turn turn;
  if (token_ != 0)
    event_consumer_unsubscribe(consumer_, token_, nullptr);
  event_consumer_int_free(
      consumer_, [](EventConsumer *, gpointer data) { static_cast<Turn *>(data)->end(); }, &turn);
  turn.wait();
}

void Subscriber::subscribe(const SubscribeExpression &expression, bool secure, OnEvent on_event,
                           OnNotification on_notification) {
  on_event_ = std::move(on_event);
  on_notification_ = std::move(on_notification);
  if (secure)
    subscribe_secure(expression);
  else
    subscribe_plain(expression);
  if (token_ == 0)
    throw Failure{"the subscription was refused"};
}

void Subscriber::subscribe_plain(const SubscribeExpression &expression) {
  token_ = event_consumer_subscribe_full(
      consumer_, &expression,
      [](::Event *event, gpointer self) {
        const OwnedEvent owner{event};
        static_cast<Subscriber *>(self)->on_event_(*event, {});
      },
      [](::Notification *notification, gpointer self) {
        const OwnedNotification owner{notification};
        if (const auto &handler = static_cast<Subscriber *>(self)->on_notification_)
          handler(*notification, {});
      },
      this);
}

void Subscriber::subscribe_secure(const SubscribeExpression &expression) {
  token_ = event_consumer_subscribe_secure_full(
      consumer_, &expression,
      [](::Event *event, guint32 uid, gpointer self) {
        const OwnedEvent owner{event};
        static_cast<Subscriber *>(self)->on_event_(*event, uid);
      },
      [](::Notification *notification, guint32 uid, gpointer self) {
        const OwnedNotification owner{notification};
        if (const auto &handler = static_cast<Subscriber *>(self)->on_notification_)
          handler(*notification, uid);
      },
      this);
}

// ---- Sender

Sender::Sender(Session &session) : session_{session}, producer_{event_producer_new("varro2")} {}

Sender::~Sender() {
  Turn turn;
  event_producer_int_free(
      producer_, [](EventProducer *, gpointer data) { static_cast<Turn *>(data)->end(); }, &turn);
  turn.wait();
  session_.wait_for_farewells();
}

} // namespace varro2::cli
