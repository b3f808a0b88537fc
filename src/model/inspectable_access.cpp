// Reading a container by key and by position.
#include "inspectable.hpp"

#include <varro2/eventutils.h>

using varro2::Pair;

namespace {

const char *text_of(const Pair *pair, char *KeyValue::*member) noexcept {
  return pair != nullptr ? pair->*member : nullptr;
}

const char *key_of(const Pair *pair) noexcept {
  return pair != nullptr ? g_quark_to_string(pair->key) : nullptr;
}

// Numbers are read like the rest of the system writes them, whatever the locale.
double number_of(const Pair &pair) noexcept {
  return g_ascii_strtod(pair.value, nullptr);
}

// Truncated towards zero; what no 32-bit integer can hold becomes the nearest one, no number 0.
gint32 truncated(double number) noexcept {
  if (!(number == number))
    return 0;
  if (number <= G_MININT32)
    return G_MININT32;
  if (number >= G_MAXINT32)
    return G_MAXINT32;
  return static_cast<gint32>(number);
}

} // namespace

// ---- By key ----

KeyValue *inspectable_get_key_value(const Inspectable *inspect, const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  return const_cast<Pair *>(inspect->lend(key));
}

const char *inspectable_get_value(const Inspectable *inspect, const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  return text_of(inspect->find(key), &KeyValue::value);
}

const char *inspectable_get_name_space(const Inspectable *inspect, const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  return text_of(inspect->find(key), &KeyValue::name_space);
}

const char *inspectable_get_complex_type_name(const Inspectable *inspect,
                                              const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  return text_of(inspect->find(key), &KeyValue::complex_type_name);
}

const char *inspectable_get_value_user_string(const Inspectable *inspect,
                                              const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  return text_of(inspect->find(key), &KeyValue::value_user_string);
}

const char *inspectable_get_key_nice_name(const Inspectable *inspect, const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT);
  return text_of(inspect->find(key), &KeyValue::key_nice_name);
}

const char *inspectable_get_value_nice_name(const Inspectable *inspect, const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT);
  return text_of(inspect->find(key), &KeyValue::value_nice_name);
}

// ---- The object's own ----

gboolean inspectable_get_internal(const Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  return inspect->internal;
}

GList *inspectable_get_tags(const Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  return varro2::copy_tags_reversed(inspect->tags());
}

gboolean inspectable_has_tag(const Inspectable *inspect, const char *tag) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(tag != NULL);
  return varro2::has_tag(inspect->tags(), tag);
}

// ---- By position ----

guint32 inspectable_get_key_count(const Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  return inspect->key_count();
}

const char *inspectable_get_key_at(const Inspectable *inspect, guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  return key_of(inspect->at(position));
}

const char *inspectable_get_value_at(const Inspectable *inspect, guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  return text_of(inspect->at(position), &KeyValue::value);
}

const char *inspectable_get_name_space_at(const Inspectable *inspect, guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  return text_of(inspect->at(position), &KeyValue::name_space);
}

const char *inspectable_get_complex_type_name_at(const Inspectable *inspect,
                                                 guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  return text_of(inspect->at(position), &KeyValue::complex_type_name);
}

GList *inspectable_get_tags_at(const Inspectable *inspect, guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  const Pair *pair = inspect->at(position);
  return pair != nullptr ? varro2::copy_tags_reversed(pair->tags) : nullptr;
}

gboolean inspectable_has_tag_at(const Inspectable *inspect, guint32 position,
                                const char *tag) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(tag != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE);
  const Pair *pair = inspect->at(position);
  return pair != nullptr && varro2::has_tag(pair->tags, tag);
}

gboolean inspectable_has_keyvalue_with_tag(const Inspectable *inspect, const char *tag) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(tag != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE ||
                inspect->type == IT_EVENT_DECLARATION);
  for (guint32 position = 0; position < inspect->key_count(); ++position)
    if (varro2::has_tag(inspect->at(position)->tags, tag))
      return TRUE;
  return FALSE;
}

guint32 inspectable_get_index(const Inspectable *inspect, const char *key) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(key != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT);
  return inspect->position_of(key);
}

gboolean inspectable_has_value_at(const Inspectable *inspect, guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT);
  const Pair *pair = inspect->at(position);
  return pair != nullptr && (!pair->value_settable || !pair->value_wildcard);
}

guint32 inspectable_get_type_at(const Inspectable *inspect, guint32 position) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT);
  const Pair *pair = inspect->at(position);
  if (pair == nullptr)
    return 0;
  const guint32 value_type = pair->value_type;
  VARRO2_ASSERT(value_type >= VALUE_TYPE_INT && value_type <= VALUE_TYPE_STRING);
  return value_type;
}

gboolean inspectable_get_typed_value_at(const Inspectable *inspect, guint32 position,
                                        gpointer out) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(inspect->type == IT_EVENT);
  VARRO2_ASSERT(out != NULL);
  const Pair *pair = inspect->at(position);
  if (pair == nullptr)
    return FALSE;
  switch (pair->value_type) {
  case VALUE_TYPE_INT:
    *static_cast<gint32 *>(out) = truncated(number_of(*pair));
    return TRUE;
  case VALUE_TYPE_BOOL:
    VARRO2_ASSERT_AS("inspectable_get_typed_value_at", "FALSE",
                     std::strcmp(pair->value, "0") == 0 || std::strcmp(pair->value, "1") == 0);
    *static_cast<gboolean *>(out) = *pair->value == '1';
    return TRUE;
  case VALUE_TYPE_DOUBLE:
    *static_cast<double *>(out) = number_of(*pair);
    return TRUE;
  case VALUE_TYPE_STRING:
    *static_cast<const char **>(out) = pair->value;
    return TRUE;
  default:
    VARRO2_ASSERT(FALSE);
    return FALSE;
  }
}
