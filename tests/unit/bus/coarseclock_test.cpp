// The clock that is asked with every call.
#include "coarseclock.hpp"

#include <gtest/gtest.h>

using namespace varro2;

namespace {

// Also where a time_t has 32 bits and the machine has been up for more than half an hour. What it
// says lies at most two ticks of the slowest kernel behind.
TEST(CoarseClock, FollowsTheMonotonicOne) {
  constexpr gint64 coarse = 20'000;
  const gint64 before = g_get_monotonic_time();
  const gint64 now = now_coarsely();
  EXPECT_GE(now + coarse, before);
  EXPECT_LE(now, g_get_monotonic_time());
}

} // namespace
