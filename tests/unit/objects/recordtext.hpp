// Records as string literals, where most of what they hold is text.
#pragma once

#include "records.hpp"

#include <string>

namespace varro2::test {

inline std::string as_text(const GByteArray *array) {
  return {reinterpret_cast<const char *>(array->data), array->len};
}

inline BytesRef as_array(const std::string &text) {
  return array_of({text.begin(), text.end()});
}

// The record that an expression has.
inline std::string record_of(const SubscribeExpression *se) {
  return as_text(BytesRef::adopt(subscribe_expression_serialize(se)).get());
}

} // namespace varro2::test
