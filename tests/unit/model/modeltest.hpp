// What the tests of pairs and containers share.
#pragma once

#include "logcapture.hpp"
#include "owning.hpp"

#include <varro2/inspectable.h>
#include <varro2/keyvalue.h>

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

namespace varro2::test {

using OwnedPair = Owned<KeyValue, key_value_free>;
using OwnedRawPair = Owned<KeyValueRaw, key_value_free_raw>;
using OwnedInspectable = Owned<Inspectable, inspectable_free>;
using OwnedNode = Owned<XmlNode, xmlnode_free_tree>;
using Texts = std::vector<std::string>;
using Bytes = std::vector<guint8>;

// The arguments of key_value_new(): a plain pair where nothing else is said.
struct PairText {
  const char *key = "K";
  gboolean key_wildcard = FALSE;
  const char *name_space = "";
  const char *key_nice_name = "";
  const char *value = "1";
  gboolean value_wildcard = FALSE;
  const char *value_nice_name = "";
  const char *value_user_string = "";
  const char *complex_type_name = "";
  gboolean negated = FALSE;
};

inline OwnedPair new_pair(const PairText &text = {}) {
  return OwnedPair{key_value_new(text.key, text.key_wildcard, text.name_space, text.key_nice_name,
                                 text.value, text.value_wildcard, text.value_nice_name,
                                 text.value_user_string, text.complex_type_name, text.negated)};
}

inline OwnedInspectable new_inspectable(guint32 type) {
  return OwnedInspectable{inspectable_new(type)};
}

inline void add(const OwnedInspectable &inspect, const char *key, const char *value) {
  inspectable_add_key_value(inspect.get(), key, FALSE, value, FALSE, FALSE);
}
inline void add_open(const OwnedInspectable &inspect, const char *key) {
  inspectable_add_key_value(inspect.get(), key, FALSE, nullptr, TRUE, FALSE);
}
inline void add_negated(const OwnedInspectable &inspect, const char *key, const char *value) {
  inspectable_add_key_value(inspect.get(), key, FALSE, value, FALSE, TRUE);
}
inline void add_for_any_key(const OwnedInspectable &inspect, const char *value,
                            gboolean negated = FALSE) {
  inspectable_add_key_value(inspect.get(), nullptr, TRUE, value, FALSE, negated);
}

inline Texts texts_of(const GList *list) {
  Texts texts;
  for (; list != nullptr; list = list->next)
    texts.emplace_back(list->data != nullptr ? static_cast<const char *>(list->data) : "<NULL>");
  return texts;
}
// The same for a list that is handed over.
inline Texts take_texts(GList *list) {
  Texts texts = texts_of(list);
  free_string_list(list);
  return texts;
}

inline Bytes bytes_of(const BytesRef &array) {
  return {array->data, array->data + array->len};
}
inline BytesRef array_of(const Bytes &bytes) {
  auto array = new_bytes();
  g_byte_array_append(array.get(), bytes.data(), static_cast<guint>(bytes.size()));
  return array;
}
inline Bytes record_of(const KeyValue *pair) {
  const auto array = new_bytes();
  key_value_serialize(pair, array.get());
  return bytes_of(array);
}
inline Bytes record_of(const OwnedInspectable &inspect) {
  const auto array = new_bytes();
  inspectable_serialize_internal(inspect.get(), array.get());
  return bytes_of(array);
}
inline OwnedPair read_pair(const Bytes &record) {
  guint32 at = 0;
  OwnedPair pair{key_value_deserialize(array_of(record).get(), &at)};
  EXPECT_EQ(at, record.size());
  return pair;
}
inline OwnedInspectable read_inspectable(const Bytes &record) {
  guint32 at = 0;
  OwnedInspectable inspect{inspectable_deserialize_internal(array_of(record).get(), &at)};
  EXPECT_EQ(at, record.size());
  return inspect;
}

inline Bytes operator+(Bytes left, const Bytes &right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

// An element as one line: its name, its attributes in order, its children in parentheses.
inline std::string outline(const XmlNode *node) {
  std::string line = node->name != nullptr ? node->name : "<unnamed>";
  for (const GList *at = node->attributes; at != nullptr; at = at->next) {
    const auto *attribute = static_cast<const XmlAttribute *>(at->data);
    line.append(" ").append(attribute->name).append("=").append(attribute->value);
  }
  for (const GList *at = node->children; at != nullptr; at = at->next)
    line.append(" (").append(outline(static_cast<const XmlNode *>(at->data))).append(")");
  return line;
}

inline OwnedNode parse(const char *xml) {
  OwnedNode node{xmlnode_parse_string(xml)};
  EXPECT_TRUE(node) << xml;
  return node;
}

inline std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (std::string_view{"\\^$.|?*+()[]{}"}.find(c) != std::string_view::npos)
      result += '\\';
    result += c;
  }
  return result;
}
// What an assertion prints: the bare name of the function, then the expression.
inline std::string assertion(std::string_view function, std::string_view expression) {
  return ":[0-9]+:" + escaped(function) + ": assertion failed: \\(" + escaped(expression) + "\\)";
}

} // namespace varro2::test

#define EXPECT_ABORT(statement, function, expression)                                              \
  EXPECT_DEATH(statement, ::varro2::test::assertion(function, expression))
