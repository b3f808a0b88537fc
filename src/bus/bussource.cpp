#include "bussource.hpp"

#include <cstddef>

namespace varro2 {

namespace {

struct BusSource {
  GSource source;
  GPollFD poll;
  sd_event *event;
  sd_bus *bus;
  bool reading; // messages are read past the loop
};
static_assert(offsetof(BusSource, poll) == sizeof(GSource));
static_assert(offsetof(BusSource, event) == sizeof(GSource) + sizeof(GPollFD));

constexpr gushort poll_conditions = G_IO_IN | G_IO_ERR | G_IO_HUP;
static_assert(poll_conditions == 25);

// One dispatch goes on with the messages that are there, but lets the main loop's other sources run
// after this many.
constexpr int messages_per_dispatch = 64;

BusSource &self_of(GSource *source) {
  return *reinterpret_cast<BusSource *>(source);
}

sd_event *loop_of(GSource *source) {
  return self_of(source).event;
}

// Whether a handler iterates the main loop.
bool within_handler(GSource *source) {
  return self_of(source).reading || sd_event_get_state(loop_of(source)) == SD_EVENT_RUNNING;
}

// Whether the armed loop has something to do. Not armed any more afterwards.
bool wait_without_blocking(sd_event *event) {
  return sd_event_wait(event, 0) > 0;
}

// Takes the loop from wherever it was left to "something to do" or "armed". A check that GLib
// skipped leaves it armed, and what the application queued since is not part of that yet.
bool find_work(sd_event *event) {
  switch (sd_event_get_state(event)) {
  case SD_EVENT_PENDING:
    return true;
  case SD_EVENT_ARMED:
    if (wait_without_blocking(event))
      return true;
    return sd_event_prepare(event) > 0;
  case SD_EVENT_INITIAL:
    return sd_event_prepare(event) > 0;
  default:
    return false;
  }
}

gboolean bus_source_prepare(GSource *source, gint *) noexcept {
  // A main loop that a handler iterates must not spin on what only the outer one can take away.
  const bool handled = within_handler(source);
  self_of(source).poll.events = handled ? 0 : poll_conditions;
  return !handled && find_work(loop_of(source));
}

gboolean bus_source_check(GSource *source) noexcept {
  if (within_handler(source))
    return FALSE;
  sd_event *event = loop_of(source);
  switch (sd_event_get_state(event)) {
  case SD_EVENT_PENDING:
    return TRUE;
  case SD_EVENT_ARMED:
    return wait_without_blocking(event);
  default:
    return FALSE;
  }
}

// Takes the messages that are there already, without a turn of the loop for each: a turn costs more
// system calls than a message. Ends early when a handler destroys the source. A failure is left to
// the loop, which comes upon it again and closes the connection.
void read_on(GSource *source) {
  BusSource &self = self_of(source);
  self.reading = true;
  for (int count = 1; count < messages_per_dispatch && !g_source_is_destroyed(source); ++count)
    if (sd_bus_process(self.bus, nullptr) <= 0)
      break;
  self.reading = false;
}

gboolean bus_source_dispatch(GSource *source, GSourceFunc, gpointer) noexcept {
  if (within_handler(source) || !find_work(loop_of(source)))
    return G_SOURCE_CONTINUE;
  if (sd_event_dispatch(loop_of(source)) <= 0)
    return G_SOURCE_REMOVE;
  read_on(source);
  return g_source_is_destroyed(source) ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

void bus_source_finalize(GSource *source) noexcept {
  sd_bus_unref(self_of(source).bus);
  sd_event_unref(loop_of(source));
}

GSourceFuncs bus_source_functions = {.prepare = bus_source_prepare,
                                     .check = bus_source_check,
                                     .dispatch = bus_source_dispatch,
                                     .finalize = bus_source_finalize,
                                     .closure_callback = nullptr,
                                     .closure_marshal = nullptr};

} // namespace

GSource *bus_source_new(sd_event *event, sd_bus *bus) {
  GSource *source = g_source_new(&bus_source_functions, sizeof(BusSource));
  BusSource &self = self_of(source);
  self.event = sd_event_ref(event);
  self.bus = sd_bus_ref(bus);
  self.poll = {.fd = sd_event_get_fd(event), .events = poll_conditions, .revents = 0};
  g_source_add_poll(source, &self.poll);
  // Otherwise GLib takes the poll record out and in again around every dispatch.
  g_source_set_can_recurse(source, TRUE);
  return source;
}

} // namespace varro2
