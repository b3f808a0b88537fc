#include "timestamp.hpp"

#include <utility>

namespace varro2 {

namespace {

// The years 1 to 9999.
bool is_calendar_time(gint64 unix_seconds) noexcept {
  return unix_seconds >= -62135596800 && unix_seconds <= 253402300799;
}

// The second in which a microsecond lies, also before 1970.
gint64 second_of(gint64 microseconds) noexcept {
  return microseconds / G_USEC_PER_SEC - (microseconds % G_USEC_PER_SEC < 0 ? 1 : 0);
}

} // namespace

Timestamp::Timestamp(GDateTime *time)
    : microseconds_{g_date_time_to_unix(time) * G_USEC_PER_SEC + g_date_time_get_microsecond(time)},
      time_{g_date_time_ref(time)} {}

Timestamp::Timestamp(const Timestamp &other) noexcept
    : microseconds_{other.microseconds_}, time_{other.get()} {
  if (GDateTime *time = time_.load(std::memory_order_relaxed))
    g_date_time_ref(time);
}

Timestamp Timestamp::at(gint64 seconds, gint64 microseconds) noexcept {
  if (!is_calendar_time(seconds))
    return {};
  // The microseconds may be more than a second, or less than none.
  Timestamp timestamp;
  gint64 sum = 0;
  if (!__builtin_add_overflow(seconds * G_USEC_PER_SEC, microseconds, &sum) &&
      is_calendar_time(second_of(sum)))
    timestamp.microseconds_ = sum;
  return timestamp;
}

gint64 Timestamp::seconds() const noexcept {
  return *this ? second_of(microseconds_) : 0;
}

gint32 Timestamp::microsecond() const noexcept {
  return *this ? static_cast<gint32>(microseconds_ - seconds() * G_USEC_PER_SEC) : 0;
}

GDateTime *Timestamp::make_and_keep() const {
  GDateTime *time = nullptr;
  auto made = DateTimeRef::adopt(make());
  // Who comes second takes what the first has made.
  return time_.compare_exchange_strong(time, made.get(), std::memory_order_acq_rel,
                                       std::memory_order_acquire)
             ? made.release()
             : time;
}

GDateTime *Timestamp::make() const {
  // In one step where it can be done.
  if (std::in_range<glong>(seconds())) {
    G_GNUC_BEGIN_IGNORE_DEPRECATIONS
    const GTimeVal time = timestamp_to_timeval(*this);
    return g_date_time_new_from_timeval_utc(&time);
    G_GNUC_END_IGNORE_DEPRECATIONS
  }
  const auto second = DateTimeRef::adopt(g_date_time_new_from_unix_utc(seconds()));
  return g_date_time_add(second.get(), microsecond());
}

Timestamp read_timestamp(Reader &reader) {
  const guint32 microseconds = reader.u32();
  if (microseconds == no_timestamp)
    return {};
  gint64 seconds = 0;
  std::memcpy(&seconds, reader.blob(sizeof seconds), sizeof seconds);
  return Timestamp::at(seconds, static_cast<gint32>(microseconds));
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

GTimeVal timestamp_to_timeval(const Timestamp &timestamp) noexcept {
  // Where a long has 32 bits it cannot count every time.
  if (!std::in_range<glong>(timestamp.seconds()))
    return {};
  return {.tv_sec = static_cast<glong>(timestamp.seconds()),
          .tv_usec = static_cast<glong>(timestamp.microsecond())};
}

G_GNUC_END_IGNORE_DEPRECATIONS

} // namespace varro2
