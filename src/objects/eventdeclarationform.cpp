// A declaration's external forms: record, XML, files of types, log.
#include "eventdeclaration.hpp"

#include "preconditions.hpp"
#include "xmlform.hpp"
#include "xmlnode.hpp"

#include <varro2/eventutils.h>

#include <cstring>
#include <utility>

namespace {

constexpr const char *element_name = "declare";
constexpr const char *internal_attribute = "internal";

varro2::XmlTree write_declaration(const EventDeclaration &declaration) {
  auto node = varro2::write_element(declaration.inspectable, element_name);
  xml_set_boolean(node.get(), internal_attribute, declaration.inspectable.internal);
  return node;
}

// What leads out of the folders, or to a hidden file, is no type.
bool is_type_name(const char *type) noexcept {
  return *type != '\0' && *type != '.' && std::strchr(type, '/') == nullptr;
}

} // namespace

constinit std::array<const char *, 2> varro2::declaration_folders{
    "//usr/share/event/declarations.d", "//etc/event_switch/declarations.d"};

EventDeclaration EventDeclaration::read(varro2::Reader &reader) {
  const guint8 type = reader.u8();
  VARRO2_ASSERT_AS("event_declaration_deserialize_internal",
                   "type == SERIALIZE_ID_EVENT_DECLARATION",
                   type == SERIALIZE_ID_EVENT_DECLARATION);
  return EventDeclaration{.producer_id = reader.u32(),
                          .local_id = reader.u32(),
                          .global_id = reader.u32(),
                          .property = reader.u8(),
                          .property_callback =
                              reinterpret_cast<EventDeclarationPropertyCallback>(reader.pointer()),
                          .property_user_data = reader.pointer(),
                          .inspectable = Inspectable::read(reader)};
}

/* ---- Record ---- */

GByteArray *event_declaration_serialize(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, nullptr);
  return varro2::new_record(*declaration).release();
}

void event_declaration_serialize_internal(const EventDeclaration *declaration,
                                          GByteArray *array) noexcept {
  VARRO2_ASSERT(declaration != NULL);
  VARRO2_ASSERT(array != NULL);
  varro2::append_record(array, *declaration);
}

EventDeclaration *event_declaration_deserialize(const GByteArray *array) noexcept {
  VARRO2_EXPECT(array != NULL, nullptr);
  guint32 indx = 0;
  return event_declaration_deserialize_internal(array, &indx);
}

EventDeclaration *event_declaration_deserialize_internal(const GByteArray *array,
                                                         guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  varro2::Reader reader{array, indx};
  return new EventDeclaration(EventDeclaration::read(reader));
}

/* ---- XML ---- */

XmlNode *event_declaration_serialize_xmlnode(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, nullptr);
  return write_declaration(*declaration).release();
}

char *event_declaration_serialize_xml(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL, nullptr);
  const auto node = write_declaration(*declaration);
  return xmlnode_get_xml(node.get());
}

EventDeclaration *event_declaration_deserialize_xml(const char *xml) noexcept {
  VARRO2_EXPECT(xml != NULL, nullptr);
  return static_cast<EventDeclaration *>(event_utils_deserialize_xml(xml, IT_EVENT_DECLARATION));
}

EventDeclaration *event_declaration_deserialize_xmlnode(const XmlNode *node) noexcept {
  VARRO2_EXPECT(node != NULL, nullptr);
  auto content = varro2::read_element(*node, element_name, IT_EVENT_DECLARATION);
  if (!content)
    return nullptr;
  content->internal = xml_get_boolean(node, internal_attribute);
  const gboolean property =
      inspectable_has_keyvalue_with_tag(&*content, varro2::property_state_tag);
  return new EventDeclaration{.property = property, .inspectable = std::move(*content)};
}

EventDeclaration *event_declaration_deserialize_xml_file(const char *path) noexcept {
  VARRO2_EXPECT(path != NULL, nullptr);
  const varro2::XmlTree tree{xmlnode_load_file(path)};
  return tree ? event_declaration_deserialize_xmlnode(tree.get()) : nullptr;
}

EventDeclaration *event_declaration_new_from_type(const char *type) noexcept {
  VARRO2_EXPECT(type != NULL, nullptr);
  if (!is_type_name(type))
    return nullptr;
  for (const char *folder : varro2::declaration_folders) {
    const varro2::OwnedText path{g_strdup_printf("%s%c%s.xml", folder, '/', type)};
    if (EventDeclaration *declaration = event_declaration_deserialize_xml_file(path.get()))
      return declaration;
  }
  return nullptr;
}

/* ---- Log ---- */

void event_declaration_print(const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(declaration != NULL);
  constexpr auto level = G_LOG_LEVEL_MESSAGE;

  g_log(nullptr, level, "--- Event Declaration -----------------");
  if (declaration->property)
    g_log(nullptr, level, "< Property >");
  if (inspectable_get_internal(&declaration->inspectable))
    g_log(nullptr, level, "< Internal >");
  g_log(nullptr, level, "Global Declaration Id: %d", static_cast<gint>(declaration->global_id));
  g_log(nullptr, level, "Local Declaration Id: %d", static_cast<gint>(declaration->local_id));
  g_log(nullptr, level, "Producer Id: %d", static_cast<gint>(declaration->producer_id));
  inspectable_print(&declaration->inspectable);
  g_log(nullptr, level, "---------------------------------------");
}
