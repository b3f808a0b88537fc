#include "bussource.hpp"

#include <cstddef>
#include <optional>
#include <utility>

namespace varro2 {

namespace {

struct BusSource {
  GSource source;
  GPollFD poll;
  sd_event *event;
  sd_bus *bus;
  bool reading; // messages are read past the loop
  bool is_sole; // the loop has nothing to do but for the connection
  // What the armed loop waits for, of a connection that is all it has.
  int awaited_events;
  guint64 awaited_time; // monotonic microseconds
  gint64 read_at;       // monotonic microseconds
  bool had_many;        // more than one message was read then
};
static_assert(offsetof(BusSource, poll) == sizeof(GSource));
static_assert(offsetof(BusSource, event) == sizeof(GSource) + sizeof(GPollFD));

constexpr gushort poll_conditions = G_IO_IN | G_IO_ERR | G_IO_HUP;
static_assert(poll_conditions == 25);

// One dispatch goes on with the messages that are there, but lets the main loop's other sources run
// after this many.
constexpr int messages_per_dispatch = 64;

// Messages that are further apart come one by one: to ask for the next one at once would be in
// vain. Microseconds.
constexpr gint64 close_together = 200;

BusSource &self_of(GSource *source) {
  return *reinterpret_cast<BusSource *>(source);
}

sd_event *loop_of(GSource *source) {
  return self_of(source).event;
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

struct Awaited {
  int events;
  guint64 time;
};

// What the connection waits for now. Nothing while that is for the loop to find out.
std::optional<Awaited> awaited_by(sd_bus *bus) {
  Awaited awaited{.events = sd_bus_get_events(bus), .time = G_MAXUINT64};
  if (awaited.events < 0 || sd_bus_get_timeout(bus, &awaited.time) < 0)
    return std::nullopt;
  return awaited;
}

// Whether the loop need not be told anything: it waits for its connection's messages already, and
// wakes up in time for its time-outs. To wake up before costs less than to set the timer for every
// call and answer.
bool waits_well(const BusSource &self, int state) {
  if (!self.is_sole || state != SD_EVENT_ARMED)
    return false;
  const auto awaited = awaited_by(self.bus);
  return awaited && awaited->events == self.awaited_events && awaited->time >= self.awaited_time;
}

// As find_work(); remembers what the loop was armed for.
bool find_work_or_wait(BusSource &self) {
  if (find_work(self.event))
    return true;
  // Without an answer the next turn tells the loop again.
  const auto awaited = awaited_by(self.bus).value_or(Awaited{.events = -1, .time = 0});
  self.awaited_events = awaited.events;
  self.awaited_time = awaited.time;
  return false;
}

gboolean bus_source_prepare(GSource *source, gint *) noexcept {
  // A main loop that a handler iterates must not spin on what only the outer one can take away.
  BusSource &self = self_of(source);
  const int state = state_of(self);
  const bool handled = state == SD_EVENT_RUNNING;
  self.poll.events = handled ? 0 : poll_conditions;
  return !handled && !waits_well(self, state) && find_work_or_wait(self);
}

gboolean bus_source_check(GSource *source) noexcept {
  const BusSource &self = self_of(source);
  switch (state_of(self)) {
  case SD_EVENT_PENDING:
    return TRUE;
  case SD_EVENT_ARMED:
    return self.is_sole ? self.poll.revents != 0 : wait_without_blocking(self.event);
  default:
    return FALSE;
  }
}

// Takes the messages that are there already, without a turn of the loop for each: a turn costs more
// system calls than a message. Ends early when a handler destroys the source. A failure is left to
// the loop, which comes upon it again and closes the connection. How many there were.
int read_on(GSource *source, int at_most) {
  BusSource &self = self_of(source);
  self.reading = true;
  int count = 0;
  while (count < at_most && !g_source_is_destroyed(source) && sd_bus_process(self.bus, nullptr) > 0)
    ++count;
  self.reading = false;
  return count;
}

// Runs what the loop has ready, and goes on. Negative or 0: the loop has ended.
int dispatch_loop(GSource *source) {
  const int r = sd_event_dispatch(loop_of(source));
  if (r > 0)
    read_on(source, messages_per_dispatch - 1);
  return r;
}

// Where messages come one by one, to ask for the next at once would be a system call in vain.
int read_expected(GSource *source) {
  BusSource &self = self_of(source);
  const gint64 now = g_source_get_time(source);
  const gint64 before = std::exchange(self.read_at, now);
  const bool many = self.had_many || now - before < close_together;
  const int count = read_on(source, many ? messages_per_dispatch : 1);
  self.had_many = count > 1;
  return count;
}

gboolean bus_source_dispatch(GSource *source, GSourceFunc, gpointer) noexcept {
  BusSource &self = self_of(source);
  const int state = state_of(self);
  if (state == SD_EVENT_RUNNING)
    return G_SOURCE_CONTINUE;
  // Messages are nearly always all that there is; if there are none, it was the timer or the end.
  const bool has_read = self.is_sole && state == SD_EVENT_ARMED && read_expected(source) > 0;
  if (!has_read && find_work_or_wait(self) && dispatch_loop(source) <= 0)
    return G_SOURCE_REMOVE;
  // Also when somebody else drove it to its end.
  if (!has_read && sd_event_get_state(self.event) == SD_EVENT_FINISHED)
    return G_SOURCE_REMOVE;
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

void bus_source_set_sole(GSource *source) {
  self_of(source).is_sole = true;
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
