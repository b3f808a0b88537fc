// Matching: the cases by hand, and many random ones against a plain matcher that works with marks.
#include "modeltest.hpp"
#include "plainmodel.hpp"

#include <random>
#include <thread>

using namespace varro2::test;

namespace {

// ---- By hand ----

struct Added {
  const char *key;   // null for any key
  const char *value; // null for an open value
  bool negated = false;
};

OwnedInspectable make(guint32 type, std::initializer_list<Added> pairs) {
  auto inspect = new_inspectable(type);
  for (const auto &[key, value, negated] : pairs)
    inspectable_add_key_value(inspect.get(), key, key == nullptr, value, value == nullptr, negated);
  return inspect;
}
OwnedInspectable event(std::initializer_list<Added> facts) {
  return make(IT_EVENT, facts);
}
OwnedInspectable declaration(std::initializer_list<Added> facts) {
  return make(IT_EVENT_DECLARATION, facts);
}
OwnedInspectable tests(std::initializer_list<Added> pairs) {
  return make(IT_SUBSCRIBE_EXPRESSION, pairs);
}
bool contains(const OwnedInspectable &container, const OwnedInspectable &containee) {
  return inspectable_contains(container.get(), containee.get());
}
bool equal(const OwnedInspectable &one, const OwnedInspectable &other) {
  return inspectable_is_equal(one.get(), other.get());
}

constexpr bool negated = true;

TEST(InspectableContains, PlainTests) {
  EXPECT_TRUE(contains(event({{"A", "1"}, {"B", "2"}}), tests({{"A", "1"}})));
  EXPECT_FALSE(contains(event({{"B", "2"}}), tests({{"A", "1"}})));
  EXPECT_FALSE(contains(event({{"A", "2"}}), tests({{"A", "1"}})));
  EXPECT_TRUE(contains(event({{"A", "1"}, {"B", "2"}}), tests({{"B", "2"}, {"A", "1"}})));
  EXPECT_FALSE(contains(event({{"A", "1"}}), tests({{"A", "1"}, {"B", "2"}})));
  EXPECT_FALSE(contains(event({{"A", "1"}}), tests({{"A", "1"}, {"A", "2"}})));
  EXPECT_TRUE(contains(event({{"A", "1"}}), tests({{"A", nullptr}})));
  EXPECT_FALSE(contains(event({{"B", "1"}}), tests({{"A", nullptr}})));
}

TEST(InspectableContains, NegatedTests) {
  EXPECT_TRUE(contains(event({{"B", "2"}}), tests({{"A", "1", negated}})));
  EXPECT_FALSE(contains(event({{"A", "1"}}), tests({{"A", "1", negated}})));
  EXPECT_TRUE(contains(event({{"A", "3"}}), tests({{"A", "1", negated}})));
  EXPECT_FALSE(contains(event({{"A", "3"}}), tests({{"A", nullptr, negated}})));
  EXPECT_TRUE(contains(event({{"B", "3"}}), tests({{"A", nullptr, negated}})));
  EXPECT_TRUE(contains(event({{"A", "1"}}), tests({{"A", "1"}, {"A", "2", negated}})));
  EXPECT_FALSE(contains(event({{"A", "2"}}), tests({{"A", "2", negated}, {"A", "2"}})));
}

TEST(InspectableContains, OpenValuesOfADeclaration) {
  EXPECT_TRUE(contains(declaration({{"A", nullptr}}), tests({{"A", "1"}})));
  EXPECT_TRUE(contains(declaration({{"A", nullptr}}), tests({{"A", "1", negated}})));
  EXPECT_FALSE(contains(declaration({{"A", nullptr}}), tests({{"A", nullptr, negated}})));
  EXPECT_TRUE(contains(declaration({{"A", nullptr}}), tests({{"A", "1"}, {"A", "2"}})));
}

TEST(InspectableContains, TestsOfAnyKey) {
  EXPECT_TRUE(contains(event({{"A", "5"}}), tests({{nullptr, "5"}})));
  EXPECT_FALSE(contains(event({{"A", "4"}}), tests({{nullptr, "5"}})));
  EXPECT_TRUE(contains(declaration({{"A", nullptr}}), tests({{nullptr, "5"}})));
  EXPECT_FALSE(contains(event({{"A", "5"}}), tests({{nullptr, "5", negated}})));
  EXPECT_TRUE(contains(event({{"A", "4"}}), tests({{nullptr, "5", negated}})));
  // An open value decides nothing for a negated test.
  EXPECT_TRUE(contains(declaration({{"A", nullptr}}), tests({{nullptr, "5", negated}})));
  EXPECT_TRUE(contains(event({{"A", "5"}, {"B", "6"}}), tests({{nullptr, "6"}, {nullptr, "5"}})));
  EXPECT_FALSE(contains(event({{"A", "5"}}), tests({{nullptr, "6"}, {nullptr, "5"}})));
  EXPECT_FALSE(contains(event({{"A", "5"}}), tests({{nullptr, "5"}, {nullptr, "5", negated}})));
  EXPECT_FALSE(contains(event({{"A", "5"}}), tests({{"B", "1"}, {nullptr, "5"}})));
  // Negated facts do not count.
  EXPECT_FALSE(contains(event({{"A", "5", negated}}), tests({{nullptr, "5"}})));
  EXPECT_TRUE(contains(event({{"A", "5", negated}}), tests({{nullptr, "5", negated}})));
  EXPECT_FALSE(contains(event({}), tests({{nullptr, "5"}})));
  EXPECT_TRUE(contains(event({}), tests({{nullptr, "5", negated}})));
}

TEST(InspectableContains, ManyTestsOfAnyKey) {
  for (const int count : {63, 64, 65, 200}) {
    const auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
    const auto facts = new_inspectable(IT_EVENT);
    for (int number = 0; number < count; ++number) {
      EXPECT_FALSE(number > 0 && !contains(facts, expression));
      add_for_any_key(expression, std::to_string(number).c_str());
      EXPECT_FALSE(contains(facts, expression));
      add(facts, ("key" + std::to_string(number)).c_str(), std::to_string(number).c_str());
    }
    EXPECT_TRUE(contains(facts, expression));
    add_for_any_key(expression, std::to_string(count - 1).c_str(), TRUE);
    EXPECT_FALSE(contains(facts, expression));
  }
}

TEST(InspectableContains, EmptyAndListsFitAll) {
  EXPECT_TRUE(contains(event({{"A", "1"}}), tests({})));
  EXPECT_TRUE(contains(event({}), tests({})));
}

TEST(InspectableContains, AnyAndListMayFit) {
  const auto expression = tests({{"A", "1"}});
  inspectable_or(expression.get());
  add(expression, "B", "2");
  EXPECT_TRUE(contains(event({{"B", "2"}}), expression));
  EXPECT_TRUE(contains(event({{"A", "1"}}), expression));
  EXPECT_FALSE(contains(event({{"B", "1"}, {"A", "2"}}), expression));
  // Also any of the container.
  EXPECT_TRUE(contains(expression, tests({{"B", "2"}})));
  EXPECT_FALSE(contains(expression, tests({{"A", "1"}, {"B", "2"}})));
}

TEST(InspectableContains, WithoutAndListsNothingFits) {
  const auto none = read_inspectable({0xF2, 0, 0, 2, 0, 0, 0});
  EXPECT_FALSE(contains(event({{"A", "1"}}), none));
  EXPECT_FALSE(contains(none, tests({})));
}

TEST(InspectableContains, ATestOfAnyKeyIsNoFact) {
  EXPECT_FALSE(contains(tests({{nullptr, "5"}, {"A", "1"}}), tests({{"A", "1"}})));
  EXPECT_FALSE(contains(tests({{nullptr, "5"}}), tests({})));
}

TEST(InspectableContains, OneDisagreeingFactIsEnough) {
  EXPECT_FALSE(contains(tests({{"A", "1"}, {"A", "2"}}), tests({{"A", "2"}})));
  EXPECT_FALSE(contains(tests({{"A", "2"}, {"A", "1"}}), tests({{"A", "2"}})));
  EXPECT_TRUE(contains(tests({{"A", "2"}, {"A", "2"}}), tests({{"A", "2"}})));
}

TEST(InspectableContains, NameSpaces) {
  const auto facts = declaration({{"A", "1"}});
  inspectable_set_name_space(facts.get(), "A", "tns1");
  const auto expression = tests({{"A", "1"}});
  EXPECT_TRUE(contains(facts, expression));
  inspectable_set_name_space(expression.get(), "A", "tns1");
  EXPECT_TRUE(contains(facts, expression));
  EXPECT_FALSE(contains(event({{"A", "1"}}), expression));
  inspectable_set_name_space(expression.get(), "A", "tns2");
  EXPECT_FALSE(contains(facts, expression));
}

TEST(InspectableContains, ChangesNothing) {
  const auto facts = declaration({{"A", nullptr}, {"B", "5"}});
  const auto expression = tests({{nullptr, "5"}, {"A", "1"}});
  for (int round = 0; round < 2; ++round)
    EXPECT_TRUE(contains(facts, expression));
  for (const char *key : {"A", "B"}) {
    EXPECT_FALSE(inspectable_get_key_value(facts.get(), key)->evaluated);
    EXPECT_FALSE(inspectable_get_key_value(facts.get(), key)->paired);
  }
  EXPECT_FALSE(inspectable_get_key_value(expression.get(), "A")->evaluated);
}

TEST(InspectableContains, AbortsOnWhatOnlyABrokenRecordHolds) {
  // Tests of any key that stand under a key, keys that stand under a value, values in one bucket
  // that differ.
  PlainInspectable facts{IT_EVENT, {{{{"A", {{.key = "A", .value = "5"}}}}, {}}}};
  PlainInspectable any_key{IT_SUBSCRIBE_EXPRESSION,
                           {{{}, {{"5", {{.value = "5", .key_wildcard = true}}}}}}};
  const auto good_facts = read_inspectable(record_of(facts));
  const auto good_tests = read_inspectable(record_of(any_key));
  EXPECT_TRUE(contains(good_facts, good_tests));
  const char *function = "inspectable_contains";

  auto broken = any_key;
  broken.and_lists[0].wildcards[0].pairs[0].key_wildcard = false;
  EXPECT_ABORT(contains(good_facts, read_inspectable(record_of(broken))), function,
               "key_value->key_wildcard == TRUE");
  // Before any test is asked, be it one that fails.
  broken.and_lists[0].wildcards.insert(broken.and_lists[0].wildcards.begin(),
                                       {"6", {{.value = "6", .key_wildcard = true}}});
  EXPECT_ABORT(contains(good_facts, read_inspectable(record_of(broken))), function,
               "key_value->key_wildcard == TRUE");
  // But not where the tests of keys have failed already.
  broken.and_lists[0].keys.push_back({"B", {{.key = "B"}}});
  EXPECT_FALSE(contains(good_facts, read_inspectable(record_of(broken))));
  broken = any_key;
  broken.and_lists[0].wildcards[0].pairs.push_back({.value = "6", .key_wildcard = true});
  EXPECT_ABORT(contains(good_facts, read_inspectable(record_of(broken))), function,
               "strcmp(container_key_value->value, containee_key_value->value) == 0");
  broken = facts;
  broken.and_lists[0].keys[0].pairs[0].key_wildcard = true;
  EXPECT_ABORT(contains(read_inspectable(record_of(broken)), good_tests), function,
               "container_key_value->key_wildcard == FALSE");
}

TEST(InspectableContains, AbortsWithoutItsArguments) {
  const auto some = event({});
  EXPECT_ABORT(inspectable_contains(nullptr, some.get()), "inspectable_contains",
               "container != NULL");
  EXPECT_ABORT(inspectable_contains(some.get(), nullptr), "inspectable_contains",
               "containee != NULL");
}

TEST(InspectableEqual, TypesInternalAndTags) {
  EXPECT_TRUE(equal(event({{"A", "1"}}), event({{"A", "1"}})));
  EXPECT_FALSE(equal(event({{"A", "1"}}), declaration({{"A", "1"}})));
  EXPECT_FALSE(equal(event({{"A", "1"}}), tests({{"A", "1"}})));
  EXPECT_FALSE(equal(tests({{"A", "1"}}), declaration({{"A", "1"}})));
  const auto one = declaration({{"A", "1"}});
  const auto other = declaration({{"A", "1"}});
  for (const char *tag : {"a", "b", "a"})
    inspectable_add_tag(one.get(), tag);
  for (const char *tag : {"b", "a"})
    inspectable_add_tag(other.get(), tag);
  EXPECT_FALSE(equal(one, other));
  inspectable_add_tag(other.get(), "a");
  EXPECT_TRUE(equal(one, other));
  inspectable_set_internal(other.get(), TRUE);
  EXPECT_FALSE(equal(one, other));
}

TEST(InspectableEqual, InAnyOrder) {
  EXPECT_TRUE(equal(event({{"A", "1"}, {"B", "2"}}), event({{"B", "2"}, {"A", "1"}})));
  EXPECT_FALSE(equal(event({{"A", "1"}, {"B", "2"}}), event({{"A", "1"}})));
  EXPECT_FALSE(equal(event({{"A", "1"}}), event({{"A", "1"}, {"B", "2"}})));
  EXPECT_FALSE(equal(event({{"A", "1"}, {"B", "2"}}), event({{"A", "1"}, {"C", "2"}})));
  EXPECT_TRUE(equal(tests({{"A", "1"}, {"A", "2"}}), tests({{"A", "2"}, {"A", "1"}})));
  EXPECT_FALSE(equal(tests({{"A", "1"}, {"A", "1"}, {"A", "2"}}),
                     tests({{"A", "2"}, {"A", "1"}, {"A", "2"}})));
  EXPECT_TRUE(equal(tests({{nullptr, "1"}, {nullptr, "2"}, {nullptr, "1", negated}}),
                    tests({{nullptr, "1", negated}, {nullptr, "2"}, {nullptr, "1"}})));
  EXPECT_FALSE(equal(tests({{nullptr, "1"}}), tests({{nullptr, "2"}})));
  EXPECT_FALSE(equal(tests({{nullptr, "1"}}), tests({{"", "1"}})));
}

TEST(InspectableEqual, AndListsInAnyOrder) {
  const auto one = tests({{"A", "1"}});
  inspectable_or(one.get());
  add(one, "B", "2");
  const auto other = tests({{"B", "2"}});
  inspectable_or(other.get());
  add(other, "A", "1");
  EXPECT_TRUE(equal(one, other));
  const auto twice = tests({{"A", "1"}});
  inspectable_or(twice.get());
  add(twice, "A", "1");
  EXPECT_FALSE(equal(one, twice));
  EXPECT_FALSE(equal(twice, one));
  EXPECT_FALSE(equal(one, tests({{"A", "1"}})));
}

TEST(InspectableEqual, AbortsWithoutItsArguments) {
  const auto some = event({});
  EXPECT_ABORT(inspectable_is_equal(nullptr, some.get()), "inspectable_is_equal",
               "inspect1 != NULL");
  EXPECT_ABORT(inspectable_is_equal(some.get(), nullptr), "inspectable_is_equal",
               "inspect2 != NULL");
}

TEST(InspectableComplete, WhenNoSettableValueIsOpen) {
  EXPECT_TRUE(inspectable_is_complete(event({}).get()));
  EXPECT_TRUE(inspectable_is_complete(event({{"A", "1"}}).get()));
  for (const guint32 type : {IT_EVENT, IT_EVENT_DECLARATION}) {
    const auto inspect = make(type, {{"A", "1"}, {"B", nullptr}, {"C", nullptr}});
    EXPECT_FALSE(inspectable_is_complete(inspect.get()));
    inspectable_set_value_as_string(inspect.get(), "B", "2");
    EXPECT_FALSE(inspectable_is_complete(inspect.get()));
    inspectable_set_value_as_string(inspect.get(), "C", "");
    EXPECT_TRUE(inspectable_is_complete(inspect.get()));
  }
}

TEST(InspectableComplete, LooksAtTheFirstPairOfEachKeyOnly) {
  const auto expression = tests({{"A", "1"}, {"A", nullptr}, {nullptr, "5"}});
  const OwnedInspectable copy{inspectable_copy(expression.get(), IT_EVENT)};
  EXPECT_TRUE(inspectable_is_complete(copy.get()));
}

TEST(InspectableComplete, IsForEventsAndDeclarationsOfOneAndList) {
  const char *types = "inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT";
  EXPECT_ABORT(inspectable_is_complete(tests({}).get()), "inspectable_is_complete", types);
  EXPECT_ABORT(inspectable_is_complete(new_inspectable(IT_PROPERTY_STATE).get()),
               "inspectable_is_complete", types);
  EXPECT_ABORT(inspectable_is_complete(nullptr), "inspectable_is_complete", "inspect != NULL");
  const auto expression = tests({{"A", "1"}});
  inspectable_or(expression.get());
  const OwnedInspectable copy{inspectable_copy(expression.get(), IT_EVENT)};
  EXPECT_ABORT(inspectable_is_complete(copy.get()), "inspectable_is_complete",
               "g_list_length(inspect->and_lists) == 1");
}

// ---- At random ----

using Random = std::mt19937;

bool once_in(Random &random, unsigned times) {
  return random() % times == 0;
}
std::string one_of(Random &random, std::initializer_list<const char *> texts) {
  return texts.begin()[random() % texts.size()];
}

struct Habits {
  unsigned key_wildcards; // one pair in so many; 0 for none
  unsigned negations;
  unsigned open_values;
  unsigned name_spaces;
  unsigned most_and_lists;
  unsigned most_pairs;
};

PlainPair random_pair(Random &random, const Habits &habits) {
  PlainPair pair;
  pair.key_wildcard = habits.key_wildcards != 0 && once_in(random, habits.key_wildcards);
  pair.value_wildcard = !pair.key_wildcard && once_in(random, habits.open_values);
  pair.negated = once_in(random, habits.negations);
  if (!pair.key_wildcard)
    pair.key = one_of(random, {"A", "B", "C", "D"});
  if (!pair.value_wildcard)
    pair.value = one_of(random, {"1", "2", "3", ""});
  if (once_in(random, habits.name_spaces))
    pair.name_space = one_of(random, {"n", "m"});
  return pair;
}

PlainInspectable random_inspectable(Random &random, guint32 type, const Habits &habits) {
  PlainInspectable inspect{type};
  const auto and_lists = once_in(random, 50) ? 0 : 1 + random() % habits.most_and_lists;
  for (unsigned list = 0; list < and_lists; ++list) {
    PlainAndList &and_list = inspect.and_lists.emplace_back();
    for (auto pairs = random() % (habits.most_pairs + 1); pairs > 0; --pairs)
      and_list.add(random_pair(random, habits));
  }
  return inspect;
}

std::string described(const PlainInspectable &one, const PlainInspectable &other) {
  return "\n" + describe(one) + "\nagainst\n" + describe(other);
}

TEST(InspectableContains, AgreesWithThePlainMatcher) {
  constexpr int rounds = 300'000;
  // What an event is, what a declaration is, what an expression taken for a container is.
  constexpr Habits containers[] = {
      {.key_wildcards = 0,
       .negations = 1000,
       .open_values = 1000,
       .name_spaces = 6,
       .most_and_lists = 1,
       .most_pairs = 5},
      {.key_wildcards = 0,
       .negations = 20,
       .open_values = 3,
       .name_spaces = 6,
       .most_and_lists = 1,
       .most_pairs = 5},
      {.key_wildcards = 12,
       .negations = 4,
       .open_values = 4,
       .name_spaces = 6,
       .most_and_lists = 3,
       .most_pairs = 5},
  };
  constexpr Habits expressions{.key_wildcards = 5,
                               .negations = 3,
                               .open_values = 6,
                               .name_spaces = 8,
                               .most_and_lists = 3,
                               .most_pairs = 4};
  Random random{20'240'601};
  int verdicts[2] = {};
  for (int round = 0; round < rounds; ++round) {
    PlainInspectable container = random_inspectable(random, static_cast<guint32>(random() % 4),
                                                    containers[random() % std::size(containers)]);
    PlainInspectable containee = random_inspectable(random, IT_SUBSCRIBE_EXPRESSION, expressions);
    const bool expected = plain_contains(container, containee);
    ++verdicts[expected];
    ASSERT_EQ(
        contains(read_inspectable(record_of(container)), read_inspectable(record_of(containee))),
        expected)
        << described(container, containee);
  }
  EXPECT_GT(verdicts[false], rounds / 5);
  EXPECT_GT(verdicts[true], rounds / 5);
}

// The same content in another order, or with one thing changed.
PlainInspectable variant_of(Random &random, PlainInspectable inspect) {
  std::shuffle(inspect.and_lists.begin(), inspect.and_lists.end(), random);
  std::shuffle(inspect.tags.begin(), inspect.tags.end(), random);
  for (PlainAndList &and_list : inspect.and_lists) {
    std::shuffle(and_list.keys.begin(), and_list.keys.end(), random);
    std::shuffle(and_list.wildcards.begin(), and_list.wildcards.end(), random);
    for (auto *table : {&and_list.keys, &and_list.wildcards})
      for (PlainBucket &bucket : *table) {
        std::shuffle(bucket.pairs.begin(), bucket.pairs.end(), random);
        for (PlainPair &pair : bucket.pairs) {
          std::shuffle(pair.tags.begin(), pair.tags.end(), random);
          if (!once_in(random, 30))
            continue;
          switch (random() % 6) {
          case 0:
            pair.negated = !pair.negated;
            break;
          case 1:
            pair.name_space += "x";
            break;
          case 2:
            pair.value_type = 1;
            break;
          case 3:
            pair.tags.emplace_back("t");
            break;
          case 4:
            bucket.pairs.push_back(PlainPair{bucket.pairs.front()});
            break;
          default:
            pair.key_nice_name = "nice";
          }
          break;
        }
      }
  }
  if (once_in(random, 30))
    inspect.tags.emplace_back("u");
  if (once_in(random, 30))
    inspect.internal = !inspect.internal;
  if (once_in(random, 30))
    inspect.type = static_cast<guint32>(random() % 4);
  if (once_in(random, 30))
    inspect.and_lists.emplace_back();
  return inspect;
}

TEST(InspectableEqual, AgreesWithThePlainOne) {
  constexpr int rounds = 200'000;
  constexpr Habits habits{.key_wildcards = 4,
                          .negations = 3,
                          .open_values = 6,
                          .name_spaces = 4,
                          .most_and_lists = 3,
                          .most_pairs = 4};
  Random random{20'240'602};
  int verdicts[2] = {};
  for (int round = 0; round < rounds; ++round) {
    PlainInspectable one = random_inspectable(random, static_cast<guint32>(random() % 4), habits);
    for (auto tags = random() % 4; tags > 0; --tags)
      one.tags.push_back(one_of(random, {"t", "u"}));
    PlainInspectable other = variant_of(random, one);
    const bool expected = plain_equal(one, other);
    ++verdicts[expected];
    ASSERT_EQ(equal(read_inspectable(record_of(one)), read_inspectable(record_of(other))), expected)
        << described(one, other);
  }
  EXPECT_GT(verdicts[false], rounds / 10);
  EXPECT_GT(verdicts[true], rounds / 10);
}

// ---- From several threads ----

TEST(InspectableContains, ReadsOnly) {
  const auto expression =
      tests({{"A", "1"}, {"B", "9", negated}, {nullptr, "5"}, {nullptr, "6", negated}});
  const auto fitting = declaration({{"A", "1"}, {"B", nullptr}, {"C", "5"}});
  const auto other = declaration({{"A", "1"}, {"B", "9"}, {"C", "5"}});
  int fits[2] = {};
  const auto match = [&](int &count) {
    for (int round = 0; round < 20'000; ++round) {
      count += contains(fitting, expression) && !contains(other, expression) &&
               equal(fitting, fitting) && inspectable_get_value(fitting.get(), "A") != nullptr;
    }
  };
  {
    const std::jthread one{match, std::ref(fits[0])};
    const std::jthread two{match, std::ref(fits[1])};
  }
  EXPECT_EQ(fits[0], 20'000);
  EXPECT_EQ(fits[1], 20'000);
}

} // namespace
