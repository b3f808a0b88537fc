// consumer.h and query.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("consumer != NULL");
const Null no_expression = refused("expression != NULL");

void release_consumer(Consumer *consumer) {
  g_object_unref(consumer);
}
void release_query(Query *query) {
  g_object_unref(query);
}

void got_event(Event *event, gpointer) {
  event_free(event);
}
void got_notification(Notification *notification, gpointer) {
  notification_free(notification);
}

// It is freed by being unsubscribed.
void unsubscribe(ConsumerSubscription *subscription) {
  Objects another;
  consumer_send_unsubscribe(another.connected_bus_consumer(), subscription);
}

ConsumerSubscription *taken_out(Objects &of) {
  const guint32 token = of.bus_subscribed();
  return of.give<ConsumerSubscription>(consumer_send_unsubscribe_prepare(of.bus_consumer(), token),
                                       unsubscribe);
}

void free_declarations(GList *declarations) {
  g_list_free_full(declarations, [](gpointer declaration) {
    event_declaration_free(static_cast<EventDeclaration *>(declaration));
  });
}

ROW(consumer_get_type, lent, NULLS())
ROW(consumer_new, given<release_consumer>, NULLS(refused("name != NULL")), "name")
ROW(consumer_init_dbus, lent, NULLS(none, aborts("error != NULL && *error == NULL")),
    of.connectable_bus_consumer(), of.error())
ROW(consumer_prepare_free, nothing, NULLS(none), of.bus_consumer())
ROW(consumer_token_exists, lent, NULLS(none), of.bus_consumer(), of.bus_subscribed())
ROW(consumer_prepare_subscribe, nothing, NULLS(none, no_expression, accepted, accepted, accepted),
    of.bus_consumer(), 1, of.expression(), got_event, got_notification, &of,
    SUBSCRIPTION_TYPE_NORMAL)
ROW(consumer_send_subscribe, nothing, NULLS(none), of.connected_bus_consumer(), of.bus_subscribed())
ROW(consumer_send_refresh, nothing, NULLS(none), of.connected_bus_consumer(), of.bus_subscribed())
ROW(consumer_send_unsubscribe_prepare, given<unsubscribe>, NULLS(none), of.bus_consumer(),
    of.bus_subscribed())
ROW(consumer_send_unsubscribe, nothing, NULLS(none, refused("subscription != NULL")),
    of.connected_bus_consumer(), taken_out(of))
ROW(consumer_send_disconnect, nothing, NULLS(none), of.connected_bus_consumer())
ROW(consumer_send_get_property_state, given<property_state_free>,
    NULLS(none, no_expression, accepted), of.connected_bus_consumer(), of.expression(), of.error())
// The callback owns what it gets.
ROW(consumer_receive_event, nothing, NULLS(none, refused("bytes != NULL")), of.bus_consumer(),
    of.record<event_serialize_internal>(of.event()), of.bus_subscribed(), 0)
ROW(consumer_receive_notification, nothing, NULLS(none, refused("bytes != NULL")),
    of.bus_consumer(), of.record<notification_serialize_internal>(of.notification()),
    of.bus_subscribed(), 0)

REFUSAL(consumer_token_exists, unknown, lent, neutral, of.bus_consumer(), 9)
REFUSAL(consumer_send_unsubscribe_prepare, unknown, lent, neutral, of.bus_consumer(), 9)

const Null no_query = refused("query != NULL");

ROW(query_get_type, lent, NULLS())
ROW(query_new, given<release_query>, NULLS())
ROW(query_init_dbus, nothing, NULLS(no_query), of.connectable_bus_query())
ROW(query_send_get_declarations, given<free_declarations>, NULLS(no_query),
    of.connected_bus_query())
ROW(query_send_get_declaration_types, given<free_declarations>, NULLS(no_query),
    of.connected_bus_query())

const Null no_handle = refused("event_query != NULL");

ROW(event_query_new, given<event_query_free>, NULLS())
ROW(event_query_free, nothing, NULLS(accepted), of.given_query())
ROW(event_query_get_declarations, given<free_declarations>, NULLS(no_handle), of.connected_query())
ROW(event_query_get_declaration_types, given<free_declarations>, NULLS(no_handle),
    of.connected_query())
// Without a handle the tree is only its root, which is the caller's all the same.
ROW(event_query_get_topic_tree, given<event_query_free_topic_tree>,
    NULLS(refused_inside("event_query_get_declarations", "event_query != NULL")),
    of.connected_query())
ROW(event_query_get_declaration_type_tree, given<event_query_free_declaration_tree>,
    NULLS(refused_inside("event_query_get_declaration_types", "event_query != NULL")),
    of.connected_query())
ROW(event_query_free_topic_tree, nothing, NULLS(aborts("topic_tree")),
    of.give<GNode>(event_query_get_topic_tree(of.connected_query()), event_query_free_topic_tree))
ROW(event_query_free_declaration_tree, nothing, NULLS(aborts("declaration_tree")),
    of.give<GNode>(event_query_get_declaration_type_tree(of.connected_query()),
                   event_query_free_declaration_tree))

} // namespace
} // namespace varro2::test
