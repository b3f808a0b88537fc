#include "scanner.hpp"

#include "expression.hpp"

#include <glib.h>

#include <cctype>

namespace varro2::cli {
namespace {

// Ends a key or value that stands without quotes.
bool is_odd(char character) {
  return is_space(character) || std::string_view{"&|()!=\"'"}.find(character) != std::string::npos;
}

} // namespace

bool is_space(char character) {
  return std::isspace(static_cast<unsigned char>(character));
}

void Scanner::skip_space() {
  while (!at_end() && is_space(peek()))
    ++position_;
}

bool Scanner::take(char character) {
  if (!is_at(character))
    return false;
  ++position_;
  return true;
}

bool Scanner::take_unequal() {
  if (!text_.substr(position_).starts_with("!="))
    return false;
  position_ += 2;
  return true;
}

bool Scanner::is_odd_here() const {
  return at_end() || is_odd(peek());
}

bool Scanner::follows_space() const {
  return position_ > 0 && is_space(text_[position_ - 1]);
}

std::string Scanner::piece(std::string_view ends, const char *expected) {
  if (!at_end() && (peek() == '"' || peek() == '\''))
    return quoted();
  const std::size_t begin = position_;
  while (!at_end() && !is_odd(peek()) && ends.find(peek()) == std::string_view::npos)
    ++position_;
  if (position_ == begin)
    fail_here(expected);
  return std::string{text_.substr(begin, position_ - begin)};
}

std::string Scanner::quoted() {
  const std::size_t begin = position_;
  const char quote = text_[position_++];
  std::string result;
  for (; !at_end() && peek() != quote; ++position_) {
    if (quote == '"' && peek() == '\\' && position_ + 1 < text_.size())
      ++position_;
    result += peek();
  }
  if (at_end())
    throw SyntaxError{begin, 1, "this quote is never closed"};
  ++position_;
  return result;
}

bool Scanner::take_operator(char sign, std::string_view word) {
  skip_space();
  if (!at_end() && peek() == sign) {
    ++position_;
    if (!at_end() && peek() == sign)
      ++position_;
  } else if (is_word_here(word)) {
    position_ += word.size();
  } else {
    return false;
  }
  skip_space();
  return true;
}

bool Scanner::take_not() {
  if (!at_end() && peek() == '!') {
    ++position_;
    skip_space();
    return true;
  }
  if (!is_word_here("not"))
    return false;
  // A key may have that name.
  std::size_t next = position_ + 3;
  while (next < text_.size() && is_space(text_[next]))
    ++next;
  if (next == text_.size() || std::string_view{"=&|):"}.find(text_[next]) != std::string::npos ||
      text_.substr(next).starts_with("!="))
    return false;
  position_ = next;
  return true;
}

bool Scanner::is_word_here(std::string_view word) const {
  const std::string_view rest = text_.substr(position_);
  if (rest.size() < word.size() || g_ascii_strncasecmp(rest.data(), word.data(), word.size()) != 0)
    return false;
  return rest.size() == word.size() || (is_odd(rest[word.size()]) && rest[word.size()] != '=') ||
         rest[word.size()] == '(';
}

void Scanner::fail_here(const std::string &expected) const {
  if (at_end())
    throw SyntaxError{position_, 1, expected + ", but the expression ends here"};
  std::size_t length = 1;
  if (!is_odd(peek()))
    while (position_ + length < text_.size() && !is_odd(text_[position_ + length]))
      ++length;
  throw SyntaxError{position_, length,
                    expected + ", not '" + std::string{text_.substr(position_, length)} + "'"};
}

} // namespace varro2::cli
