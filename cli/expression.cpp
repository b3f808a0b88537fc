#include "expression.hpp"

#include "failure.hpp"
#include "text.hpp"

#include <algorithm>
#include <cctype>
#include <utility>

namespace varro2::cli {
namespace {

// Beyond this nobody has written what they meant.
constexpr std::size_t most_lists = 4096;

using Lists = std::vector<AndList>;

bool is_space(char character) {
  return std::isspace(static_cast<unsigned char>(character));
}

// Ends a key or value that stands without quotes.
bool is_odd(char character) {
  return is_space(character) || std::string_view{"&|()!=\"'"}.find(character) != std::string::npos;
}

void add_test(AndList &list, const Test &test) {
  if (std::find(list.begin(), list.end(), test) == list.end())
    list.push_back(test);
}

class Parser {
 public:
  explicit Parser(std::string_view text) : text_{text} {}

  Lists parse() {
    skip_space();
    if (at_end())
      return Lists{AndList{}};
    Lists lists = alternatives(false);
    if (!at_end())
      fail_here("expected '&', '|' or the end");
    return lists;
  }

 private:
  // ---- Grammar. Negation is carried down to the tests.

  Lists alternatives(bool negated) {
    Lists lists = conjunction(negated);
    while (take_operator('|', "or")) {
      Lists more = conjunction(negated);
      lists = negated ? product(lists, more) : sum(std::move(lists), std::move(more));
    }
    return lists;
  }

  Lists conjunction(bool negated) {
    Lists lists = factor(negated);
    while (take_operator('&', "and")) {
      Lists more = factor(negated);
      lists = negated ? sum(std::move(lists), std::move(more)) : product(lists, more);
    }
    return lists;
  }

  Lists factor(bool negated) {
    skip_space();
    while (take_not())
      negated = !negated;
    if (at_end())
      fail_here("expected a key, '*', '!' or '('");
    if (peek() == '(')
      return group(negated);
    Test test = single_test();
    test.negated = test.negated != negated;
    return Lists{AndList{test}};
  }

  Lists group(bool negated) {
    const std::size_t opened = position_++;
    if (++depth_ > 200)
      throw SyntaxError{opened, 1, "the parentheses are nested too deeply"};
    Lists lists = alternatives(negated);
    skip_space();
    if (at_end())
      throw SyntaxError{opened, 1, "this '(' is never closed"};
    if (peek() != ')')
      fail_here("expected '&', '|' or ')'");
    ++position_;
    --depth_;
    skip_space();
    return lists;
  }

  Test single_test() {
    Test test;
    const std::size_t begin = position_;
    if (peek() == '*') {
      test.any_key = true;
      ++position_;
    } else {
      key(test);
    }
    skip_space();
    if (take_equals(test))
      value(test);
    else
      test.any_value = true;
    if (test.any_key && test.any_value)
      throw SyntaxError{begin, position_ - begin,
                        "'*' needs a value: '*=VALUE' tests whether any key has it"};
    skip_space();
    return test;
  }

  void key(Test &test) {
    const std::size_t begin = position_;
    test.key = piece("*:", "expected a key, '*', '!' or '('");
    if (!at_end() && peek() == ':') {
      ++position_;
      if (!at_end() && peek() == '*')
        throw SyntaxError{begin, position_ + 1 - begin, "'*' takes no name space"};
      test.name_space = std::exchange(test.key, piece("*:", "expected a key after the name space"));
    }
    if (!at_end() && peek() == ':')
      throw SyntaxError{position_, 1, "a key has one name space: put the key in quotes"};
    if (!at_end() && peek() == '*')
      throw SyntaxError{position_, 1, "there are no patterns: '*' stands alone, or in quotes"};
    if (test.key.empty())
      throw SyntaxError{begin, position_ - begin, "a key cannot be empty"};
  }

  bool take_equals(Test &test) {
    if (at_end())
      return false;
    if (peek() == '=') {
      ++position_;
      if (!at_end() && peek() == '=')
        ++position_;
      return true;
    }
    if (text_.substr(position_).starts_with("!=")) {
      position_ += 2;
      test.negated = true;
      return true;
    }
    return false;
  }

  void value(Test &test) {
    skip_space();
    if (!at_end() && peek() == '*') {
      ++position_;
      test.any_value = true;
      if (!at_end() && !is_odd(peek()))
        throw SyntaxError{position_ - 1, 1,
                          "there are no patterns: '*' stands alone, or in quotes"};
      return;
    }
    test.value = piece("*", "expected a value, or '\"\"' for an empty one");
    if (at_end())
      return;
    if (peek() == '*')
      throw SyntaxError{position_, 1, "there are no patterns: '*' stands alone, or in quotes"};
    if (peek() == '=' || (peek() == '!' && !is_space(text_[position_ - 1])))
      throw SyntaxError{position_, 1, std::string{"put a value with '"} + peek() + "' in quotes"};
  }

  // One text, in quotes or up to what is odd or one of the further ends.
  std::string piece(std::string_view ends, const char *expected) {
    if (!at_end() && (peek() == '"' || peek() == '\''))
      return quoted();
    const std::size_t begin = position_;
    while (!at_end() && !is_odd(peek()) && ends.find(peek()) == std::string_view::npos)
      ++position_;
    if (position_ == begin)
      fail_here(expected);
    return std::string{text_.substr(begin, position_ - begin)};
  }

  std::string quoted() {
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

  // ---- Operators

  bool take_operator(char sign, std::string_view word) {
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

  bool take_not() {
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

  bool is_word_here(std::string_view word) const {
    const std::string_view rest = text_.substr(position_);
    if (rest.size() < word.size() ||
        g_ascii_strncasecmp(rest.data(), word.data(), word.size()) != 0)
      return false;
    return rest.size() == word.size() || (is_odd(rest[word.size()]) && rest[word.size()] != '=') ||
           rest[word.size()] == '(';
  }

  // ---- Lists

  static Lists sum(Lists lists, Lists more) {
    for (AndList &list : more)
      lists.push_back(std::move(list));
    return lists;
  }

  Lists product(const Lists &lists, const Lists &more) const {
    if (lists.size() * more.size() > most_lists)
      throw SyntaxError{0, text_.size(),
                        "this comes to more than " + std::to_string(most_lists) +
                            " combinations: ask for less, or write it in another way"};
    Lists result;
    for (const AndList &one : lists)
      for (const AndList &other : more) {
        AndList list = one;
        for (const Test &test : other)
          add_test(list, test);
        result.push_back(std::move(list));
      }
    return result;
  }

  // ---- Text

  bool at_end() const { return position_ == text_.size(); }
  char peek() const { return text_[position_]; }
  void skip_space() {
    while (!at_end() && is_space(peek()))
      ++position_;
  }

  [[noreturn]] void fail_here(const std::string &expected) const {
    if (at_end())
      throw SyntaxError{position_, 1, expected + ", but the expression ends here"};
    std::size_t length = 1;
    if (!is_odd(peek()))
      while (position_ + length < text_.size() && !is_odd(text_[position_ + length]))
        ++length;
    throw SyntaxError{position_, length,
                      expected + ", not '" + std::string{text_.substr(position_, length)} + "'"};
  }

  std::string_view text_;
  std::size_t position_ = 0;
  int depth_ = 0;
};

void add_pair(XmlNode *expression, const Test &test) {
  XmlNode *pair = xmlnode_create_node();
  pair->name = g_strdup("keyvalue");
  if (test.any_key)
    xml_set_boolean(pair, "key-wildcard", TRUE);
  xml_set_attribute(pair, "key", test.key.c_str());
  xml_set_attribute(pair, "name-space", test.name_space.c_str());
  xml_set_attribute(pair, "value", test.value.c_str());
  xml_set_boolean(pair, "value-wildcard", test.any_value);
  xml_set_boolean(pair, "not", test.negated);
  xmlnode_add_child(expression, pair);
}

} // namespace

Expression parse_expression(std::string_view text) {
  Lists lists = Parser{text}.parse();
  Expression expression{.lists = {}};
  for (AndList &list : lists)
    if (std::find(expression.lists.begin(), expression.lists.end(), list) == expression.lists.end())
      expression.lists.push_back(std::move(list));
  return expression;
}

std::string shown(const SyntaxError &error, std::string_view text) {
  // White space of any kind takes one column, so that the mark stands under its place.
  std::string line{text};
  std::replace_if(line.begin(), line.end(), is_space, ' ');
  const std::string_view before = std::string_view{line}.substr(0, error.position());
  const std::string_view marked = std::string_view{line}.substr(error.position(), error.length());
  return "in the expression\n  " + printable(line) + "\n  " +
         std::string(width_of(printable(before)), ' ') +
         std::string(std::max<std::size_t>(1, width_of(printable(marked))), '^') + '\n' +
         printable(error.what());
}

std::string to_string(const Test &test) {
  std::string text;
  if (test.any_value)
    text = test.negated ? "!" : "";
  if (!test.name_space.empty())
    text += quoted_if_needed(test.name_space) + ':';
  text += test.any_key ? "*" : quoted_if_needed(test.key);
  if (!test.any_value)
    text += (test.negated ? "!=" : "=") + quoted_if_needed(test.value);
  return text;
}

std::string to_string(const Expression &expression) {
  std::vector<std::string> lists;
  for (const AndList &list : expression.lists) {
    std::vector<std::string> tests;
    for (const Test &test : list)
      tests.push_back(to_string(test));
    lists.push_back(joined(tests, " & "));
  }
  return joined(lists, " | ");
}

// The element form is the one that gives each of several tests on a key its own name space.
OwnedExpression build(const Expression &expression) {
  if (expression.is_everything())
    return OwnedExpression{subscribe_expression_new()};
  const OwnedXml root{xmlnode_create_node()};
  root->name = g_strdup("subscribe");
  for (const AndList &list : expression.lists) {
    XmlNode *node = xmlnode_create_node();
    node->name = g_strdup("expression");
    for (const Test &test : list)
      add_pair(node, test);
    xmlnode_add_child(root.get(), node);
  }
  return OwnedExpression{subscribe_expression_deserialize_xmlnode(root.get())};
}

Expression expression_argument(const std::string &text) {
  try {
    return parse_expression(text);
  } catch (const SyntaxError &error) {
    throw UsageError{shown(error, text)};
  }
}

Expression expression_argument(const std::vector<std::string> &words) {
  return expression_argument(joined(words, " "));
}

} // namespace varro2::cli
