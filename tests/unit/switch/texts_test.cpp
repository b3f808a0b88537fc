#include "texts.hpp"

#include "samples.hpp"

#include <gtest/gtest.h>

namespace varro2::switchd {
namespace {

TEST(Texts, ATopicEndsAtTheFirstLevelWithoutAValue) {
  const OwnedDeclaration declaration = topic("a", 1);
  EXPECT_EQ(topic_of(declaration.get()), "a");
  event_declaration_add_key_value(declaration.get(), "topic2", "c", VALUE_TYPE_STRING);
  EXPECT_EQ(topic_of(declaration.get()), "a");
  event_declaration_add_key_value(declaration.get(), "topic1", "", VALUE_TYPE_STRING);
  EXPECT_EQ(topic_of(declaration.get()), "a");
  const OwnedDeclaration whole = topic("a", 2);
  event_declaration_add_key_value(whole.get(), "topic1", "b", VALUE_TYPE_STRING);
  EXPECT_EQ(topic_of(whole.get()), "a/b");
}

} // namespace
} // namespace varro2::switchd
