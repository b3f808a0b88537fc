#include "shorttexts.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

std::string text_of(std::size_t length) {
  std::string text;
  for (std::size_t at = 0; at < length; ++at)
    text.push_back(static_cast<char>('!' + at % 90));
  return text;
}

TEST(ShortTexts, AreCopiedWhollyAndNotFurther) {
  for (std::size_t length = 0; length <= 70; ++length) {
    const std::string text = text_of(length);
    // In memory of exactly that size, for the address sanitizer.
    const std::vector<char> from(text.begin(), text.end());
    std::vector<char> exact(length);
    varro2::copy_text(exact.data(), from.data(), length);
    EXPECT_EQ(exact, from);
    std::string wide(length + 2, '.');
    varro2::copy_text(wide.data() + 1, from.data(), length);
    EXPECT_EQ(wide, "." + text + ".");
  }
}

TEST(ShortTexts, DifferByAnyByte) {
  for (std::size_t length = 0; length <= 70; ++length) {
    const std::string text = text_of(length);
    const std::vector<char> from(text.begin(), text.end());
    std::vector<char> other = from;
    EXPECT_TRUE(varro2::equal_text(from.data(), other.data(), length));
    for (char &byte : other) {
      byte ^= 1;
      EXPECT_FALSE(varro2::equal_text(from.data(), other.data(), length)) << length;
      byte ^= 1;
    }
  }
}

} // namespace
