// Subscribe expressions as people write them:
//
//   topic0=Device & topic1=IO & (port=1 | port=2) & !state=0
//
//   KEY          the key is there            !KEY          it is not there
//   KEY=VALUE    it has this value           KEY!=VALUE    it has another value, or is not there
//   *=VALUE      any key has this value      *!=VALUE      no key has this value
//
// A key may stand in a name space ("tns1:topic0"). "&", "|", "!" may be doubled or written as the
// words and, or, not; quotes take anything odd. "&" binds more tightly than "|".
#pragma once

#include "owned.hpp"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::cli {

// One test. Exactly one of key and value may be any.
struct Test {
  bool any_key = false;
  std::string name_space;
  std::string key;
  bool any_value = false;
  std::string value;
  bool negated = false;

  bool operator==(const Test &) const = default;
};

using AndList = std::vector<Test>;

// Holds when all tests of at least one list hold; a list without tests always holds.
struct Expression {
  std::vector<AndList> lists{AndList{}};

  bool is_everything() const { return lists.size() == 1 && lists.front().empty(); }
};

// Something in the text that was not expected. Positions count bytes.
class SyntaxError : public std::runtime_error {
 public:
  SyntaxError(std::size_t position, std::size_t length, const std::string &what)
      : std::runtime_error{what}, position_{position}, length_{length} {}
  std::size_t position() const { return position_; }
  std::size_t length() const { return length_; }

 private:
  std::size_t position_;
  std::size_t length_;
};

// White space alone is the expression that always holds. Throws SyntaxError.
Expression parse_expression(std::string_view text);

// The text with a mark under the place and what was expected, several lines.
std::string shown(const SyntaxError &error, std::string_view text);

std::string to_string(const Test &test);
std::string to_string(const Expression &expression);

OwnedExpression build(const Expression &expression);

// Throws UsageError with the whole report.
Expression expression_argument(const std::string &text);
// The words of a command line are one expression.
Expression expression_argument(const std::vector<std::string> &words);

} // namespace varro2::cli
