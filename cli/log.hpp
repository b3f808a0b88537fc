// What the library logs: warnings go to the standard error stream as lines of this program.
#pragma once

#include "terminal.hpp"

#include <string>
#include <vector>

namespace varro2::cli {

void install_log_handler(const Style &style, bool verbose);

// One line of this program's own on the standard error stream.
void note(const std::string &text);
void note_warning(const std::string &text);

// While it lives, warnings are kept instead of shown.
class QuietLog {
 public:
  QuietLog();
  ~QuietLog();
  QuietLog(const QuietLog &) = delete;
  QuietLog &operator=(const QuietLog &) = delete;
  const std::vector<std::string> &warnings() const { return warnings_; }

 private:
  std::vector<std::string> warnings_;
  std::vector<std::string> *outer_;
};

// The lines that an object prints of itself.
template <typename Print>
std::vector<std::string> printed(const Print &print);

namespace detail {
extern std::vector<std::string> *messages;
}

template <typename Print>
std::vector<std::string> printed(const Print &print) {
  std::vector<std::string> lines;
  detail::messages = &lines;
  print();
  detail::messages = nullptr;
  return lines;
}

} // namespace varro2::cli
