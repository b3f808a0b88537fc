// The tree's owner, and the parser with an account of what was wrong.
#pragma once

#include "owning.hpp"

#include <varro2/xmlnode.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace varro2 {

using XmlTree = Owned<XmlNode, xmlnode_free_tree>;

enum class XmlNames {
  without_prefix, // name spaces are processed
  as_written,
};

enum class XmlLineBreaks {
  as_they_are,
  escaped, // in attributes, where a reader would take them for spaces
};

// What was wrong, and where. Line and column count from 1; both are 0 when the fault is not in the
// text, as with a file that cannot be read.
struct XmlFault {
  std::string message;
  unsigned long line = 0;
  unsigned long column = 0;
};

// Larger files are no declarations.
inline constexpr std::size_t xml_file_limit = 1024 * 1024;
// Whoever walks a parsed tree may do so recursively.
inline constexpr std::size_t xml_depth_limit = 1024;

// Both give an empty owner on failure, and then fill the fault when one is given.
XmlTree parse_xml(std::string_view document, XmlNames names, XmlFault *fault = nullptr);
XmlTree load_xml(const char *path, XmlFault *fault = nullptr);

// Empty when an element has no name.
OwnedText write_xml(const XmlNode &root, XmlLineBreaks line_breaks);

// Appends without looking for an attribute of that name.
void append_xml_attribute(XmlNode &node, std::string_view name, std::string_view value);

} // namespace varro2
