#include "registry.hpp"

#include "samples.hpp"

#include <gtest/gtest.h>

#include <limits>

namespace varro2::switchd {
namespace {

const Address producer{":1.5", "/com/quor/Event/Producer/0x1"};
const Address other_producer{":1.5", "/com/quor/Event/Producer/0x2"};
const Address consumer{":1.7", "/com/quor/Event/Consumer/0x1"};

using Ids = std::vector<std::uint32_t>;

TEST(IdCounter, CountsFromOneAndPassesOverZeroAndIdsInUse) {
  const auto none = [](std::uint32_t) { return false; };
  IdCounter fresh;
  EXPECT_EQ(fresh.next(none), 1u);
  EXPECT_EQ(fresh.next(none), 2u);

  IdCounter wrapping{std::numeric_limits<std::uint32_t>::max() - 1};
  EXPECT_EQ(wrapping.next(none), std::numeric_limits<std::uint32_t>::max());
  EXPECT_EQ(wrapping.next([](std::uint32_t id) { return id == 1; }), 2u);
}

TEST(Registry, GivesIdsToProducersAndDeclarations) {
  Registry registry;
  const Declaration &first = registry.declare(producer, "p", topic("a", 7));
  EXPECT_EQ(first.global_id, 1u);
  EXPECT_EQ(first.local_id, 7u);
  EXPECT_EQ(first.producer_id, 1u);
  EXPECT_EQ(event_declaration_get_global_id(first.declaration.get()), 1u);
  EXPECT_EQ(event_declaration_get_producer_id(first.declaration.get()), 1u);
  EXPECT_EQ(event_declaration_get_local_id(first.declaration.get()), 7u);

  const Declaration &second = registry.declare(producer, "p", topic("b", 8));
  EXPECT_EQ(second.global_id, 2u);
  EXPECT_EQ(second.producer_id, 1u);

  // The same connection may hold several producers, each with its own local ids.
  const Declaration &third = registry.declare(other_producer, "q", topic("c", 7));
  EXPECT_EQ(third.global_id, 3u);
  EXPECT_EQ(third.producer_id, 2u);

  EXPECT_EQ(registry.find_declaration(producer, 7), &first);
  EXPECT_EQ(registry.find_declaration(other_producer, 7), &third);
  EXPECT_EQ(registry.find_declaration(other_producer, 8), nullptr);
  EXPECT_EQ(registry.find_declaration(3), &third);
  EXPECT_EQ(registry.find_declaration(4), nullptr);
}

TEST(Registry, WritesTheSubscribersAddressIntoTheExpressionWhateverStoodThere) {
  Registry registry;
  OwnedExpression expression = wants("a");
  subscribe_expression_set_id(expression.get(), 99);
  subscribe_expression_set_dbus_service(expression.get(), ":1.666");
  subscribe_expression_set_dbus_object(expression.get(), "/somebody/else");
  subscribe_expression_set_consumer_token(expression.get(), 98);

  const Subscription &added = registry.subscribe(consumer, "c", 4, std::move(expression));
  EXPECT_EQ(added.id, 1u);
  EXPECT_EQ(added.token, 4u);
  const SubscribeExpression *kept = added.expression.get();
  EXPECT_EQ(subscribe_expression_get_id(kept), 1u);
  EXPECT_STREQ(subscribe_expression_get_dbus_service(kept), ":1.7");
  EXPECT_STREQ(subscribe_expression_get_dbus_object(kept), "/com/quor/Event/Consumer/0x1");
  EXPECT_EQ(subscribe_expression_get_consumer_token(kept), 4u);
}

TEST(Registry, FindsWhatMatchesWhicheverCameFirst) {
  Registry registry;
  registry.subscribe(consumer, "c", 1, wants("a"));
  registry.subscribe(consumer, "c", 2, wants("b"));
  registry.subscribe(consumer, "c", 3, wants("a"));
  const Declaration &declared = registry.declare(producer, "p", topic("a", 1));
  EXPECT_EQ(ids_of(registry.matching(*declared.declaration)), (Ids{1, 3}));

  registry.subscribe(consumer, "c", 4, wants("a"));
  EXPECT_EQ(ids_of(registry.matching(*declared.declaration)), (Ids{1, 3, 4}));
  EXPECT_EQ(ids_of(registry.matching(*wants("a"))), Ids{1});
  EXPECT_TRUE(registry.matching(*wants("z")).empty());
}

TEST(Registry, WhatIsRemovedMatchesNothingAnyMore) {
  Registry registry;
  registry.subscribe(consumer, "c", 1, wants("a"));
  registry.declare(producer, "p", topic("a", 1));
  registry.declare(producer, "p", topic("a", 2));

  const Declaration removed = registry.remove_declaration(1);
  EXPECT_EQ(ids_of(registry.matching(*removed.declaration)), Ids{1});
  EXPECT_EQ(removed.producer, producer);
  EXPECT_EQ(registry.find_declaration(1), nullptr);
  EXPECT_EQ(registry.find_declaration(producer, 1), nullptr);

  const Subscription gone = registry.remove_subscription(1);
  EXPECT_EQ(ids_of(registry.matching(*gone.expression)), Ids{2});
  EXPECT_EQ(registry.find_subscription(consumer, 1), nullptr);
  EXPECT_TRUE(registry.matching(*registry.find_declaration(2)->declaration).empty());
}

TEST(Registry, KeepsAProducersIdUntilItIsForgotten) {
  Registry registry;
  registry.declare(producer, "p", topic("a", 1));
  registry.remove_declaration(1);
  EXPECT_EQ(registry.declare(producer, "p", topic("a", 1)).producer_id, 1u);
  EXPECT_EQ(registry.declarations_of(producer), std::vector<std::uint32_t>{2});

  registry.remove_declaration(2);
  registry.forget_producer(producer);
  registry.forget_producer(producer);
  EXPECT_TRUE(registry.producers().empty());
  EXPECT_EQ(registry.declare(producer, "p", topic("a", 1)).producer_id, 2u);
}

TEST(Registry, FindsAllThatAClientLeavesBehindAndNothingElse) {
  Registry registry;
  const Address elsewhere{":1.55", producer.path};
  registry.declare(producer, "p", topic("a", 1));
  registry.declare(other_producer, "q", topic("a", 1));
  registry.declare(elsewhere, "r", topic("a", 1));
  registry.subscribe(consumer, "c", 2, wants("a"));
  registry.subscribe(consumer, "c", 1, wants("a"));
  registry.subscribe({":1.7", "/another"}, "d", 1, wants("a"));
  registry.subscribe({":1.77", consumer.path}, "e", 1, wants("a"));

  EXPECT_EQ(registry.producers_on(":1.5"), (std::vector<Address>{producer, other_producer}));
  EXPECT_TRUE(registry.producers_on(":1.").empty());
  EXPECT_EQ(registry.subscriptions_of(consumer), (std::vector<std::uint32_t>{2, 1}));
  EXPECT_EQ(registry.subscriptions_of({":1.7", "/another"}), (std::vector<std::uint32_t>{3}));
  EXPECT_EQ(registry.subscriptions_on(":1.7"), (std::vector<std::uint32_t>{3, 2, 1}));
  EXPECT_TRUE(registry.subscriptions_on(":1.9").empty());
}

TEST(Registry, ReservedSubscriptionIdsAreNotGivenAway) {
  Registry registry;
  EXPECT_EQ(registry.reserve_subscription_id(), 1u);
  EXPECT_EQ(registry.subscribe(consumer, "c", 1, wants("a")).id, 2u);
  registry.release_subscription_id(1);
  EXPECT_EQ(registry.reserve_subscription_id(), 3u);
}

TEST(Registry, IsDescribedAsATable) {
  Registry registry;
  OwnedDeclaration declaration = topic("a", 4);
  event_declaration_add_key_value(declaration.get(), "topic1", "b", VALUE_TYPE_STRING);
  event_declaration_set_property(
      declaration.get(), nullptr, [](Event *event, gpointer) { return event; }, nullptr);
  registry.declare({":1.5", "/p"}, "lamp", std::move(declaration));
  registry.subscribe({":1.70", "/c"}, "logger", 3, wants("a"));
  registry.subscribe({":1.7", "/c"}, "idle", 2, wants("z"));

  EXPECT_EQ(describe(registry), (std::vector<std::string>{
                                    "Producers: 1",
                                    "  ID  BUS NAME  DECLARATIONS  PATH  NAME",
                                    "  1   :1.5      1             /p    lamp",
                                    "Declarations: 1",
                                    "  ID  PRODUCER  LOCAL ID  KIND      TOPIC  SUBSCRIPTIONS",
                                    "  1   1         4         property  a/b    1",
                                    "Subscriptions: 2",
                                    "  ID  BUS NAME  TOKEN  PATH  NAME    DECLARATIONS",
                                    "  1   :1.70     3      /c    logger  1",
                                    "  2   :1.7      2      /c    idle    -",
                                }));
}

} // namespace
} // namespace varro2::switchd
