#include "expression.hpp"

#include "scanner.hpp"
#include "text.hpp"

#include <algorithm>
#include <utility>

namespace varro2::cli {
namespace {

// Beyond this nobody has written what they meant.
constexpr std::size_t most_lists = 4096;
constexpr int most_levels = 200;

using Lists = std::vector<AndList>;

void add_test(AndList &list, const Test &test) {
  if (std::find(list.begin(), list.end(), test) == list.end())
    list.push_back(test);
}

class Parser {
 public:
  explicit Parser(std::string_view text) : scan_{text} {}

  Lists parse() {
    scan_.skip_space();
    if (scan_.at_end())
      return Lists{AndList{}};
    Lists lists = alternatives(false);
    if (!scan_.at_end())
      scan_.fail_here("expected '&', '|' or the end");
    return lists;
  }

 private:
  // ---- Grammar. Negation is carried down to the tests.

  Lists alternatives(bool negated) {
    Lists lists = conjunction(negated);
    while (scan_.take_operator('|', "or")) {
      Lists more = conjunction(negated);
      lists = negated ? product(lists, more) : sum(std::move(lists), std::move(more));
    }
    return lists;
  }

  Lists conjunction(bool negated) {
    Lists lists = factor(negated);
    while (scan_.take_operator('&', "and")) {
      Lists more = factor(negated);
      lists = negated ? sum(std::move(lists), std::move(more)) : product(lists, more);
    }
    return lists;
  }

  Lists factor(bool negated) {
    scan_.skip_space();
    while (scan_.take_not())
      negated = !negated;
    if (scan_.at_end())
      scan_.fail_here("expected a key, '*', '!' or '('");
    if (scan_.is_at('('))
      return group(negated);
    Test test = single_test();
    test.negated = test.negated != negated;
    return Lists{AndList{test}};
  }

  Lists group(bool negated) {
    const std::size_t opened = scan_.position();
    scan_.take('(');
    if (++depth_ > most_levels)
      throw SyntaxError{opened, 1, "the parentheses are nested too deeply"};
    Lists lists = alternatives(negated);
    scan_.skip_space();
    if (scan_.at_end())
      throw SyntaxError{opened, 1, "this '(' is never closed"};
    if (!scan_.take(')'))
      scan_.fail_here("expected '&', '|' or ')'");
    --depth_;
    scan_.skip_space();
    return lists;
  }

  Test single_test() {
    Test test;
    const std::size_t begin = scan_.position();
    if (scan_.take('*'))
      test.any_key = true;
    else
      key(test);
    scan_.skip_space();
    if (take_equals(test))
      value(test);
    else
      test.any_value = true;
    if (test.any_key && test.any_value)
      fail(begin, "'*' needs a value: '*=VALUE' tests whether any key has it");
    scan_.skip_space();
    return test;
  }

  void key(Test &test) {
    const std::size_t begin = scan_.position();
    test.key = scan_.piece("*:", "expected a key, '*', '!' or '('");
    if (scan_.take(':')) {
      if (scan_.take('*'))
        fail(begin, "'*' takes no name space");
      test.name_space =
          std::exchange(test.key, scan_.piece("*:", "expected a key after the name space"));
    }
    if (scan_.is_at(':'))
      fail_sign("a key has one name space: put the key in quotes");
    if (scan_.is_at('*'))
      fail_sign(no_patterns);
    if (test.key.empty())
      fail(begin, "a key cannot be empty");
  }

  bool take_equals(Test &test) {
    if (scan_.take('=')) {
      scan_.take('=');
      return true;
    }
    test.negated = scan_.take_unequal();
    return test.negated;
  }

  void value(Test &test) {
    scan_.skip_space();
    const std::size_t begin = scan_.position();
    if (scan_.take('*')) {
      test.any_value = true;
      if (!scan_.is_odd_here())
        fail(begin, no_patterns);
      return;
    }
    test.value = scan_.piece("*", "expected a value, or '\"\"' for an empty one");
    if (scan_.is_at('*'))
      fail_sign(no_patterns);
    if (scan_.is_at('='))
      fail_sign("put a value with '=' in quotes");
    if (scan_.is_at('!') && !scan_.follows_space())
      fail_sign("put a value with '!' in quotes");
  }

  // ---- Lists

  static Lists sum(Lists lists, Lists more) {
    for (AndList &list : more)
      lists.push_back(std::move(list));
    return lists;
  }

  Lists product(const Lists &lists, const Lists &more) const {
    if (lists.size() * more.size() > most_lists)
      throw SyntaxError{0, scan_.size(),
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

  // ---- Mistakes

  static constexpr const char *no_patterns =
      "there are no patterns: '*' stands alone, or in quotes";

  // From there to here; at the sign that is here.
  [[noreturn]] void fail(std::size_t begin, const char *what) const {
    throw SyntaxError{begin, scan_.position() - begin, what};
  }
  [[noreturn]] void fail_sign(const char *what) const {
    throw SyntaxError{scan_.position(), 1, what};
  }

  Scanner scan_;
  int depth_ = 0;
};

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

} // namespace varro2::cli
