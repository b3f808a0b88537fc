#include "plainmodel.hpp"

#include <algorithm>

namespace varro2::test {
namespace {

PlainBucket *lookup(std::vector<PlainBucket> &table, const std::string &name) {
  for (PlainBucket &bucket : table)
    if (bucket.name == name)
      return &bucket;
  return nullptr;
}

// ---- One step ----

void step(const PlainPair *container, const PlainPair &containee, bool &fail, bool &matched) {
  if (container == nullptr) {
    if (!containee.negated)
      fail = true;
    return;
  }
  if (containee.name_space != "" && containee.name_space != container->name_space) {
    fail = true;
    return;
  }
  if (!container->negated && !containee.negated) {
    if (container->value_wildcard)
      matched = true;
    else if (containee.value_wildcard)
      matched = true;
    else if (container->value != containee.value)
      fail = true;
    else
      matched = true;
  } else if (container->negated != containee.negated) {
    const PlainPair &negative = container->negated ? *container : containee;
    const PlainPair &positive = container->negated ? containee : *container;
    if (negative.value_wildcard)
      fail = true;
    else if (positive.value_wildcard)
      return;
    else if (negative.value == positive.value)
      fail = true;
  }
}

// ---- Containment ----

bool keys_fit(PlainAndList &facts, PlainAndList &tests) {
  bool ok = true;
  for (PlainBucket &bucket : tests.keys) {
    const PlainBucket *fact_bucket = lookup(facts.keys, bucket.name);
    bool fail = false;
    bool matched = false;
    bool all_negated = true;
    for (const PlainPair &test : bucket.pairs) {
      if (fail)
        break;
      if (!test.negated)
        all_negated = false;
      if (fact_bucket == nullptr) {
        step(nullptr, test, fail, matched);
      } else {
        for (const PlainPair &fact : fact_bucket->pairs) {
          if (fail)
            break;
          step(&fact, test, fail, matched);
        }
      }
    }
    if (fail) {
      ok = false;
      break;
    }
    ok = matched || all_negated;
    if (!ok)
      break;
  }
  return ok;
}

bool wildcards_fit(PlainAndList &facts, PlainAndList &tests) {
  for (PlainBucket &bucket : tests.wildcards)
    for (PlainPair &test : bucket.pairs)
      test.evaluated = false;
  for (const PlainBucket &bucket : facts.keys) {
    for (const PlainPair &fact : bucket.pairs) {
      if (fact.negated)
        continue;
      if (fact.value_wildcard) {
        for (PlainBucket &test_bucket : tests.wildcards)
          for (PlainPair &test : test_bucket.pairs)
            if (!test.negated)
              test.evaluated = true;
      } else if (PlainBucket *test_bucket = lookup(tests.wildcards, fact.value)) {
        for (PlainPair &test : test_bucket->pairs)
          test.evaluated = true;
      }
    }
  }
  bool ok = true;
  for (const PlainBucket &bucket : tests.wildcards)
    for (const PlainPair &test : bucket.pairs)
      if ((!test.negated && !test.evaluated) || (test.negated && test.evaluated))
        ok = false;
  return ok;
}

// ---- Equality ----

bool tags_equal(const Texts &tags1, const Texts &tags2) {
  if (tags1.size() != tags2.size())
    return false;
  std::vector<bool> used(tags2.size());
  for (const std::string &tag : tags1) {
    std::size_t at = 0;
    while (at < tags2.size() && (used[at] || tags2[at] != tag))
      ++at;
    if (at == tags2.size())
      return false;
    used[at] = true;
  }
  return true;
}

bool pairs_equal(const PlainPair &a, const PlainPair &b) {
  return a.key == b.key && a.value_type == b.value_type && a.name_space == b.name_space &&
         a.key_wildcard == b.key_wildcard && a.value_wildcard == b.value_wildcard &&
         a.negated == b.negated && a.value == b.value && tags_equal(a.tags, b.tags) &&
         a.key_nice_name == b.key_nice_name;
}

bool buckets_equal(PlainBucket &one, PlainBucket &other) {
  if (one.pairs.size() != other.pairs.size())
    return false;
  for (PlainPair &pair : other.pairs)
    pair.paired = false;
  for (PlainPair &a : one.pairs) {
    a.paired = false;
    for (PlainPair &b : other.pairs)
      if (!b.paired && pairs_equal(a, b)) {
        a.paired = b.paired = true;
        break;
      }
    if (!a.paired)
      return false;
  }
  return true;
}

bool tables_equal(std::vector<PlainBucket> &one, std::vector<PlainBucket> &other) {
  if (one.size() != other.size())
    return false;
  return std::ranges::all_of(one, [&](PlainBucket &bucket) {
    PlainBucket *found = lookup(other, bucket.name);
    return found != nullptr && buckets_equal(bucket, *found);
  });
}

// ---- Record ----

void put(Bytes &record, std::size_t count) {
  record.push_back(static_cast<guint8>(count));
  record.push_back(static_cast<guint8>(count >> 8));
}
void put(Bytes &record, const std::string &text) {
  put(record, text.size());
  record.insert(record.end(), text.begin(), text.end());
}
void put(Bytes &record, const PlainPair &pair) {
  record.push_back(0xF5);
  put(record, pair.key);
  record.push_back(pair.key_wildcard);
  put(record, pair.name_space);
  put(record, pair.key_nice_name);
  put(record, pair.value);
  record.push_back(pair.value_wildcard);
  for (int text = 0; text < 3; ++text)
    put(record, std::string{});
  record.push_back(pair.negated);
  record.push_back(pair.value_type);
  put(record, pair.tags.size());
  for (const std::string &tag : pair.tags)
    put(record, tag);
}
void put(Bytes &record, const std::vector<PlainBucket> &table) {
  put(record, table.size());
  for (const PlainBucket &bucket : table) {
    record.push_back(0xF4);
    put(record, bucket.pairs.size());
    for (const PlainPair &pair : bucket.pairs)
      put(record, pair);
  }
}

} // namespace

void PlainAndList::add(const PlainPair &pair) {
  auto &table = pair.key_wildcard ? wildcards : keys;
  const std::string &name = pair.key_wildcard ? pair.value : pair.key;
  PlainBucket *bucket = lookup(table, name);
  if (bucket == nullptr)
    bucket = &table.emplace_back(PlainBucket{name, {}});
  bucket->pairs.push_back(pair);
}

bool plain_contains(PlainInspectable &container, PlainInspectable &containee) {
  if (container.and_lists.empty() || containee.and_lists.empty())
    return false;
  for (PlainAndList &facts : container.and_lists)
    for (PlainAndList &tests : containee.and_lists) {
      bool ok = facts.wildcards.empty() && keys_fit(facts, tests);
      if (ok && !tests.wildcards.empty())
        ok = wildcards_fit(facts, tests);
      if (ok)
        return true;
    }
  return false;
}

bool plain_equal(PlainInspectable &inspect1, PlainInspectable &inspect2) {
  if (inspect1.type != inspect2.type || inspect1.internal != inspect2.internal ||
      !tags_equal(inspect1.tags, inspect2.tags) ||
      inspect1.and_lists.size() != inspect2.and_lists.size())
    return false;
  for (PlainAndList &list : inspect2.and_lists)
    list.marked = false;
  for (PlainAndList &x : inspect1.and_lists) {
    x.marked = false;
    for (PlainAndList &y : inspect2.and_lists)
      if (!y.marked && tables_equal(x.keys, y.keys) && tables_equal(x.wildcards, y.wildcards)) {
        x.marked = y.marked = true;
        break;
      }
    if (!x.marked)
      return false;
  }
  return true;
}

Bytes record_of(const PlainInspectable &inspect) {
  Bytes record{0xF2};
  put(record, inspect.and_lists.size());
  record.push_back(static_cast<guint8>(inspect.type));
  record.push_back(inspect.internal);
  for (const PlainAndList &and_list : inspect.and_lists) {
    record.push_back(0xF3);
    put(record, and_list.keys);
    put(record, and_list.wildcards);
  }
  put(record, inspect.tags.size());
  for (const std::string &tag : inspect.tags)
    put(record, tag);
  return record;
}

std::string describe(const PlainInspectable &inspect) {
  std::string text =
      "type " + std::to_string(inspect.type) + (inspect.internal ? ", internal" : "");
  for (const std::string &tag : inspect.tags)
    text += " {" + tag + "}";
  for (const PlainAndList &and_list : inspect.and_lists) {
    text += "\n  and-list:";
    for (const auto *table : {&and_list.keys, &and_list.wildcards})
      for (const PlainBucket &bucket : *table)
        for (const PlainPair &pair : bucket.pairs) {
          text += " [" + pair.name_space + ":" + (pair.key_wildcard ? "*" : pair.key) +
                  (pair.negated ? " != " : " = ") + (pair.value_wildcard ? "*" : pair.value) + "]";
          for (const std::string &tag : pair.tags)
            text += " {" + tag + "}";
        }
  }
  return text;
}

} // namespace varro2::test
