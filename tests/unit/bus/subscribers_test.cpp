#include "subscribers.hpp"

#include "peers.hpp"

#include <gtest/gtest.h>

namespace varro2::test {
namespace {

class SubscribersTest : public ::testing::Test {
 protected:
  void add(guint32 id, bool clandestine = false, const char *topic = "door") {
    const auto bytes = expression_bytes(id, clandestine, topic);
    subscribers.add(OwnedExpression{subscribe_expression_deserialize(bytes.get())});
  }

  std::vector<guint32> matching() const {
    const Own<EventDeclaration> declaration{new_declaration()};
    const Own<Event> event{event_declaration_generate_event(declaration.get())};
    std::vector<const Subscriber *> found;
    subscribers.match(*event, found);
    std::vector<guint32> ids;
    for (const Subscriber *subscriber : found)
      ids.push_back(subscriber->id());
    return ids;
  }

  Subscribers subscribers;
};

using Ids = std::vector<guint32>;

TEST_F(SubscribersTest, MatchInTheOrderOfArrival) {
  add(9);
  add(3);
  add(5, false, "window");
  add(1);
  EXPECT_EQ(matching(), (Ids{9, 3, 1}));
}

TEST_F(SubscribersTest, CountAllButTheClandestine) {
  EXPECT_FALSE(subscribers.any_counted());
  add(1, true);
  EXPECT_FALSE(subscribers.any_counted());
  add(2);
  EXPECT_TRUE(subscribers.any_counted());
  EXPECT_TRUE(subscribers.remove(2));
  EXPECT_FALSE(subscribers.any_counted());
  EXPECT_EQ(matching(), (Ids{1}));
}

TEST_F(SubscribersTest, RemoveTheFirstOfAnId) {
  add(1);
  add(2);
  add(1, true);
  const Subscriber *second = nullptr;
  EXPECT_TRUE(subscribers.find(1)->counted());
  EXPECT_TRUE(subscribers.remove(1));
  second = subscribers.find(1);
  ASSERT_NE(second, nullptr);
  EXPECT_FALSE(second->counted());
  EXPECT_EQ(matching(), (Ids{2, 1}));
  EXPECT_TRUE(subscribers.remove(1));
  EXPECT_FALSE(subscribers.remove(1));
  EXPECT_EQ(subscribers.find(1), nullptr);
  EXPECT_EQ(matching(), (Ids{2}));
}

TEST_F(SubscribersTest, ClearLeavesNobody) {
  add(1);
  subscribers.clear();
  EXPECT_FALSE(subscribers.any_counted());
  EXPECT_EQ(subscribers.find(1), nullptr);
  EXPECT_TRUE(matching().empty());
}

} // namespace
} // namespace varro2::test
