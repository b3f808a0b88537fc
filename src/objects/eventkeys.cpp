// The event's keys and tags, as its container has them.
#include "event.hpp"

#include "preconditions.hpp"

/* ---- By key ---- */

gboolean event_set_value(Event *event, const char *key, const void *value) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  return inspectable_set_value(&event->inspectable, key, value);
}

const char *event_get_value(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  return inspectable_get_value(&event->inspectable, key);
}

gboolean event_get_typed_value(const Event *event, const char *key, void *data) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(data != NULL, FALSE);
  const guint32 position = inspectable_get_index(&event->inspectable, key);
  if (position == INSPECTABLE_NO_INDEX)
    return FALSE;
  return inspectable_get_typed_value_at(&event->inspectable, position, data);
}

const char *event_get_name_space(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  return inspectable_get_name_space(&event->inspectable, key);
}

const char *event_get_complex_type_name(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  return inspectable_get_complex_type_name(&event->inspectable, key);
}

const char *event_get_value_user_string(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  return inspectable_get_value_user_string(&event->inspectable, key);
}

const char *event_get_key_nice_name(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  return inspectable_get_key_nice_name(&event->inspectable, key);
}

const char *event_get_value_nice_name(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  return inspectable_get_value_nice_name(&event->inspectable, key);
}

guint32 event_get_index(const Event *event, const char *key) noexcept {
  VARRO2_EXPECT(event != NULL, INSPECTABLE_NO_INDEX);
  VARRO2_EXPECT(key != NULL, INSPECTABLE_NO_INDEX);
  return inspectable_get_index(&event->inspectable, key);
}

/* ---- By position ---- */

guint32 event_get_key_count(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, 0);
  return inspectable_get_key_count(&event->inspectable);
}

const char *event_get_key_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return inspectable_get_key_at(&event->inspectable, position);
}

const char *event_get_name_space_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return inspectable_get_name_space_at(&event->inspectable, position);
}

const char *event_get_complex_type_name_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return inspectable_get_complex_type_name_at(&event->inspectable, position);
}

const char *event_get_value_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return inspectable_get_value_at(&event->inspectable, position);
}

guint32 event_get_type_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, 0);
  return inspectable_get_type_at(&event->inspectable, position);
}

gboolean event_get_typed_value_at(const Event *event, guint32 position, void *data) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(data != NULL, FALSE);
  return inspectable_get_typed_value_at(&event->inspectable, position, data);
}

gboolean event_has_value_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  return inspectable_has_value_at(&event->inspectable, position);
}

/* ---- Tags ---- */

GList *event_get_tags(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return inspectable_get_tags(&event->inspectable);
}

GList *event_get_tags_at(const Event *event, guint32 position) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return inspectable_get_tags_at(&event->inspectable, position);
}

gboolean event_has_tag(const Event *event, const char *tag) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(tag != NULL, FALSE);
  return inspectable_has_tag(&event->inspectable, tag);
}

gboolean event_has_tag_at(const Event *event, guint32 position, const char *tag) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(tag != NULL, FALSE);
  return inspectable_has_tag_at(&event->inspectable, position, tag);
}

gboolean event_add_tag(Event *event, const char *tag) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(tag != NULL, FALSE);
  return inspectable_add_tag(&event->inspectable, tag);
}

gboolean event_add_key_tag(Event *event, const char *key, const char *tag) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(tag != NULL, FALSE);
  return inspectable_add_key_tag(&event->inspectable, key, tag);
}
