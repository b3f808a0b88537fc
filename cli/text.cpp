#include "text.hpp"

#include "owned.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <numeric>
#include <utility>

namespace varro2::cli {

std::size_t width_of(std::string_view text) {
  if (!g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr))
    return text.size();
  std::size_t width = 0;
  const char *const end = text.data() + text.size();
  for (const char *at = text.data(); at < end; at = g_utf8_next_char(at)) {
    const gunichar character = g_utf8_get_char(at);
    if (g_unichar_iszerowidth(character))
      continue;
    width += g_unichar_iswide(character) ? 2 : 1;
  }
  return width;
}

std::string padded(std::string_view text, std::size_t width) {
  std::string result{text};
  const std::size_t taken = width_of(text);
  if (taken < width)
    result.append(width - taken, ' ');
  return result;
}

std::string valid_utf8(std::string_view text) {
  if (g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr))
    return std::string{text};
  const OwnedText valid{g_utf8_make_valid(text.data(), static_cast<gssize>(text.size()))};
  return valid.get();
}

std::string printable(std::string_view text) {
  const std::string valid = valid_utf8(text);
  std::string result;
  result.reserve(valid.size());
  const char *const end = valid.data() + valid.size();
  for (const char *at = valid.data(); at < end; at = g_utf8_next_char(at)) {
    const gunichar character = g_utf8_get_char(at);
    if (character == '\n') {
      result += "\\n";
    } else if (character == '\t') {
      result += "\\t";
    } else if (character < 0x20 || (character >= 0x7F && character < 0xA0)) {
      char escape[8];
      g_snprintf(escape, sizeof escape, "\\x%02x", character);
      result += escape;
    } else {
      result.append(at, static_cast<std::size_t>(g_utf8_next_char(at) - at));
    }
  }
  return result;
}

std::string quoted_if_needed(std::string_view text) {
  static constexpr std::string_view odd = " \t\r\n&|()!=\"'*:\\{}";
  if (!text.empty() && text.find_first_of(odd) == std::string_view::npos)
    return std::string{text};
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\')
      result += '\\';
    result += character;
  }
  return result + '"';
}

std::string joined(const std::vector<std::string> &parts, std::string_view between) {
  std::string result;
  for (const std::string &part : parts) {
    if (!result.empty())
      result += between;
    result += part;
  }
  return result;
}

std::string plural(std::size_t count, std::string_view singular) {
  return std::to_string(count) + ' ' + std::string{singular} + (count == 1 ? "" : "s");
}

bool is_integer(std::string_view text) {
  long long number = 0;
  const char *const end = text.data() + text.size();
  const char *const begin = text.starts_with('+') ? text.data() + 1 : text.data();
  const auto [stop, failure] = std::from_chars(begin, end, number);
  return failure == std::errc{} && stop == end;
}

bool is_real(std::string_view text) {
  double number = 0;
  const char *const end = text.data() + text.size();
  const char *const begin = text.starts_with('+') ? text.data() + 1 : text.data();
  const auto [stop, failure] = std::from_chars(begin, end, number);
  return failure == std::errc{} && stop == end && std::isfinite(number);
}

// The usual table, of which three lines are needed at a time: two neighbours that changed places
// are one change.
std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> before(other.size() + 1);
  std::vector<std::size_t> last(other.size() + 1);
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(last.begin(), last.end(), std::size_t{0});
  for (std::size_t line = 1; line <= one.size(); ++line) {
    row[0] = line;
    for (std::size_t column = 1; column < row.size(); ++column) {
      const bool differ = one[line - 1] != other[column - 1];
      row[column] =
          std::min({last[column - 1] + (differ ? 1 : 0), last[column] + 1, row[column - 1] + 1});
      if (line > 1 && column > 1 && one[line - 1] == other[column - 2] &&
          one[line - 2] == other[column - 1])
        row[column] = std::min(row[column], before[column - 2] + 1);
    }
    std::swap(before, last);
    std::swap(last, row);
  }
  return last.back();
}

std::string nearest(std::string_view word, const std::vector<std::string> &candidates) {
  std::string best;
  std::size_t least = std::max<std::size_t>(2, word.size() / 3) + 1;
  for (const std::string &candidate : candidates) {
    const std::size_t changes = distance(word, candidate);
    if (changes < least && changes < candidate.size()) {
      least = changes;
      best = candidate;
    }
  }
  return best;
}

} // namespace varro2::cli
