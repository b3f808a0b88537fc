#include "sendcounters.hpp"

#include "preconditions.hpp"

#include <varro2/eventutils.h>

constinit varro2::SendTotals varro2::send_totals{};

void event_utils_get_send_counters(SendCounters *counters) noexcept {
  VARRO2_EXPECT(counters != NULL);
  const auto read = [](const std::atomic<std::uint64_t> &total) {
    return guint64{total.load(std::memory_order_relaxed)};
  };
  *counters = {.answered = read(varro2::send_totals.answered),
               .dropped = read(varro2::send_totals.dropped),
               .unanswered = read(varro2::send_totals.unanswered),
               .waiting = read(varro2::send_totals.waiting)};
}
