// The monotonic clock, to a few milliseconds: for what is asked with every call.
#pragma once

#include <glib.h>

#include <ctime>

namespace varro2 {

// Microseconds.
inline gint64 now_coarsely() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  // Where a time_t has 32 bits the product needs more.
  return gint64{now.tv_sec} * G_USEC_PER_SEC + now.tv_nsec / 1000;
}

} // namespace varro2
