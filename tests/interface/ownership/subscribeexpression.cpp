// subscribeexpression.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("se != NULL");
const Null no_key = refused("key != NULL");
const Null no_value = refused("value != NULL");

ROW(subscribe_expression_new, given<subscribe_expression_free>, NULLS())
ROW(subscribe_expression_new_full, given<subscribe_expression_free>, NULLS(), TRUE)
ROW(subscribe_expression_free, nothing, NULLS(accepted),
    of.give<SubscribeExpression>(subscribe_expression_new(), subscribe_expression_free))
ROW(subscribe_expression_copy, given<subscribe_expression_free>, NULLS(none), of.expression())
ROW(subscribe_expression_set_id, nothing, NULLS(none), of.expression(), 1)
ROW(subscribe_expression_get_id, lent, NULLS(none), of.expression())
ROW(subscribe_expression_set_consumer_token, nothing, NULLS(none), of.expression(), 1)
ROW(subscribe_expression_get_consumer_token, lent, NULLS(none), of.expression())
ROW(subscribe_expression_set_dbus_service, nothing, NULLS(none, refused("dbus_service != NULL")),
    of.expression(), ":1.2")
ROW(subscribe_expression_get_dbus_service, lent, NULLS(none), of.expression())
ROW(subscribe_expression_set_dbus_object, nothing, NULLS(none, refused("dbus_object != NULL")),
    of.expression(), "/object")
ROW(subscribe_expression_get_dbus_object, lent, NULLS(none), of.expression())
ROW(subscribe_expression_get_clandestine, lent, NULLS(none), of.expression())
ROW(subscribe_expression_get_inspectable, lent, NULLS(none), of.expression())
ROW(subscribe_expression_get_raw, given<subscribe_expression_free_raw>, NULLS(none),
    of.expression())
ROW(subscribe_expression_free_raw, nothing, NULLS(accepted),
    of.give<GList>(subscribe_expression_get_raw(of.expression()), subscribe_expression_free_raw))
ROW(subscribe_expression_add_key_value, lent, NULLS(none, no_key, no_value), of.expression(), "key",
    "value")
ROW(subscribe_expression_add_key_not_value, lent, NULLS(none, no_key, no_value), of.expression(),
    "key", "value")
ROW(subscribe_expression_add_key, lent, NULLS(none, no_key), of.expression(), "key")
ROW(subscribe_expression_add_not_key, lent, NULLS(none, no_key), of.expression(), "key")
ROW(subscribe_expression_add_value, lent, NULLS(none, no_value), of.expression(), "value")
ROW(subscribe_expression_add_not_value, lent, NULLS(none, no_value), of.expression(), "value")
ROW(subscribe_expression_set_name_space, lent, NULLS(none, no_key, accepted), of.expression(),
    "text", "ns")
ROW(subscribe_expression_or, nothing, NULLS(none), of.expression())
ROW(subscribe_expression_serialize, given<g_byte_array_unref>, NULLS(none), of.expression())
ROW(subscribe_expression_serialize_internal, nothing,
    NULLS(aborts("se != NULL"), aborts("array != NULL")), of.expression(), of.bytes())
ROW(subscribe_expression_deserialize, given<subscribe_expression_free>,
    NULLS(refused("array != NULL")),
    of.record<subscribe_expression_serialize_internal>(of.expression()))
ROW(subscribe_expression_deserialize_internal, given<subscribe_expression_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")),
    of.record<subscribe_expression_serialize_internal>(of.expression()), of.index())
ROW(subscribe_expression_serialize_xmlnode, given<xmlnode_free_tree>, NULLS(none), of.expression())
ROW(subscribe_expression_serialize_xml, given<g_free>, NULLS(none), of.expression())
ROW(subscribe_expression_deserialize_xml, given<subscribe_expression_free>,
    NULLS(refused("xml != NULL")),
    "<subscribe><expression><keyvalue key='k' value='v'/></expression></subscribe>")
ROW(subscribe_expression_deserialize_xmlnode, given<subscribe_expression_free>,
    NULLS(refused("node != NULL")),
    of.node("<subscribe><expression><keyvalue key='k' value='v'/></expression></subscribe>"))
ROW(subscribe_expression_print, nothing, NULLS(none), of.expression())

REFUSAL(subscribe_expression_set_name_space, unknown, lent, neutral, of.expression(), "unknown",
        "ns")
REFUSAL(subscribe_expression_deserialize, another_record, lent,
        aborts("type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION",
               "subscribe_expression_deserialize_internal"),
        of.record<event_serialize_internal>(of.event()))
REFUSAL(subscribe_expression_deserialize_xmlnode, another_element, lent,
        warned("Expected tag 'subscribe' and got 'a'"), of.node("<a/>"))
REFUSAL(subscribe_expression_deserialize_xml, no_document, lent,
        warned("Could not parse XML '<a>'"), "<a>")

} // namespace
} // namespace varro2::test
