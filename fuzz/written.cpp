// Objects built through the interface, at the input's choice: the walk accepts what is written of
// them, it reads back as the same, byte for byte, and so does their XML.
#include "recordwalk.hpp"
#include "use.hpp"

namespace varro2::fuzz {
namespace {

constexpr const char *words[] = {"",
                                 "a",
                                 "b",
                                 "topic0",
                                 "topic1",
                                 "1",
                                 "2",
                                 "tns1",
                                 "onvif-source",
                                 "a longer text",
                                 "<&\"'>",
                                 "property-state",
                                 "\xC3\xA4",
                                 "x y",
                                 "-7.5"};

bool all_carried(const char *xml) {
  return std::strstr(xml, "\xEF\xBF\xBD") == nullptr && std::strpbrk(xml, "\n\r\t") == nullptr;
}

void decorate(EventDeclaration *declaration, const char *key, Choices &choices) {
  switch (choices.below(8)) {
  case 0:
    event_declaration_set_name_space(declaration, key, choices.text(words).c_str());
    break;
  case 1:
    event_declaration_set_nice_names(declaration, key, choices.text(words).c_str(),
                                     choices.flag() ? nullptr : choices.text(words).c_str());
    break;
  case 2:
    event_declaration_set_complex_type_name(declaration, key, choices.text(words).c_str());
    break;
  case 3:
    event_declaration_set_value_user_string(declaration, key, choices.text(words).c_str());
    break;
  case 4:
    event_declaration_add_key_tag(declaration, key, choices.text(words).c_str());
    break;
  case 5:
    inspectable_set_value_as_string(event_declaration_get_inspectable(declaration), key,
                                    choices.text(words).c_str());
    break;
  default:
    break;
  }
}

DeclarationOwner any_declaration(Choices &choices) {
  DeclarationOwner declaration{event_declaration_new(choices.flag())};
  for (unsigned count = choices.below(24); count > 0; --count) {
    const std::string key = choices.text(words);
    VARRO2_ASSERT(event_declaration_add_key(declaration.get(), key.c_str(), 1 + choices.below(4)));
    for (unsigned more = choices.below(4); more > 0; --more)
      decorate(declaration.get(), key.c_str(), choices);
  }
  for (unsigned count = choices.below(3); count > 0; --count)
    event_declaration_add_tag(declaration.get(), choices.text(words).c_str());
  if (choices.below(4) == 1)
    event_declaration_set_property(declaration.get(), choices.flag() ? "a" : nullptr, nullptr,
                                   nullptr);
  event_declaration_set_global_id(declaration.get(), choices.number());
  return declaration;
}

EventOwner any_event(Choices &choices) {
  EventOwner event{event_declaration_generate_event(any_declaration(choices).get())};
  for (guint32 at = 0; at < event_get_key_count(event.get()) && choices.flag(); ++at)
    inspectable_set_value_as_string(event_get_inspectable(event.get()),
                                    event_get_key_at(event.get(), at), choices.text(words).c_str());
  if (choices.flag())
    event_set_user_data_string(event.get(), choices.text(words).c_str());
  if (choices.flag()) {
    const auto seconds =
        DateTimeRef::adopt(g_date_time_new_from_unix_utc(static_cast<gint32>(choices.number())));
    const auto time =
        DateTimeRef::adopt(g_date_time_add(seconds.get(), choices.number() % G_USEC_PER_SEC));
    event_set_timestamp2(event.get(), time.get());
  }
  event_set_property(event.get(), choices.flag());
  event_set_producer_id(event.get(), choices.number());
  return event;
}

ExpressionOwner any_expression(Choices &choices) {
  ExpressionOwner owner{subscribe_expression_new_full(choices.flag())};
  SubscribeExpression *const expression = owner.get();
  for (unsigned count = choices.below(24); count > 0; --count) {
    const std::string key = choices.text(words);
    const std::string value = choices.text(words);
    switch (choices.below(8)) {
    case 0:
      subscribe_expression_add_key_value(expression, key.c_str(), value.c_str());
      break;
    case 1:
      subscribe_expression_add_key_not_value(expression, key.c_str(), value.c_str());
      break;
    case 2:
      subscribe_expression_add_key(expression, key.c_str());
      break;
    case 3:
      subscribe_expression_add_not_key(expression, key.c_str());
      break;
    case 4:
      subscribe_expression_add_value(expression, value.c_str());
      break;
    case 5:
      subscribe_expression_add_not_value(expression, value.c_str());
      break;
    case 6:
      subscribe_expression_set_name_space(expression, key.c_str(), value.c_str());
      break;
    default:
      subscribe_expression_or(expression);
    }
  }
  subscribe_expression_set_id(expression, choices.number());
  subscribe_expression_set_dbus_service(expression, choices.text(words).c_str());
  return owner;
}

StateOwner any_state(Choices &choices) {
  StateOwner state{property_state_new()};
  for (unsigned count = choices.below(20); count > 0; --count) {
    const std::string key = choices.text(words);
    property_state_add_key_value(state.get(), key.c_str(), choices.text(words).c_str(),
                                 choices.below(4) == 1);
    if (choices.below(4) == 1)
      property_state_set_name_space(state.get(), key.c_str(), choices.text(words).c_str());
  }
  return state;
}

// ---- What is held against each other

template <typename T>
void check_written(const T *object, GByteArray *(*write)(const T *), T *(*read)(const GByteArray *),
                   void (*release)(T *), guint32 type_id) {
  const auto record = BytesRef::adopt(write(object));
  VARRO2_ASSERT(serialize_is_valid_record(record.get(), 0, type_id));
  RecordWalk walk{record->data, record->len};
  VARRO2_ASSERT(walk.record(type_id) && walk.at_end());
  T *again = read(record.get());
  VARRO2_ASSERT(again != nullptr);
  const auto second = BytesRef::adopt(write(again));
  release(again);
  VARRO2_ASSERT(same_bytes(record.get(), second.get()));
  VARRO2_ASSERT(check_record(record.get(), 0, type_id) == record->len);
}

// Where every character can be carried, the document keeps all there is in the container.
template <typename T>
void check_xml(const T *object, char *(*write)(const T *), T *(*read)(const char *),
               void (*release)(T *), Inspectable *(*container)(const T *)) {
  const OwnedText xml{write(object)};
  T *again = read(xml.get());
  if (again == nullptr) {
    // Texts that became one may have left another number of state keys.
    VARRO2_ASSERT(!all_carried(xml.get()) || std::strncmp(xml.get(), "<property", 9) == 0);
    return;
  }
  const OwnedText second{write(again)};
  if (all_carried(xml.get())) {
    VARRO2_ASSERT(inspectable_is_equal(container(object), container(again)));
    VARRO2_ASSERT(std::strcmp(xml.get(), second.get()) == 0);
  }
  release(again);
}

void check_list(Choices &choices) {
  std::vector<DeclarationOwner> declarations;
  GList *list = nullptr;
  for (unsigned count = choices.below(4); count > 0; --count)
    declarations.push_back(any_declaration(choices));
  for (const DeclarationOwner &each : declarations)
    list = g_list_append(list, each.get());
  const BytesRef bytes = BytesRef::adopt(serialize_create_array());
  serialize_glist(bytes.get(), list, [](gpointer declaration, GByteArray *array) {
    event_declaration_serialize_internal(static_cast<EventDeclaration *>(declaration), array);
  });
  g_list_free(list);
  RecordWalk walk{bytes->data, bytes->len};
  VARRO2_ASSERT(walk.declaration_list() && walk.at_end());
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2::fuzz;
  Choices choices{data, size};
  switch (choices.below(6)) {
  case 0: {
    const DeclarationOwner declaration = any_declaration(choices);
    check_written(declaration.get(), event_declaration_serialize, event_declaration_deserialize,
                  event_declaration_free, SERIALIZE_ID_EVENT_DECLARATION);
    check_xml(declaration.get(), event_declaration_serialize_xml, event_declaration_deserialize_xml,
              event_declaration_free, event_declaration_get_inspectable);
    break;
  }
  case 1: {
    const EventOwner event = any_event(choices);
    check_written(event.get(), event_serialize, event_deserialize, event_free, SERIALIZE_ID_EVENT);
    break;
  }
  case 2: {
    const ExpressionOwner expression = any_expression(choices);
    check_written(expression.get(), subscribe_expression_serialize,
                  subscribe_expression_deserialize, subscribe_expression_free,
                  SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
    check_xml(expression.get(), subscribe_expression_serialize_xml,
              subscribe_expression_deserialize_xml, subscribe_expression_free,
              subscribe_expression_get_inspectable);
    break;
  }
  case 3: {
    const StateOwner state = any_state(choices);
    check_written(state.get(), property_state_serialize, property_state_deserialize,
                  property_state_free, SERIALIZE_ID_PROPERTY_STATE);
    check_xml(state.get(), property_state_serialize_xml, property_state_deserialize_xml,
              property_state_free, property_state_get_inspectable);
    break;
  }
  case 4: {
    const NotificationOwner notification{notification_new()};
    notification_set_declaration(notification.get(), any_declaration(choices).get());
    notification_set_subscribe_expression(notification.get(), any_expression(choices).get());
    notification_set_type(notification.get(), choices.below(3));
    if (choices.flag())
      notification_set_user_data_string(notification.get(), choices.text(words).c_str());
    check_written(notification.get(), notification_serialize, notification_deserialize,
                  notification_free, SERIALIZE_ID_NOTIFICATION);
    break;
  }
  default:
    check_list(choices);
  }
  return 0;
}
