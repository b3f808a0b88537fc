#include "propertystate.hpp"

#include "eventdeclaration.hpp"
#include "log.hpp"
#include "preconditions.hpp"
#include "xmlform.hpp"

#include <varro2/eventutils.h>

#include <utility>

using varro2::property_state_tag;

namespace {

constexpr const char *element_name = "property";

// The state key must be there, with any other value. Its name space goes to the first test on the
// key, which is the one that it is there.
void add_inverted_state_key(SubscribeExpression &se, const char *key, const char *value) {
  subscribe_expression_add_key(&se, key);
  subscribe_expression_add_key_not_value(&se, key, value);
}

std::unique_ptr<SubscribeExpression> make_expression(const Inspectable &inspectable,
                                                     bool inverted) {
  auto se = std::make_unique<SubscribeExpression>();
  const guint32 count = inspectable_get_key_count(&inspectable);
  for (guint32 i = 0; i < count; ++i) {
    const char *key = inspectable_get_key_at(&inspectable, i);
    const char *value = inspectable_get_value_at(&inspectable, i);
    if (inverted && inspectable_has_tag_at(&inspectable, i, property_state_tag))
      add_inverted_state_key(*se, key, value);
    else
      subscribe_expression_add_key_value(se.get(), key, value);
    subscribe_expression_set_name_space(se.get(), key,
                                        inspectable_get_name_space_at(&inspectable, i));
  }
  return se;
}

void property_state_generate_subscribe_expressions(PropertyState *prop) {
  VARRO2_ASSERT(!prop->locked);
  prop->subscribe_expression = make_expression(prop->inspectable, false);
  prop->inverted_subscribe_expression = make_expression(prop->inspectable, true);
  prop->locked = TRUE;
}

// Nothing can be added to what was read: its expressions are made at once.
std::unique_ptr<PropertyState> make_locked(Inspectable inspectable) {
  auto property_state = std::make_unique<PropertyState>();
  property_state->inspectable = std::move(inspectable);
  property_state_generate_subscribe_expressions(property_state.get());
  return property_state;
}

gint count_state_keys(const Inspectable &inspectable) {
  gint found = 0;
  const guint32 count = inspectable_get_key_count(&inspectable);
  for (guint32 i = 0; i < count; ++i)
    found += inspectable_has_tag_at(&inspectable, i, property_state_tag) ? 1 : 0;
  return found;
}

} // namespace

// ---- Life and keys

PropertyState *property_state_new() noexcept {
  return new PropertyState;
}

void property_state_free(PropertyState *prop) noexcept {
  delete prop;
}

gboolean property_state_add_key_value(PropertyState *self, const char *key, const char *value,
                                      gboolean property_state) noexcept {
  VARRO2_EXPECT(self != NULL, FALSE);
  VARRO2_EXPECT(!self->locked, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  Inspectable *inspectable = &self->inspectable;
  if (inspectable_get_value(inspectable, key))
    return FALSE;
  if (property_state && inspectable_has_keyvalue_with_tag(inspectable, property_state_tag))
    return FALSE;
  if (!inspectable_add_key_value(inspectable, key, FALSE, value, FALSE, FALSE))
    return FALSE;
  return property_state ? inspectable_add_key_tag(inspectable, key, property_state_tag) : TRUE;
}

gboolean property_state_set_name_space(PropertyState *self, const char *key,
                                       const char *name_space) noexcept {
  VARRO2_EXPECT(self != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return inspectable_set_name_space(&self->inspectable, key, name_space);
}

Inspectable *property_state_get_inspectable(const PropertyState *prop) noexcept {
  VARRO2_EXPECT(prop != NULL, nullptr);
  return const_cast<Inspectable *>(&prop->inspectable);
}

// ---- Expressions

SubscribeExpression *property_state_get_subscribe_expression(PropertyState *self) noexcept {
  VARRO2_EXPECT(self != NULL, nullptr);
  if (!self->locked)
    property_state_generate_subscribe_expressions(self);
  return self->subscribe_expression.get();
}

SubscribeExpression *
property_state_get_inverted_subscribe_expression(PropertyState *self) noexcept {
  VARRO2_EXPECT(self != NULL, nullptr);
  if (!self->locked)
    property_state_generate_subscribe_expressions(self);
  return self->inverted_subscribe_expression.get();
}

SubscribeExpression *property_state_to_subscribe_expression(const PropertyState *prop,
                                                            gboolean inverted) noexcept {
  VARRO2_EXPECT(prop != NULL, nullptr);
  return make_expression(prop->inspectable, inverted).release();
}

// ---- Binary form

GByteArray *property_state_serialize(const PropertyState *prop) noexcept {
  VARRO2_EXPECT(prop != NULL, nullptr);
  return varro2::new_record(*prop).release();
}

void property_state_serialize_internal(const PropertyState *prop, GByteArray *array) noexcept {
  VARRO2_ASSERT(prop != NULL);
  VARRO2_ASSERT(array != NULL);
  varro2::append_record(array, *prop);
}

PropertyState *property_state_deserialize(const GByteArray *array) noexcept {
  VARRO2_EXPECT(array != NULL, nullptr);
  guint32 indx = 0;
  return property_state_deserialize_internal(array, &indx);
}

PropertyState *property_state_deserialize_internal(const GByteArray *array,
                                                   guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  varro2::Reader reader{array, indx};
  const guint8 type = reader.u8();
  VARRO2_ASSERT(type == SERIALIZE_ID_PROPERTY_STATE);
  auto property_state = make_locked(Inspectable::read(reader));
  VARRO2_ASSERT(property_state->locked);
  return property_state.release();
}

// ---- XML form

XmlNode *property_state_serialize_xmlnode(const PropertyState *prop) noexcept {
  VARRO2_EXPECT(prop != NULL, nullptr);
  return varro2::write_element(prop->inspectable, element_name).release();
}

char *property_state_serialize_xml(const PropertyState *prop) noexcept {
  VARRO2_EXPECT(prop != NULL, nullptr);
  const auto node = varro2::write_element(prop->inspectable, element_name);
  return xmlnode_get_xml(node.get());
}

PropertyState *property_state_deserialize_xml(const char *xml) noexcept {
  VARRO2_EXPECT(xml != NULL, nullptr);
  return static_cast<PropertyState *>(event_utils_deserialize_xml(xml, IT_PROPERTY_STATE));
}

PropertyState *property_state_deserialize_xmlnode(const XmlNode *node) noexcept {
  VARRO2_EXPECT(node != NULL, nullptr);
  auto content = varro2::read_element(*node, element_name, IT_PROPERTY_STATE);
  if (!content)
    return nullptr;
  if (const gint count = count_state_keys(*content); count != 1) {
    VARRO2_WARNING("%sExpected to find 1 keyvalue tagged with '%s' but found %d",
                   property_state_tag, count);
    return nullptr;
  }
  return make_locked(std::move(*content)).release();
}

// ---- Print

void property_state_print(const PropertyState *prop) noexcept {
  VARRO2_EXPECT(prop != NULL);
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "----------- Property State ------------");
  inspectable_print(&prop->inspectable);
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "---------------------------------------");
}
