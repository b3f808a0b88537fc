// Facts, declarations and expressions of every shape: whoever is found by index, and what the
// matcher says of one, is held against the rules told anew.
#include "plain.hpp"
#include "subscribers.hpp"
#include "target.hpp"

#include <algorithm>
#include <utility>

namespace varro2::fuzz {
namespace {

// ---- The rules

// One test against one fact of its key.
void judge(const PlainPair &fact, const PlainPair &test, bool &fail, bool &matched) {
  if (!test.name_space.empty() && test.name_space != fact.name_space) {
    fail = true;
  } else if (!fact.negated && !test.negated) {
    if (fact.any_value || test.any_value || fact.value == test.value)
      matched = true;
    else
      fail = true;
  } else if (fact.negated != test.negated) {
    const PlainPair &negative = fact.negated ? fact : test;
    const PlainPair &positive = fact.negated ? test : fact;
    if (negative.any_value || (!positive.any_value && negative.value == positive.value))
      fail = true;
  }
}

bool key_fits(const PlainBucket *facts, const PlainBucket &tests) {
  bool fail = false;
  bool matched = false;
  bool all_negated = true;
  for (const PlainPair &test : tests) {
    all_negated = all_negated && test.negated;
    if (facts == nullptr)
      fail = fail || !test.negated;
    else
      for (const PlainPair &fact : *facts)
        judge(fact, test, fail, matched);
  }
  return !fail && (matched || all_negated);
}

bool any_key_fits(const PlainList &facts, const PlainPair &test) {
  bool equal = false;
  bool open = false;
  for (const PlainBucket &bucket : facts.keys)
    for (const PlainPair &fact : bucket)
      if (!fact.negated) {
        open = open || fact.any_value;
        equal = equal || (!fact.any_value && fact.value == test.value);
      }
  return test.negated ? !equal : equal || open;
}

bool list_fits(const PlainList &facts, const PlainList &tests) {
  if (!facts.any_keys.empty())
    return false;
  for (const PlainBucket &bucket : tests.keys)
    if (!key_fits(facts.find(bucket.front().key), bucket))
      return false;
  for (const PlainBucket &bucket : tests.any_keys)
    for (const PlainPair &test : bucket)
      if (!any_key_fits(facts, test))
        return false;
  return true;
}

bool fits(const PlainContainer &facts, const PlainContainer &tests) {
  for (const PlainList &one : facts.lists)
    for (const PlainList &other : tests.lists)
      if (list_fits(one, other))
        return true;
  return false;
}

// Two that are equal have one form: nothing in it depends on an order.
std::string form_of(const PlainContainer &container) {
  const auto joined = [](std::vector<std::string> parts) {
    std::sort(parts.begin(), parts.end());
    std::string all = "(";
    for (const std::string &part : parts)
      all += part + ",";
    return all + ")";
  };
  std::vector<std::string> lists;
  for (const PlainList &list : container.lists) {
    std::vector<std::string> buckets;
    for (const auto *table : {&list.keys, &list.any_keys})
      for (const PlainBucket &bucket : *table) {
        std::vector<std::string> pairs;
        for (const PlainPair &pair : bucket)
          pairs.push_back(RecordWriter{}.pair(pair).str());
        buckets.push_back(joined(pairs));
      }
    lists.push_back(joined(buckets));
  }
  return joined(lists) + joined(container.tags) + (container.internal ? "i" : "");
}

// ---- What is matched

constexpr const char *keys[] = {"k0", "k1", "k2", "k3", "k64", "", "k5"};
constexpr const char *values[] = {"1", "2", "", "3", "1\xFF", "a value that is not short"};
constexpr const char *spaces[] = {"", "", "n", "m"};
constexpr const char *tags[] = {"x", "y"};

PlainPair any_pair(Choices &choices) {
  PlainPair pair;
  const unsigned kind = choices.below(16);
  pair.any_key = kind == 1 || kind == 2;
  pair.any_value = kind == 3 || kind == 4;
  pair.negated = kind % 4 == 1;
  if (!pair.any_key)
    pair.key = choices.one_of(keys);
  if (!pair.any_value)
    pair.value = choices.one_of(values);
  if (kind >= 12)
    pair.name_space = choices.one_of(spaces);
  if (kind == 15)
    pair.tags.push_back(choices.one_of(tags));
  return pair;
}

PlainContainer any_tests(Choices &choices) {
  PlainContainer tests;
  tests.type = IT_SUBSCRIBE_EXPRESSION;
  const unsigned shape = choices.below(32);
  for (unsigned lists = shape >= 28 ? shape - 28 : 0; lists > 0; --lists)
    tests.lists.emplace_back();
  for (PlainList &list : tests.lists)
    for (unsigned count = shape == 27 ? 20 + choices.below(80) : shape % 4; count > 0; --count)
      list.add(any_pair(choices));
  return tests;
}

// As senders make them: each key once, with a value or, rarely, open.
PlainContainer any_facts(Choices &choices, guint32 type) {
  PlainContainer facts;
  facts.type = type;
  const unsigned shape = choices.below(32);
  for (unsigned count = shape == 31 ? 20 : shape % 7; count > 0; --count) {
    PlainPair fact = any_pair(choices);
    fact.negated = false;
    if (std::exchange(fact.any_key, false) || facts.lists.front().find(fact.key) != nullptr)
      fact.key = "more" + std::to_string(count);
    fact.any_value = fact.any_value && shape < 16;
    if (fact.any_value)
      fact.value.clear();
    facts.lists.front().add(fact);
  }
  return facts;
}

BytesRef record_of(const RecordWriter &writer, guint32 type_id) {
  BytesRef record = exact_array(writer.data(), writer.size());
  VARRO2_ASSERT(serialize_is_valid_record(record.get(), 0, type_id));
  return record;
}

InspectableOwner built(const PlainContainer &container) {
  const BytesRef record = record_of(RecordWriter{}.container(container), SERIALIZE_ID_INSPECTABLE);
  guint32 end = 0;
  return InspectableOwner{inspectable_deserialize_internal(record.get(), &end)};
}

// ---- What is held against each other

// Texts that are not there count as empty ones, or the test's as none given.
void check_step(Choices &choices) {
  const PlainPair fact = any_pair(choices);
  const PlainPair test = any_pair(choices);
  if (fact.any_key || test.any_key)
    return;
  const auto made = [](const PlainPair &pair) {
    const char *space = pair.name_space.empty() ? nullptr : pair.name_space.c_str();
    return KeyValueOwner{key_value_new(pair.key.c_str(), FALSE, space, nullptr,
                                       pair.any_value ? nullptr : pair.value.c_str(),
                                       pair.any_value, nullptr, nullptr, nullptr, pair.negated)};
  };
  guint32 fail = FALSE;
  guint32 matched = FALSE;
  key_value_is_contained(made(fact).get(), made(test).get(), &fail, &matched);
  bool expected_fail = false;
  bool expected_match = false;
  judge(fact, test, expected_fail, expected_match);
  VARRO2_ASSERT((fail != FALSE) == expected_fail && (matched != FALSE) == expected_match);
}

void check_equality(Choices &choices) {
  const PlainContainer one = any_tests(choices);
  PlainContainer other = one;
  std::reverse(other.lists.begin(), other.lists.end());
  for (PlainList &list : other.lists) {
    std::reverse(list.keys.begin(), list.keys.end());
    for (PlainBucket &bucket : list.keys)
      std::reverse(bucket.begin(), bucket.end());
  }
  if (choices.flag())
    other.lists.front().add(any_pair(choices));
  if (choices.flag() && !other.lists.back().keys.empty())
    other.lists.back().keys.pop_back();
  other.internal = choices.below(8) == 1;
  const bool expected = form_of(one) == form_of(other);
  const InspectableOwner first = built(one);
  const InspectableOwner second = built(other);
  VARRO2_ASSERT(expected == static_cast<bool>(inspectable_is_equal(first.get(), second.get())));
  VARRO2_ASSERT(expected == static_cast<bool>(inspectable_is_equal(second.get(), first.get())));
}

// Any container holds any other, or does not.
void check_containers(Choices &choices) {
  const PlainContainer facts =
      choices.flag() ? any_tests(choices) : any_facts(choices, IT_EVENT_DECLARATION);
  const PlainContainer tests = any_tests(choices);
  const InspectableOwner container = built(facts);
  VARRO2_ASSERT(static_cast<bool>(inspectable_contains(container.get(), built(tests).get())) ==
                fits(facts, tests));
}

class Subscriptions {
 public:
  explicit Subscriptions(Choices &choices)
      : choices_{choices}, declared_{any_facts(choices, IT_EVENT_DECLARATION)} {
    const BytesRef record =
        record_of(RecordWriter{}.declaration(declared_), SERIALIZE_ID_EVENT_DECLARATION);
    declaration_.reset(event_declaration_deserialize(record.get()));
  }

  void run() {
    for (int step = 0; !choices_.at_end() && step < 150; ++step)
      switch (choices_.below(8)) {
      case 0:
        match();
        break;
      case 1:
        leave();
        break;
      case 2:
        if (choices_.below(16) == 1) {
          subscribers_.clear();
          kept_.clear();
        }
        break;
      default:
        come();
      }
    match();
  }

 private:
  void come() {
    if (kept_.size() >= 40)
      return leave();
    const PlainContainer tests = any_tests(choices_);
    // An id twice is served as well.
    const guint32 id = choices_.below(32) == 1 ? 1 : ++last_id_;
    const BytesRef record =
        record_of(RecordWriter{}.expression(tests, id), SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
    OwnedExpression expression{subscribe_expression_deserialize(record.get())};
    VARRO2_ASSERT(fits(declared_, tests) == static_cast<bool>(event_declaration_contains(
                                                declaration_.get(), expression.get())));
    subscribers_.add(std::move(expression), choices_.flag() ? declaration_.get() : nullptr);
    kept_.emplace_back(id, tests);
  }

  void leave() {
    if (kept_.empty())
      return;
    const guint32 id = kept_[choices_.byte() % kept_.size()].first;
    VARRO2_ASSERT(subscribers_.remove(id));
    kept_.erase(std::find_if(kept_.begin(), kept_.end(),
                             [id](const auto &one) { return one.first == id; }));
    VARRO2_ASSERT(
        (subscribers_.find(id) != nullptr) ==
        std::any_of(kept_.begin(), kept_.end(), [id](const auto &one) { return one.first == id; }));
  }

  void match() {
    const bool odd = choices_.below(16) == 1;
    const PlainContainer facts = odd ? any_tests(choices_) : any_facts(choices_, IT_EVENT);
    const EventOwner event{event_new()};
    event_set_inspectable(event.get(), built(facts).get());
    std::vector<guint32> expected;
    for (const auto &[id, tests] : kept_)
      if (fits(facts, tests))
        expected.push_back(id);
    std::vector<const Subscriber *> matching;
    subscribers_.match(*event, matching);
    std::vector<guint32> found;
    for (const Subscriber *subscriber : matching)
      found.push_back(subscriber->id());
    VARRO2_ASSERT(found == expected);
  }

  Choices &choices_;
  PlainContainer declared_;
  DeclarationOwner declaration_;
  Subscribers subscribers_;
  std::vector<std::pair<guint32, PlainContainer>> kept_; // in order of arrival
  guint32 last_id_ = 0;
};

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2::fuzz;
  Choices choices{data, size};
  switch (choices.below(8)) {
  case 0:
    check_step(choices);
    break;
  case 1:
    check_equality(choices);
    break;
  case 2:
    check_containers(choices);
    break;
  default:
    Subscriptions{choices}.run();
  }
  return 0;
}
