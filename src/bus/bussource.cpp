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

BusSource &self_of(GSource *source) {
  return *reinterpret_cast<BusSource *>(source);
}

// In which the loop is. It runs as well while messages are read past it: then a handler iterates
// the main loop.
int state_of(const BusSource &self) {
  return self.reading ? SD_EVENT_RUNNING : sd_event_get_state(self.event);
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
  BusSource &self = self_of(source);
  const bool handled = state_of(self) == SD_EVENT_RUNNING;
  self.poll.events = handled ? 0 : poll_conditions;
  return !handled && find_work(self.event);
}

gboolean bus_source_check(GSource *source) noexcept {
  const BusSource &self = self_of(source);
  switch (state_of(self)) {
  case SD_EVENT_PENDING:
    return TRUE;
  case SD_EVENT_ARMED:
    return wait_without_blocking(self.event);
  default:
    return FALSE;
  }
}

// Runs what the loop has ready, and goes on. A failure to read is left to the loop, which comes
// upon it again and closes the connection. Negative or 0: the loop has ended.
int dispatch_loop(GSource *source) {
  BusSource &self = self_of(source);
  const int r = sd_event_dispatch(self.event);
  if (r <= 0)
    return r;
  self.reading = true;
  read_on(source, self.bus, messages_per_dispatch - 1);
  self.reading = false;
  return r;
}

gboolean bus_source_dispatch(GSource *source, GSourceFunc, gpointer) noexcept {
  const BusSource &self = self_of(source);
  if (state_of(self) == SD_EVENT_RUNNING)
    return G_SOURCE_CONTINUE;
  if (find_work(self.event) && dispatch_loop(source) <= 0)
    return G_SOURCE_REMOVE;
  // Also when somebody else drove it to its end.
  if (sd_event_get_state(self.event) == SD_EVENT_FINISHED)
    return G_SOURCE_REMOVE;
  return g_source_is_destroyed(source) ? G_SOURCE_REMOVE : G_SOURCE_CONTINUE;
}

void bus_source_finalize(GSource *source) noexcept {
  sd_bus_unref(self_of(source).bus);
  sd_event_unref(self_of(source).event);
}

GSourceFuncs bus_source_functions = {.prepare = bus_source_prepare,
                                     .check = bus_source_check,
                                     .dispatch = bus_source_dispatch,
                                     .finalize = bus_source_finalize,
                                     .closure_callback = nullptr,
                                     .closure_marshal = nullptr};

} // namespace

MessagesRead read_on(GSource *source, sd_bus *bus, int at_most) {
  MessagesRead read{.count = 0, .status = 1};
  while (read.status > 0 && read.count < at_most && !g_source_is_destroyed(source)) {
    read.status = sd_bus_process(bus, nullptr);
    read.count += read.status > 0 ? 1 : 0;
  }
  return read;
}

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
