// xmlnode.h: a tree owns everything below it.
#include "table.hpp"

namespace varro2::test {
namespace {

const Null no_node = refused("node != NULL");
const Null no_xml = refused("xml != NULL");

XmlNode *loose_node() {
  return xmlnode_parse_string("<a name='value'><b/></a>");
}

ROW(xmlnode_create_node, given<xmlnode_free_tree>, NULLS())
ROW(xmlnode_add_attribute, nothing,
    NULLS(no_node, refused("name != NULL"), refused("value != NULL")), of.node(), "new", "value")
ROW(xmlnode_get_attribute_value, lent, NULLS(no_node, refused("name != NULL")), of.node(), "name")
ROW(xmlnode_get_xml, given<g_free>, NULLS(no_node), of.node())
ROW(xmlnode_get_xml_escape_newline, given<g_free>, NULLS(no_node), of.node())
ROW(xmlnode_free_tree, nothing, NULLS(accepted), of.give<XmlNode>(loose_node(), xmlnode_free_tree))
ROW(xmlnode_parse_string, given<xmlnode_free_tree>, NULLS(no_xml), "<a/>")
ROW(xmlnode_parse_string_no_ns, given<xmlnode_free_tree>, NULLS(no_xml), "<p:a/>")
ROW(xmlnode_load_file, given<xmlnode_free_tree>, NULLS(refused("path != NULL")),
    VARRO2_SAMPLE_TYPES "/every-attribute.xml")

REFUSAL(xmlnode_get_attribute_value, absent, lent, neutral, of.node(), "absent")
REFUSAL(xmlnode_get_xml, without_a_name, given<g_free>, refused("node->name != NULL"),
        of.keep(xmlnode_create_node(), xmlnode_free_tree))
REFUSAL(xmlnode_get_xml_escape_newline, without_a_name, given<g_free>,
        refused("node->name != NULL"), of.keep(xmlnode_create_node(), xmlnode_free_tree))
REFUSAL(xmlnode_parse_string, no_document, given<xmlnode_free_tree>, neutral, "<a>")
REFUSAL(xmlnode_parse_string, undeclared_prefix, given<xmlnode_free_tree>, neutral, "<p:a/>")
REFUSAL(xmlnode_parse_string_no_ns, no_document, given<xmlnode_free_tree>, neutral, "<a>")
REFUSAL(xmlnode_load_file, no_file, given<xmlnode_free_tree>, neutral, "/nonexistent")

// The child changes hands only when there is a parent for it.
ROW(xmlnode_add_child, nothing, NULLS(refused("parent != NULL"), refused("child != NULL")),
    of.node(), of.give<XmlNode>(loose_node(), xmlnode_free_tree))

} // namespace
} // namespace varro2::test
