// The forms of a container that are for people and their files: XML, log, plain copy.
#include "inspectable.hpp"
#include "log.hpp"

#include <varro2/eventutils.h>

#include <utility>

using varro2::AndList;
using varro2::Pair;

namespace {

constexpr const char *expression_element = "expression";
constexpr const char *tag_element = "tag";

XmlNode *new_element(const char *name) {
  XmlNode *node = xmlnode_create_node();
  node->name = g_strdup(name);
  return node;
}

bool has_name(const XmlNode &node, const char *name) noexcept {
  return g_strcmp0(node.name, name) == 0;
}

bool read_expression(Inspectable &inspect, const XmlNode &expression) {
  for (const GList *child = expression.children; child != nullptr; child = child->next) {
    const auto &node = *static_cast<const XmlNode *>(child->data);
    varro2::PairFields fields;
    if (!varro2::read_pair_fields(node, fields)) {
      VARRO2_WARNING("%sCould not deserialize expression");
      return false;
    }
    inspect.add(fields, varro2::read_tag_elements(node).get());
  }
  return true;
}

// One "expression" or "tag". `first` tells whether an expression came before.
bool read_child(Inspectable &inspect, const XmlNode &node, const XmlNode &child, bool &first) {
  if (has_name(child, expression_element)) {
    if (!std::exchange(first, false) && !inspectable_or(&inspect))
      return false;
    return read_expression(inspect, child);
  }
  if (has_name(child, tag_element))
    return inspectable_add_tag(&inspect, xml_get_attribute(&child, tag_element));
  // Names the element that holds the stranger: so these lines have always been.
  VARRO2_WARNING("%sExpected xml tag '%s' or '%s' and got '%s'", expression_element, tag_element,
                 varro2::text_or_empty(node.name));
  return false;
}

} // namespace

void varro2::add_tag_elements(XmlNode *node, const GList *tags) {
  for (; tags != nullptr; tags = tags->next) {
    XmlNode *element = new_element(tag_element);
    xml_set_attribute(element, tag_element, static_cast<const char *>(tags->data));
    xmlnode_add_child(node, element);
  }
}

XmlNode *inspectable_serialize_xml(const Inspectable *insp) noexcept {
  VARRO2_ASSERT(insp != NULL);
  XmlNode *node = xmlnode_create_node();
  for (const AndList &and_list : insp->and_lists()) {
    XmlNode *expression = new_element(expression_element);
    varro2::for_each_pair(and_list, [expression](const Pair &pair) {
      xmlnode_add_child(expression, key_value_serialize_xml(&pair));
    });
    xmlnode_add_child(node, expression);
  }
  varro2::add_tag_elements(node, insp->tags());
  return node;
}

Inspectable *inspectable_deserialize_xml(const XmlNode *node, guint32 type) noexcept {
  VARRO2_ASSERT(node != NULL);
  if (node->children == nullptr) {
    VARRO2_WARNING("%sThere are no expressions in the xml");
    return nullptr;
  }
  VARRO2_ASSERT(type <= IT_PROPERTY_STATE);
  Inspectable read{type};
  bool first = true;
  for (const GList *child = node->children; child != nullptr; child = child->next)
    if (!read_child(read, *node, *static_cast<const XmlNode *>(child->data), first))
      return nullptr;
  // It is complete now: a copy takes no more than it needs.
  return new Inspectable{read};
}

void inspectable_print(const Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  bool first = true;
  for (const AndList &and_list : inspect->and_lists()) {
    if (!std::exchange(first, false))
      g_log(nullptr, G_LOG_LEVEL_MESSAGE, "OR");
    varro2::for_each_pair(and_list, [](const Pair &pair) { key_value_print(&pair); });
  }
  for (const GList *tag = inspect->tags(); tag != nullptr; tag = tag->next)
    g_log(nullptr, G_LOG_LEVEL_MESSAGE, "{%s}", static_cast<const char *>(tag->data));
}

GList *inspectable_get_raw(const Inspectable *inspect) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  GList *raw = nullptr;
  for (const AndList &and_list : inspect->and_lists()) {
    GList *pairs = nullptr;
    varro2::for_each_pair(and_list, [&pairs](const Pair &pair) {
      pairs = g_list_prepend(pairs, key_value_get_raw(&pair));
    });
    raw = g_list_prepend(raw, pairs);
  }
  return raw;
}

void inspectable_free_raw(GList *raw) noexcept {
  for (GList *pairs = raw; pairs != nullptr; pairs = pairs->next)
    g_list_free_full(static_cast<GList *>(pairs->data),
                     [](gpointer data) { key_value_free_raw(static_cast<KeyValueRaw *>(data)); });
  g_list_free(raw);
}
