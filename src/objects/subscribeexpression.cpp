#include "subscribeexpression.hpp"

#include "preconditions.hpp"
#include "xmlform.hpp"

#include <varro2/eventutils.h>

#include <utility>

namespace {

constexpr const char *element_name = "subscribe";

// Key or value may be NULL: the test is then one of any key or any value.
gboolean add_test(SubscribeExpression &se, const char *key, const char *value, gboolean negated) {
  return inspectable_add_key_value(&se.inspectable, key, key == nullptr, value, value == nullptr,
                                   negated);
}

// What is read ends at the first NUL, as it does for everybody who is lent the text.
std::string read_text(varro2::Reader &reader) {
  const std::string_view text = reader.text();
  return std::string{text.substr(0, text.find('\0'))};
}

} // namespace

SubscribeExpression SubscribeExpression::read(varro2::Reader &reader) {
  const guint8 type = reader.u8();
  VARRO2_ASSERT_AS("subscribe_expression_deserialize_internal",
                   "type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION",
                   type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
  return SubscribeExpression{.id = reader.u32(),
                             .dbus_service = read_text(reader),
                             .dbus_object = read_text(reader),
                             .consumer_token = reader.u32(),
                             .clandestine = reader.u8(),
                             .inspectable = Inspectable::read(reader)};
}

// ---- Life and fields

SubscribeExpression *subscribe_expression_new() noexcept {
  return new SubscribeExpression;
}

SubscribeExpression *subscribe_expression_new_full(gboolean clandestine) noexcept {
  return new SubscribeExpression{.clandestine = clandestine};
}

void subscribe_expression_free(SubscribeExpression *se) noexcept {
  delete se;
}

SubscribeExpression *subscribe_expression_copy(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return new SubscribeExpression{*se};
}

void subscribe_expression_set_id(SubscribeExpression *se, guint32 id) noexcept {
  VARRO2_EXPECT(se != NULL);
  se->id = id;
}

guint32 subscribe_expression_get_id(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, 0);
  return se->id;
}

void subscribe_expression_set_consumer_token(SubscribeExpression *se,
                                             guint32 consumer_token) noexcept {
  VARRO2_EXPECT(se != NULL);
  se->consumer_token = consumer_token;
}

guint32 subscribe_expression_get_consumer_token(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, 0);
  return se->consumer_token;
}

void subscribe_expression_set_dbus_service(SubscribeExpression *se,
                                           const char *dbus_service) noexcept {
  VARRO2_EXPECT(se != NULL);
  VARRO2_EXPECT(dbus_service != NULL);
  se->dbus_service = dbus_service;
}

const char *subscribe_expression_get_dbus_service(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return se->dbus_service.c_str();
}

void subscribe_expression_set_dbus_object(SubscribeExpression *se,
                                          const char *dbus_object) noexcept {
  VARRO2_EXPECT(se != NULL);
  VARRO2_EXPECT(dbus_object != NULL);
  se->dbus_object = dbus_object;
}

const char *subscribe_expression_get_dbus_object(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return se->dbus_object.c_str();
}

gboolean subscribe_expression_get_clandestine(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  return se->clandestine;
}

// ---- Tests

Inspectable *subscribe_expression_get_inspectable(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return const_cast<Inspectable *>(&se->inspectable);
}

GList *subscribe_expression_get_raw(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return inspectable_get_raw(&se->inspectable);
}

void subscribe_expression_free_raw(GList *raw) noexcept {
  inspectable_free_raw(raw);
}

gboolean subscribe_expression_add_key_value(SubscribeExpression *se, const char *key,
                                            const char *value) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  return add_test(*se, key, value, FALSE);
}

gboolean subscribe_expression_add_key_not_value(SubscribeExpression *se, const char *key,
                                                const char *value) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  return add_test(*se, key, value, TRUE);
}

gboolean subscribe_expression_add_key(SubscribeExpression *se, const char *key) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return add_test(*se, key, nullptr, FALSE);
}

gboolean subscribe_expression_add_not_key(SubscribeExpression *se, const char *key) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return add_test(*se, key, nullptr, TRUE);
}

gboolean subscribe_expression_add_value(SubscribeExpression *se, const char *value) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  return add_test(*se, nullptr, value, FALSE);
}

gboolean subscribe_expression_add_not_value(SubscribeExpression *se, const char *value) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(value != NULL, FALSE);
  return add_test(*se, nullptr, value, TRUE);
}

gboolean subscribe_expression_set_name_space(SubscribeExpression *se, const char *key,
                                             const char *name_space) noexcept {
  VARRO2_EXPECT(se != NULL, FALSE);
  VARRO2_EXPECT(key != NULL, FALSE);
  return inspectable_set_name_space(&se->inspectable, key, name_space);
}

void subscribe_expression_or(SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL);
  const gboolean result = inspectable_or(&se->inspectable);
  VARRO2_ASSERT(result == TRUE);
}

// ---- Binary form

GByteArray *subscribe_expression_serialize(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return varro2::new_record(*se).release();
}

void subscribe_expression_serialize_internal(const SubscribeExpression *se,
                                             GByteArray *array) noexcept {
  VARRO2_ASSERT(se != NULL);
  VARRO2_ASSERT(array != NULL);
  varro2::append_record(array, *se);
}

SubscribeExpression *subscribe_expression_deserialize(const GByteArray *array) noexcept {
  VARRO2_EXPECT(array != NULL, nullptr);
  guint32 indx = 0;
  return subscribe_expression_deserialize_internal(array, &indx);
}

SubscribeExpression *subscribe_expression_deserialize_internal(const GByteArray *array,
                                                               guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  varro2::Reader reader{array, indx};
  return new SubscribeExpression{SubscribeExpression::read(reader)};
}

// ---- XML form

XmlNode *subscribe_expression_serialize_xmlnode(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  return varro2::write_element(se->inspectable, element_name).release();
}

char *subscribe_expression_serialize_xml(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL, nullptr);
  const auto node = varro2::write_element(se->inspectable, element_name);
  return xmlnode_get_xml_escape_newline(node.get());
}

SubscribeExpression *subscribe_expression_deserialize_xml(const char *xml) noexcept {
  VARRO2_EXPECT(xml != NULL, nullptr);
  return static_cast<SubscribeExpression *>(
      event_utils_deserialize_xml(xml, IT_SUBSCRIBE_EXPRESSION));
}

SubscribeExpression *subscribe_expression_deserialize_xmlnode(const XmlNode *node) noexcept {
  VARRO2_EXPECT(node != NULL, nullptr);
  auto content = varro2::read_element(*node, element_name, IT_SUBSCRIBE_EXPRESSION);
  if (!content)
    return nullptr;
  return new SubscribeExpression{.inspectable = std::move(*content)};
}

// ---- Print

void subscribe_expression_print(const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(se != NULL);
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "---- Subscribe Expression (id:%3d) ----",
        static_cast<gint>(se->id));
  inspectable_print(&se->inspectable);
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "DBus Service: %s", se->dbus_service.c_str());
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "DBus Object: %s", se->dbus_object.c_str());
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "Consumer Token: %d", static_cast<gint>(se->consumer_token));
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "Clandestine: %s", se->clandestine ? "true" : "false");
  g_log(nullptr, G_LOG_LEVEL_MESSAGE, "---------------------------------------");
}
