// What the XML forms of declarations, expressions and property states have in common: an element
// whose name says what it is, and whose content is that of the container.
#pragma once

#include "inspectable.hpp"
#include "xmlnode.hpp"

#include <optional>

namespace varro2 {

XmlTree write_element(const Inspectable &inspectable, const char *name);

// Nothing, after a warning, when the element has another name or its content cannot be read.
std::optional<Inspectable> read_element(const XmlNode &node, const char *name, guint32 type);

} // namespace varro2
