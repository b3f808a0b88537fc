// eventdeclaration.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("declaration != NULL");
const Null no_key = refused("key != NULL");
const Null no_tag = refused("tag != NULL");

Event *fill(Event *event, gpointer) {
  return event;
}

XmlNode *element(Objects &of) {
  return of.node("<declare><expression><keyvalue key='k' value='v'/></expression></declare>");
}

ROW(event_declaration_new, given<event_declaration_free>, NULLS(), FALSE)
ROW(event_declaration_free, nothing, NULLS(accepted),
    of.give<EventDeclaration>(event_declaration_new(FALSE), event_declaration_free))
ROW(event_declaration_copy, given<event_declaration_free>,
    NULLS(refused("declaration_src != NULL")), of.declaration())
// The types stand in the system's folders alone, where a test has none.
ROW(event_declaration_new_from_type, given_or_null<event_declaration_free>,
    NULLS(refused("type != NULL")), "no-such-type")
ROW(event_declaration_get_inspectable, lent, NULLS(none), of.declaration())
ROW(event_declaration_add_key, lent, NULLS(none, no_key), of.declaration(), "new", VALUE_TYPE_INT)
ROW(event_declaration_add_key_value, lent, NULLS(none, no_key, refused("value != NULL")),
    of.declaration(), "new", "value", VALUE_TYPE_STRING)
ROW(event_declaration_set_value_user_string, lent, NULLS(none, no_key, refused("string != NULL")),
    of.declaration(), "text", "user string")
ROW(event_declaration_set_nice_names, lent, NULLS(none, no_key, accepted, accepted),
    of.declaration(), "text", "Text", "Value")
ROW(event_declaration_set_name_space, lent, NULLS(none, no_key, accepted), of.declaration(), "text",
    "ns")
ROW(event_declaration_set_complex_type_name, lent, NULLS(none, no_key, accepted), of.declaration(),
    "text", "complex")
ROW(event_declaration_add_key_tag, lent, NULLS(none, no_key, no_tag), of.declaration(), "text",
    "another")
ROW(event_declaration_add_tag, lent, NULLS(none, no_tag), of.declaration(), "another")
ROW(event_declaration_set_local_id, nothing, NULLS(none), of.declaration(), 1)
ROW(event_declaration_get_local_id, lent, NULLS(none), of.declaration())
ROW(event_declaration_set_global_id, nothing, NULLS(none), of.declaration(), 1)
ROW(event_declaration_get_global_id, lent, NULLS(none), of.declaration())
ROW(event_declaration_set_producer_id, nothing, NULLS(none), of.declaration(), 1)
ROW(event_declaration_get_producer_id, lent, NULLS(none), of.declaration())
ROW(event_declaration_is_internal, lent, NULLS(none), of.internal_declaration())
ROW(event_declaration_set_property, lent, NULLS(none, accepted, accepted, accepted),
    of.declaration(), "text", fill, &of)
ROW(event_declaration_is_property, lent, NULLS(none), of.property_declaration())
ROW(event_declaration_get_property_event, given<event_free>, NULLS(none), of.property_declaration())
ROW(event_declaration_generate_event, given<event_free>, NULLS(none), of.declaration())
ROW(event_declaration_contains, lent, NULLS(none, refused("subscribe_expression != NULL")),
    of.declaration(), of.expression())
ROW(event_declaration_serialize, given<g_byte_array_unref>, NULLS(none), of.declaration())
ROW(event_declaration_serialize_internal, nothing,
    NULLS(aborts("declaration != NULL"), aborts("array != NULL")), of.declaration(), of.bytes())
ROW(event_declaration_deserialize, given<event_declaration_free>, NULLS(refused("array != NULL")),
    of.record<event_declaration_serialize_internal>(of.declaration()))
ROW(event_declaration_deserialize_internal, given<event_declaration_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")),
    of.record<event_declaration_serialize_internal>(of.declaration()), of.index())
ROW(event_declaration_serialize_xmlnode, given<xmlnode_free_tree>, NULLS(none), of.declaration())
ROW(event_declaration_serialize_xml, given<g_free>, NULLS(none), of.declaration())
ROW(event_declaration_deserialize_xml, given<event_declaration_free>, NULLS(refused("xml != NULL")),
    "<declare><expression><keyvalue key='k' value='v'/></expression></declare>")
ROW(event_declaration_deserialize_xmlnode, given<event_declaration_free>,
    NULLS(refused("node != NULL")), element(of))
ROW(event_declaration_deserialize_xml_file, given<event_declaration_free>,
    NULLS(refused("path != NULL")), VARRO2_SAMPLE_TYPES "/every-attribute.xml")
ROW(event_declaration_print, nothing, NULLS(none), of.declaration())

REFUSAL(event_declaration_add_key, no_type, lent, critical("Invalid ValueType: 0"),
        of.declaration(), "new", 0)
REFUSAL(event_declaration_add_key_value, no_type, lent, critical("Invalid ValueType: 5"),
        of.declaration(), "new", "value", 5)
REFUSAL(event_declaration_set_name_space, unknown, lent, neutral, of.declaration(), "unknown", "x")
REFUSAL(event_declaration_get_property_event, of_no_property, lent, neutral, of.declaration())
REFUSAL(event_declaration_deserialize, another_record, lent,
        aborts("type == SERIALIZE_ID_EVENT_DECLARATION", "event_declaration_deserialize_internal"),
        of.record<event_serialize_internal>(of.event()))
REFUSAL(event_declaration_deserialize_xmlnode, another_element, lent,
        warned("Expected tag 'declare' and got 'a'"), of.node("<a/>"))
REFUSAL(event_declaration_deserialize_xml, no_document, lent, warned("Could not parse XML '<a>'"),
        "<a>")
REFUSAL(event_declaration_deserialize_xml_file, no_file, lent, neutral, "/nonexistent")

} // namespace
} // namespace varro2::test
