#include "xmlform.hpp"

#include "log.hpp"

#include <utility>

namespace varro2 {

XmlTree write_element(const Inspectable &inspectable, const char *name) {
  XmlTree node{inspectable_serialize_xml(&inspectable)};
  node->name = g_strdup(name);
  return node;
}

std::optional<Inspectable> read_element(const XmlNode &node, const char *name, guint32 type) {
  if (g_strcmp0(node.name, name) != 0) {
    VARRO2_WARNING("%sExpected tag '%s' and got '%s'", name, node.name ? node.name : "");
    return std::nullopt;
  }
  const Owned<Inspectable, inspectable_free> content{inspectable_deserialize_xml(&node, type)};
  if (!content)
    return std::nullopt;
  return std::move(*content);
}

} // namespace varro2
