// Catches what is logged through GLib while it lives; what is caught is not printed.
#pragma once

#include <glib.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::test {

struct LogLine {
  GLogLevelFlags level;
  std::string domain; // empty: logged without a domain
  std::string text;

  bool operator==(const LogLine &) const = default;
};

// Captures may nest; the innermost one gets the line. Lines may come from any thread. Criticals
// are not fatal, so that a refused call can be tested in place.
class LogCapture {
 public:
  LogCapture();
  ~LogCapture();
  LogCapture(const LogCapture &) = delete;
  LogCapture &operator=(const LogCapture &) = delete;

  std::vector<LogLine> lines() const;
  std::vector<std::string> texts() const;
  std::vector<std::string> texts(GLogLevelFlags level) const;
  std::size_t count(GLogLevelFlags level, std::string_view text) const;
  void clear();

 private:
  std::vector<LogLine> lines_; // under the lock in logcapture.cpp
  LogCapture *outer_;
  friend struct LogCaptureAccess;
};

} // namespace varro2::test
