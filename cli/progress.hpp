// How far a long command has come, on a line of the standard error stream that is written over.
#pragma once

#include "terminal.hpp"

#include <cstddef>
#include <cstdint>
#include <string>

namespace varro2::cli {

// Shows nothing where there is no terminal.
class Progress {
 public:
  explicit Progress(std::string what);
  ~Progress(); // clears the line
  Progress(const Progress &) = delete;
  Progress &operator=(const Progress &) = delete;

  // total 0: not known. Shown at most ten times a second.
  void show(std::size_t done, std::size_t total);

 private:
  std::string what_;
  bool shown_;
  std::int64_t begin_;
  std::int64_t last_ = 0;
};

std::string duration_text(std::int64_t microseconds); // "1:02:03", "02:03"

} // namespace varro2::cli
