// What the layers above need of value types without going through the heap.
#pragma once

#include <varro2/eventutils.h>

namespace varro2 {

inline constexpr bool is_value_type(guint32 type) noexcept {
  return type >= VALUE_TYPE_INT && type <= VALUE_TYPE_STRING;
}

// The text in which a typed value is stored, without an allocation: a string is borrowed, numbers
// are written into the object itself.
class ValueText {
 public:
  // The value's address, or the text itself for VALUE_TYPE_STRING. A missing number aborts.
  explicit ValueText(gconstpointer value, guint32 type) noexcept;
  ValueText(const ValueText &) = delete;
  ValueText &operator=(const ValueText &) = delete;

  // nullptr for an invalid type and for a string that is nullptr.
  const char *c_str() const noexcept { return text_; }

 private:
  // The longest double in six decimals: sign, 309 digits, point, 6 digits, NUL.
  static constexpr int capacity = 1 + 309 + 1 + 6 + 1;

  const char *text_ = nullptr;
  char buffer_[capacity];
};

} // namespace varro2
