#include "bussource.hpp"

#include <cstddef>

namespace varro2 {

namespace {

struct BusSource {
  GSource source;
  GPollFD poll;
  sd_event *event;
};
static_assert(offsetof(BusSource, poll) == sizeof(GSource));
static_assert(offsetof(BusSource, event) == sizeof(GSource) + sizeof(GPollFD));

constexpr gushort poll_conditions = G_IO_IN | G_IO_ERR | G_IO_HUP;
static_assert(poll_conditions == 25);

// One dispatch goes on with what is ready at once, but lets the main loop's other sources run
// after this many rounds.
constexpr int rounds_per_dispatch = 64;

sd_event *loop_of(GSource *source) {
  return reinterpret_cast<BusSource *>(source)->event;
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
  default: // running: a handler iterates the main loop
    return false;
  }
}

gboolean bus_source_prepare(GSource *source, gint *) noexcept {
  sd_event *event = loop_of(source);
  // A main loop that a handler iterates must not spin on what only the outer one can take away.
  const bool within_handler = sd_event_get_state(event) == SD_EVENT_RUNNING;
  reinterpret_cast<BusSource *>(source)->poll.events = within_handler ? 0 : poll_conditions;
  return find_work(event);
}

gboolean bus_source_check(GSource *source) noexcept {
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

gboolean bus_source_dispatch(GSource *source, GSourceFunc, gpointer) noexcept {
  sd_event *event = loop_of(source);
  if (sd_event_get_state(event) == SD_EVENT_RUNNING)
    return G_SOURCE_CONTINUE;
  for (int round = 0; round < rounds_per_dispatch; ++round) {
    if (!find_work(event))
      return G_SOURCE_CONTINUE;
    if (sd_event_dispatch(event) <= 0)
      return G_SOURCE_REMOVE;
    if (g_source_is_destroyed(source))
      return G_SOURCE_REMOVE;
  }
  return G_SOURCE_CONTINUE;
}

void bus_source_finalize(GSource *source) noexcept {
  sd_event_unref(loop_of(source));
}

GSourceFuncs bus_source_functions = {.prepare = bus_source_prepare,
                                     .check = bus_source_check,
                                     .dispatch = bus_source_dispatch,
                                     .finalize = bus_source_finalize,
                                     .closure_callback = nullptr,
                                     .closure_marshal = nullptr};

} // namespace

GSource *bus_source_new(sd_event *event) {
  GSource *source = g_source_new(&bus_source_functions, sizeof(BusSource));
  auto *bus_source = reinterpret_cast<BusSource *>(source);
  bus_source->event = sd_event_ref(event);
  bus_source->poll = {.fd = sd_event_get_fd(event), .events = poll_conditions, .revents = 0};
  g_source_add_poll(source, &bus_source->poll);
  // Otherwise GLib takes the poll record out and in again around every dispatch.
  g_source_set_can_recurse(source, TRUE);
  return source;
}

} // namespace varro2
