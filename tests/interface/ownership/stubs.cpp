// switch_bus_client.h, producer_bus_client.h and consumer_bus_client.h: what they are given is only
// read; a call without what it needs is not made.
#include "table.hpp"

namespace varro2::test {
namespace {

const Null no_bus = refused("bus");
const Null no_destination = refused("destination");
const Null no_object = refused("object");
const Null no_name = refused("name");
const Null no_type = refused("type");
const Null no_declaration = refused("declaration");
const Null no_expression = refused("subscribe_expression_data");

// Where the switch itself answers.
constexpr const char *service = "com.quor.Event.Switch";
constexpr const char *path = "/com/quor/Event/Switch";

int answered(sd_bus_message *, void *, sd_bus_error *) {
  return 0;
}

// What a synchronous stub hands over, released with the row.
struct Reply {
  guint8 *data = nullptr;
  gsize length = 0;
  sd_bus_message *message = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
};

Reply *reply(Objects &of) {
  return of.keep<Reply>(new Reply, [](Reply *reply) {
    g_free(reply->data);
    sd_bus_message_unref(reply->message);
    sd_bus_error_free(&reply->error);
    delete reply;
  });
}

GByteArray *expression(Objects &of) {
  return of.record<subscribe_expression_serialize_internal>(of.expression());
}

ROW(com_quor_Event_Switch_Producer_declare_async, nothing,
    NULLS(no_bus, no_object, no_name, no_declaration, accepted, accepted), of.bus(), path, "name",
    of.bytes(), answered, &of)
ROW(com_quor_Event_Switch_Producer_undeclare_async, nothing,
    NULLS(no_bus, no_object, accepted, accepted), of.bus(), path, 1, answered, &of)
ROW(com_quor_Event_Switch_Producer_add_declaration_async, nothing,
    NULLS(no_bus, no_type, no_declaration, accepted, accepted), of.bus(), "type", of.bytes(),
    answered, &of)
ROW(com_quor_Event_Switch_Producer_remove_declaration_async, nothing,
    NULLS(no_bus, no_type, accepted, accepted), of.bus(), "type", answered, &of)
ROW(com_quor_Event_Switch_Producer_disconnect_async, nothing,
    NULLS(no_bus, no_object, accepted, accepted), of.bus(), path, answered, &of)
ROW(com_quor_Event_Switch_Consumer_subscribe_async, nothing,
    NULLS(no_bus, no_object, no_name, no_expression, accepted, accepted), of.bus(), path, "name", 1,
    expression(of), answered, &of)
ROW(com_quor_Event_Switch_Consumer_unsubscribe_async, nothing,
    NULLS(no_bus, no_object, accepted, accepted), of.bus(), path, 1, answered, &of)
ROW(com_quor_Event_Switch_Consumer_refresh_property_async, nothing,
    NULLS(no_bus, no_object, accepted, accepted), of.bus(), path, 1, answered, &of)
ROW(com_quor_Event_Switch_Consumer_disconnect_async, nothing,
    NULLS(no_bus, no_object, accepted, accepted), of.bus(), path, answered, &of)

constexpr Result status = otherwise(static_cast<guint64>(-1));

// The line says the opposite of what is wrong.
const Null no_bus_to_ask = critical("Assertion failed 'bus == NULL'");
const Null nothing_to_ask =
    critical("Assertion failed 'bus == NULL || subscribe_expression_data == NULL'");

ROW(com_quor_Event_Switch_Consumer_get_property_state, status,
    NULLS(nothing_to_ask, nothing_to_ask, accepted, refused("data"), refused("length")), of.bus(),
    expression(of), &reply(of)->error, &reply(of)->data, &reply(of)->length)
ROW(com_quor_Event_Switch_Query_get_all_declarations, status,
    NULLS(no_bus_to_ask, accepted, refused("data"), refused("length")), of.bus(), &reply(of)->error,
    &reply(of)->data, &reply(of)->length)
ROW(com_quor_Event_Switch_Query_get_declaration_types, status,
    NULLS(no_bus_to_ask, accepted, refused("reply")), of.bus(), &reply(of)->error,
    &reply(of)->message)
ROW(com_quor_Event_Switch_debug, status, NULLS(no_bus_to_ask, accepted), of.bus(),
    &reply(of)->error)
ROW(com_quor_Event_Switch_quit, status, NULLS(no_bus_to_ask, accepted), of.bus(), &reply(of)->error)

ROW(com_quor_Event_Producer_global_declare_id_async, nothing,
    NULLS(no_bus, no_destination, no_object, accepted, accepted), of.bus(), service, path, 1, 2, 3,
    answered, &of)
ROW(com_quor_Event_Producer_declaration_complete_async, nothing,
    NULLS(no_bus, no_destination, no_object, accepted, accepted), of.bus(), service, path, 1, 2,
    answered, &of)
ROW(com_quor_Event_Producer_subscribe_async, nothing,
    NULLS(no_bus, no_destination, no_object, no_expression, accepted, accepted), of.bus(), service,
    path, expression(of), 1, answered, &of)
ROW(com_quor_Event_Producer_refresh_property_async, nothing,
    NULLS(no_bus, no_destination, no_object, accepted, accepted), of.bus(), service, path, 1, 2,
    answered, &of)
ROW(com_quor_Event_Producer_unsubscribe_async, nothing,
    NULLS(no_bus, no_destination, no_object, accepted, accepted), of.bus(), service, path, 1, 2,
    answered, &of)
ROW(com_quor_Event_Consumer_event_async, nothing,
    NULLS(no_bus, no_destination, no_object, refused("event"), accepted, accepted), of.bus(),
    service, path, of.record<event_serialize_internal>(of.event()), 1, answered, &of)
ROW(com_quor_Event_Consumer_notification_async, nothing,
    NULLS(no_bus, no_destination, no_object, refused("notification"), accepted, accepted), of.bus(),
    service, path, of.record<notification_serialize_internal>(of.notification()), 1, answered, &of)

} // namespace
} // namespace varro2::test
