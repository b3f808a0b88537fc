// Counts what this program takes from the heap.
#pragma once

#include <cstddef>

namespace varro2::test {

// How often this thread has allocated so far, and how many bytes the process holds now: blocks that
// this thread keeps for what it makes next are freed before.
std::size_t allocation_count();
std::size_t bytes_held();

template <typename Function>
std::size_t allocations_of(Function function) {
  const std::size_t before = allocation_count();
  function();
  return allocation_count() - before;
}

} // namespace varro2::test
