#include "connection.hpp"

#include "buserrors.hpp"
#include "connectionsource.hpp"

namespace varro2 {

namespace {

// How long a retired connection waits while nothing moves, and in all. Milliseconds.
constexpr guint farewell_patience = 2'000;
constexpr gint64 farewell_limit = 60'000;

// How long a bus may take to read what a retired connection had to send. Microseconds.
constexpr std::uint64_t hand_over_limit = 10'000'000;

constexpr SendLimits event_limits{.burst_bytes = 32 * 1024 * 1024};

// Together with the events on the way, and a blocking call or two, less than what a daemon allows.
// What one switch gets leaves room for the next: the daemon still counts what the former one has
// not answered. The queue is bounded only against a switch that hangs for good.
constexpr SendLimits switch_limits{.unanswered_per_receiver = 24,
                                   .unanswered = 28,
                                   .queued_bytes = 64 * 1024 * 1024,
                                   .outlives_receiver = true};

// Nobody else gets at the loop object: the main loop need not go through it.
SourceRef source_for(sd_bus *bus, GSource *through_loop) {
  auto source = SourceRef::adopt(connection_source_new(bus));
  if (!source)
    return SourceRef::share(through_loop);
  g_source_attach(source.get(), nullptr);
  g_source_destroy(through_loop);
  return source;
}

gint64 now_in_milliseconds() {
  return g_get_monotonic_time() / 1000;
}

} // namespace

bool found_no_switch(CallEnd end, sd_bus_message *answer) {
  return end == CallEnd::dropped || (end == CallEnd::answered && says_not_delivered(answer));
}

// Keeps a retired connection. Owned by a timer of the default main context, so that a process that
// stops iterating it leaves nothing unowned behind.
class Connection::Farewell {
 public:
  explicit Farewell(std::unique_ptr<Connection> connection)
      : connection_{std::move(connection)}, answered_{connection_->answered()},
        end_{now_in_milliseconds() + farewell_limit} {}

  static void begin(std::unique_ptr<Connection> connection) {
    Connection &kept = *connection;
    const auto timer = SourceRef::adopt(g_timeout_source_new(farewell_patience));
    g_source_set_callback(timer.get(), elapsed, new Farewell{std::move(connection)}, release);
    // Not closed on the spot: this runs inside the connection's own dispatch. The timer owns the
    // connection, not the other way round.
    kept.settled_handler_ = [timer = timer.get()] { g_source_set_ready_time(timer, 0); };
    g_source_attach(timer.get(), nullptr);
  }

 private:
  static gboolean elapsed(gpointer user_data) noexcept {
    return static_cast<Farewell *>(user_data)->go_on() ? G_SOURCE_CONTINUE : G_SOURCE_REMOVE;
  }
  static void release(gpointer user_data) noexcept { delete static_cast<Farewell *>(user_data); }

  // Whether there is something left to wait for.
  bool go_on() {
    const std::uint64_t before = std::exchange(answered_, connection_->answered());
    const bool moving = answered_ != before;
    return !connection_->settled() && moving && now_in_milliseconds() < end_;
  }

  std::unique_ptr<Connection> connection_;
  std::uint64_t answered_;
  gint64 end_;
};

std::unique_ptr<Connection> Connection::open(GError **error) {
  GSource *source = nullptr;
  sd_bus *bus = nullptr;
  if (connect_to_bus_and_attach_events(&source, &bus, error) < 0) {
    sd_bus_close_unref(bus);
    return nullptr;
  }
  return std::unique_ptr<Connection>{new Connection{bus, source_for(bus, source)}};
}

Connection::Connection(sd_bus *bus, SourceRef source)
    : bus_{bus}, source_{std::move(source)}, window_{std::in_place, bus, event_limits},
      switch_window_{std::in_place, bus, switch_limits} {
  window_->set_idle_handler([this] { note_settled(); });
}

Connection::~Connection() {
  silence();
  // What holds a slot holds the bus.
  window_.reset();
  switch_window_.reset();
  disconnect_from_bus_and_detach_events(source_.get(), bus_);
}

void Connection::silence() {
  served_.reset();
  filter_.reset();
  attended_.reset();
  watcher_ = {};
  window_->set_unattended();
  switch_window_->set_unattended();
}

// The process may end as soon as it hears that the object has gone. A bus that answers has read all
// that was sent before.
void Connection::hand_over() {
  window_->send_rest();
  switch_window_->send_rest();
  sd_bus_set_method_call_timeout(bus_, hand_over_limit);
  sd_bus_call_method(bus_, bus_driver_name, "/org/freedesktop/DBus", "org.freedesktop.DBus.Peer",
                     "Ping", nullptr, nullptr, nullptr);
}

void Connection::retire(std::unique_ptr<Connection> connection) {
  if (!connection)
    return;
  connection->silence();
  connection->hand_over();
  if (connection->settled())
    return;
  Farewell::begin(std::move(connection));
}

int Connection::serve(const char *path, const char *interface, const sd_bus_vtable *vtable,
                      void *object) {
  return sd_bus_add_object_vtable(bus_, served_.out(), path, interface, vtable, object);
}

int Connection::filter(sd_bus_message_handler_t handler, void *object) {
  return sd_bus_add_filter(bus_, filter_.out(), handler, object);
}

int Connection::watch_switch(BusWatcherCallback online, BusWatcherCallback offline,
                             gpointer object) {
  watcher_ = {.online = online, .offline = offline, .user_data = object};
  return watch_bus_driver(bus_, &watcher_);
}

void Connection::call_switch(MessageRef message, std::size_t size, CallCompletion completion) {
  if (completion)
    completion = [attended = std::weak_ptr{attended_},
                  told = std::move(completion)](CallEnd end, sd_bus_message *answer) {
      if (!attended.expired())
        told(end, answer);
    };
  send_to_switch(make_window_call(std::move(message), size, std::move(completion)));
}

// A message that is ready has its receiver's name: the window only tells the switches apart.
void Connection::send_to_switch(WindowCall call) {
  switch_window_->send(switch_receiver_.c_str(), std::move(call));
}

void Connection::forget_switch() {
  const std::string former = std::exchange(
      switch_receiver_, switch_address.service + (" after " + std::to_string(++switches_gone_)));
  switch_window_->forget(former.c_str());
}

void Connection::take_leave(MessageRef message) {
  leaving_ = true;
  const auto left = [this](CallEnd, sd_bus_message *) {
    leaving_ = false;
    note_settled();
  };
  send_to_switch(make_window_call(std::move(message), 0, left));
}

void Connection::note_settled() {
  if (settled_handler_ && settled())
    settled_handler_();
}

} // namespace varro2
