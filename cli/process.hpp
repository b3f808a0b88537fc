// What the kernel tells about other processes.
#pragma once

#include <cstdint>
#include <string>

namespace varro2::cli {

struct Process {
  std::string name;       // empty: not known, or in another name space
  std::int64_t since = 0; // microseconds since 1970; 0: not known
};

Process process_with(std::uint32_t pid);

} // namespace varro2::cli
