#include "timestamp.hpp"

#include <utility>

namespace varro2 {

namespace {

// The years 1 to 9999. Not every way to make a GDateTime looks at it before it counts in
// microseconds, and a time that passes 64 bits would come out as some other one.
bool is_calendar_time(gint64 unix_seconds) noexcept {
  return unix_seconds >= -62135596800 && unix_seconds <= 253402300799;
}

} // namespace

DateTimeRef read_timestamp(Reader &reader) {
  const guint32 microseconds = reader.u32();
  if (microseconds == no_timestamp)
    return {};
  gint64 seconds = 0;
  std::memcpy(&seconds, reader.blob(sizeof seconds), sizeof seconds);
  if (!is_calendar_time(seconds))
    return {};

  // In one step where it can be done: an object less for every event that is read.
  if (microseconds < G_USEC_PER_SEC && std::in_range<glong>(seconds)) {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    const GTimeVal time{.tv_sec = static_cast<glong>(seconds),
                        .tv_usec = static_cast<glong>(microseconds)};
    return DateTimeRef::adopt(g_date_time_new_from_timeval_utc(&time));
    G_GNUC_END_IGNORE_DEPRECATIONS
  }
  const auto timestamp = DateTimeRef::adopt(g_date_time_new_from_unix_utc(seconds));
  return DateTimeRef::adopt(g_date_time_add(timestamp.get(), static_cast<gint32>(microseconds)));
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

DateTimeRef timestamp_from_timeval(GTimeVal time) {
  if (!is_calendar_time(time.tv_sec))
    return {};
  return DateTimeRef::adopt(g_date_time_new_from_timeval_utc(&time));
}

GTimeVal timestamp_to_timeval(const DateTimeRef &timestamp) {
  GTimeVal time{};
  // GLib would let the seconds wrap where a long has 32 bits.
  if (timestamp && std::in_range<glong>(g_date_time_to_unix(timestamp.get())))
    g_date_time_to_timeval(timestamp.get(), &time);
  return time;
}

G_GNUC_END_IGNORE_DEPRECATIONS

} // namespace varro2
