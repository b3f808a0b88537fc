#include "xmlcheck.hpp"

#include "pairs.hpp"
#include "text.hpp"
#include "xmltree.hpp"

#include <glib.h>

#include <algorithm>
#include <map>
#include <memory>

namespace varro2::cli {
namespace {

constexpr std::size_t largest_document = 1024 * 1024;

const std::vector<std::string> pair_attributes = {
    "key",       "name-space",      "complex-type-name", "key-nice-name",  "key-wildcard",
    "value",     "value-nice-name", "value-user-string", "value-wildcard", "not",
    "value-type"};

class Checker {
 public:
  explicit Checker(Document &document) : document_{document} {}

  void check(const Element &root) {
    static const std::map<std::string, DocumentKind> kinds = {
        {"declare", DocumentKind::declaration},
        {"subscribe", DocumentKind::expression},
        {"property", DocumentKind::property}};
    const auto kind = kinds.find(root.name);
    if (kind == kinds.end()) {
      error(root, "the document's element is <" + root.name +
                      ">; allowed are <declare>, <subscribe> and <property>");
      return;
    }
    document_.kind = kind->second;
    check_root(root);
    if (document_.kind == DocumentKind::declaration)
      check_topics(root);
    if (document_.kind != DocumentKind::expression)
      check_state_keys(root);
  }

 private:
  bool is(DocumentKind kind) const { return document_.kind == kind; }

  void check_root(const Element &root) {
    if (is(DocumentKind::declaration))
      check_attributes(root, {"internal"});
    else
      check_attributes(root, {});
    check_boolean(root, "internal");
    check_text(root);
    if (root.children.empty())
      error(root, "<" + root.name + "> is empty; an <expression> is needed");
    int expressions = 0;
    for (const auto &child : root.children) {
      if (child->name == "expression") {
        if (++expressions == 2 && !is(DocumentKind::expression))
          error(*child, "a second <expression>; only <subscribe> may have several");
        check_expression(*child);
      } else if (child->name == "tag") {
        if (!is(DocumentKind::declaration))
          error(*child, "a <tag> here; only <declare> has tags of its own");
        check_tag(*child);
      } else {
        error(*child, unknown_element(*child, {"expression", "tag"}, root.name));
      }
    }
    if (!root.children.empty() && expressions == 0)
      warn(root, "there is no <expression>, so there are no keys");
  }

  void check_expression(const Element &expression) {
    check_attributes(expression, {});
    check_text(expression);
    if (expression.children.empty() && is(DocumentKind::expression))
      warn(expression, "no tests: everything fits");
    else if (expression.children.empty())
      warn(expression, "there are no keys");
    std::map<std::string, const Element *> keys;
    for (const auto &child : expression.children) {
      if (child->name != "keyvalue") {
        error(*child, unknown_element(*child, {"keyvalue"}, "expression"));
        continue;
      }
      check_pair(*child);
      const std::string key = child->get("key");
      const auto [first, is_new] = keys.emplace(key, child.get());
      if (!is_new && !key.empty() && !child->is_true("key-wildcard"))
        check_doubled(*child, *first->second);
    }
  }

  void check_doubled(const Element &pair, const Element &first) {
    const std::string place = "; it is already on line " + std::to_string(first.line);
    if (is(DocumentKind::property))
      error(pair, "the key '" + pair.get("key") + "' once more" + place);
    else if (is(DocumentKind::declaration))
      warn(pair, "the key '" + pair.get("key") + "' once more" + place + ", and this one wins");
    else if (!pair.is_true("not") && !first.is_true("not") && pair.find("value") &&
             first.find("value") && pair.get("value") != first.get("value"))
      warn(pair, "the key '" + pair.get("key") + "' cannot have two values at once" + place);
  }

  void check_pair(const Element &pair) {
    check_attributes(pair, pair_attributes);
    check_text(pair);
    for (const char *name : {"key-wildcard", "value-wildcard", "not"})
      check_boolean(pair, name);
    check_wildcards(pair);
    check_value(pair);
    for (const auto &child : pair.children)
      if (child->name == "tag")
        check_tag(*child);
      else
        warn(*child, unknown_element(*child, {"tag"}, "keyvalue") + "; it is ignored");
  }

  void check_wildcards(const Element &pair) {
    const bool any_key = pair.is_true("key-wildcard");
    const bool any_value = pair.is_true("value-wildcard");
    if (any_key && any_value)
      error(pair, "both key-wildcard and value-wildcard: one of them must be given");
    if (any_key && !is(DocumentKind::expression))
      error(pair, "key-wildcard; only tests of a <subscribe> may have any key");
    if (any_key && pair.find("key"))
      warn(pair, "the attribute 'key' means nothing beside key-wildcard");
    if (!any_key && pair.get("key").empty())
      error(pair, "the attribute 'key' is missing");
    if (any_value && pair.find("value"))
      warn(pair, "the attribute 'value' means nothing beside value-wildcard");
    if (!any_value && !pair.find("value"))
      warn(pair, "neither 'value' nor value-wildcard=\"true\": the value is the empty text");
    if (any_value && is(DocumentKind::property))
      error(pair, "value-wildcard; the keys of a <property> have values");
    if (pair.is_true("not") && !is(DocumentKind::expression))
      error(pair, "not=\"true\"; only tests of a <subscribe> can be negated");
  }

  void check_value(const Element &pair) {
    static const std::map<std::string, std::uint32_t> types = {
        {"int", VALUE_TYPE_INT},       {"integer", VALUE_TYPE_INT},   {"bool", VALUE_TYPE_BOOL},
        {"boolean", VALUE_TYPE_BOOL},  {"double", VALUE_TYPE_DOUBLE}, {"float", VALUE_TYPE_DOUBLE},
        {"string", VALUE_TYPE_STRING}, {"", VALUE_TYPE_STRING}};
    std::string name = pair.get("value-type");
    std::transform(name.begin(), name.end(), name.begin(), g_ascii_tolower);
    const auto type = types.find(name);
    if (type == types.end()) {
      warn(pair, "the value-type '" + pair.get("value-type") +
                     "' is none and counts as string; allowed are int, integer, bool, boolean, "
                     "double, float and string");
      return;
    }
    const std::string *value = pair.find("value");
    if (value == nullptr || pair.is_true("value-wildcard"))
      return;
    const bool stored_bool = *value == "0" || *value == "1";
    const std::string why = type->second == VALUE_TYPE_BOOL
                                ? (stored_bool ? "" : "0 or 1 is wanted")
                                : why_no_value(*value, type->second);
    if (!why.empty())
      warn(pair, "the value '" + *value + "' is no " + type_name(type->second) + ": " + why);
  }

  void check_tag(const Element &tag) {
    check_attributes(tag, {"tag"});
    if (tag.get("tag").empty())
      warn(tag, "the attribute 'tag' is missing: the tag is the empty text");
    check_text(tag);
  }

  // ---- Topics and state keys

  static const Element *first_expression(const Element &root) {
    for (const auto &child : root.children)
      if (child->name == "expression")
        return child.get();
    return nullptr;
  }

  void check_topics(const Element &root) {
    const Element *expression = first_expression(root);
    if (expression == nullptr)
      return;
    std::map<unsigned, const Element *> levels;
    for (const auto &pair : expression->children)
      if (const auto level = topic_level(pair->get("key")))
        levels[*level] = pair.get();
    const bool internal = root.is_true("internal");
    if (!levels.contains(0) && !internal)
      warn(*expression, "no topic: without the key topic0 nobody can declare this, unless it is "
                        "internal=\"true\"");
    if (!levels.contains(0))
      return;
    if (levels[0]->is_true("value-wildcard") && !internal)
      warn(*levels[0], "topic0 has no value: who declares this must give one");
    unsigned expected = 0;
    for (const auto &[level, pair] : levels) {
      if (level != expected)
        warn(*pair, "topic" + std::to_string(level) + " is never reached: there is no topic" +
                        std::to_string(expected));
      if (level != expected)
        break;
      ++expected;
      if (pair->get("name-space").empty())
        warn(*pair, "topic" + std::to_string(level) +
                        " has no name space: the JSON form of events leaves its value out");
    }
  }

  void check_state_keys(const Element &root) {
    std::vector<const Element *> tagged;
    if (const Element *expression = first_expression(root))
      for (const auto &pair : expression->children)
        for (const auto &tag : pair->children)
          if (tag->name == "tag" && tag->get("tag") == state_tag)
            tagged.push_back(pair.get());
    if (is(DocumentKind::property) && tagged.size() != 1)
      error(tagged.size() > 1 ? *tagged[1] : root,
            "exactly one key must have the tag property-state, and " +
                std::to_string(tagged.size()) + " have it");
    if (is(DocumentKind::declaration) && tagged.size() > 1)
      warn(*tagged[1], "a second key with the tag property-state: nobody can register this type");
  }

  // ---- What every element has

  void check_attributes(const Element &element, const std::vector<std::string> &allowed) {
    for (const auto &[name, value] : element.attributes) {
      if (std::find(allowed.begin(), allowed.end(), name) != allowed.end())
        continue;
      const std::string meant = nearest(name, allowed);
      std::string text = "<" + element.name + "> has no attribute '" + name + "'";
      if (!meant.empty())
        text += "; did you mean '" + meant + "'?";
      else if (allowed.empty())
        text += "; it has none";
      else
        text += "; allowed are " + joined(allowed, ", ");
      warn(element, text);
    }
  }

  void check_boolean(const Element &element, const char *name) {
    const std::string *value = element.find(name);
    if (value == nullptr || value->empty() || g_ascii_strcasecmp(value->c_str(), "true") == 0 ||
        g_ascii_strcasecmp(value->c_str(), "false") == 0)
      return;
    warn(element,
         std::string{name} + "=\"" + *value + "\" counts as false; allowed are true and false");
  }

  void check_text(const Element &element) {
    if (element.has_text)
      warn(element, "the text in <" + element.name + "> is ignored");
  }

  static std::string unknown_element(const Element &element,
                                     const std::vector<std::string> &allowed,
                                     const std::string &parent) {
    const std::string meant = nearest(element.name, allowed);
    return "<" + element.name + "> cannot stand in <" + parent + ">" +
           (meant.empty() ? "; allowed: <" + joined(allowed, ">, <") + ">"
                          : "; did you mean <" + meant + ">?");
  }

  void error(const Element &element, const std::string &text) {
    document_.problems.push_back({element.line, element.column, true, text});
  }
  void warn(const Element &element, const std::string &text) {
    document_.problems.push_back({element.line, element.column, false, text});
  }

  Document &document_;
};

} // namespace

bool Document::usable() const {
  return kind != DocumentKind::unknown &&
         std::none_of(problems.begin(), problems.end(),
                      [](const Problem &problem) { return problem.error; });
}

Document check_document(std::string_view text) {
  Document document;
  if (text.size() > largest_document) {
    document.problems.push_back({1, 1, true, "larger than 1 MiB"});
    return document;
  }
  XmlMistake mistake;
  if (const std::unique_ptr<Element> root = read_xml_tree(text, mistake))
    Checker{document}.check(*root);
  else
    document.problems.push_back({mistake.line, mistake.column, true, mistake.text});
  std::stable_sort(document.problems.begin(), document.problems.end(),
                   [](const Problem &one, const Problem &other) {
                     return std::pair{one.line, one.column} < std::pair{other.line, other.column};
                   });
  return document;
}

const char *name_of(DocumentKind kind) {
  switch (kind) {
  case DocumentKind::declaration:
    return "declaration";
  case DocumentKind::expression:
    return "expression";
  case DocumentKind::property:
    return "property state";
  default:
    return "unknown";
  }
}

} // namespace varro2::cli
