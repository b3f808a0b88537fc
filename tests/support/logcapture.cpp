#include "logcapture.hpp"

#include <algorithm>
#include <mutex>

namespace varro2::test {
namespace {

std::mutex lock;
LogCapture *innermost;
GLogFunc handler_before;

} // namespace

struct LogCaptureAccess {
  static void add(const gchar *domain, GLogLevelFlags flags, const gchar *text, gpointer) noexcept {
    const std::scoped_lock held{lock};
    if (!innermost)
      return;
    innermost->lines_.push_back({static_cast<GLogLevelFlags>(flags & G_LOG_LEVEL_MASK),
                                 domain ? domain : "", text ? text : ""});
    g_main_context_wakeup(nullptr);
  }
};

LogCapture::LogCapture() {
  const std::scoped_lock held{lock};
  outer_ = innermost;
  innermost = this;
  if (!outer_)
    handler_before = g_log_set_default_handler(LogCaptureAccess::add, nullptr);
}

LogCapture::~LogCapture() {
  const std::scoped_lock held{lock};
  innermost = outer_;
  if (!outer_)
    g_log_set_default_handler(handler_before, nullptr);
}

std::vector<LogLine> LogCapture::lines() const {
  const std::scoped_lock held{lock};
  return lines_;
}

std::vector<std::string> LogCapture::texts() const {
  std::vector<std::string> found;
  for (auto &line : lines())
    found.push_back(line.text);
  return found;
}

std::vector<std::string> LogCapture::texts(GLogLevelFlags level) const {
  std::vector<std::string> found;
  for (auto &line : lines())
    if (line.level == level)
      found.push_back(line.text);
  return found;
}

std::size_t LogCapture::count(GLogLevelFlags level, std::string_view text) const {
  const auto all = lines();
  return static_cast<std::size_t>(std::ranges::count_if(
      all, [&](const LogLine &line) { return line.level == level && line.text == text; }));
}

void LogCapture::clear() {
  const std::scoped_lock held{lock};
  lines_.clear();
}

} // namespace varro2::test
