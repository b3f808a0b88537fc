#include "subscriberindex.hpp"

#include "inspectable.hpp"
#include "subscribers.hpp"

#include <optional>
#include <utility>

namespace varro2 {

namespace {

bool is_plain_fact(const Pair &fact) {
  return !fact.negated && !fact.value_wildcard;
}

bool has_fixed_value(const Inspectable *declared, GQuark key) {
  if (declared == nullptr || declared->and_lists().empty())
    return false;
  const Bucket *bucket = declared->and_lists().back().keys.find(key);
  return bucket != nullptr && is_plain_fact(bucket->first());
}

std::uint64_t bit_of(GQuark key) {
  return std::uint64_t{1} << (key & 63);
}

// An event that the tests of this index can be looked up for.
const AndList *plain_facts(const Event &event) {
  const Inspectable &inspectable = *event_get_inspectable(&event);
  if (inspectable.and_lists().size() != 1)
    return nullptr;
  const AndList &facts = inspectable.and_lists().back();
  for (const Bucket &bucket : facts.keys)
    for (const Pair &fact : bucket)
      if (!is_plain_fact(fact))
        return nullptr;
  return &facts;
}

} // namespace

// How many an event may be expected to find on this test, and the new one: the more values the
// others ask for of the key, the rarer is this one.
double SubscriberIndex::expected_on(const TestView &test) const {
  const auto hanging = tests_.find(test);
  const auto values = values_of_.find(test.key);
  return static_cast<double>(hanging != tests_.end() ? hanging->second.size() + 1 : 1) /
         static_cast<double>(values != values_of_.end() ? values->second : 1);
}

SubscriberIndex::TestView SubscriberIndex::choose(const AndList &tests,
                                                  const Inspectable *declared) const {
  std::optional<TestView> equality;
  std::pair<bool, double> rank; // of the equality test; the lowest selects best
  std::optional<TestView> presence;
  for (const Bucket &bucket : tests.keys)
    for (const Pair &test : bucket) {
      if (test.negated)
        continue;
      if (test.value_wildcard) {
        presence = {test.key, true, {}};
        continue;
      }
      const TestView candidate{test.key, false, view_of(test.value)};
      const std::pair candidate_rank{has_fixed_value(declared, test.key), expected_on(candidate)};
      if (!equality || candidate_rank < rank) {
        equality = candidate;
        rank = candidate_rank;
      }
    }
  if (equality)
    return *equality;
  if (presence)
    return *presence;
  for (const Bucket &bucket : tests.wildcards)
    if (!bucket.first().negated)
      return {0, false, view_of(bucket.first().value)};
  return {0, true, {}};
}

std::size_t &SubscriberIndex::count_of(const TestView &test) noexcept {
  if (test.key != 0)
    return test.any_value ? presences_ : equalities_;
  return test.any_value ? unconditional_ : any_keys_;
}

void SubscriberIndex::add(Subscriber &subscriber, const Inspectable &tests,
                          const EventDeclaration *declaration) {
  const Inspectable *declared =
      declaration != nullptr ? event_declaration_get_inspectable(declaration) : nullptr;
  Places &places = subscriber.places;
  guint32 &count = places.count;
  if (tests.and_lists().size() > 1)
    places.others = std::make_unique<Place[]>(tests.and_lists().size() - 1);
  for (const AndList &and_list : tests.and_lists()) {
    const TestView chosen = choose(and_list, declared);
    const auto [found, is_new] =
        tests_.try_emplace(Test{chosen.key, chosen.any_value, std::string{chosen.value}});
    auto &hanging = found->second;
    places[count] = {&*found, hanging.size()};
    hanging.push_back({&subscriber, count});
    ++count;
    ++count_of(chosen);
    if (is_equality(chosen)) {
      keys_with_equalities_ |= bit_of(chosen.key);
      values_of_[chosen.key] += is_new ? 1 : 0;
    }
  }
}

void SubscriberIndex::remove(Subscriber &subscriber) {
  // One by one: the last one that hangs there, which takes the place, may be of the same
  // subscriber.
  Places &places = subscriber.places;
  while (places.count > 0) {
    const Place place = places[--places.count];
    auto &hanging = place.test->second;
    --count_of(place.test->first);
    const Hanging last = hanging.back();
    hanging.pop_back();
    if (hanging.empty()) {
      if (is_equality(place.test->first))
        --values_of_[place.test->first.key];
      tests_.erase(tests_.find(place.test->first));
    } else if (place.position < hanging.size()) {
      hanging[place.position] = last;
      last.subscriber->places[last.place].position = place.position;
    }
  }
}

void SubscriberIndex::clear() noexcept {
  tests_.clear();
  values_of_.clear();
  equalities_ = presences_ = any_keys_ = unconditional_ = 0;
  keys_with_equalities_ = 0;
}

void SubscriberIndex::look_up(const TestView &test, std::vector<const Subscriber *> &found) const {
  const auto at = tests_.find(test);
  if (at != tests_.end())
    for (const Hanging &hanging : at->second)
      found.push_back(hanging.subscriber);
}

bool SubscriberIndex::collect(const Event &event, std::vector<const Subscriber *> &found) const {
  const AndList *facts = plain_facts(event);
  if (facts == nullptr)
    return false;
  for (const Bucket &bucket : facts->keys) {
    if (presences_ > 0)
      look_up({bucket.key(), true, {}}, found);
    for (const Pair &fact : bucket) {
      if (equalities_ > 0 && (keys_with_equalities_ & bit_of(fact.key)) != 0)
        look_up({fact.key, false, view_of(fact.value)}, found);
      if (any_keys_ > 0)
        look_up({0, false, view_of(fact.value)}, found);
    }
  }
  if (unconditional_ > 0)
    look_up({0, true, {}}, found);
  return true;
}

} // namespace varro2
