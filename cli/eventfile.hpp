// Files of events as JSON: one object a line, or objects over several lines.
#pragma once

#include "pairs.hpp"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace varro2::cli {

struct EventLine {
  std::size_t line; // where it begins
  Record record;
  std::string type;                      // the declaration type, if the object names one
  std::optional<std::int64_t> monotonic; // microseconds
};

// The whole text of a file; '-' is the standard input. Throws Failure.
std::string read_file(const std::string &path);

// Throws Failure with file, line and reason. Notifications are left out.
std::vector<EventLine> read_event_file(const std::string &path);

// One object in a text of its own. Nothing for a notification.
std::optional<EventLine> parse_event(const std::string &text, const std::string &path,
                                     std::size_t line);

} // namespace varro2::cli
