#include "terminal.hpp"

#include <glib.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace varro2::cli {

Style::Style(int descriptor, ColourChoice choice) : utf8_{g_get_charset(nullptr) != FALSE} {
  const char *none = std::getenv("NO_COLOR");
  const char *terminal = std::getenv("TERM");
  const bool wanted = (none == nullptr || *none == '\0') && terminal != nullptr &&
                      std::string_view{terminal} != "dumb";
  coloured_ = choice == ColourChoice::always ||
              (choice == ColourChoice::automatic && wanted && is_terminal(descriptor));
}

std::string Style::in(std::string_view code, std::string_view text) const {
  if (!coloured_ || text.empty())
    return std::string{text};
  std::string result = "\033[";
  return result.append(code).append("m").append(text).append("\033[0m");
}

bool is_terminal(int descriptor) {
  return isatty(descriptor) == 1;
}

std::size_t terminal_width(int descriptor) {
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) == 0 && size.ws_col > 0)
    return size.ws_col;
  return 80;
}

} // namespace varro2::cli
