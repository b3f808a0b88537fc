#include "expression.hpp"

#include "failure.hpp"
#include "text.hpp"

namespace varro2::cli {
namespace {

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
