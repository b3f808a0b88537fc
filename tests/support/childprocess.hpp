// A program that runs beside the test, with its three standard streams on pipes.
#pragma once

#include "mainloop.hpp"

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varro2::test {

using Environment = std::vector<std::pair<std::string, std::string>>;

// Started by the constructor; killed and waited for by the destructor. Dies with the thread that
// started it, also when that one crashes. One thread at a time.
class ChildProcess {
 public:
  // The first word is looked up on the PATH. What is in the environment list is added to the
  // test's own environment.
  explicit ChildProcess(const std::vector<std::string> &command,
                        const Environment &environment = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess &) = delete;
  ChildProcess &operator=(const ChildProcess &) = delete;

  pid_t pid() const { return pid_; }
  bool running();
  void signal(int number);

  // What was written so far. Never blocks, and keeps the child's pipes from filling up.
  const std::string &output();
  const std::string &errors();

  // The next line of the standard output, without its line feed; nothing when the stream ended or
  // the deadline passed.
  std::optional<std::string> read_line(std::chrono::milliseconds limit = generous);
  // Reads lines until one contains the text; that line, or nothing as above.
  std::optional<std::string> read_line_with(std::string_view text,
                                            std::chrono::milliseconds limit = generous);

  void write(std::string_view text);
  void close_input();

  // Reads both streams to their ends and waits. The exit code, or 128 + the signal that ended it;
  // past the deadline the child is killed and that is reported as a test failure.
  int wait(std::chrono::milliseconds limit = generous);

 private:
  void drain(std::chrono::milliseconds limit);
  bool reap(bool block);

  pid_t pid_ = -1;
  int input_ = -1;
  int streams_[2] = {-1, -1}; // standard output, standard error
  std::string texts_[2];
  std::size_t next_line_ = 0;
  std::optional<int> status_;
};

} // namespace varro2::test
