// How a command ends other than well.
#pragma once

#include <stdexcept>
#include <string>

namespace varro2::cli {

enum ExitCode {
  exit_done = 0,
  exit_failed = 1,
  exit_usage = 2,
  exit_nothing = 3,
  exit_timed_out = 124,
  exit_interrupted = 130,
};

// Ends the command with one line on the standard error stream; an empty text leaves it silent.
class Failure : public std::runtime_error {
 public:
  explicit Failure(const std::string &text, int code = exit_failed)
      : std::runtime_error{text}, code_{code} {}
  int code() const { return code_; }

 private:
  int code_;
};

class UsageError : public Failure {
 public:
  explicit UsageError(const std::string &text) : Failure{text, exit_usage} {}
};

} // namespace varro2::cli
