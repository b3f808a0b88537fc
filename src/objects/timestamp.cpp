#include "timestamp.hpp"

namespace varro2 {

DateTimeRef read_timestamp(Reader &reader) {
  const guint32 microseconds = reader.u32();
  if (microseconds == no_timestamp)
    return {};
  gint64 seconds;
  std::memcpy(&seconds, reader.blob(sizeof seconds), sizeof seconds);

  auto timestamp = DateTimeRef::adopt(g_date_time_new_from_unix_utc(seconds));
  if (!timestamp || microseconds == 0)
    return timestamp;
  return DateTimeRef::adopt(g_date_time_add(timestamp.get(), static_cast<gint32>(microseconds)));
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

DateTimeRef timestamp_from_timeval(GTimeVal time) {
  return DateTimeRef::adopt(g_date_time_new_from_timeval_utc(&time));
}

GTimeVal timestamp_to_timeval(const DateTimeRef &timestamp) {
  GTimeVal time{};
  if (timestamp)
    g_date_time_to_timeval(timestamp.get(), &time);
  return time;
}

G_GNUC_END_IGNORE_DEPRECATIONS

} // namespace varro2
