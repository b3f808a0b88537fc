// Finds the subscribers that can want an event, without asking each.
//
// Every and-list of an expression hangs on one test that must hold for it to fit: on the equality
// test ("this key has this value") that events are expected to find fewest on; without one on "this
// key is there", then on "some key has this value". What has no such test is always asked. Nothing
// is decided here: whoever is found must still be asked.
#pragma once

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

struct Inspectable;

namespace varro2 {

class Subscriber;
struct AndList;

class SubscriberIndex {
  struct TestView {
    GQuark key; // 0: any
    bool any_value;
    std::string_view value;

    bool operator==(const TestView &) const = default;
  };
  struct Test {
    GQuark key;
    bool any_value;
    std::string value;

    operator TestView() const noexcept { return {key, any_value, value}; }
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const TestView &test) const noexcept {
      return std::hash<std::string_view>{}(test.value) ^
             (test.key * static_cast<std::size_t>(0x9E3779B97F4A7C15)); // on 32 bits: the low half
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const TestView &test1, const TestView &test2) const noexcept {
      return test1 == test2;
    }
  };
  struct Hanging {
    Subscriber *subscriber;
    guint32 place; // among the subscriber's
  };
  using Tests = std::unordered_map<Test, std::vector<Hanging>, Hash, Equal>;

 public:
  // Where an and-list of a subscriber hangs.
  struct Place {
    Tests::value_type *test;
    std::size_t position;
  };
  // Of all the and-lists of a subscriber, which mostly has one.
  struct Places {
    Place &operator[](guint32 at) noexcept { return at == 0 ? first : others[at - 1]; }

    Place first;
    std::unique_ptr<Place[]> others;
    guint32 count = 0;
  };

  // The declaration, if given, tells which values are the same in every event and so select badly.
  void add(Subscriber &subscriber, const Inspectable &tests, const EventDeclaration *declaration);
  void remove(Subscriber &subscriber);
  void clear() noexcept;

  // Adds those that can want the event, in no order and maybe more than once. False when the event
  // cannot be looked up: it has open values, negated ones or more than one and-list.
  bool collect(const Event &event, std::vector<const Subscriber *> &found) const;

 private:
  TestView choose(const AndList &tests, const Inspectable *declared) const;
  static bool is_equality(const TestView &test) noexcept {
    return test.key != 0 && !test.any_value;
  }
  double expected_on(const TestView &test) const;
  void look_up(const TestView &test, std::vector<const Subscriber *> &found) const;
  std::size_t &count_of(const TestView &test) noexcept;

  Tests tests_;
  std::unordered_map<GQuark, std::size_t> values_of_; // of each key, in equality tests
  // How many and-lists hang on a test of each kind: what nobody asks for is not looked up.
  std::size_t equalities_ = 0;
  std::size_t presences_ = 0;
  std::size_t any_keys_ = 0;
  std::size_t unconditional_ = 0;
  // A bit for each key that equality tests were ever on, by its lowest bits: most keys of an event
  // are nobody's test.
  std::uint64_t keys_with_equalities_ = 0;
};

} // namespace varro2
