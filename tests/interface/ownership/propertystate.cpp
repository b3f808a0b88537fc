// propertystate.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("prop != NULL");
const Null no_self = refused("self != NULL");
const Null no_key = refused("key != NULL");

PropertyState *locked(Objects &of) {
  PropertyState *state = of.state();
  property_state_get_subscribe_expression(state);
  return state;
}

constexpr const char *document = "<property><expression><keyvalue key='k' value='v'><tag "
                                 "tag='property-state'/></keyvalue></expression>"
                                 "</property>";

ROW(property_state_new, given<property_state_free>, NULLS())
ROW(property_state_free, nothing, NULLS(accepted),
    of.give<PropertyState>(property_state_new(), property_state_free))
ROW(property_state_add_key_value, lent, NULLS(no_self, no_key, refused("value != NULL")),
    of.state(), "new", "value", FALSE)
ROW(property_state_set_name_space, lent, NULLS(no_self, no_key, accepted), of.state(), "port", "ns")
ROW(property_state_get_subscribe_expression, lent, NULLS(no_self), of.state())
ROW(property_state_get_inverted_subscribe_expression, lent, NULLS(no_self), of.state())
ROW(property_state_to_subscribe_expression, given<subscribe_expression_free>, NULLS(none),
    of.state(), TRUE)
ROW(property_state_get_inspectable, lent, NULLS(none), of.state())
ROW(property_state_serialize, given<g_byte_array_unref>, NULLS(none), of.state())
ROW(property_state_serialize_internal, nothing,
    NULLS(aborts("prop != NULL"), aborts("array != NULL")), of.state(), of.bytes())
ROW(property_state_deserialize, given<property_state_free>, NULLS(refused("array != NULL")),
    of.record<property_state_serialize_internal>(of.state()))
ROW(property_state_deserialize_internal, given<property_state_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")),
    of.record<property_state_serialize_internal>(of.state()), of.index())
ROW(property_state_serialize_xmlnode, given<xmlnode_free_tree>, NULLS(none), of.state())
ROW(property_state_serialize_xml, given<g_free>, NULLS(none), of.state())
ROW(property_state_deserialize_xml, given<property_state_free>, NULLS(refused("xml != NULL")),
    document)
ROW(property_state_deserialize_xmlnode, given<property_state_free>, NULLS(refused("node != NULL")),
    of.node(document))
ROW(property_state_print, nothing, NULLS(none), of.state())

REFUSAL(property_state_add_key_value, locked, lent, refused("!self->locked"), locked(of), "new",
        "value", FALSE)
REFUSAL(property_state_add_key_value, key_twice, lent, neutral, of.state(), "port", "2", FALSE)
REFUSAL(property_state_add_key_value, second_state, lent, neutral, of.state(), "new", "value", TRUE)
REFUSAL(property_state_deserialize, another_record, lent,
        aborts("type == SERIALIZE_ID_PROPERTY_STATE", "property_state_deserialize_internal"),
        of.record<event_serialize_internal>(of.event()))
REFUSAL(property_state_deserialize_xmlnode, another_element, lent,
        warned("Expected tag 'property' and got 'a'"), of.node("<a/>"))
REFUSAL(property_state_deserialize_xmlnode, no_state, lent,
        warned("Expected to find 1 keyvalue tagged with 'property-state' but found 0"),
        of.node("<property><expression><keyvalue key='k' value='v'/></expression></property>"))

} // namespace
} // namespace varro2::test
