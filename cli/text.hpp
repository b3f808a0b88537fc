// Texts as they are shown to people.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::cli {

// Columns on a terminal; what is no UTF-8 counts by bytes.
std::size_t width_of(std::string_view text);
std::string padded(std::string_view text, std::size_t width);

// What could steer a terminal or break a line is written as an escape; what is no UTF-8 as U+FFFD.
std::string printable(std::string_view text);
// Valid UTF-8, made of the text by putting U+FFFD in place of what is none.
std::string valid_utf8(std::string_view text);

// A value as it can be written in an expression: in quotes when it needs them.
std::string quoted_if_needed(std::string_view text);

std::string joined(const std::vector<std::string> &parts, std::string_view between);
std::string plural(std::size_t count, std::string_view singular); // "1 event", "2 events"

// The whole text is a number. Points only, whatever the locale.
bool is_integer(std::string_view text);
bool is_real(std::string_view text);

// How many changes lie between two words: a character more, less or other, or two that changed
// places.
std::size_t distance(std::string_view one, std::string_view other);
// The candidate that was probably meant, or nothing.
std::string nearest(std::string_view word, const std::vector<std::string> &candidates);

} // namespace varro2::cli
