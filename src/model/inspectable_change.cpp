// Making, adding to and changing a container.
#include "eventutils.hpp"
#include "inspectable.hpp"
#include "log.hpp"

#include <string>

using varro2::Pair;
using varro2::Text;
using varro2::view_of;

Inspectable *inspectable_new(guint32 type) noexcept {
  VARRO2_ASSERT(type <= IT_PROPERTY_STATE);
  return new Inspectable{type};
}

void inspectable_free(Inspectable *inspect) noexcept {
  delete inspect;
}

Inspectable *inspectable_copy(const Inspectable *source, guint32 new_type) noexcept {
  VARRO2_ASSERT(source != NULL);
  VARRO2_ASSERT(new_type <= IT_PROPERTY_STATE);
  varro2::Room room = source->room_for_copy();
  return new (room) Inspectable{*source, new_type, room};
}

gboolean inspectable_or(Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  if (inspect->type != IT_SUBSCRIBE_EXPRESSION) {
    VARRO2_WARNING("%sOnly subscribe expressions support the OR statement.");
    return FALSE;
  }
  inspect->add_and_list();
  return TRUE;
}

gboolean inspectable_add_key_value(Inspectable *inspect, const char *key, gboolean key_wildcard,
                                   const char *value, gboolean value_wildcard,
                                   gboolean negated) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type <= IT_PROPERTY_STATE);
  VARRO2_ASSERT(key != NULL || key_wildcard == TRUE);
  VARRO2_ASSERT(value != NULL || value_wildcard == TRUE);
  VARRO2_ASSERT(key_wildcard == FALSE || value_wildcard == FALSE);
  if (inspect->type != IT_SUBSCRIBE_EXPRESSION)
    VARRO2_ASSERT(key_wildcard == FALSE);
  if (inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE)
    VARRO2_ASSERT(inspectable_get_value(inspect, key) == NULL);
  varro2::PairFields fields;
  varro2::set_fields(fields, view_of(key), key != nullptr, key_wildcard, view_of(value),
                     value_wildcard, negated);
  inspect->add(fields);
  return TRUE;
}

gboolean inspectable_set_value(Inspectable *inspect, const char *key,
                               gconstpointer value) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_EVENT_DECLARATION);
  VARRO2_ASSERT(value != NULL);
  Pair *pair = inspect->find(key);
  if (pair == nullptr || !pair->value_settable)
    return FALSE;
  const varro2::ValueText text{value, pair->value_type};
  if (text.c_str() == nullptr)
    return FALSE;
  inspect->set_value(*pair, text.c_str());
  return TRUE;
}

gboolean inspectable_set_value_as_string(Inspectable *inspect, const char *key,
                                         const char *value) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_EVENT_DECLARATION);
  VARRO2_ASSERT(value != NULL);
  Pair *pair = inspect->find(key);
  if (pair == nullptr || !pair->value_settable)
    return FALSE;
  inspect->set_value(*pair, value);
  return TRUE;
}

namespace {

gboolean set_text(Inspectable &inspect, const char *key, Text which, const char *text) {
  Pair *pair = inspect.find(key);
  if (pair == nullptr)
    return FALSE;
  inspect.set_text(*pair, which, view_of(text));
  return TRUE;
}

} // namespace

gboolean inspectable_set_value_user_string(Inspectable *inspect, const char *key,
                                           const char *user_string) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION);
  return set_text(*inspect, key, varro2::text_value_user_string, user_string);
}

gboolean inspectable_set_nice_names(Inspectable *inspect, const char *key,
                                    const char *key_nice_name,
                                    const char *value_nice_name) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION);
  Pair *pair = inspect->find(key);
  if (pair == nullptr)
    return FALSE;
  // The names may change places.
  const std::string second = varro2::text_or_empty(value_nice_name);
  if (key_nice_name != nullptr)
    inspect->set_text(*pair, varro2::text_key_nice_name, key_nice_name);
  if (value_nice_name != nullptr)
    inspect->set_text(*pair, varro2::text_value_nice_name, second);
  return TRUE;
}

gboolean inspectable_set_name_space(Inspectable *inspect, const char *key,
                                    const char *name_space) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_SUBSCRIBE_EXPRESSION ||
                inspect->type == IT_PROPERTY_STATE);
  return set_text(*inspect, key, varro2::text_name_space, name_space);
}

gboolean inspectable_set_complex_type_name(Inspectable *inspect, const char *key,
                                           const char *name) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_SUBSCRIBE_EXPRESSION ||
                inspect->type == IT_PROPERTY_STATE);
  return set_text(*inspect, key, varro2::text_complex_type_name, name);
}

gboolean inspectable_set_value_type(Inspectable *inspect, const char *key,
                                    guint32 value_type) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION);
  VARRO2_ASSERT(value_type >= VALUE_TYPE_INT && value_type <= VALUE_TYPE_STRING);
  Pair *key_value = inspect->find(key);
  VARRO2_ASSERT(key_value != NULL);
  key_value->value_type = value_type;
  return TRUE;
}

gboolean inspectable_set_internal(Inspectable *inspect, gboolean internal) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  inspect->internal = internal;
  return TRUE;
}

gboolean inspectable_add_key_tag(Inspectable *inspect, const char *key, const char *tag) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(tag != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_PROPERTY_STATE ||
                inspect->type == IT_EVENT);
  Pair *pair = inspect->find(key);
  if (pair == nullptr)
    return FALSE;
  inspect->add_key_tag(*pair, tag);
  return TRUE;
}

gboolean inspectable_add_tag(Inspectable *inspect, const char *tag) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(tag != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT);
  inspect->add_tag(tag);
  return TRUE;
}
