// Expressions as they are typed: each is refused with a place in the text, or says the same in
// every form that it has.
#include "expression.hpp"
#include "evaluate.hpp"
#include "target.hpp"

#include <algorithm>
#include <set>

namespace varro2::fuzz {
namespace {

using cli::AndList;
using cli::Expression;
using cli::Test;

void check_refusal(const cli::SyntaxError &error, const std::string &text) {
  VARRO2_ASSERT(error.position() <= text.size());
  VARRO2_ASSERT(*error.what() != '\0');
  VARRO2_ASSERT(cli::shown(error, text).starts_with("in the expression\n"));
}

void check_tests(const Expression &expression) {
  VARRO2_ASSERT(!expression.lists.empty());
  for (const AndList &list : expression.lists)
    for (const Test &test : list) {
      VARRO2_ASSERT(!(test.any_key && test.any_value));
      VARRO2_ASSERT(test.any_key == test.key.empty());
      VARRO2_ASSERT(!test.any_key || test.name_space.empty());
      VARRO2_ASSERT(!test.any_value || test.value.empty());
    }
}

std::string shown(const char *name_space, const char *key, const char *value, bool negated) {
  const auto text = [](const char *each) { return each != nullptr ? std::string{each} : "(none)"; };
  return text(name_space) + '\x01' + text(key) + '\x01' + text(value) + (negated ? '\x02' : '\x03');
}

using Lists = std::vector<std::multiset<std::string>>;

Lists lists_of(const Expression &expression) {
  Lists lists;
  for (const AndList &list : expression.lists) {
    lists.emplace_back();
    for (const Test &test : list)
      lists.back().insert(shown(test.name_space.empty() ? nullptr : test.name_space.c_str(),
                                test.any_key ? nullptr : test.key.c_str(),
                                test.any_value ? nullptr : test.value.c_str(), test.negated));
  }
  return lists;
}

Lists lists_of(const SubscribeExpression *built) {
  Lists lists;
  GList *raw = subscribe_expression_get_raw(built);
  for (const GList *list = g_list_last(raw); list != nullptr; list = list->prev) {
    lists.emplace_back();
    for (auto *at = static_cast<const GList *>(list->data); at != nullptr; at = at->next) {
      const auto &test = *static_cast<const KeyValueRaw *>(at->data);
      lists.back().insert(shown(test.name_space, test.key, test.value, test.negated));
    }
  }
  subscribe_expression_free_raw(raw);
  return lists;
}

// An event that has half of what is asked for, and one that has the rest.
void check_verdicts(const Expression &expression, const SubscribeExpression *built) {
  cli::Record records[2];
  std::set<std::string> keys;
  std::size_t count = 0;
  for (const AndList &list : expression.lists)
    for (const Test &test : list) {
      if (++count > 40)
        break;
      cli::Pair pair;
      pair.key = test.any_key ? "key" + std::to_string(count) : test.key;
      pair.value = test.any_value ? "1" : test.value;
      pair.name_space = count % 3 == 0 ? "" : test.name_space;
      if (keys.insert(pair.key).second)
        records[count % 2].pairs.push_back(pair);
    }
  for (cli::Record &record : records) {
    const cli::OwnedEvent event = cli::make_event(record);
    VARRO2_ASSERT(cli::holds(expression, record) ==
                  static_cast<bool>(event_contains(event.get(), built)));
    for (std::size_t at = 0; at < record.pairs.size(); at += 2)
      record.pairs[at].open = true;
    const cli::OwnedDeclaration declaration = cli::make_declaration(record);
    VARRO2_ASSERT(cli::holds(expression, record) ==
                  static_cast<bool>(event_declaration_contains(declaration.get(), built)));
  }
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2;
  using namespace varro2::fuzz;
  // Words of a command line.
  const std::string text{exact_text(data, size).get()};
  Expression expression;
  try {
    expression = cli::parse_expression(text);
  } catch (const cli::SyntaxError &error) {
    check_refusal(error, text);
    return 0;
  }
  check_tests(expression);
  VARRO2_ASSERT(cli::parse_expression(cli::to_string(expression)).lists == expression.lists);
  const cli::OwnedExpression built = cli::build(expression);
  VARRO2_ASSERT(built != nullptr);
  VARRO2_ASSERT(lists_of(expression) == lists_of(built.get()));
  check_verdicts(expression, built.get());
  return 0;
}
