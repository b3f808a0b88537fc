#include "log.hpp"

#include "text.hpp"

#include <glib.h>

#include <cstdio>
#include <utility>

namespace varro2::cli {

namespace detail {
std::vector<std::string> *messages = nullptr;
}

namespace {

Style error_style;
bool is_verbose = false;
std::vector<std::string> *kept_warnings = nullptr;

// What came from elsewhere steers no terminal; the text may have several lines.
void write_line(const std::string &word, const std::string &text) {
  std::string shown = "varro2: " + word;
  for (std::size_t begin = 0, end = 0; end != std::string::npos; begin = end + 1) {
    end = text.find('\n', begin);
    shown += printable(text.substr(begin, end - begin)) + '\n';
  }
  std::fputs(shown.c_str(), stderr);
}

void on_log(const gchar *, GLogLevelFlags level, const gchar *text, gpointer) {
  const std::string line = text != nullptr ? text : "";
  switch (level & G_LOG_LEVEL_MASK) {
  case G_LOG_LEVEL_MESSAGE:
    if (detail::messages != nullptr)
      detail::messages->push_back(line);
    else if (is_verbose)
      write_line("", line);
    break;
  case G_LOG_LEVEL_INFO:
  case G_LOG_LEVEL_DEBUG:
    if (is_verbose)
      write_line("", line);
    break;
  default:
    if (kept_warnings != nullptr && (level & G_LOG_FLAG_FATAL) == 0)
      kept_warnings->push_back(line);
    else
      note_warning(printable(line));
  }
}

} // namespace

void install_log_handler(const Style &style, bool verbose) {
  error_style = style;
  is_verbose = verbose;
  g_log_set_default_handler(on_log, nullptr);
}

void note(const std::string &text) {
  write_line("", text);
}

void note_warning(const std::string &text) {
  write_line(error_style.yellow("warning: "), text);
}

QuietLog::QuietLog() : outer_{std::exchange(kept_warnings, &warnings_)} {}
QuietLog::~QuietLog() {
  kept_warnings = outer_;
}

} // namespace varro2::cli
