// Owning what is built for a JSON document.
#pragma once

#include "owning.hpp"

#include <jansson.h>

namespace varro2 {

inline json_t *share_json(json_t *value) noexcept {
  return json_incref(value);
}
inline void drop_json(json_t *value) noexcept {
  json_decref(value);
}

// Empty when there is no such value: a text that is not UTF-8, a number that is not finite.
using JsonRef = Counted<json_t, share_json, drop_json>;

inline JsonRef json_object_value() noexcept {
  return JsonRef::adopt(json_object());
}
inline JsonRef json_text(const char *text) noexcept {
  return JsonRef::adopt(json_string(text));
}

// Leaves the member out when its value is empty or its name is not UTF-8.
inline void put_member(const JsonRef &object, const char *name, JsonRef value) noexcept {
  json_object_set_new(object.get(), name, value.release());
}

} // namespace varro2
