// What a test has arranged for a process that runs with the preloaded faults: shared memory in a
// file that the environment variable VARRO2_FAULTS names.
#pragma once

#include <atomic>
#include <cstdint>

namespace varro2::test {

struct FaultPlan {
  std::atomic<int> file_calls{0};            // on regular files and folders, so far
  char names[64] = {};                       // a letter for each of them: open, mkdir, Fopen,
                                             // read, write, sync, chmod, Rename, unlink
  std::atomic<int> failing_call{0};          // the one of these that fails; 0: none
  std::atomic<int> error_number{0};          // with what
  std::atomic<std::int64_t> clock_offset{0}; // of the wall clock, in seconds
};
static_assert(std::atomic<int>::is_always_lock_free &&
              std::atomic<std::int64_t>::is_always_lock_free);

} // namespace varro2::test
