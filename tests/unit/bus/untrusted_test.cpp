#include "untrusted.hpp"

#include <gtest/gtest.h>

namespace varro2::test {
namespace {

TEST(DeclarationList, MayBeEmptyInTwoWays) {
  EXPECT_TRUE(is_declaration_list(nullptr, 0));
  const guint8 count_of_none[] = {0, 0, 0, 0};
  EXPECT_TRUE(is_declaration_list(count_of_none, sizeof count_of_none));
}

TEST(DeclarationList, MustHoldWhatItCounts) {
  const guint8 count_of_one[] = {1, 0, 0, 0};
  EXPECT_FALSE(is_declaration_list(count_of_one, sizeof count_of_one));
  EXPECT_FALSE(is_declaration_list(count_of_one, 3));
}

} // namespace
} // namespace varro2::test
