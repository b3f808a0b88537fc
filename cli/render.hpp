// Events and notifications as lines, in the format that the user chose.
#pragma once

#include "pairs.hpp"
#include "terminal.hpp"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace varro2::cli {

// When and from whom something came.
struct Arrival {
  std::int64_t realtime;  // microseconds since 1970
  std::int64_t monotonic; // microseconds on the clock that is never set
  std::optional<std::uint32_t> uid;

  static Arrival now(std::optional<std::uint32_t> uid = {});
};

class Renderer {
 public:
  virtual ~Renderer() = default;
  virtual std::string event(const ::Event &event, const Arrival &arrival) const = 0;
  // Empty when the format has no place for it.
  virtual std::string notification(const ::Notification &notification,
                                   const Arrival &arrival) const = 0;
};

// "text", "json", "onvif" or a template with names in braces. Throws UsageError.
std::unique_ptr<Renderer> make_renderer(const std::string &format, const Style &style);

// "port=1 state=true", without the topic.
std::string values_text(const Record &record, const Style &style);
std::string local_time(std::int64_t microseconds); // "12:30:01.250000"

} // namespace varro2::cli
