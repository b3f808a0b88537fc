// Declaring an event by the name of its type.
#include "eventproducer.hpp"

#include "eventdeclaration.hpp"
#include "failure.hpp"
#include "preconditions.hpp"

#include <string>
#include <unordered_set>

using namespace varro2;

namespace {

using OwnedRaw = Owned<GList, inspectable_free_raw>;
using OwnedKeyValue = Owned<KeyValue, key_value_free>;

struct Triple {
  const char *key;
  gconstpointer value; // of the type, or its text
  int type;
};

// Cuts the triple off the front of a list of whole triples.
Triple take_triple(GList *&list) {
  const Triple triple{static_cast<const char *>(list->data), list->next->data,
                      GPOINTER_TO_INT(list->next->next->data)};
  list = list->next->next->next;
  return triple;
}

// Builds a list of key, value text and type back to front, so that its end need not be looked for.
class RegisterListBuilder {
 public:
  // The function is the one that answers for a value without a text.
  void append(const char *function, const Triple &triple) {
    OwnedText value_str{
        event_utils_value_type_to_string(triple.value, static_cast<guint32>(triple.type))};
    VARRO2_ASSERT_AS(function, "value_str != NULL", value_str != nullptr);
    reversed_ = g_list_prepend(reversed_, g_strdup(triple.key));
    reversed_ = g_list_prepend(reversed_, value_str.release());
    reversed_ = g_list_prepend(reversed_, GINT_TO_POINTER(triple.type));
  }
  GList *finish() { return g_list_reverse(std::exchange(reversed_, nullptr)); }

 private:
  GList *reversed_ = nullptr;
};

// A declaration on its way from the template to what is declared.
class Registration {
 public:
  Registration(const char *type, EventDeclaration *declaration)
      : type_{type}, declaration_{declaration} {}

  // Each returns the failure that ends the registration.
  OwnedError read_template();
  OwnedError fill(GList *list);
  OwnedError finish();

  EventDeclaration *release_declaration() { return declaration_.release(); }
  CallbackParams *release_params() { return params_.release(); }

 private:
  Inspectable *inspectable() const { return event_declaration_get_inspectable(declaration_.get()); }
  OwnedError note_property_key(const char *key);
  void replace(const Triple &triple);

  const char *type_;
  OwnedDeclaration declaration_;
  OwnedParams params_;                        // of the property key, if there is one
  std::unordered_set<std::string> open_keys_; // that have got no value yet
};

OwnedError Registration::note_property_key(const char *key) {
  if (params_)
    return OwnedError{
        g_error_new(event_error_quark(), EVENT_ERROR_REGISTRATION_PROP_STATE,
                    "Got multiple property state tags: key '%s' and '%s' to declaration %s", key,
                    params_->key, type_)};
  params_.reset(callback_params_new(key, NULL));
  return nullptr;
}

OwnedError Registration::read_template() {
  const OwnedRaw raw{inspectable_get_raw(inspectable())};
  VARRO2_ASSERT_AS("event_producer_int_register_list", "g_list_length(raw_data) == 1",
                   raw && !raw->next);
  // The plain copy holds the template's last key first.
  for (GList *entry = g_list_last(static_cast<GList *>(raw->data)); entry; entry = entry->prev) {
    const auto *kv = static_cast<const KeyValueRaw *>(entry->data);
    VARRO2_ASSERT_AS("event_producer_int_register_list", "kv->key != NULL", kv->key != nullptr);
    if (!kv->value)
      open_keys_.emplace(kv->key);
    if (g_list_find_custom(kv->tags, property_state_tag, reinterpret_cast<GCompareFunc>(g_strcmp0)))
      if (OwnedError error = note_property_key(kv->key))
        return error;
  }
  return nullptr;
}

OwnedError Registration::fill(GList *list) {
  while (list) {
    const Triple triple = take_triple(list);
    if (open_keys_.erase(triple.key) == 0)
      return OwnedError{g_error_new(event_error_quark(), EVENT_ERROR_REGISTRATION_UNKNOWN_KEY,
                                    "Got unknown key '%s' to declaration %s", triple.key, type_)};
    // The property's value is state, which events carry; the declaration leaves it open.
    if (params_ && g_str_equal(params_->key, triple.key))
      params_.reset(callback_params_new(triple.key, static_cast<const char *>(triple.value)));
    else
      replace(triple);
  }
  return nullptr;
}

// Only a new pair accepts another type; what the template said of the key is kept.
void Registration::replace(const Triple &triple) {
  Inspectable *inspect = inspectable();
  const OwnedKeyValue saved{key_value_copy(inspectable_get_key_value(inspect, triple.key))};
  const gboolean res =
      inspectable_add_key_value(inspect, triple.key, FALSE, NULL, TRUE, FALSE) &&
      inspectable_set_value_type(inspect, triple.key, static_cast<guint32>(triple.type)) &&
      inspectable_set_value_as_string(inspect, triple.key,
                                      static_cast<const char *>(triple.value)) &&
      inspectable_set_nice_names(inspect, triple.key, saved->key_nice_name,
                                 saved->value_nice_name) &&
      inspectable_set_name_space(inspect, triple.key, saved->name_space) &&
      inspectable_set_complex_type_name(inspect, triple.key, saved->complex_type_name);
  VARRO2_ASSERT_AS("event_producer_int_register_list", "res == TRUE", res);
  for (GList *tag = saved->tags; tag; tag = tag->next)
    event_declaration_add_key_tag(declaration_.get(), triple.key,
                                  static_cast<const char *>(tag->data));
}

// The property's first event is built from the parameters, not by asking.
Event *leave_event_as_it_is(Event *event, gpointer) {
  return event;
}

// A property must be complete. Other declarations may leave keys open, for each event to fill in.
OwnedError Registration::finish() {
  if (!params_)
    return nullptr;
  if (!open_keys_.empty())
    return OwnedError{g_error_new(event_error_quark(), EVENT_ERROR_REGISTRATION_UNPARSED_KEY,
                                  "Not all keys were parsed for type %s", type_)};
  event_declaration_set_property(declaration_.get(), params_->key, leave_event_as_it_is, NULL);
  return nullptr;
}

} // namespace

void varro2::declare_registered(EventProducer *event_producer, const EventDeclaration &declaration,
                                const CallbackParams *params, guint32 local_declare_id,
                                EventProducerDeclaredCallback declared_callback,
                                EventProducerNotifyCallback notify, gpointer user_data) {
  event_producer_int_declare(event_producer, &declaration, local_declare_id, declared_callback,
                             notify, user_data);
  // A state that the template fixes is in the declaration already.
  if (params && params->value && local_declare_id != 0)
    producer_add_callback_params(event_producer->producer.get(), local_declare_id, params);
}

GList *event_producer_int_parse_register_valist(va_list arguments) noexcept {
  RegisterListBuilder list;
  while (const char *key = va_arg(arguments, const char *)) {
    const gconstpointer value = va_arg(arguments, gconstpointer);
    const int type = va_arg(arguments, int);
    list.append(__func__, {key, value, type});
  }
  return list.finish();
}

GList *event_producer_int_convert_to_string_list(GList *iter) noexcept {
  VARRO2_ASSERT(g_list_length(iter) % 3 == 0);
  RegisterListBuilder list;
  while (iter)
    list.append(__func__, take_triple(iter));
  return list.finish();
}

void event_producer_int_free_register_list(GList *list) noexcept {
  const OwnedList owned{list};
  while (list) {
    g_free(list->data);
    g_free(list->next->data);
    list = list->next->next->next;
  }
}

void event_producer_int_register_list(const char *type, GList *list, EventDeclaration **declaration,
                                      CallbackParams **params, GError **error) noexcept {
  VARRO2_ASSERT(declaration != NULL && *declaration == NULL);
  VARRO2_ASSERT(params != NULL && *params == NULL);
  VARRO2_EXPECT(type != NULL);
  if (fail_if_slot_is_taken(error))
    return;
  OwnedDeclaration loaded{event_declaration_new_from_type(type)};
  if (!loaded) {
    g_set_error(error, event_error_quark(), EVENT_ERROR_REGISTRATION_UNKNOWN_TYPE,
                "event_declaration_new_from_type() failed for %s", type);
    return;
  }
  Registration registration{type, loaded.release()};
  OwnedError failure = registration.read_template();
  if (!failure)
    failure = registration.fill(list);
  if (!failure)
    failure = registration.finish();
  if (failure) {
    fail(error, std::move(failure));
    return;
  }
  *declaration = registration.release_declaration();
  *params = registration.release_params();
}

guint32 event_producer_register_and_notify_string_list(EventProducer *event_producer,
                                                       const char *type,
                                                       EventProducerNotifyCallback notify,
                                                       gpointer user_data, GList *list) noexcept {
  OwnedDeclaration declaration;
  OwnedParams params;
  OwnedError error;
  event_producer_int_register_list(type, list, out_of(declaration), out_of(params), out_of(error));
  if (!type)
    return 0;
  if (declaration) {
    VARRO2_ASSERT(error == NULL);
    const guint32 local_declare_id =
        event_producer_int_get_decl_id(event_producer, declaration.get(), out_of(error));
    declare_registered(event_producer, *declaration, params.get(), local_declare_id, NULL, notify,
                       user_data);
    if (local_declare_id != 0)
      return local_declare_id;
  }
  VARRO2_ASSERT(error != NULL);
  VARRO2_WARNING("%sError when registering event: %s", error->message);
  return 0;
}

guint32 event_producer_register_and_notify_list(EventProducer *event_producer, const char *type,
                                                EventProducerNotifyCallback notify,
                                                gpointer user_data, GList *list) noexcept {
  const OwnedRegisterList texts{event_producer_int_convert_to_string_list(list)};
  return event_producer_register_and_notify_string_list(event_producer, type, notify, user_data,
                                                        texts.get());
}

guint32 event_producer_register_list(EventProducer *event_producer, const char *type,
                                     GList *list) noexcept {
  return event_producer_register_and_notify_list(event_producer, type, NULL, NULL, list);
}

guint32 event_producer_register_and_notify(EventProducer *event_producer, const char *type,
                                           EventProducerNotifyCallback notify, gpointer user_data,
                                           ...) noexcept {
  va_list arguments;
  va_start(arguments, user_data);
  const OwnedRegisterList texts{event_producer_int_parse_register_valist(arguments)};
  va_end(arguments);
  return event_producer_register_and_notify_string_list(event_producer, type, notify, user_data,
                                                        texts.get());
}

guint32 event_producer_register(EventProducer *event_producer, const char *type, ...) noexcept {
  va_list arguments;
  va_start(arguments, type);
  const OwnedRegisterList texts{event_producer_int_parse_register_valist(arguments)};
  va_end(arguments);
  return event_producer_register_and_notify_string_list(event_producer, type, NULL, NULL,
                                                        texts.get());
}
