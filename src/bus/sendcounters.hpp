// What the send windows of the process have in common to tell.
#pragma once

#include <atomic>
#include <cstdint>

namespace varro2 {

// Read from any thread.
struct SendTotals {
  std::atomic<std::uint64_t> answered;
  std::atomic<std::uint64_t> dropped;
  std::atomic<std::uint64_t> unanswered;
  std::atomic<std::uint64_t> waiting;
};

extern constinit SendTotals send_totals;

inline void add(std::atomic<std::uint64_t> &total, std::uint64_t count) {
  total.fetch_add(count, std::memory_order_relaxed);
}

inline void subtract(std::atomic<std::uint64_t> &total, std::uint64_t count) {
  total.fetch_sub(count, std::memory_order_relaxed);
}

} // namespace varro2
