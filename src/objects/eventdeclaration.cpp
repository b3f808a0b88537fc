#include "eventdeclaration.hpp"

#include "event.hpp"
#include "eventutils.hpp"
#include "preconditions.hpp"
#include "subscribeexpression.hpp"

#include <memory>

namespace {

// The key is open when there is no value; one that has a value can still be set to another.
gboolean add_key(EventDeclaration &declaration, const char *key, const char *value,
                 guint32 value_type) {
  if (!varro2::is_value_type(value_type)) {
    g_log(nullptr, G_LOG_LEVEL_CRITICAL, "Invalid ValueType: %d", static_cast<gint>(value_type));
    return FALSE;
  }
  varro2::PairFields fields;
  varro2::set_fields(fields, key, true, FALSE, {}, TRUE, FALSE);
  fields.value_type = value_type;
  if (value != nullptr) {
    fields.texts[varro2::text_value] = value;
    fields.value_wildcard = FALSE;
  }
  declaration.inspectable.add(fields);
  return TRUE;
}

} // namespace

/* ---- Life ---- */

EventDeclaration *event_declaration_new(gboolean internal) noexcept {
  auto *declaration = new EventDeclaration;
  declaration->inspectable.internal = internal;
  return declaration;
}

void event_declaration_free(EventDeclaration *declaration) noexcept {
  delete declaration;
}

EventDeclaration *event_declaration_copy(const EventDeclaration *declaration_src) noexcept {
  VARRO2_EXPECT(declaration_src != NULL, nullptr);
  return new EventDeclaration{*declaration_src};
}

/* ---- Content ---- */

Inspectable *event_declaration_get_inspectable(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, nullptr);
  return const_cast<Inspectable *>(&declaration->inspectable);
}

gboolean event_declaration_add_key(EventDeclaration *declaration, const char *key,
                                   guint32 value_type) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return add_key(*declaration, key, nullptr, value_type);
}

gboolean event_declaration_add_key_value(EventDeclaration *declaration, const char *key,
                                         const void *value, guint32 value_type) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  const varro2::ValueText text{value, value_type};
  return add_key(*declaration, key, varro2::text_or_empty(text.c_str()), value_type);
}

gboolean event_declaration_set_value_user_string(EventDeclaration *declaration, const char *key,
                                                 const char *string) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(string != NULL, FALSE);
  return inspectable_set_value_user_string(&declaration->inspectable, key, string);
}

gboolean event_declaration_set_nice_names(EventDeclaration *declaration, const char *key,
                                          const char *key_nice_name,
                                          const char *value_nice_name) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return inspectable_set_nice_names(&declaration->inspectable, key, key_nice_name, value_nice_name);
}

gboolean event_declaration_set_name_space(EventDeclaration *declaration, const char *key,
                                          const char *name_space) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return inspectable_set_name_space(&declaration->inspectable, key, name_space);
}

gboolean event_declaration_set_complex_type_name(EventDeclaration *declaration, const char *key,
                                                 const char *name) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return inspectable_set_complex_type_name(&declaration->inspectable, key, name);
}

gboolean event_declaration_add_key_tag(EventDeclaration *declaration, const char *key,
                                       const char *tag) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(tag != NULL, FALSE);
  return inspectable_add_key_tag(&declaration->inspectable, key, tag);
}

gboolean event_declaration_add_tag(EventDeclaration *declaration, const char *tag) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(tag != NULL, FALSE);
  return inspectable_add_tag(&declaration->inspectable, tag);
}

void event_declaration_set_local_id(EventDeclaration *declaration, guint32 local_id) noexcept {
  VARRO2_EXPECT(declaration != NULL);
  declaration->local_id = local_id;
}

guint32 event_declaration_get_local_id(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, 0);
  return declaration->local_id;
}

void event_declaration_set_global_id(EventDeclaration *declaration, guint32 global_id) noexcept {
  VARRO2_EXPECT(declaration != NULL);
  declaration->global_id = global_id;
}

guint32 event_declaration_get_global_id(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, 0);
  return declaration->global_id;
}

void event_declaration_set_producer_id(EventDeclaration *declaration,
                                       guint32 producer_id) noexcept {
  VARRO2_EXPECT(declaration != NULL);
  declaration->producer_id = producer_id;
}

guint32 event_declaration_get_producer_id(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, 0);
  return declaration->producer_id;
}

gboolean event_declaration_is_internal(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  return inspectable_get_internal(&declaration->inspectable);
}

/* ---- Properties ---- */

gboolean event_declaration_set_property(EventDeclaration *declaration, const char *key,
                                        EventDeclarationPropertyCallback callback,
                                        gpointer user_data) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  declaration->property_callback = callback;
  declaration->property_user_data = user_data;
  declaration->property = TRUE;
  return key ? inspectable_add_key_tag(&declaration->inspectable, key, varro2::property_state_tag)
             : TRUE;
}

gboolean event_declaration_is_property(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  return declaration->property;
}

Event *event_declaration_get_property_event(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, nullptr);
  if (!declaration->property)
    return nullptr;

  std::unique_ptr<Event> event{event_declaration_generate_event(declaration)};
  // The callback may free the declaration: from here on it is not looked at.
  if (declaration->property_callback)
    declaration->property_callback(event.get(), declaration->property_user_data);
  varro2::stamp_now_if_unset(*event);
  return event_is_complete(event.get()) ? event.release() : nullptr;
}

/* ---- Events and matching ---- */

Event *event_declaration_generate_event(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, nullptr);
  varro2::Room room = declaration->inspectable.room_for_copy();
  return new (room) Event{.inspectable = Inspectable{declaration->inspectable, IT_EVENT, room},
                          .global_id = declaration->global_id,
                          .local_id = declaration->local_id,
                          .producer_id = declaration->producer_id,
                          .property = declaration->property};
}

gboolean event_declaration_contains(const EventDeclaration *declaration,
                                    const SubscribeExpression *subscribe_expression) noexcept {
  VARRO2_EXPECT(declaration != NULL, FALSE);
  VARRO2_EXPECT(subscribe_expression != NULL, FALSE);
  return inspectable_contains(&declaration->inspectable, &subscribe_expression->inspectable);
}
