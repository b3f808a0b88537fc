// What the place that is written to can show.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace varro2::cli {

enum class ColourChoice { automatic, always, never };

// Texts in colours, or as they are.
class Style {
 public:
  Style() = default;
  // Automatic: colours on a terminal that has them, unless NO_COLOR is set.
  Style(int descriptor, ColourChoice choice);

  std::string bold(std::string_view text) const { return in("1", text); }
  std::string dim(std::string_view text) const { return in("2", text); }
  std::string red(std::string_view text) const { return in("31", text); }
  std::string green(std::string_view text) const { return in("32", text); }
  std::string yellow(std::string_view text) const { return in("33", text); }
  std::string cyan(std::string_view text) const { return in("36", text); }

  bool coloured() const { return coloured_; }
  bool utf8() const { return utf8_; }
  std::string_view check() const { return utf8_ ? "✓" : "+"; }
  std::string_view cross() const { return utf8_ ? "✗" : "-"; }

 private:
  std::string in(std::string_view code, std::string_view text) const;

  bool coloured_ = false;
  bool utf8_ = false;
};

bool is_terminal(int descriptor);
// Columns; 80 where there is no terminal.
std::size_t terminal_width(int descriptor);

} // namespace varro2::cli
