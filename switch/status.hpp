// Who holds what in the switch and who hangs, for programs of operators.
#pragma once

#include "clients.hpp"
#include "quotas.hpp"
#include "registry.hpp"

#include <cstddef>
#include <string>

namespace varro2::switchd {

namespace switch_status {
inline constexpr const char *interface = "com.quor.Event.Switch.Status";
inline constexpr const char *get_status = "GetStatus";
} // namespace switch_status

struct StatusSource {
  const Registry &registry;
  const Quotas &quotas;
  const SendWindow &window;
  std::size_t lookups; // property states being looked up
};

// One JSON object on one line. Lists are cut where the text exceeds the limit by the next entry;
// "truncated" then says so, and the totals still count everything.
std::string status_text(const StatusSource &source, std::size_t limit = 2 * 1024 * 1024);

} // namespace varro2::switchd
