#include "texts.hpp"

#include "subscribeexpression.hpp"

#include <string_view>

namespace varro2::switchd {
namespace {

// What stands without quotes cannot be taken for an operator.
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

void append(std::string &text, std::string_view between, std::string_view more) {
  if (!text.empty())
    text += between;
  text += more;
}

std::string text_of(const Pair &test) {
  std::string text;
  if (test.value_wildcard && test.negated)
    text = "!";
  if (!is_empty(test.name_space))
    text += quoted_if_needed(test.name_space) + ':';
  text += test.key_wildcard ? "*" : quoted_if_needed(g_quark_to_string(test.key));
  if (!test.value_wildcard)
    text += (test.negated ? "!=" : "=") + quoted_if_needed(text_or_empty(test.value));
  return text;
}

} // namespace

std::string topic_of(const EventDeclaration *declaration) {
  const ::Inspectable *keys = event_declaration_get_inspectable(declaration);
  std::string topic;
  for (int level = 0;; ++level) {
    const char *value = inspectable_get_value(keys, ("topic" + std::to_string(level)).c_str());
    if (value == nullptr || *value == '\0')
      return topic;
    topic += (level > 0 ? "/" : "") + std::string{value};
  }
}

std::string text_of(const SubscribeExpression &expression) {
  std::string lists;
  for (const AndList &and_list : expression.inspectable.and_lists()) {
    std::string tests;
    const auto add = [&tests](const Pair &test) { append(tests, " & ", text_of(test)); };
    for_each_pair(and_list.keys, add);
    for_each_pair(and_list.wildcards, add);
    if (tests.empty())
      return {};
    append(lists, " | ", tests);
  }
  return lists;
}

} // namespace varro2::switchd
