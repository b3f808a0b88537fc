#include "evaluate.hpp"

#include "text.hpp"

#include <algorithm>

namespace varro2::cli {
namespace {

std::string key_names(const Record &record) {
  std::vector<std::string> keys;
  for (const Pair &pair : record.pairs)
    keys.push_back(pair.key);
  return keys.empty() ? "there are no keys at all"
                      : (keys.size() == 1 ? "there is " : "there are ") + joined(keys, ", ");
}

std::string is_value(const Pair &pair) {
  return pair.key + " is " + (pair.value.empty() ? "empty" : quoted_if_needed(pair.value));
}

Finding any_key(const Test &test, const Record &record) {
  // An open value may become any, but does not count against "no key has it".
  const auto found = std::find_if(record.pairs.begin(), record.pairs.end(), [&](const Pair &pair) {
    return pair.open ? !test.negated : pair.value == test.value;
  });
  const bool there = found != record.pairs.end();
  const std::string value = quoted_if_needed(test.value);
  if (!there)
    return {test.negated, "no key has the value " + value};
  return {!test.negated, found->open ? found->key + " may have any value" : is_value(*found)};
}

Finding absent(const Test &test, const Record &record) {
  if (test.negated)
    return {true, "there is no " + test.key};
  std::vector<std::string> keys;
  for (const Pair &pair : record.pairs)
    keys.push_back(pair.key);
  const std::string meant = nearest(test.key, keys);
  return {false, "there is no " + test.key +
                     (meant.empty() ? "; " + key_names(record) : "; did you mean " + meant + "?")};
}

Finding on_key(const Test &test, const Pair &pair) {
  if (!test.name_space.empty() && test.name_space != pair.name_space) {
    const std::string where = pair.name_space.empty() ? pair.key + " is in no name space"
                                                      : pair.key + " is in the name space " +
                                                            quoted_if_needed(pair.name_space);
    return {false,
            where + (test.negated ? ", and a test with a name space fails in any other" : "")};
  }
  if (test.any_value)
    return {!test.negated, pair.key + " is there"};
  if (pair.open)
    return {true, pair.key + " may have any value"};
  return {(pair.value == test.value) != test.negated, is_value(pair)};
}

} // namespace

Finding evaluate(const Test &test, const Record &record) {
  if (test.any_key)
    return any_key(test, record);
  const Pair *pair = record.find(test.key);
  return pair != nullptr ? on_key(test, *pair) : absent(test, record);
}

std::vector<ListFinding> evaluate(const Expression &expression, const Record &record) {
  std::vector<ListFinding> findings;
  for (const AndList &list : expression.lists) {
    ListFinding finding{true, {}};
    for (const Test &test : list) {
      finding.tests.push_back(evaluate(test, record));
      finding.holds = finding.holds && finding.tests.back().holds;
    }
    findings.push_back(std::move(finding));
  }
  return findings;
}

bool holds(const Expression &expression, const Record &record) {
  const std::vector<ListFinding> findings = evaluate(expression, record);
  return std::any_of(findings.begin(), findings.end(),
                     [](const ListFinding &finding) { return finding.holds; });
}

} // namespace varro2::cli
