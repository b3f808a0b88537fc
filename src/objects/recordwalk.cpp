#include "recordwalk.hpp"

#include "eventutils.hpp"
#include "inspectable.hpp"
#include "preconditions.hpp"
#include "timestamp.hpp"

#include <cstring>

namespace varro2 {

/* ---- What the records are made of ---- */

bool RecordWalk::skip(std::size_t size) noexcept {
  if (static_cast<std::size_t>(end_ - at_) < size)
    return false;
  at_ += size;
  return true;
}

// In the byte order of the machine, as everything here.
bool RecordWalk::number(guint32 &value, std::size_t size) noexcept {
  const guint8 *from = at_;
  if (!skip(size))
    return false;
  guint8 narrow = 0;
  guint16 wide = 0;
  if (size == sizeof narrow) {
    std::memcpy(&narrow, from, size);
    value = narrow;
  } else if (size == sizeof wide) {
    std::memcpy(&wide, from, size);
    value = wide;
  } else {
    std::memcpy(&value, from, sizeof value);
  }
  return true;
}

bool RecordWalk::opens(guint32 type_id) noexcept {
  guint32 found = 0;
  return number(found, 1) && found == type_id;
}

// No text that was written holds a NUL, and readers would not agree on where it ends.
bool RecordWalk::text(std::string_view &text) noexcept {
  guint32 length = 0;
  if (!number(length, 2))
    return false;
  const guint8 *from = at_;
  if (!skip(length))
    return false;
  text = {reinterpret_cast<const char *>(from), length};
  return length == 0 || std::memchr(from, '\0', length) == nullptr;
}

bool RecordWalk::texts(std::size_t count) noexcept {
  std::string_view ignored;
  for (; count > 0; --count)
    if (!text(ignored))
      return false;
  return true;
}

bool RecordWalk::tags() noexcept {
  guint32 count = 0;
  return number(count, 2) && texts(count);
}

bool RecordWalk::user_data() noexcept {
  guint32 size = 0;
  return number(size, 2) && skip(size);
}

bool RecordWalk::timestamp() noexcept {
  guint32 microseconds = 0;
  return number(microseconds, 4) && (microseconds == no_timestamp || skip(sizeof(gint64)));
}

template <bool (RecordWalk::*part)() noexcept>
bool RecordWalk::embedded() noexcept {
  guint32 length = 0;
  if (!number(length, 4))
    return false;
  const guint8 *from = at_;
  if (!skip(length))
    return false;
  RecordWalk inner{from, length};
  return (inner.*part)() && inner.at_end();
}

/* ---- Containers ---- */

bool RecordWalk::pair(Test &test) noexcept {
  guint32 key_wildcard = 0;
  guint32 value_wildcard = 0;
  guint32 negated = 0;
  guint32 value_type = 0;
  // In between: name space, the key's display name; the value's one, user string, complex type.
  if (!opens(SERIALIZE_ID_KEYVALUE) || !text(test.key) || !number(key_wildcard, 1) || !texts(2) ||
      !text(test.value) || !number(value_wildcard, 1) || !texts(3) || !number(negated, 1) ||
      !number(value_type, 1) || !tags())
    return false;
  test.any_key = key_wildcard != 0;
  if (visitor_ != nullptr)
    visitor_(visitor_data_, test.key);
  if (key_wildcard == TRUE)
    test.key = {};
  if (truth_values_required_ && value_type == VALUE_TYPE_BOOL &&
      (value_wildcard == TRUE || (test.value != "0" && test.value != "1")))
    return false;
  return !(key_wildcard != 0 && value_wildcard != 0) && is_value_type(value_type);
}

// All tests of a bucket are of one key; those of any key, which are found by it, of one value.
bool RecordWalk::bucket(Buckets kind) noexcept {
  guint32 count = 0;
  if (!opens(SERIALIZE_ID_BUCKET) || !number(count, 2) || count == 0)
    return false;
  Test first{};
  if (!pair(first))
    return false;
  if (kind != Buckets::of_either && first.any_key != (kind == Buckets::of_any_key))
    return false;
  for (guint32 read = 1; read < count; ++read) {
    Test next{};
    if (!pair(next) || next.any_key != first.any_key || next.key != first.key ||
        (first.any_key && next.value != first.value))
      return false;
  }
  return true;
}

bool RecordWalk::and_list() noexcept {
  if (!opens(SERIALIZE_ID_ANDLIST))
    return false;
  for (const Buckets kind : {Buckets::of_keys, Buckets::of_any_key}) {
    guint32 count = 0;
    if (!number(count, 2))
      return false;
    for (; count > 0; --count)
      if (!bucket(kind))
        return false;
  }
  return true;
}

// Only an expression can have alternatives, and nothing has none.
bool RecordWalk::inspectable(guint32 type) noexcept {
  const guint8 *from = at_;
  return any_inspectable() && from[3] == type;
}

bool RecordWalk::any_inspectable() noexcept {
  guint32 count = 0;
  guint32 type = 0;
  guint32 internal = 0;
  if (!opens(SERIALIZE_ID_INSPECTABLE) || !number(count, 2) || !number(type, 1) ||
      !number(internal, 1) || !is_valid_type(type) || count == 0 ||
      (count > 1 && type != IT_SUBSCRIBE_EXPRESSION))
    return false;
  for (; count > 0; --count)
    if (!and_list())
      return false;
  return tags();
}

/* ---- Objects ---- */

bool RecordWalk::event() noexcept {
  return opens(SERIALIZE_ID_EVENT) && inspectable(IT_EVENT) && user_data() && timestamp() &&
         skip(4 + 4 + 4 + 1); // ids: global, local, producer; property
}

bool RecordWalk::declaration() noexcept {
  return opens(SERIALIZE_ID_EVENT_DECLARATION) &&
         skip(4 + 4 + 4 + 1 + 8 + 8) && // ids: producer, local, global; property; its hook
         inspectable(IT_EVENT_DECLARATION);
}

bool RecordWalk::expression() noexcept {
  return opens(SERIALIZE_ID_SUBSCRIBE_EXPRESSION) && skip(4) && // id
         texts(2) &&                                            // bus name, object path
         skip(4 + 1) &&                                         // token, clandestine
         inspectable(IT_SUBSCRIBE_EXPRESSION);
}

bool RecordWalk::property_state() noexcept {
  return opens(SERIALIZE_ID_PROPERTY_STATE) && inspectable(IT_PROPERTY_STATE);
}

bool RecordWalk::notification() noexcept {
  return opens(SERIALIZE_ID_NOTIFICATION) && user_data() && timestamp() &&
         skip(4 + 4 + 1) && // ids: subscription, declaration; type
         embedded<&RecordWalk::expression>() && embedded<&RecordWalk::declaration>();
}

bool RecordWalk::record(guint32 type_id) noexcept {
  Test ignored{};
  switch (type_id) {
  case SERIALIZE_ID_EVENT_DECLARATION:
    return declaration();
  case SERIALIZE_ID_EVENT:
    return event();
  case SERIALIZE_ID_INSPECTABLE:
    return any_inspectable();
  case SERIALIZE_ID_ANDLIST:
    return and_list();
  case SERIALIZE_ID_BUCKET:
    return bucket(Buckets::of_either);
  case SERIALIZE_ID_KEYVALUE:
    return pair(ignored);
  case SERIALIZE_ID_SUBSCRIBE_EXPRESSION:
    return expression();
  case SERIALIZE_ID_PROPERTY_STATE:
    return property_state();
  case SERIALIZE_ID_NOTIFICATION:
    return notification();
  default:
    return false;
  }
}

bool RecordWalk::declaration_list() noexcept {
  guint32 count = 0;
  if (!number(count, 4))
    return false;
  for (; count > 0; --count)
    if (!declaration())
      return false;
  return true;
}

} // namespace varro2

gboolean serialize_is_valid_record(const GByteArray *array, guint32 index,
                                   guint32 type_id) noexcept {
  VARRO2_EXPECT(array != NULL, FALSE);
  return varro2::RecordWalk{array->data, array->len, index}.record(type_id);
}
