// The words, texts and signs that an expression is written in.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace varro2::cli {

bool is_space(char character);

// Goes through the text from its beginning. Throws SyntaxError.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_{text} {}

  bool at_end() const { return position_ == text_.size(); }
  bool is_at(char character) const { return !at_end() && text_[position_] == character; }
  std::size_t position() const { return position_; }
  std::size_t size() const { return text_.size(); }

  void skip_space();
  bool take(char character); // nothing happens when another one stands here
  bool take_unequal();       // "!="

  // One text, in quotes or up to what is odd or one of the further ends.
  std::string piece(std::string_view ends, const char *expected);
  // White space or a sign of the grammar is here, or the end.
  bool is_odd_here() const;
  bool follows_space() const;

  // Each also takes the white space around it.
  bool take_operator(char sign, std::string_view word); // the sign may be doubled
  bool take_not();

  // "EXPECTED, not 'WHAT IS HERE'"
  [[noreturn]] void fail_here(const std::string &expected) const;

 private:
  std::string quoted();
  bool is_word_here(std::string_view word) const;
  char peek() const { return text_[position_]; }

  std::string_view text_;
  std::size_t position_ = 0;
};

} // namespace varro2::cli
