// Events as JSON documents. A key's tags say where in the document it goes.

#include "event.hpp"
#include "jsonelement.hpp"
#include "jsonoptions.hpp"
#include "log.hpp"
#include "preconditions.hpp"
#include "xmlnode.hpp"

#include <varro2/eventutils.h>

#include <cstring>
#include <string>

using varro2::json_object_value;
using varro2::json_text;
using varro2::JsonRef;
using varro2::put_member;

namespace {

constexpr const char *tag_source = "onvif-source";
constexpr const char *tag_key = "onvif-key";
constexpr const char *tag_data = "onvif-data";
constexpr const char *tag_element = "onvif-element";

constexpr int max_topic_levels = 100;

// ---- Tamlo

// The options' own text for one of the two name spaces that they rename, or null.
const std::string *renamed(const char *name_space, const JsonOptions &options) {
  if (std::strcmp(name_space, "tns1") == 0)
    return &options.onvif_namespace;
  if (std::strcmp(name_space, "tnsquor") == 0)
    return &options.quor_namespace;
  return nullptr;
}

// The levels joined by '/', each with its name space in front. Levels that follow in one of the
// renamed name spaces share the prefix of the first; a level without name space is only its '/'.
std::string topic_path(const Inspectable &keys, const JsonOptions &options) {
  std::string path;
  const std::string *last_renamed = nullptr;
  for (int level = 0; level < max_topic_levels; ++level) {
    const KeyValue *pair = keys.find(("topic" + std::to_string(level)).c_str());
    if (!pair)
      break;
    if (level > 0)
      path += '/';
    if (varro2::is_empty(pair->name_space))
      continue;
    const std::string *prefix = renamed(pair->name_space, options);
    if (!prefix || prefix != last_renamed)
      path.append(prefix ? prefix->c_str() : pair->name_space).append(":");
    last_renamed = prefix;
    path += varro2::text_or_empty(pair->value);
  }
  return path;
}

// Milliseconds since 1970, UTC; 0 for none.
gint64 to_milliseconds(const varro2::Timestamp &time) {
  return time.seconds() * 1000 + time.microsecond() / 1000;
}

JsonRef bool_value(const char *text) {
  // An event that was not filled in must not end the process that looks at it.
  const bool is_bool = g_strcmp0(text, "0") == 0 || g_strcmp0(text, "1") == 0;
  return is_bool ? JsonRef::adopt(json_boolean(*text == '1')) : JsonRef{};
}

JsonRef typed_value(const Inspectable &keys, guint32 position, const KeyValue &pair) {
  switch (pair.value_type) {
  case VALUE_TYPE_INT: {
    gint32 number = 0;
    inspectable_get_typed_value_at(&keys, position, &number);
    return JsonRef::adopt(json_integer(number));
  }
  case VALUE_TYPE_BOOL:
    return bool_value(pair.value);
  case VALUE_TYPE_DOUBLE: {
    double number = 0;
    inspectable_get_typed_value_at(&keys, position, &number);
    return JsonRef::adopt(json_real(number));
  }
  case VALUE_TYPE_STRING:
    return json_text(pair.value);
  default:
    VARRO2_WARNING("%sInvalid value type for key '%s'", g_quark_to_string(pair.key));
    return {};
  }
}

JsonRef tamlo_message(const Inspectable &keys, bool only_strings) {
  const auto source = json_object_value();
  const auto key = json_object_value();
  const auto data = json_object_value();
  const guint32 count = keys.key_count();
  for (guint32 position = 0; position < count; ++position) {
    const KeyValue &pair = *keys.at(position);
    const JsonRef value = only_strings ? json_text(pair.value) : typed_value(keys, position, pair);
    const char *name = g_quark_to_string(pair.key);
    if (varro2::has_tag(pair.tags, tag_source))
      put_member(source, name, value);
    if (varro2::has_tag(pair.tags, tag_key))
      put_member(key, name, value);
    if (varro2::has_tag(pair.tags, tag_data))
      put_member(data, name, value);
  }
  auto message = json_object_value();
  put_member(message, "source", source);
  put_member(message, "key", key);
  put_member(message, "data", data);
  return message;
}

char *tamlo_document(const Event &event, const JsonOptions &options) {
  const auto root = json_object_value();
  put_member(root, "topic", json_text(topic_path(event.inspectable, options).c_str()));
  put_member(root, "timestamp", JsonRef::adopt(json_integer(to_milliseconds(event.timestamp))));
  if (options.serialnumber)
    put_member(root, "serial", json_text(options.serialnumber->c_str()));
  put_member(root, "message", tamlo_message(event.inspectable, options.only_strings_in_message));
  return json_dumps(root.get(), options.pretty_printing ? JSON_INDENT(4) : JSON_COMPACT);
}

// ---- ONVIF

JsonRef utc_time(const varro2::Timestamp &time) {
  if (!time)
    return {};
  // The producer may have set a time of any zone.
  const auto utc = varro2::DateTimeRef::adopt(g_date_time_to_utc(time.get()));
  if (!utc)
    return {};
  const varro2::OwnedText text{g_date_time_format_iso8601(utc.get())};
  return json_text(text.get());
}

// An object with the document's root as its one member; empty when the text is no document.
JsonRef document_value(const char *xml) {
  const varro2::XmlTree root{xmlnode_parse_string_no_ns(xml)};
  if (!root)
    return {};
  auto object = json_object_value();
  put_member(object, varro2::without_prefix(root->name), varro2::element_to_json(*root));
  return object;
}

char *onvif_document(const Event &event) {
  const auto root = json_object_value();
  const auto source = json_object_value();
  const auto data = json_object_value();
  put_member(root, "UtcTime", utc_time(event.timestamp));
  put_member(root, "Source", source);
  put_member(root, "Data", data);
  const guint32 count = event.inspectable.key_count();
  for (guint32 position = 0; position < count; ++position) {
    const KeyValue &pair = *event.inspectable.at(position);
    const char *name = g_quark_to_string(pair.key);
    if (varro2::has_tag(pair.tags, tag_data)) {
      const bool is_document = varro2::has_tag(pair.tags, tag_element);
      put_member(data, name, is_document ? document_value(pair.value) : json_text(pair.value));
    }
    if (varro2::has_tag(pair.tags, tag_source))
      put_member(source, name, json_text(pair.value));
  }
  return json_dumps(root.get(), JSON_COMPACT);
}

char *render(const Event &event, const JsonOptions &options) {
  switch (options.format) {
  case JSON_FORMAT_TAMLO:
    return tamlo_document(event, options);
  case JSON_FORMAT_ONVIF:
    return onvif_document(event);
  default:
    VARRO2_INFO("%sInvalid JSON format specified");
    return nullptr;
  }
}

} // namespace

char *event_get_json(const Event *event, const JsonOptions *options) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return options ? render(*event, *options) : render(*event, JsonOptions{});
}

char *event_get_tamlo_json(const Event *event, const JsonOptions *options) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(options != NULL, nullptr);
  return tamlo_document(*event, *options);
}
