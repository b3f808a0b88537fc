#include "inspectable.hpp"
#include "peers.hpp"
#include "subscribers.hpp"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <string>

namespace varro2::test {
namespace {

// For other cases than the usual ones, or more of them: VARRO2_RANDOM_SEED, VARRO2_RANDOM_CASES.
unsigned long number_from(const char *variable, unsigned long otherwise) {
  const char *text = std::getenv(variable);
  return text != nullptr ? std::strtoul(text, nullptr, 10) : otherwise;
}

// Small pools, so that tests and facts meet often.
class Chance {
 public:
  explicit Chance(unsigned seed) : engine_{seed} {}

  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
  bool once_in(unsigned times) { return below(times) == 0; }
  std::string key() { return "key" + std::to_string(below(5)); }
  std::string value() { return once_in(12) ? "" : std::to_string(below(4)); }
  const char *name_space() {
    static constexpr const char *spaces[] = {"", "", "", "one", "two"};
    return spaces[below(5)];
  }

 private:
  std::mt19937 engine_;
};

// Tests of every kind, in up to three lists. A key may come more than once.
void add_random_tests(Inspectable *tests, Chance &chance) {
  for (unsigned lists = 1 + (chance.once_in(3) ? chance.below(3) : 0); lists > 0; --lists) {
    for (unsigned count = chance.below(4); count > 0; --count) {
      const bool any_key = chance.once_in(6);
      const bool any_value = !any_key && chance.once_in(6);
      const std::string key = chance.key();
      inspectable_add_key_value(tests, any_key ? nullptr : key.c_str(), any_key,
                                any_value ? nullptr : chance.value().c_str(), any_value,
                                chance.once_in(5));
      if (!any_key)
        inspectable_set_name_space(tests, key.c_str(), chance.name_space());
    }
    if (lists > 1)
      tests->add_and_list();
  }
}

OwnedExpression random_expression(guint32 id, Chance &chance) {
  OwnedExpression expression{subscribe_expression_new()};
  subscribe_expression_set_id(expression.get(), id);
  add_random_tests(subscribe_expression_get_inspectable(expression.get()), chance);
  if (chance.once_in(2))
    return expression;
  // As it comes from the bus.
  const Own<GByteArray> bytes{subscribe_expression_serialize(expression.get())};
  return OwnedExpression{subscribe_expression_deserialize(bytes.get())};
}

// Mostly what producers send: every key once, all values set. Some have open values, and a few are
// as only an application that builds its own can make them.
Own<Event> random_event(Chance &chance) {
  const Own<EventDeclaration> declared{event_declaration_new(FALSE)};
  if (chance.once_in(20)) {
    const OwnedExpression odd = random_expression(0, chance);
    const Inspectable &tests = *subscribe_expression_get_inspectable(odd.get());
    bool has_any_key = false;
    for (const AndList &and_list : tests.and_lists())
      has_any_key = has_any_key || !and_list.wildcards.empty();
    Own<Event> event{event_new()};
    if (!has_any_key)
      event_set_inspectable(event.get(), &tests);
    return event;
  }
  Inspectable *facts = event_declaration_get_inspectable(declared.get());
  for (unsigned count = chance.below(6); count > 0; --count) {
    const std::string key = chance.key();
    const bool open = chance.once_in(25);
    inspectable_add_key_value(facts, key.c_str(), FALSE, open ? nullptr : chance.value().c_str(),
                              open, FALSE);
    inspectable_set_name_space(facts, key.c_str(), chance.name_space());
  }
  return Own<Event>{event_declaration_generate_event(declared.get())};
}

class SubscriberIndexTest : public ::testing::Test {
 protected:
  void subscribe(guint32 id) {
    OwnedExpression expression = random_expression(id, chance);
    kept.emplace_back(id, OwnedExpression{subscribe_expression_copy(expression.get())});
    subscribers.add(std::move(expression), chance.once_in(2) ? declaration.get() : nullptr);
  }
  void unsubscribe_one() {
    const auto leaves = kept.begin() + static_cast<std::ptrdiff_t>(
                                           chance.below(static_cast<unsigned>(kept.size())));
    ASSERT_TRUE(subscribers.remove(leaves->first));
    kept.erase(leaves);
  }
  // The number of verdicts that were compared.
  std::size_t compare() {
    const Own<Event> event = random_event(chance);
    std::vector<guint32> expected;
    for (const auto &[id, expression] : kept)
      if (event_contains(event.get(), expression.get()))
        expected.push_back(id);
    std::vector<const Subscriber *> matching;
    subscribers.match(*event, matching);
    std::vector<guint32> found;
    for (const Subscriber *subscriber : matching)
      found.push_back(subscriber->id());
    EXPECT_EQ(found, expected);
    matched += expected.size();
    return kept.size();
  }

  const unsigned seed = static_cast<unsigned>(number_from("VARRO2_RANDOM_SEED", 20));
  Chance chance{seed};
  Own<EventDeclaration> declaration{[] {
    EventDeclaration *declared = event_declaration_new(FALSE);
    event_declaration_add_key_value(declared, "key0", "1", VALUE_TYPE_STRING);
    event_declaration_add_key(declared, "key1", VALUE_TYPE_STRING);
    return declared;
  }()};
  Subscribers subscribers;
  std::vector<std::pair<guint32, OwnedExpression>> kept; // in order of arrival
  std::size_t matched = 0;
};

// The same subscribers in the same order as when each is asked.
TEST_F(SubscriberIndexTest, FindsWhatAskingEachFinds) {
  SCOPED_TRACE("VARRO2_RANDOM_SEED=" + std::to_string(seed));
  const std::size_t cases = number_from("VARRO2_RANDOM_CASES", 1'000'000);
  guint32 id = 0;
  std::size_t compared = 0;
  while (compared < cases && !HasFailure()) {
    for (int count = 0; count < 60; ++count)
      subscribe(++id);
    for (int count = 0; count < 100; ++count) {
      compared += compare();
      if (count % 4 == 0)
        unsubscribe_one();
      if (count % 8 == 0)
        subscribe(++id);
    }
    if (chance.once_in(3)) {
      subscribers.clear();
      kept.clear();
    }
    while (kept.size() > 100)
      unsubscribe_one();
  }
  // Both verdicts were there in plenty.
  EXPECT_GT(matched, compared / 10);
  EXPECT_LT(matched, compared - compared / 10);
}

// All ask for the same state, ten each for one token, and the rarer test comes last. Whoever is
// found must be asked: nearly all who are found must want the event.
TEST(SubscriberIndexRank, ATestThatAllHaveIsLeftAlone) {
  constexpr guint32 count = 1000;
  SubscriberIndex index;
  std::vector<std::unique_ptr<Subscriber>> subscribers;
  for (guint32 number = 0; number < count; ++number) {
    const OwnedExpression expression{subscribe_expression_new()};
    subscribe_expression_add_key_value(expression.get(), "state", "1");
    const std::string token = "port-" + std::to_string(number % (count / 10));
    subscribe_expression_add_key_value(expression.get(), "token", token.c_str());
    subscribers.push_back(std::make_unique<Subscriber>(*expression, number));
    index.add(*subscribers.back(), *subscribe_expression_get_inspectable(expression.get()),
              nullptr);
  }
  const Own<Event> event{event_new()};
  Inspectable *facts = event_get_inspectable(event.get());
  inspectable_add_key_value(facts, "state", FALSE, "1", FALSE, FALSE);
  inspectable_add_key_value(facts, "token", FALSE, "port-50", FALSE, FALSE);
  std::vector<const Subscriber *> found;
  ASSERT_TRUE(index.collect(*event, found));
  EXPECT_GE(found.size(), 10U);
  EXPECT_LE(found.size(), 12U);
  for (auto &subscriber : subscribers)
    index.remove(*subscriber);
  found.clear();
  ASSERT_TRUE(index.collect(*event, found));
  EXPECT_TRUE(found.empty());
}

// A subscriber that hangs on one test several times is found once, and leaves nothing behind.
TEST_F(SubscriberIndexTest, SeveralListsOnOneTest) {
  const auto bytes = [](guint32 id) {
    OwnedExpression expression{subscribe_expression_new()};
    subscribe_expression_set_id(expression.get(), id);
    for (const char *second : {"a", "b", "c"}) {
      subscribe_expression_add_key_value(expression.get(), "topic0", "door");
      subscribe_expression_add_key(expression.get(), second);
      subscribe_expression_or(expression.get());
    }
    return expression;
  };
  for (guint32 id = 1; id <= 20; ++id)
    subscribers.add(bytes(id));
  const Own<Event> event{event_new()};
  for (const char *key : {"topic0", "a", "b", "c"})
    inspectable_add_key_value(event_get_inspectable(event.get()), key, FALSE, "door", FALSE, FALSE);
  std::vector<const Subscriber *> matching;
  for (guint32 gone = 1; gone <= 20; ++gone) {
    subscribers.match(*event, matching);
    EXPECT_EQ(matching.size(), 21 - gone);
    EXPECT_EQ(matching.front()->id(), gone);
    EXPECT_TRUE(subscribers.remove(gone));
  }
  subscribers.match(*event, matching);
  EXPECT_TRUE(matching.empty());
}

} // namespace
} // namespace varro2::test
