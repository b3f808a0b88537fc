// Matching: reads only, keeps no marks, so that any number of threads may match on one container.
#include "condition.hpp"
#include "inspectable.hpp"

#include <varro2/eventutils.h>

#include <vector>

using varro2::AndList;
using varro2::Bucket;
using varro2::Pair;

namespace {

// Which buckets of the tests of any key were met by some fact's value. One for each of the first
// buckets needs no memory.
class Marks {
 public:
  explicit Marks(guint32 size) {
    if (size > 64)
      more_.resize(size);
  }
  void set(guint32 position) {
    if (more_.empty())
      few_ |= guint64{1} << position;
    else
      more_[position] = true;
  }
  bool operator[](guint32 position) const {
    return more_.empty() ? (few_ >> position & 1) != 0 : more_[position];
  }

 private:
  guint64 few_ = 0;
  std::vector<bool> more_;
};

constexpr const char *contains = "inspectable_contains";

// A bucket is found by the value of its first test; only a broken record has others in it.
void require_value(const Bucket &tests, const char *value) {
  for (const Pair &test : tests)
    VARRO2_ASSERT_AS(contains,
                     "strcmp(container_key_value->value, containee_key_value->value) == 0",
                     std::strcmp(value, test.value) == 0);
}

// The tests of any key. A fact with an open value fits every plain test and decides nothing for
// a negated one; negated facts do not count.
bool fits_wildcards(const AndList &facts, const AndList &tests) {
  varro2::for_each_pair(tests.wildcards, [](const Pair &test) {
    VARRO2_ASSERT_AS(contains, "key_value->key_wildcard == TRUE", test.key_wildcard);
  });
  bool any_open = false;
  Marks met{tests.wildcards.size()};
  varro2::for_each_pair(facts.keys, [&](const Pair &fact) {
    VARRO2_ASSERT_AS(contains, "container_key_value->key_wildcard == FALSE", !fact.key_wildcard);
    if (fact.negated)
      return;
    if (fact.value_wildcard) {
      any_open = true;
    } else if (const Bucket *bucket = tests.wildcards.find(fact.value)) {
      require_value(*bucket, fact.value);
      met.set(tests.wildcards.position_of(*bucket));
    }
  });
  for (const Bucket &bucket : tests.wildcards) {
    const bool equal = met[tests.wildcards.position_of(bucket)];
    for (const Pair &test : bucket)
      if (test.negated ? equal : !equal && !any_open)
        return false;
  }
  return true;
}

bool fits(const AndList &facts, const AndList &tests) {
  // What holds tests of any key is no set of facts.
  if (!facts.wildcards.empty())
    return false;
  for (const Bucket &bucket : tests.keys) {
    const Bucket *of_key = facts.keys.find(bucket.key());
    if (of_key != nullptr && of_key->has_one() && bucket.has_one()
            ? !varro2::fits_test(of_key->first(), bucket.first())
            : !varro2::fits_tests(of_key, bucket))
      return false;
  }
  return tests.wildcards.empty() || fits_wildcards(facts, tests);
}

bool buckets_equal(const Bucket &bucket1, const Bucket &bucket2) {
  const guint32 size = bucket1.size();
  if (size != bucket2.size())
    return false;
  if (size == 1)
    return key_value_is_equal(&bucket1.first(), &bucket2.first());
  std::vector<bool> paired(size);
  for (const Pair &pair1 : bucket1) {
    guint32 position = 0;
    auto pair2 = bucket2.begin();
    while (pair2 != bucket2.end() && (paired[position] || !key_value_is_equal(&pair1, &*pair2))) {
      ++pair2;
      ++position;
    }
    if (pair2 == bucket2.end())
      return false;
    paired[position] = true;
  }
  return true;
}

template <typename Traits>
bool tables_equal(const varro2::BucketTable<Traits> &table1,
                  const varro2::BucketTable<Traits> &table2) {
  if (table1.size() != table2.size())
    return false;
  for (const Bucket &bucket1 : table1) {
    const Bucket *bucket2 = table2.find(Traits::key_of(bucket1.first()));
    if (bucket2 == nullptr || !buckets_equal(bucket1, *bucket2))
      return false;
  }
  return true;
}

// The first and-list that fits and is free is taken: whichever comes first wins.
bool and_lists_equal(const Inspectable &inspect1, const Inspectable &inspect2) {
  const auto &lists2 = inspect2.and_lists();
  std::vector<bool> paired(lists2.size());
  for (const AndList &list1 : inspect1.and_lists()) {
    guint32 position = 0;
    while (position < lists2.size() &&
           (paired[position] || !tables_equal(list1.keys, lists2[position].keys) ||
            !tables_equal(list1.wildcards, lists2[position].wildcards)))
      ++position;
    if (position == lists2.size())
      return false;
    paired[position] = true;
  }
  return true;
}

} // namespace

gboolean inspectable_contains(const Inspectable *container, const Inspectable *containee) noexcept {
  VARRO2_ASSERT(container != NULL);
  VARRO2_ASSERT(containee != NULL);
  VARRO2_ASSERT(container->type <= IT_PROPERTY_STATE);
  VARRO2_ASSERT(containee->type <= IT_PROPERTY_STATE);
  for (const AndList &facts : container->and_lists())
    for (const AndList &tests : containee->and_lists())
      if (fits(facts, tests))
        return TRUE;
  return FALSE;
}

gboolean inspectable_is_equal(const Inspectable *inspect1, const Inspectable *inspect2) noexcept {
  VARRO2_ASSERT(inspect1 != NULL);
  VARRO2_ASSERT(inspect2 != NULL);
  VARRO2_ASSERT(inspect1->type <= IT_PROPERTY_STATE);
  VARRO2_ASSERT(inspect2->type <= IT_PROPERTY_STATE);
  return inspect1->type == inspect2->type && inspect1->internal == inspect2->internal &&
         event_utils_tag_list_is_equal(inspect1->tags(), inspect2->tags()) &&
         inspect1->and_lists().size() == inspect2->and_lists().size() &&
         and_lists_equal(*inspect1, *inspect2);
}

gboolean inspectable_is_complete(const Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT);
  VARRO2_ASSERT_AS("inspectable_is_complete", "g_list_length(inspect->and_lists) == 1",
                   inspect->and_lists().size() == 1);
  for (const Bucket &bucket : inspect->and_lists().back().keys)
    if (bucket.first().value_wildcard && bucket.first().value_settable)
      return FALSE;
  return TRUE;
}
