// notification.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("notification != NULL");
const Null no_key = refused("key != NULL");

Notification *empty(Objects &of) {
  return of.keep(notification_new(), notification_free);
}

Notification *without_declaration(Objects &of) {
  Notification *notification = empty(of);
  notification_set_subscribe_expression(notification, of.expression());
  return notification;
}

ROW(notification_new, given<notification_free>, NULLS())
ROW(notification_free, nothing, NULLS(accepted),
    of.give<Notification>(notification_new(), notification_free))
ROW(notification_copy, given<notification_free>, NULLS(none), of.notification())
ROW(notification_set_user_data, nothing, NULLS(none, refused("user_data != NULL")),
    of.notification(), "abc", 3)
ROW(notification_get_user_data, given<g_free>, NULLS(none), of.notification())
ROW(notification_set_user_data_string, nothing, NULLS(none, refused("string != NULL")),
    of.notification(), "abc")
ROW(notification_get_user_data_string, given<g_free>, NULLS(none), of.notification())
ROW(notification_set_timestamp2, nothing, NULLS(none, refused("timestamp != NULL")),
    of.notification(), of.time())
ROW(notification_get_timestamp2, lent, NULLS(none), of.notification())
G_GNUC_BEGIN_IGNORE_DEPRECATIONS
ROW(notification_set_timestamp, nothing, NULLS(none), of.notification(), GTimeVal{1, 2})
G_GNUC_END_IGNORE_DEPRECATIONS
ROW(notification_get_timestamp, lent, NULLS(none), of.notification())
ROW(notification_set_subscription_id, nothing, NULLS(unchecked), of.notification(), 1)
ROW(notification_get_subscription_id, lent, NULLS(unchecked), of.notification())
ROW(notification_set_declaration_id, nothing, NULLS(unchecked), of.notification(), 1)
ROW(notification_get_declaration_id, lent, NULLS(unchecked), of.notification())
ROW(notification_set_type, nothing, NULLS(unchecked), of.notification(), NOTIFY_DECLARATION_REMOVED)
ROW(notification_get_type, lent, NULLS(unchecked), of.notification())
ROW(notification_get_declaration, lent, NULLS(unchecked), of.notification())
ROW(notification_get_subscribe_expression, lent, NULLS(unchecked), of.notification())
ROW(notification_set_declaration, nothing, NULLS(none, refused("declaration != NULL")),
    of.notification(), of.declaration())
ROW(notification_set_subscribe_expression, nothing, NULLS(none, refused("se != NULL")),
    of.notification(), of.expression())
ROW(notification_is_type_deleted, lent, NULLS(none), of.notification())
ROW(notification_get_value, lent, NULLS(none, no_key), of.notification(), "text")
ROW(notification_get_name_space, lent, NULLS(none, no_key), of.notification(), "text")
ROW(notification_is_internal, lent, NULLS(none), of.notification())
ROW(notification_serialize, given<g_byte_array_unref>, NULLS(none), of.notification())
ROW(notification_serialize_internal, nothing,
    NULLS(aborts("notification != NULL"), aborts("array != NULL")), of.notification(), of.bytes())
ROW(notification_deserialize, given<notification_free>, NULLS(refused("array != NULL")),
    of.record<notification_serialize_internal>(of.notification()))
ROW(notification_deserialize_internal, given<notification_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")),
    of.record<notification_serialize_internal>(of.notification()), of.index())
ROW(notification_print, nothing, NULLS(none), of.notification())

REFUSAL(notification_set_user_data, of_no_size, nothing, refused("size != 0"), of.notification(),
        "abc", 0)
REFUSAL(notification_get_value, without_declaration, lent, refused("declaration != NULL"),
        empty(of), "text")
REFUSAL(notification_get_name_space, without_declaration, lent, refused("declaration != NULL"),
        empty(of), "text")
REFUSAL(notification_is_internal, without_declaration, lent, refused("declaration != NULL"),
        empty(of))
REFUSAL(notification_serialize, without_declaration, lent,
        aborts("declaration != NULL", "notification_serialize_internal"), without_declaration(of))
REFUSAL(notification_serialize, without_expression, lent,
        aborts("subscribe_expression != NULL", "notification_serialize_internal"), empty(of))
REFUSAL(notification_deserialize, another_record, lent,
        aborts("type == SERIALIZE_ID_NOTIFICATION", "notification_deserialize_internal"),
        of.record<event_serialize_internal>(of.event()))

} // namespace
} // namespace varro2::test
