#include "condition.hpp"
#include "inspectable.hpp"
#include "log.hpp"
#include "quarks.hpp"

#include <varro2/eventutils.h>

#include <string>

using varro2::Pair;
using varro2::PairFields;

namespace {

constexpr const char *element_name = "keyvalue";

struct PairRecord {
  const KeyValue &pair;
  template <class Sink>
  void write(Sink &sink) const {
    varro2::write_pair(pair, sink);
  }
};

// Unlike in matching, where an absent text is an empty one.
bool are_same(const char *text1, const char *text2) noexcept {
  return g_strcmp0(text1, text2) == 0;
}

char *copy_unless_empty(const char *text) {
  return varro2::is_empty(text) ? nullptr : g_strdup(text);
}

} // namespace

void varro2::read_pair_fields(Reader &reader, PairFields &fields) {
  constexpr guint32 numbers = 5;
  constexpr guint32 texts = 1 + text_count;
  reader.read_group(numbers + texts * sizeof(guint16), [&fields](auto &from) {
    const guint8 record = from.u8();
    VARRO2_ASSERT_AS("key_value_deserialize", "type == SERIALIZE_ID_KEYVALUE",
                     record == SERIALIZE_ID_KEYVALUE);
    std::string_view key;
    std::string_view value;
    if (!from.text(key))
      return false;
    const gboolean key_wildcard = from.u8();
    if (!from.text(fields.texts[text_name_space]) || !from.text(fields.texts[text_key_nice_name]) ||
        !from.text(value))
      return false;
    const gboolean value_wildcard = from.u8();
    if (!from.text(fields.texts[text_value_nice_name]) ||
        !from.text(fields.texts[text_value_user_string]) ||
        !from.text(fields.texts[text_complex_type_name]))
      return false;
    const gboolean negated = from.u8();
    const bool made = set_fields(fields, key, true, key_wildcard, value, value_wildcard, negated);
    VARRO2_ASSERT_AS("key_value_deserialize", "key_value != NULL", made);
    fields.value_type = from.u8();
    return true;
  });
}

KeyValue *key_value_new(const char *key, gboolean key_wildcard, const char *name_space,
                        const char *key_nice_name, const char *value, gboolean value_wildcard,
                        const char *value_nice_name, const char *value_user_string,
                        const char *complex_type_name, gboolean negated) noexcept {
  PairFields fields;
  if (!varro2::set_fields(fields, varro2::view_of(key), key != nullptr, key_wildcard,
                          varro2::view_of(value), value_wildcard, negated))
    return nullptr;
  fields.texts[varro2::text_name_space] = varro2::view_of(name_space);
  fields.texts[varro2::text_key_nice_name] = varro2::view_of(key_nice_name);
  fields.texts[varro2::text_value_nice_name] = varro2::view_of(value_nice_name);
  fields.texts[varro2::text_value_user_string] = varro2::view_of(value_user_string);
  fields.texts[varro2::text_complex_type_name] = varro2::view_of(complex_type_name);
  return new Pair{fields};
}

void key_value_free(KeyValue *key_value) noexcept {
  delete static_cast<Pair *>(key_value);
}

KeyValue *key_value_copy(const KeyValue *key_value) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  // Whoever has a pair can write to it.
  static constexpr const char *function = "key_value_new_internal";
  VARRO2_ASSERT_AS(function, "key != 0", key_value->key != 0);
  VARRO2_ASSERT_AS(function, "value != NULL", key_value->value != nullptr);
  VARRO2_ASSERT_AS(function, "key_wildcard == FALSE || value_wildcard == FALSE",
                   !key_value->key_wildcard || !key_value->value_wildcard);
  auto *copy = new Pair{PairFields::of(*key_value)};
  varro2::copy_tags_once(*copy, key_value->tags);
  return copy;
}

void key_value_add_tag(KeyValue *key_value, const char *tag) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  varro2::add_tag_once(*key_value, tag);
}

void key_value_give_tag(KeyValue *key_value, char *tag) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  key_value->tags = g_list_append(key_value->tags, tag);
}

gboolean key_value_is_equal(const KeyValue *key_value1, const KeyValue *key_value2) noexcept {
  VARRO2_ASSERT(key_value1 != NULL);
  VARRO2_ASSERT(key_value2 != NULL);
  const KeyValue &a = *key_value1;
  const KeyValue &b = *key_value2;
  return a.key == b.key && a.value_type == b.value_type && are_same(a.name_space, b.name_space) &&
         a.key_wildcard == b.key_wildcard && a.value_wildcard == b.value_wildcard &&
         a.negated == b.negated && are_same(a.value, b.value) &&
         event_utils_tag_list_is_equal(a.tags, b.tags) &&
         are_same(a.key_nice_name, b.key_nice_name) &&
         are_same(a.value_nice_name, b.value_nice_name) &&
         are_same(a.value_user_string, b.value_user_string) &&
         are_same(a.complex_type_name, b.complex_type_name);
}

// The names of the arguments are those that the assertion reports.
void key_value_is_contained(const KeyValue *key_value_container,
                            const KeyValue *key_value_containee, guint32 *fail,
                            guint32 *matched) noexcept {
  VARRO2_ASSERT(key_value_containee != NULL);
  VARRO2_ASSERT(fail != NULL);
  VARRO2_ASSERT(matched != NULL);
  if (key_value_container == nullptr) {
    if (!key_value_containee->negated)
      *fail = TRUE;
    return;
  }
  const varro2::Verdict verdict = varro2::compare(*key_value_container, *key_value_containee);
  if (verdict == varro2::Verdict::failed)
    *fail = TRUE;
  else if (verdict == varro2::Verdict::matched)
    *matched = TRUE;
}

void key_value_serialize(const KeyValue *key_value, GByteArray *array) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  VARRO2_ASSERT(array != NULL);
  varro2::append_record(array, PairRecord{*key_value});
}

KeyValue *key_value_deserialize(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  varro2::Reader reader{array, indx};
  PairFields fields;
  varro2::read_pair_fields(reader, fields);
  auto *pair = new Pair{fields};
  GQueue tags = G_QUEUE_INIT;
  for (guint16 left = reader.u16(); left > 0; --left)
    g_queue_push_tail(&tags, deserialize_string(array, indx));
  pair->tags = tags.head;
  return pair;
}

XmlNode *key_value_serialize_xml(const KeyValue *key_value) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  XmlNode *node = xmlnode_create_node();
  node->name = g_strdup(element_name);
  xml_set_attribute(node, "key", g_quark_to_string(key_value->key));
  xml_set_attribute(node, "name-space", key_value->name_space);
  xml_set_attribute(node, "complex-type-name", key_value->complex_type_name);
  xml_set_attribute(node, "key-nice-name", key_value->key_nice_name);
  xml_set_boolean(node, "key-wildcard", key_value->key_wildcard);
  xml_set_attribute(node, "value", key_value->value);
  xml_set_attribute(node, "value-nice-name", key_value->value_nice_name);
  xml_set_attribute(node, "value-user-string", key_value->value_user_string);
  xml_set_boolean(node, "value-wildcard", key_value->value_wildcard);
  xml_set_boolean(node, "not", key_value->negated);
  xml_set_value_type(node, "value-type", key_value->value_type);
  varro2::add_tag_elements(node, key_value->tags);
  return node;
}

bool varro2::read_pair_fields(const XmlNode &node, PairFields &fields) {
  if (g_strcmp0(node.name, element_name) != 0) {
    VARRO2_WARNING("%sExpected xml tag '%s' but got '%s'", element_name, text_or_empty(node.name));
    return false;
  }
  if (!set_fields(fields, xml_get_attribute(&node, "key"), true,
                  xml_get_boolean(&node, "key-wildcard"), xml_get_attribute(&node, "value"),
                  xml_get_boolean(&node, "value-wildcard"), xml_get_boolean(&node, "not")))
    return false;
  fields.texts[text_name_space] = xml_get_attribute(&node, "name-space");
  fields.texts[text_key_nice_name] = xml_get_attribute(&node, "key-nice-name");
  fields.texts[text_value_nice_name] = xml_get_attribute(&node, "value-nice-name");
  fields.texts[text_value_user_string] = xml_get_attribute(&node, "value-user-string");
  fields.texts[text_complex_type_name] = xml_get_attribute(&node, "complex-type-name");
  fields.value_type = xml_get_value_type(&node, "value-type");
  return true;
}

varro2::OwnedList varro2::read_tag_elements(const XmlNode &node) {
  GQueue tags = G_QUEUE_INIT;
  for (const GList *child = node.children; child != nullptr; child = child->next) {
    const auto *element = static_cast<const XmlNode *>(child->data);
    if (g_strcmp0(element->name, "tag") == 0)
      g_queue_push_tail(&tags, const_cast<char *>(xml_get_attribute(element, "tag")));
  }
  return OwnedList{tags.head};
}

KeyValue *key_value_deserialize_xml(const XmlNode *node) noexcept {
  VARRO2_ASSERT(node != NULL);
  PairFields fields;
  if (!varro2::read_pair_fields(*node, fields))
    return nullptr;
  auto *pair = new Pair{fields};
  varro2::copy_tags_once(*pair, varro2::read_tag_elements(*node).get());
  return pair;
}

KeyValueRaw *key_value_get_raw(const KeyValue *key_value) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  auto *raw = g_new0(KeyValueRaw, 1);
  if (!key_value->key_wildcard)
    raw->key = g_strdup(g_quark_to_string(key_value->key));
  if (!key_value->value_wildcard)
    raw->value = g_strdup(key_value->value);
  raw->name_space = copy_unless_empty(key_value->name_space);
  raw->complex_type_name = copy_unless_empty(key_value->complex_type_name);
  raw->negated = key_value->negated;
  raw->tags = varro2::copy_tags_reversed(key_value->tags);
  return raw;
}

void key_value_free_raw(KeyValueRaw *raw) noexcept {
  if (raw == nullptr)
    return;
  g_free(raw->key);
  g_free(raw->value);
  g_free(raw->name_space);
  g_free(raw->complex_type_name);
  varro2::free_string_list(raw->tags);
  g_free(raw);
}

void key_value_print(const KeyValue *key_value) noexcept {
  VARRO2_ASSERT(key_value != NULL);
  std::string line = "[";
  const auto add = [&line](const char *before, const char *text, const char *after) {
    if (!varro2::is_empty(text))
      line.append(before).append(text).append(after);
  };
  if (key_value->key_wildcard) {
    line += "*";
  } else {
    add("", key_value->name_space, ":");
    line += g_quark_to_string(key_value->key);
  }
  line += " ";
  add("(", key_value->key_nice_name, ") ");
  add("{", key_value->complex_type_name, "} ");
  line += key_value->negated ? "!= '" : "= '";
  line += key_value->value_wildcard ? "*" : key_value->value;
  line += "'";
  add(" (", key_value->value_nice_name, ")");
  line += "]";
  for (const GList *tag = key_value->tags; tag != nullptr; tag = tag->next)
    line.append(" {")
        .append(varro2::text_or_empty(static_cast<const char *>(tag->data)))
        .append("}");
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "%s", line.c_str());
}
