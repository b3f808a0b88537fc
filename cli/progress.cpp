#include "progress.hpp"

#include "text.hpp"

#include <glib.h>
#include <unistd.h>

#include <cstdio>

namespace varro2::cli {
namespace {

constexpr std::int64_t pause = G_USEC_PER_SEC / 10;
constexpr std::size_t bar_width = 24;

std::string bar(std::size_t done, std::size_t total, bool utf8) {
  const std::size_t full = total == 0 ? 0 : done * bar_width / total;
  std::string text;
  for (std::size_t column = 0; column < bar_width; ++column)
    text += column < full ? (utf8 ? "█" : "#") : (utf8 ? "░" : ".");
  return text;
}

} // namespace

std::string duration_text(std::int64_t microseconds) {
  const auto seconds = static_cast<long long>(microseconds / G_USEC_PER_SEC);
  char text[40];
  if (seconds >= 3600)
    g_snprintf(text, sizeof text, "%lld:%02lld:%02lld", seconds / 3600, seconds / 60 % 60,
               seconds % 60);
  else
    g_snprintf(text, sizeof text, "%02lld:%02lld", seconds / 60, seconds % 60);
  return text;
}

Progress::Progress(std::string what)
    : what_{std::move(what)}, shown_{is_terminal(STDERR_FILENO)}, begin_{g_get_monotonic_time()} {}

Progress::~Progress() {
  if (last_ != 0)
    std::fputs("\r\033[K", stderr);
}

void Progress::show(std::size_t done, std::size_t total) {
  const std::int64_t now = g_get_monotonic_time();
  if (!shown_ || now - last_ < pause)
    return;
  last_ = now;
  const std::int64_t passed = now - begin_;
  std::string text = "\r\033[K" + what_ + "  ";
  if (total > 0)
    text += bar(done, total, g_get_charset(nullptr)) + "  " + std::to_string(done) + '/' +
            std::to_string(total);
  else
    text += plural(done, "event");
  text += "  " + duration_text(passed);
  if (passed > G_USEC_PER_SEC)
    text += "  " + std::to_string(static_cast<std::int64_t>(done) * G_USEC_PER_SEC / passed) + "/s";
  std::fputs(text.c_str(), stderr);
}

} // namespace varro2::cli
