#include "index.hpp"

#include <algorithm>

namespace varro2::switchd {
namespace {

void insert(IdList &list, std::uint32_t id) {
  const auto at = std::lower_bound(list.begin(), list.end(), id);
  if (at == list.end() || *at != id)
    list.insert(at, id);
}

void erase(IdList &list, std::uint32_t id) {
  const auto at = std::lower_bound(list.begin(), list.end(), id);
  if (at != list.end() && *at == id)
    list.erase(at);
}

// What nobody uses any more goes: keys and values come from clients.
void erase(IdsByText &lists, std::string_view text, std::uint32_t id) {
  const auto found = lists.find(text);
  if (found == lists.end())
    return;
  erase(found->second, id);
  if (found->second.empty())
    lists.erase(found);
}

void erase(IdsByKey &keys, const Pair &pair, std::uint32_t id) {
  const auto found = keys.find(pair.key);
  if (found == keys.end())
    return;
  erase(found->second.values, pair.value, id);
  erase(found->second.open, id);
  if (found->second.empty())
    keys.erase(found);
}

IdList &list_of(IdsByText &lists, const char *text) {
  const auto found = lists.find(std::string_view{text});
  return found != lists.end() ? found->second : lists[text];
}

void append(IdList &to, const IdList &from) {
  to.insert(to.end(), from.begin(), from.end());
}

void append(IdList &to, const IdsByText &lists, std::string_view text) {
  if (const auto found = lists.find(text); found != lists.end())
    append(to, found->second);
}

void append_all(IdList &to, const IdsByText &lists) {
  for (const auto &[text, ids] : lists)
    append(to, ids);
}

IdList in_order(IdList ids) {
  std::sort(ids.begin(), ids.end());
  ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
  return ids;
}

std::size_t count_of(const IdsByKey &keys, const Pair &test) {
  const auto key = keys.find(test.key);
  if (key == keys.end())
    return 0;
  const auto value = key->second.values.find(std::string_view{test.value});
  return key->second.open.size() + (value != key->second.values.end() ? value->second.size() : 0);
}

// The test of a key and its value with the fewest ids in the index, or else a test of a key.
const Pair *rarest(const AndList &tests, const IdsByKey &keys) {
  const Pair *best = nullptr;
  std::size_t fewest = 0;
  for_each_pair(tests.keys, [&](const Pair &test) {
    if (test.negated || (test.value_wildcard && best != nullptr))
      return;
    const std::size_t count = test.value_wildcard ? 0 : count_of(keys, test);
    if (best == nullptr || best->value_wildcard || count < fewest) {
      best = &test;
      fewest = count;
    }
  });
  return best;
}

const Pair *plain_test_of_any_key(const AndList &tests) {
  const Pair *found = nullptr;
  for_each_pair(tests.wildcards, [&found](const Pair &test) {
    if (found == nullptr && !test.negated)
      found = &test;
  });
  return found;
}

} // namespace

/* ---- Subscriptions ---- */

IdList &TestIndex::list_for(const AndList &tests) {
  if (const Pair *test = rarest(tests, keys_)) {
    KeyEntry &entry = keys_[test->key];
    return test->value_wildcard ? entry.open : list_of(entry.values, test->value);
  }
  if (const Pair *test = plain_test_of_any_key(tests))
    return list_of(values_of_any_key_, test->value);
  return always_;
}

void TestIndex::add(std::uint32_t id, const Inspectable &tests) {
  for (const AndList &and_list : tests.and_lists())
    insert(list_for(and_list), id);
}

// Which test was the rarest once is not kept: the id is taken out wherever it may be.
void TestIndex::remove(std::uint32_t id, const Inspectable &tests) {
  for (const AndList &and_list : tests.and_lists()) {
    for_each_pair(and_list.keys, [&](const Pair &test) { erase(keys_, test, id); });
    for_each_pair(and_list.wildcards,
                  [&](const Pair &test) { erase(values_of_any_key_, test.value, id); });
  }
  erase(always_, id);
}

IdList TestIndex::candidates(const Inspectable &facts) const {
  IdList found = always_;
  bool any_open = false;
  for (const AndList &and_list : facts.and_lists()) {
    for_each_pair(and_list.keys, [&](const Pair &fact) {
      if (fact.negated)
        return;
      any_open = any_open || fact.value_wildcard;
      if (!fact.value_wildcard)
        append(found, values_of_any_key_, fact.value);
      const auto key = keys_.find(fact.key);
      if (key == keys_.end())
        return;
      append(found, key->second.open);
      if (fact.value_wildcard)
        append_all(found, key->second.values);
      else
        append(found, key->second.values, fact.value);
    });
  }
  // A value that is still open is good for every test of any key.
  if (any_open)
    append_all(found, values_of_any_key_);
  return in_order(std::move(found));
}

/* ---- Declarations ---- */

void FactIndex::add(std::uint32_t id, const Inspectable &facts) {
  for (const AndList &and_list : facts.and_lists())
    for_each_pair(and_list.keys, [&](const Pair &fact) {
      if (fact.negated)
        return;
      KeyEntry &entry = keys_[fact.key];
      insert(fact.value_wildcard ? entry.open : list_of(entry.values, fact.value), id);
    });
}

void FactIndex::remove(std::uint32_t id, const Inspectable &facts) {
  for (const AndList &and_list : facts.and_lists())
    for_each_pair(and_list.keys, [&](const Pair &fact) { erase(keys_, fact, id); });
}

std::optional<IdList> FactIndex::candidates(const AndList &tests) const {
  const Pair *test = rarest(tests, keys_);
  if (test == nullptr)
    return std::nullopt;
  IdList found;
  const auto key = keys_.find(test->key);
  if (key == keys_.end())
    return found;
  append(found, key->second.open);
  if (test->value_wildcard)
    append_all(found, key->second.values);
  else
    append(found, key->second.values, test->value);
  return found;
}

std::optional<IdList> FactIndex::candidates(const Inspectable &tests) const {
  IdList found;
  for (const AndList &and_list : tests.and_lists()) {
    const std::optional<IdList> some = candidates(and_list);
    if (!some)
      return std::nullopt;
    append(found, *some);
  }
  return in_order(std::move(found));
}

} // namespace varro2::switchd
