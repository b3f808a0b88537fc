#include "connectionsource.hpp"

#include "bussource.hpp"

#include <algorithm>
#include <utility>

#include <sys/socket.h>

namespace varro2 {

namespace {

struct ConnectionSource {
  GSource source;
  GPollFD poll;
  sd_bus *bus;
  bool is_reading;      // in a dispatch, which a handler may not have left
  bool is_polled;       // by the main loop
  guint64 awaited_time; // monotonic microseconds; G_MAXUINT64: none
  gint64 read_at;       // monotonic microseconds
  bool had_many;        // more than one message was read then
};

// Messages that are further apart come one by one: to ask for the next one at once would be in
// vain. Microseconds.
constexpr gint64 close_together = 200;

ConnectionSource &self_of(GSource *source) {
  return *reinterpret_cast<ConnectionSource *>(source);
}

void start_polling(GSource *source) {
  ConnectionSource &self = self_of(source);
  if (!std::exchange(self.is_polled, true))
    g_source_add_poll(source, &self.poll);
}

void stop_polling(GSource *source) {
  ConnectionSource &self = self_of(source);
  if (std::exchange(self.is_polled, false))
    g_source_remove_poll(source, &self.poll);
}

// Until the awaited time. Microseconds.
gint64 time_left(GSource *source) {
  const guint64 awaited = self_of(source).awaited_time;
  if (awaited >= guint64{G_MAXINT64})
    return G_MAXINT64;
  return static_cast<gint64>(awaited) - g_source_get_time(source);
}

gboolean prepare(GSource *source, gint *timeout) noexcept {
  ConnectionSource &self = self_of(source);
  // A main loop that a handler iterates must not spin on what only the outer one can take away, not
  // even on a hang-up, which is always polled for.
  if (self.is_reading) {
    stop_polling(source);
    return FALSE;
  }
  // Another one after a first address that could not be reached.
  if (const int descriptor = sd_bus_get_fd(self.bus); descriptor != self.poll.fd) {
    stop_polling(source);
    self.poll.fd = descriptor;
  }
  const int events = sd_bus_get_events(self.bus);
  if (events < 0 || sd_bus_get_timeout(self.bus, &self.awaited_time) < 0)
    return TRUE; // it has ended
  start_polling(source);
  self.poll.events = static_cast<gushort>(events);
  const gint64 left = time_left(source);
  if (left != G_MAXINT64)
    *timeout = static_cast<gint>(std::clamp<gint64>((left + 999) / 1000, 0, G_MAXINT));
  return left <= 0;
}

gboolean check(GSource *source) noexcept {
  const ConnectionSource &self = self_of(source);
  return !self.is_reading && (self.poll.revents != 0 || time_left(source) <= 0);
}

// Where messages come one by one, to ask for the next at once would be a system call in vain.
// Negative: a failure.
int read_expected(GSource *source) {
  ConnectionSource &self = self_of(source);
  const gint64 now = g_source_get_time(source);
  const gint64 before = std::exchange(self.read_at, now);
  const bool many = self.had_many || now - before < close_together;
  const MessagesRead read = read_on(source, self.bus, many ? messages_per_dispatch : 1);
  self.had_many = read.count > 1;
  return read.status;
}

// What cannot be read will not get better. The loop object closes a connection so that all who wait
// for an answer hear of it; for that it has to find the connection readable.
void break_off(sd_bus *bus) {
  const int descriptor = sd_bus_get_fd(bus);
  if (descriptor >= 0)
    shutdown(descriptor, SHUT_RDWR);
  if (sd_event *event = sd_bus_get_event(bus))
    sd_event_run(event, 0);
}

gboolean dispatch(GSource *source, GSourceFunc, gpointer) noexcept {
  ConnectionSource &self = self_of(source);
  if (self.is_reading)
    return G_SOURCE_CONTINUE;
  self.is_reading = true;
  const bool has_failed = read_expected(source) < 0;
  self.is_reading = false;
  if (g_source_is_destroyed(source))
    return G_SOURCE_REMOVE;
  if (has_failed)
    break_off(self.bus);
  // One that could not even be closed would fail again and again.
  const bool is_done =
      sd_bus_get_events(self.bus) < 0 || (has_failed && sd_bus_is_open(self.bus) > 0);
  return is_done ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

void finalize(GSource *source) noexcept {
  sd_bus_unref(self_of(source).bus);
}

GSourceFuncs functions = {.prepare = prepare,
                          .check = check,
                          .dispatch = dispatch,
                          .finalize = finalize,
                          .closure_callback = nullptr,
                          .closure_marshal = nullptr};

} // namespace

GSource *connection_source_new(sd_bus *bus) {
  const int descriptor = sd_bus_get_fd(bus);
  if (descriptor < 0)
    return nullptr;
  GSource *source = g_source_new(&functions, sizeof(ConnectionSource));
  ConnectionSource &self = self_of(source);
  self.bus = sd_bus_ref(bus);
  self.awaited_time = G_MAXUINT64;
  self.poll = {.fd = descriptor, .events = 0, .revents = 0};
  start_polling(source);
  // Otherwise GLib takes the poll record out and in again around every dispatch.
  g_source_set_can_recurse(source, TRUE);
  return source;
}

} // namespace varro2
