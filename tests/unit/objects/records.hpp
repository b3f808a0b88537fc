// Records spelled out by hand, and owners for what the tests make.
#pragma once

#include "owning.hpp"

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/notification.h>
#include <varro2/subscribeexpression.h>

#include <cstring>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::test {

using EventOwner = Owned<Event, event_free>;
using DeclarationOwner = Owned<EventDeclaration, event_declaration_free>;
using ExpressionOwner = Owned<SubscribeExpression, subscribe_expression_free>;
using NotificationOwner = Owned<Notification, notification_free>;

using Bytes = std::vector<guint8>;

// What a record is expected to hold, field by field, in the byte order of the target:
// little-endian.
class Record {
 public:
  Record &u8(guint8 value) {
    bytes_.push_back(value);
    return *this;
  }
  Record &u16(guint16 value) { return number(value, 2); }
  Record &u32(guint32 value) { return number(value, 4); }
  Record &u64(guint64 value) { return number(value, 8); }
  Record &raw(const Bytes &bytes) {
    bytes_.insert(bytes_.end(), bytes.begin(), bytes.end());
    return *this;
  }
  Record &text(std::string_view text) {
    u16(static_cast<guint16>(text.size()));
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  const Bytes &bytes() const { return bytes_; }

 private:
  Record &number(guint64 value, int width) {
    for (int i = 0; i < width; ++i)
      bytes_.push_back(static_cast<guint8>(value >> (8 * i)));
    return *this;
  }

  Bytes bytes_;
};

// A container of the type with one and-list, no keys and no tags.
inline Bytes empty_container(guint8 type, guint8 internal = 0) {
  return {0xF2, 1, 0, type, internal, 0xF3, 0, 0, 0, 0, 0, 0};
}

inline Bytes bytes_of(const GByteArray *array) {
  return {array->data, array->data + array->len};
}

// The record that a serialize function gave, which is released.
inline Bytes taken(GByteArray *array) {
  const Bytes bytes = bytes_of(array);
  g_byte_array_unref(array);
  return bytes;
}

inline BytesRef array_of(const Bytes &bytes) {
  auto array = new_bytes();
  g_byte_array_append(array.get(), bytes.data(), static_cast<guint>(bytes.size()));
  return array;
}

inline std::vector<std::string> taken(GList *texts) {
  std::vector<std::string> found;
  for (const OwnedStringList owner{texts}; texts; texts = texts->next)
    found.emplace_back(static_cast<const char *>(texts->data));
  return found;
}

inline std::string refusal(std::string_view function, std::string_view expression) {
  return std::string{function} + ": assertion '" + std::string{expression} + "' failed";
}

} // namespace varro2::test
