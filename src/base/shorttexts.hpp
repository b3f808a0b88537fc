// Copying and comparing texts, which are mostly short: those without a call.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace varro2 {

// The first and the last bytes, which overlap in between.
template <typename T>
[[gnu::always_inline]] inline void copy_ends(char *to, const char *from,
                                             std::size_t length) noexcept {
  T first;
  T last;
  std::memcpy(&first, from, sizeof(T));
  std::memcpy(&last, from + length - sizeof(T), sizeof(T));
  std::memcpy(to, &first, sizeof(T));
  std::memcpy(to + length - sizeof(T), &last, sizeof(T));
}

template <typename T>
[[gnu::always_inline]] inline bool equal_ends(const char *text1, const char *text2,
                                              std::size_t length) noexcept {
  return std::memcmp(text1, text2, sizeof(T)) == 0 &&
         std::memcmp(text1 + length - sizeof(T), text2 + length - sizeof(T), sizeof(T)) == 0;
}

[[gnu::always_inline]] inline void copy_text(char *to, const char *from,
                                             std::size_t length) noexcept {
  if (length > 16)
    std::memcpy(to, from, length);
  else if (length >= 8)
    copy_ends<std::uint64_t>(to, from, length);
  else if (length >= 4)
    copy_ends<std::uint32_t>(to, from, length);
  else if (length >= 2)
    copy_ends<std::uint16_t>(to, from, length);
  else if (length == 1)
    *to = *from;
}

// Both of that length.
[[gnu::always_inline]] inline bool equal_text(const char *text1, const char *text2,
                                              std::size_t length) noexcept {
  if (length > 16)
    return std::memcmp(text1, text2, length) == 0;
  if (length >= 8)
    return equal_ends<std::uint64_t>(text1, text2, length);
  if (length >= 4)
    return equal_ends<std::uint32_t>(text1, text2, length);
  if (length >= 2)
    return equal_ends<std::uint16_t>(text1, text2, length);
  return length == 0 || *text1 == *text2;
}

} // namespace varro2
