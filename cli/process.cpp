#include "process.hpp"

#include <glib.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>

namespace varro2::cli {
namespace {

// From ticks since the machine was started.
std::int64_t started_at(std::int64_t ticks) {
  timespec since_boot{};
  clock_gettime(CLOCK_BOOTTIME, &since_boot);
  const std::int64_t now =
      std::int64_t{since_boot.tv_sec} * G_USEC_PER_SEC + since_boot.tv_nsec / 1000;
  const std::int64_t start =
      ticks * G_USEC_PER_SEC / static_cast<std::int64_t>(sysconf(_SC_CLK_TCK));
  return g_get_real_time() - (now - start);
}

} // namespace

Process process_with(std::uint32_t pid) {
  Process process;
  std::ifstream file{"/proc/" + std::to_string(pid) + "/stat"};
  const std::string text{std::istreambuf_iterator<char>{file}, {}};
  // The name may hold anything, also parentheses.
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos || close + 2 > text.size())
    return process;
  process.name = text.substr(open + 1, close - open - 1);
  std::istringstream rest{text.substr(close + 2)};
  std::string field;
  for (int number = 3; number <= 22; ++number) // the start is the 22nd field
    rest >> field;
  if (rest)
    process.since = started_at(std::strtoll(field.c_str(), nullptr, 10));
  return process;
}

} // namespace varro2::cli
