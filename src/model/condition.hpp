// One test of an expression against the facts of its key.
#pragma once

#include "buckets.hpp"
#include "preconditions.hpp"

#include <functional>

namespace varro2 {

inline bool texts_equal(const char *text1, const char *text2) noexcept {
  return std::strcmp(text_or_empty(text1), text_or_empty(text2)) == 0;
}

// What a test asks for, wherever it is stored. Borrows its texts.
struct Condition {
  Condition(const KeyValue &test) noexcept // every test is one
      : value{test.value}, name_space{test.name_space}, key_wildcard{test.key_wildcard != FALSE},
        value_wildcard{test.value_wildcard != FALSE}, negated{test.negated != FALSE} {}
  // Of a certain key.
  Condition(const char *its_value, const char *its_name_space, bool any_value,
            bool is_negated) noexcept
      : value{its_value}, name_space{its_name_space}, key_wildcard{false},
        value_wildcard{any_value}, negated{is_negated} {}

  const char *value;
  const char *name_space;
  bool key_wildcard;
  bool value_wildcard;
  bool negated;
};

enum class Verdict { undecided, matched, failed };

inline Verdict compare(const KeyValue &fact, const Condition &test) noexcept {
  VARRO2_ASSERT_AS("key_value_is_contained",
                   "key_value_container->key_wildcard == FALSE && "
                   "key_value_containee->key_wildcard == FALSE",
                   !fact.key_wildcard && !test.key_wildcard);
  if (!is_empty(test.name_space) && !texts_equal(test.name_space, fact.name_space))
    return Verdict::failed;
  const bool fact_negated = fact.negated != FALSE;
  const bool fact_open = fact.value_wildcard != FALSE;
  if (fact_negated && test.negated)
    return Verdict::undecided;
  if (!fact_negated && !test.negated)
    return fact_open || test.value_wildcard || std::strcmp(fact.value, test.value) == 0
               ? Verdict::matched
               : Verdict::failed;
  const bool negative_open = fact_negated ? fact_open : test.value_wildcard;
  const bool positive_open = fact_negated ? test.value_wildcard : fact_open;
  const bool excluded =
      negative_open || (!positive_open && std::strcmp(fact.value, test.value) == 0);
  return excluded ? Verdict::failed : Verdict::undecided;
}

// The one test of a key against the one fact of that key, which most are.
inline bool fits_test(const KeyValue &fact, const Condition &test) noexcept {
  const Verdict verdict = compare(fact, test);
  return verdict == Verdict::matched || (verdict == Verdict::undecided && test.negated);
}

// The tests of one key against the facts of that key, of which there may be none.
template <typename Tests, typename ConditionOf = std::identity>
[[gnu::noinline]] bool fits_tests(const Bucket *facts, const Tests &tests,
                                  ConditionOf condition_of = {}) noexcept {
  bool matched = false;
  bool all_negated = true;
  for (const auto &each : tests) {
    const Condition test = condition_of(each);
    all_negated = all_negated && test.negated;
    if (facts == nullptr) {
      if (!test.negated)
        return false;
      continue;
    }
    for (const Pair &fact : *facts) {
      const Verdict verdict = compare(fact, test);
      if (verdict == Verdict::failed)
        return false;
      matched = matched || verdict == Verdict::matched;
    }
  }
  return matched || all_negated;
}

} // namespace varro2
