// When something happened: an optional GDateTime in UTC, and its forms in records and for callers
// that still count in GTimeVal.
#pragma once

#include "owning.hpp"
#include "serialize.hpp"

namespace varro2 {

// Stands in the place of the microseconds where there is no timestamp.
inline constexpr guint32 no_timestamp = 0x7FFFFFFF;

template <typename Sink>
void write_timestamp(Sink &sink, const DateTimeRef &timestamp) {
  if (!timestamp) {
    sink.u32(no_timestamp);
    return;
  }
  const gint64 seconds = g_date_time_to_unix(timestamp.get());
  sink.u32(static_cast<guint32>(g_date_time_get_microsecond(timestamp.get())));
  sink.blob(&seconds, sizeof seconds);
}

// None also for a time that no calendar holds: the record came from elsewhere.
DateTimeRef read_timestamp(Reader &reader);

G_GNUC_BEGIN_IGNORE_DEPRECATIONS
DateTimeRef timestamp_from_timeval(GTimeVal time);
// {0, 0} for none.
GTimeVal timestamp_to_timeval(const DateTimeRef &timestamp);
G_GNUC_END_IGNORE_DEPRECATIONS

} // namespace varro2
