// Ceilings for what the everyday operations allocate. They are counts, not times, and so the same
// on every machine; one that is exceeded says that something became slower. Where GLib keeps its
// small records in slices of its own, fewer are counted.
#include "allocations.hpp"
#include "subscribers.hpp"

#include <varro2/varro2.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <string>

namespace varro2::test {
namespace {

using OwnedEvent = Owned<Event, event_free>;
using OwnedDeclaration = Owned<EventDeclaration, event_declaration_free>;

struct Setting {
  explicit Setting(int keys) : declaration{event_declaration_new(FALSE)} {
    for (int key = 0; key < keys; ++key) {
      names.push_back("key" + std::to_string(key));
      if (key % 2 == 0)
        event_declaration_add_key_value(declaration.get(), names.back().c_str(), "fixed",
                                        VALUE_TYPE_STRING);
      else
        event_declaration_add_key(declaration.get(), names.back().c_str(), VALUE_TYPE_STRING);
    }
    prepared.reset(event_declaration_generate_event(declaration.get()));
    filled = build();
  }

  OwnedEvent build() const {
    OwnedEvent event{event_copy(prepared.get())};
    for (std::size_t key = 1; key < names.size(); key += 2)
      event_set_value(event.get(), names[key].c_str(), "a value");
    event_set_global_id(event.get(), 1);
    event_set_producer_id(event.get(), 1);
    set_event_time_now(event.get());
    return event;
  }

  OwnedDeclaration declaration;
  std::vector<std::string> names;
  OwnedEvent prepared;
  OwnedEvent filled;
};

// The first time may fill caches, and GLib's slices take a new page now and then: so the least of a
// few times.
std::size_t cost_of(const std::function<void()> &operation) {
  operation();
  std::size_t least = allocations_of(operation);
  for (int again = 0; again < 8; ++again)
    least = std::min(least, allocations_of(operation));
  return least;
}

class Allocations : public ::testing::TestWithParam<int> {
 protected:
  const Setting setting{GetParam()};
};

TEST_P(Allocations, OfACopy) {
  EXPECT_LE(cost_of([&] { event_free(event_copy(setting.filled.get())); }), 1U);
}

TEST_P(Allocations, OfSerialising) {
  EXPECT_LE(cost_of([&] { g_byte_array_unref(event_serialize(setting.filled.get())); }), 2U);
}

TEST_P(Allocations, OfBuildingAndSerialising) {
  EXPECT_LE(cost_of([&] { g_byte_array_unref(event_serialize(setting.build().get())); }), 4U);
}

TEST_P(Allocations, OfReadingBack) {
  const auto bytes = BytesRef::adopt(event_serialize(setting.filled.get()));
  EXPECT_LE(cost_of([&] { event_free(event_deserialize(bytes.get())); }), 2U);
}

// Whatever the number of keys.
INSTANTIATE_TEST_SUITE_P(Keys, Allocations, ::testing::Values(1, 8, 32, 256));

TEST(AllocationsOfMatching, NoneHoweverManySubscribe) {
  const Setting setting{8};
  for (const guint32 count : {1U, 9U, 100U, 5000U}) {
    Subscribers subscribers;
    for (guint32 number = 0; number < count; ++number) {
      OwnedExpression expression{subscribe_expression_new()};
      subscribe_expression_set_id(expression.get(), number + 1);
      subscribe_expression_add_key_value(expression.get(), "key0", "fixed");
      const std::string value = number % 100 == 0 ? "a value" : std::to_string(number);
      subscribe_expression_add_key_value(expression.get(), "key1", value.c_str());
      subscribers.add(std::move(expression), setting.declaration.get());
    }
    std::vector<const Subscriber *> matching;
    EXPECT_EQ(cost_of([&] { subscribers.match(*setting.filled, matching); }), 0U);
    EXPECT_EQ(matching.size(), (count + 99) / 100);
  }
}

// Each token is asked for by ten of them.
TEST(Memory, OfASubscriptionOfThreeTests) {
  constexpr guint32 count = 10'000;
  Subscribers subscribers;
  const std::size_t before = bytes_held();
  for (guint32 number = 0; number < count; ++number) {
    OwnedExpression expression{subscribe_expression_new()};
    subscribe_expression_set_id(expression.get(), number + 1);
    subscribe_expression_set_dbus_service(expression.get(), ":1.1234");
    subscribe_expression_set_dbus_object(expression.get(),
                                         "/com/quor/Event/Consumer/0x55d0c0ffee00");
    subscribe_expression_add_key_value(expression.get(), "topic0", "Device");
    subscribe_expression_add_key_value(expression.get(), "LogicalState", "1");
    const std::string token = "port-" + std::to_string(number % (count / 10));
    subscribe_expression_add_key_value(expression.get(), "InputToken", token.c_str());
    subscribers.add(std::move(expression));
  }
  EXPECT_LE((bytes_held() - before) / count, 256U);
}

TEST(Memory, OfEventsAndDeclarationsOfEightKeys) {
  const Setting setting{8};
  EventDeclaration *declaration = setting.declaration.get();
  for (std::size_t key = 0; key < setting.names.size(); ++key) {
    const char *name = setting.names[key].c_str();
    event_declaration_set_name_space(declaration, name, key < 3 ? "tns1" : "");
    event_declaration_set_nice_names(declaration, name, key < 3 ? "" : "What it is called", "");
  }
  const auto held_by = [](auto make) {
    const std::size_t before = bytes_held();
    const auto made = make();
    return bytes_held() - before;
  };
  // As a producer keeps both, and what it sends.
  EXPECT_LE(held_by([&] { return OwnedDeclaration{event_declaration_copy(declaration)}; }), 1400U);
  EXPECT_LE(held_by([&] { return OwnedEvent{event_declaration_generate_event(declaration)}; }),
            1400U);
  const OwnedEvent first{event_copy(setting.filled.get())}; // the time is made for all copies
  EXPECT_LE(held_by([&] { return OwnedEvent{event_copy(setting.filled.get())}; }), 1400U);
  const auto bytes = BytesRef::adopt(event_serialize(setting.filled.get()));
  EXPECT_LE(held_by([&] { return OwnedEvent{event_deserialize(bytes.get())}; }), 1400U);
  // From a document, as registration by type keeps it.
  const OwnedText xml{event_declaration_serialize_xml(declaration)};
  EXPECT_LE(held_by([&] { return OwnedDeclaration{event_declaration_deserialize_xml(xml.get())}; }),
            1400U);
}

} // namespace
} // namespace varro2::test
