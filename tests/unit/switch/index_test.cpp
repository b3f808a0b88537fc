// The index and the plain way to ask everything agree.
#include "registry.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <map>

#include <random>

namespace varro2::switchd {
namespace {

using Random = std::mt19937;

int up_to(Random &random, int most) {
  return std::uniform_int_distribution{0, most}(random);
}

const char *key(Random &random) {
  static const char *const keys[] = {"topic0", "topic1", "serial", "door"};
  return keys[up_to(random, 3)];
}

const char *value(Random &random) {
  static const char *const values[] = {"", "a", "b", "c"};
  return values[up_to(random, 3)];
}

OwnedDeclaration random_declaration(Random &random, std::uint32_t local_id) {
  OwnedDeclaration declaration{event_declaration_new(FALSE)};
  for (int count = up_to(random, 4); count > 0; --count) {
    if (up_to(random, 4) == 0)
      event_declaration_add_key(declaration.get(), key(random), VALUE_TYPE_STRING);
    else if (up_to(random, 9) == 0) // possible through the container only
      inspectable_add_key_value(event_declaration_get_inspectable(declaration.get()), key(random),
                                FALSE, value(random), FALSE, TRUE);
    else
      event_declaration_add_key_value(declaration.get(), key(random), value(random),
                                      VALUE_TYPE_STRING);
  }
  event_declaration_set_local_id(declaration.get(), local_id);
  return declaration;
}

OwnedExpression random_expression(Random &random) {
  OwnedExpression expression{subscribe_expression_new()};
  SubscribeExpression *const se = expression.get();
  for (int count = up_to(random, 4); count > 0; --count) {
    switch (up_to(random, 9)) {
    case 0:
      subscribe_expression_add_key(se, key(random));
      break;
    case 1:
      subscribe_expression_add_value(se, value(random));
      break;
    case 2:
      subscribe_expression_add_not_value(se, value(random));
      break;
    case 3:
      subscribe_expression_add_key_not_value(se, key(random), value(random));
      break;
    case 4:
      subscribe_expression_add_not_key(se, key(random));
      break;
    case 5:
      subscribe_expression_or(se);
      break;
    default:
      subscribe_expression_add_key_value(se, key(random), value(random));
    }
  }
  return expression;
}

void expect_same_as_asking_everything(const Registry &registry) {
  using Ids = std::vector<std::uint32_t>;
  std::map<std::uint32_t, Ids> by_declaration;
  std::map<std::uint32_t, Ids> by_subscription;
  for (const auto &[global_id, declared] : registry.declarations())
    for (const auto &[id, subscription] : registry.subscriptions())
      if (event_declaration_contains(declared.declaration.get(), subscription.expression.get())) {
        by_declaration[global_id].push_back(id);
        by_subscription[id].push_back(global_id);
      }
  for (const auto &[global_id, declared] : registry.declarations())
    ASSERT_EQ(ids_of(registry.matching(*declared.declaration)), by_declaration[global_id]);
  for (const auto &[id, subscription] : registry.subscriptions())
    ASSERT_EQ(ids_of(registry.matching(*subscription.expression)), by_subscription[id]);
}

TEST(Index, FindsWhatAskingEverythingFinds) {
  Random random{20261120};
  const Address producer{":1.5", "/p"};
  const Address consumer{":1.7", "/c"};
  for (int round = 0; round < 20; ++round) {
    Registry registry;
    for (std::uint32_t step = 1; step <= 120; ++step) {
      const int what = up_to(random, 9);
      if (what < 4)
        registry.declare(producer, "p", random_declaration(random, step));
      else if (what < 8)
        registry.subscribe(consumer, "c", step, random_expression(random));
      else if (what == 8 && !registry.declarations().empty())
        registry.remove_declaration(registry.declarations().begin()->first);
      else if (what == 9 && !registry.subscriptions().empty())
        registry.remove_subscription(registry.subscriptions().rbegin()->first);
    }
    expect_same_as_asking_everything(registry);
  }
}

TEST(Index, AsksNobodyWhoWantsSomethingElse) {
  TestIndex index;
  for (std::uint32_t id = 1; id <= 1000; ++id) {
    const OwnedExpression expression{subscribe_expression_new()};
    subscribe_expression_add_key_value(expression.get(), "topic0", "common");
    subscribe_expression_add_key_value(expression.get(), "serial", std::to_string(id).c_str());
    index.add(id, *subscribe_expression_get_inspectable(expression.get()));
  }
  const OwnedDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", "common", VALUE_TYPE_STRING);
  event_declaration_add_key_value(declaration.get(), "serial", "500", VALUE_TYPE_STRING);
  // The first one came before anybody knew which of its tests is common.
  EXPECT_LE(index.candidates(*event_declaration_get_inspectable(declaration.get())).size(), 2u);
}

} // namespace
} // namespace varro2::switchd
