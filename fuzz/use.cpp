#include "use.hpp"

#include "plain.hpp"
#include "recordwalk.hpp"

namespace varro2::fuzz {
namespace {

// ---- Objects to match with

EventOwner sample_event() {
  DeclarationOwner declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", "Device", VALUE_TYPE_STRING);
  event_declaration_add_key_value(declaration.get(), "a", "1", VALUE_TYPE_STRING);
  return EventOwner{event_declaration_generate_event(declaration.get())};
}

DeclarationOwner sample_declaration() {
  DeclarationOwner declaration{event_declaration_new(TRUE)};
  event_declaration_add_key(declaration.get(), "a", VALUE_TYPE_INT);
  event_declaration_add_key_value(declaration.get(), "topic0", "Device", VALUE_TYPE_STRING);
  return declaration;
}

ExpressionOwner sample_expression() {
  ExpressionOwner expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), "a", "1");
  subscribe_expression_add_not_key(expression.get(), "b");
  subscribe_expression_or(expression.get());
  subscribe_expression_add_value(expression.get(), "1");
  return expression;
}

// ---- Parts

// Only "0" and "1" can be taken for a truth value.
bool can_be_typed(const Inspectable &container, guint32 position) {
  const std::string_view value = inspectable_get_value_at(&container, position);
  return inspectable_get_type_at(&container, position) != VALUE_TYPE_BOOL || value == "0" ||
         value == "1";
}

void ask_by_position(const Inspectable &container) {
  const guint32 count = inspectable_get_key_count(&container);
  for (guint32 at = 0; at <= count; ++at) {
    const char *key = inspectable_get_key_at(&container, at);
    VARRO2_ASSERT((key != nullptr) == (at < count));
    const char *value = inspectable_get_value_at(&container, at);
    inspectable_get_name_space_at(&container, at);
    inspectable_get_complex_type_name_at(&container, at);
    const auto tags = taken_texts(inspectable_get_tags_at(&container, at));
    for (const std::string &tag : tags)
      VARRO2_ASSERT(inspectable_has_tag_at(&container, at, tag.c_str()));
    if (at == count)
      break;
    VARRO2_ASSERT(inspectable_get_value(&container, key) == value);
    const KeyValue *pair = inspectable_get_key_value(&container, key);
    VARRO2_ASSERT(pair != nullptr && pair->value == value);
  }
}

void ask_event_by_position(const Inspectable &keys) {
  const guint32 count = inspectable_get_key_count(&keys);
  for (guint32 at = 0; at < count; ++at) {
    const char *key = inspectable_get_key_at(&keys, at);
    VARRO2_ASSERT(inspectable_get_index(&keys, key) == at);
    inspectable_get_key_nice_name(&keys, key);
    inspectable_get_value_nice_name(&keys, key);
    inspectable_has_value_at(&keys, at);
    union {
      gint32 whole;
      gboolean flag;
      double real;
      const char *text;
    } value;
    if (can_be_typed(keys, at))
      VARRO2_ASSERT(inspectable_get_typed_value_at(&keys, at, &value));
  }
}

template <typename T>
OwnedText xml_of(const T &object, char *(*write)(const T *)) {
  OwnedText xml{write(&object)};
  VARRO2_ASSERT(xml != nullptr);
  const XmlOwner tree{xmlnode_parse_string(xml.get())};
  VARRO2_ASSERT(tree != nullptr);
  return xml;
}

} // namespace

// ---- Objects

void use(const KeyValue &pair) {
  const KeyValueOwner copy{key_value_copy(&pair)};
  key_value_print(copy.get());
  key_value_free_raw(key_value_get_raw(&pair));
  VARRO2_ASSERT(key_value_is_equal(&pair, &pair));
  guint32 fail = FALSE;
  guint32 matched = FALSE;
  if (!pair.key_wildcard)
    key_value_is_contained(&pair, copy.get(), &fail, &matched);
  VARRO2_ASSERT(!(fail && matched));
  const XmlOwner node{key_value_serialize_xml(&pair)};
  const KeyValueOwner read{key_value_deserialize_xml(node.get())};
  VARRO2_ASSERT(read != nullptr);
}

void use(const Inspectable &container) {
  VARRO2_ASSERT(inspectable_is_equal(&container, &container));
  const auto *inspect = &container;
  taken_texts(inspectable_get_tags(inspect));
  inspectable_print(inspect);
  inspectable_free_raw(inspectable_get_raw(inspect));
  const InspectableOwner tests{inspectable_copy(inspect, IT_SUBSCRIBE_EXPRESSION)};
  inspectable_contains(inspect, tests.get());
  VARRO2_ASSERT(inspectable_or(tests.get()));
  inspectable_add_key_value(tests.get(), nullptr, TRUE, "1", FALSE, TRUE);
  inspectable_contains(inspect, tests.get());
}

void use(const Event &event) {
  const Inspectable &keys = *event_get_inspectable(&event);
  use(keys);
  ask_by_position(keys);
  ask_event_by_position(keys);
  event_is_complete(&event);
  event_print(&event);
  event_contains(&event, sample_expression().get());
  g_free(event_get_user_data(&event));
  for (const guint32 format : {JSON_FORMAT_TAMLO, JSON_FORMAT_ONVIF}) {
    const Owned<JsonOptions, json_options_free> options{json_options_new()};
    json_options_set_format(options.get(), static_cast<guint32>(format));
    json_options_use_only_strings_in_message(options.get(), event_is_internal(&event));
    char *json = event_get_json(&event, options.get());
    VARRO2_ASSERT(json != nullptr);
    ::free(json);
  }
  const EventOwner copy{event_copy(&event)};
  const Inspectable *copied = event_get_inspectable(copy.get());
  const guint32 count = inspectable_get_key_count(copied);
  for (guint32 at = 0; at < count; ++at) {
    const char *key = event_get_key_at(copy.get(), at);
    inspectable_set_value_as_string(event_get_inspectable(copy.get()), key, "a longer value");
    event_add_key_tag(copy.get(), key, "seen");
  }
  event_add_tag(copy.get(), "seen");
  const auto record = BytesRef::adopt(event_serialize(copy.get()));
  VARRO2_ASSERT(serialize_is_valid_record(record.get(), 0, SERIALIZE_ID_EVENT));
}

void use(const EventDeclaration &declaration) {
  use(*event_declaration_get_inspectable(&declaration));
  event_declaration_print(&declaration);
  event_declaration_contains(&declaration, sample_expression().get());
  use(*EventOwner{event_declaration_generate_event(&declaration)});
  const OwnedText xml = xml_of(declaration, event_declaration_serialize_xml);
  const DeclarationOwner read{event_declaration_deserialize_xml(xml.get())};
  VARRO2_ASSERT(read != nullptr);
  const DeclarationOwner copy{event_declaration_copy(&declaration)};
  for (const char *key : {"a", "topic0", "new"}) {
    VARRO2_ASSERT(event_declaration_add_key(copy.get(), key, VALUE_TYPE_DOUBLE));
    VARRO2_ASSERT(event_declaration_set_nice_names(copy.get(), key, "key", "value"));
    VARRO2_ASSERT(event_declaration_add_key_tag(copy.get(), key, "seen"));
  }
  const auto record = BytesRef::adopt(event_declaration_serialize(copy.get()));
  VARRO2_ASSERT(serialize_is_valid_record(record.get(), 0, SERIALIZE_ID_EVENT_DECLARATION));
}

void use(const SubscribeExpression &expression) {
  use(*subscribe_expression_get_inspectable(&expression));
  subscribe_expression_print(&expression);
  event_contains(sample_event().get(), &expression);
  event_declaration_contains(sample_declaration().get(), &expression);
  subscribe_expression_free_raw(subscribe_expression_get_raw(&expression));
  const OwnedText xml = xml_of(expression, subscribe_expression_serialize_xml);
  // An expression takes no tags of its own from a document.
  if (taken_texts(inspectable_get_tags(subscribe_expression_get_inspectable(&expression)))
          .empty()) {
    const ExpressionOwner read{subscribe_expression_deserialize_xml(xml.get())};
    VARRO2_ASSERT(read != nullptr);
  }
  const ExpressionOwner copy{subscribe_expression_copy(&expression)};
  subscribe_expression_add_key_value(copy.get(), "a", "2");
  subscribe_expression_set_name_space(copy.get(), "a", "tns1");
  subscribe_expression_or(copy.get());
  subscribe_expression_add_not_value(copy.get(), "3");
  const auto record = BytesRef::adopt(subscribe_expression_serialize(copy.get()));
  VARRO2_ASSERT(serialize_is_valid_record(record.get(), 0, SERIALIZE_ID_SUBSCRIBE_EXPRESSION));
}

void use(const PropertyState &state) {
  const Inspectable &keys = *property_state_get_inspectable(&state);
  use(keys);
  ask_by_position(keys);
  property_state_print(&state);
  xml_of(state, property_state_serialize_xml);
  for (const gboolean inverted : {gboolean{FALSE}, gboolean{TRUE}})
    use(*ExpressionOwner{property_state_to_subscribe_expression(&state, inverted)});
}

void use(const Notification &notification) {
  notification_print(&notification);
  use(*notification_get_declaration(&notification));
  use(*notification_get_subscribe_expression(&notification));
  g_free(notification_get_user_data(&notification));
  notification_get_value(&notification, "a");
  const NotificationOwner copy{notification_copy(&notification)};
  const auto record = BytesRef::adopt(notification_serialize(copy.get()));
  VARRO2_ASSERT(serialize_is_valid_record(record.get(), 0, SERIALIZE_ID_NOTIFICATION));
}

// ---- Records

namespace {

template <auto read, auto write, auto release>
guint32 check_codec(const GByteArray *array, guint32 start, guint32 type_id) {
  guint32 end = start;
  const auto *first = read(array, &end);
  VARRO2_ASSERT(first != nullptr);
  using Object = std::remove_const_t<std::remove_pointer_t<decltype(first)>>;
  const Owned<Object, release> first_owner{const_cast<Object *>(first)};
  RecordWalk walk{array->data, end, start};
  VARRO2_ASSERT(walk.record(type_id) && walk.at_end());
  // A copy shows a step past the end, and the last byte is needed.
  const BytesRef cut = exact_array(array->data + start, end - start - 1);
  VARRO2_ASSERT(!serialize_is_valid_record(cut.get(), 0, type_id));
  use(*first);

  const BytesRef second_record = new_bytes();
  write(first, second_record.get());
  VARRO2_ASSERT(serialize_is_valid_record(second_record.get(), 0, type_id));
  guint32 second_end = 0;
  const Owned<Object, release> second{read(second_record.get(), &second_end)};
  VARRO2_ASSERT(second_end == second_record->len);
  const BytesRef third_record = new_bytes();
  write(second.get(), third_record.get());
  VARRO2_ASSERT(same_bytes(second_record.get(), third_record.get()));
  return end;
}

// There is no reader for parts of a container; what may stand in one is judged in one.
void check_part(const GByteArray *array, guint32 start, guint32 type_id) {
  const std::string part{reinterpret_cast<const char *>(array->data) + start, array->len - start};
  const auto judged = [](const RecordWriter &record) {
    const BytesRef bytes = exact_array(record.data(), record.size());
    const bool valid = serialize_is_valid_record(bytes.get(), 0, SERIALIZE_ID_INSPECTABLE);
    if (valid)
      check_record(bytes.get(), 0, SERIALIZE_ID_INSPECTABLE);
    return valid;
  };
  const auto container_of = [] { return RecordWriter{}.u8(0xF2).u16(1).u8(2).u8(0); };
  RecordWalk walk{array->data, array->len, start};
  if (!walk.record(type_id) || !walk.at_end())
    return;
  if (type_id == SERIALIZE_ID_ANDLIST) {
    VARRO2_ASSERT(judged(container_of().bytes(part).u16(0)));
    return;
  }
  const bool of_a_key = judged(container_of().u8(0xF3).u16(1).bytes(part).u16(0).u16(0));
  const bool of_any_key = judged(container_of().u8(0xF3).u16(0).u16(1).bytes(part).u16(0));
  VARRO2_ASSERT(of_a_key != of_any_key);
}

} // namespace

guint32 check_record(const GByteArray *array, guint32 start, guint32 type_id) {
  switch (type_id) {
  case SERIALIZE_ID_EVENT_DECLARATION:
    return check_codec<event_declaration_deserialize_internal, event_declaration_serialize_internal,
                       event_declaration_free>(array, start, type_id);
  case SERIALIZE_ID_EVENT:
    return check_codec<event_deserialize_internal, event_serialize_internal, event_free>(
        array, start, type_id);
  case SERIALIZE_ID_INSPECTABLE:
    return check_codec<inspectable_deserialize_internal, inspectable_serialize_internal,
                       inspectable_free>(array, start, type_id);
  case SERIALIZE_ID_KEYVALUE:
    return check_codec<key_value_deserialize, key_value_serialize, key_value_free>(array, start,
                                                                                   type_id);
  case SERIALIZE_ID_SUBSCRIBE_EXPRESSION:
    return check_codec<subscribe_expression_deserialize_internal,
                       subscribe_expression_serialize_internal, subscribe_expression_free>(
        array, start, type_id);
  case SERIALIZE_ID_PROPERTY_STATE:
    return check_codec<property_state_deserialize_internal, property_state_serialize_internal,
                       property_state_free>(array, start, type_id);
  case SERIALIZE_ID_NOTIFICATION:
    return check_codec<notification_deserialize_internal, notification_serialize_internal,
                       notification_free>(array, start, type_id);
  default:
    check_part(array, start, type_id);
    return start;
  }
}

} // namespace varro2::fuzz
