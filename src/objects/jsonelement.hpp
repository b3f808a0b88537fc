#pragma once

#include "json.hpp"

#include <varro2/xmlnode.h>

namespace varro2 {

// Behind the first ':' of a name, or all of it.
const char *without_prefix(const char *name) noexcept;

// An element as JSON: its text alone, or else an object of its children, its attributes ("@name")
// and its text ("#text"); members of one name become an array. Empty for an element that has
// nothing. Goes as deep as the tree, which the parser limits.
JsonRef element_to_json(const XmlNode &element);

} // namespace varro2
