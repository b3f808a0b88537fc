// When something happened: an optional time of the calendar, and its forms in records, for callers,
// and for callers that still count in GTimeVal.
#pragma once

#include "owning.hpp"
#include "serialize.hpp"

#include <atomic>

namespace varro2 {

// Stands in the place of the microseconds where there is no timestamp.
inline constexpr guint32 no_timestamp = 0x7FFFFFFF;

// A number. The GDateTime is the one that an application has set, which it gets back as it is, or
// made when somebody asks, or copies: most times are only handed on.
class Timestamp {
 public:
  Timestamp() noexcept = default;
  explicit Timestamp(GDateTime *time);
  // None for a time that no calendar holds.
  static Timestamp at(gint64 seconds, gint64 microseconds) noexcept;
  static Timestamp now() noexcept { return at(0, g_get_real_time()); }

  // Both lend the same GDateTime from now on.
  Timestamp(const Timestamp &other) noexcept;
  Timestamp(Timestamp &&other) noexcept { swap(other); }
  Timestamp &operator=(Timestamp other) noexcept {
    swap(other);
    return *this;
  }
  ~Timestamp() {
    if (GDateTime *time = time_.load(std::memory_order_relaxed))
      g_date_time_unref(time);
  }

  explicit operator bool() const noexcept { return microseconds_ != none; }
  // Since 1970, UTC, and those since the last second; 0 for none.
  gint64 seconds() const noexcept;
  gint32 microsecond() const noexcept;
  // Lent: always the same one, or null for none. Threads may ask at the same time.
  GDateTime *get() const {
    GDateTime *time = time_.load(std::memory_order_acquire);
    return time != nullptr || !*this ? time : make_and_keep();
  }

 private:
  static constexpr gint64 none = G_MININT64;

  GDateTime *make() const;
  GDateTime *make_and_keep() const;
  // Who changes a time is alone with it.
  void swap(Timestamp &other) noexcept {
    std::swap(microseconds_, other.microseconds_);
    GDateTime *const time = time_.load(std::memory_order_relaxed);
    time_.store(other.time_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    other.time_.store(time, std::memory_order_relaxed);
  }

  gint64 microseconds_ = none; // since 1970, UTC
  mutable std::atomic<GDateTime *> time_ = nullptr;
};

template <typename Sink>
void write_timestamp(Sink &sink, const Timestamp &timestamp) {
  if (!timestamp) {
    sink.u32(no_timestamp);
    return;
  }
  const gint64 seconds = timestamp.seconds();
  sink.u32(static_cast<guint32>(timestamp.microsecond()));
  sink.blob(&seconds, sizeof seconds);
}

// None also for a time that no calendar holds: the record came from elsewhere.
Timestamp read_timestamp(Reader &reader);

G_GNUC_BEGIN_IGNORE_DEPRECATIONS
inline Timestamp timestamp_from_timeval(GTimeVal time) noexcept {
  return Timestamp::at(time.tv_sec, time.tv_usec);
}
// {0, 0} for none.
GTimeVal timestamp_to_timeval(const Timestamp &timestamp) noexcept;
G_GNUC_END_IGNORE_DEPRECATIONS

} // namespace varro2
