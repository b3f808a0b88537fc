// producer.h: the object's declarations are its own from producer_allocate_decl_data() until
// producer_release_declare_id().
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("producer != NULL");
const Null no_type = refused("type != NULL");

void release(Producer *producer) {
  g_object_unref(producer);
}

void changed(GArray *, gpointer) {}
void complete(guint32, gpointer) {}
void told(const char *, gpointer, GError *error) {
  g_clear_error(&error);
}

// It is freed by being undeclared.
void undeclare(ProducerDeclarationData *data) {
  Objects another;
  producer_send_undeclare(another.connected_bus_producer(), data);
}

ProducerDeclarationData *released(Objects &of) {
  const guint32 id = of.bus_declared();
  Producer *producer = of.bus_producer();
  return of.give<ProducerDeclarationData>(producer_release_declare_id(producer, id), undeclare);
}

const CallbackParams *params(Objects &of) {
  return of.keep(callback_params_new("open", "no"), callback_params_free);
}

// Its open key is filled in by the parameters.
guint32 open_property(Objects &of) {
  EventDeclaration *declaration = of.give(event_declaration_new(FALSE), event_declaration_free);
  event_declaration_add_key(declaration, "open", VALUE_TYPE_STRING);
  event_declaration_set_property(declaration, "open", nullptr, nullptr);
  producer_allocate_decl_data(of.bus_producer(), 7, declaration, nullptr, nullptr);
  of.hand_over();
  return 7;
}

Producer *with_declaration(Objects &of) {
  of.bus_declared();
  return of.bus_producer();
}

EventDeclaration *given_declaration(Objects &of) {
  return of.give<EventDeclaration>(event_declaration_copy(of.declaration()),
                                   event_declaration_free);
}

ROW(producer_get_type, lent, NULLS())
ROW(producer_new, given<release>, NULLS(refused("name != NULL"), accepted, accepted), "name",
    changed, &of)
ROW(producer_init_dbus, lent, NULLS(none, aborts("error != NULL && *error == NULL")),
    of.connectable_bus_producer(), of.error())
ROW(producer_prepare_free, nothing, NULLS(none), of.bus_producer())
// The declaration is taken over.
ROW(producer_allocate_decl_data, nothing,
    NULLS(none, refused("declaration != NULL"), accepted, accepted), of.bus_producer(), 1,
    given_declaration(of), complete, &of)
ROW(producer_send_declare, nothing, NULLS(none), of.connected_bus_producer(), of.bus_declared())
ROW(producer_declaration_complete, lent, NULLS(none), of.bus_producer(), of.bus_declared())
ROW(producer_release_declare_id, given<undeclare>, NULLS(none), of.bus_producer(),
    of.bus_declared())
ROW(producer_send_undeclare, nothing, NULLS(none, refused("declaration_data != NULL")),
    of.connected_bus_producer(), released(of))
ROW(producer_prepare_event, given<event_free>, NULLS(none), of.bus_producer(), of.bus_declared())
ROW(producer_fill_global_event_data, nothing, NULLS(none, refused("event != NULL")),
    of.bus_producer(), of.event())
ROW(producer_send_event, lent, NULLS(none, refused("event != NULL"), accepted),
    with_declaration(of), of.event(), of.error())
ROW(producer_send_disconnect, nothing, NULLS(none), of.connected_bus_producer())
ROW(producer_add_declaration, nothing,
    NULLS(none, no_type, refused("declaration != NULL"), accepted, accepted),
    of.connected_bus_producer(), "type", of.declaration(), told, &of)
ROW(producer_remove_declaration, nothing, NULLS(none, no_type, accepted, accepted),
    of.connected_bus_producer(), "type", told, &of)
ROW(producer_add_callback_params, nothing, NULLS(none, refused("params != NULL")),
    of.bus_producer(), open_property(of), params(of))
ROW(producer_receive_global_declare_id, nothing, NULLS(none), of.bus_producer(), of.bus_declared(),
    2, 3)
ROW(producer_receive_declaration_complete, nothing, NULLS(none), of.bus_producer(),
    of.bus_declared(), 2)
ROW(producer_receive_subscribe, nothing, NULLS(none, refused("bytes != NULL")), of.bus_producer(),
    of.record<subscribe_expression_serialize_internal>(of.expression()), of.bus_declared())
ROW(producer_receive_refresh_property, nothing, NULLS(none), of.bus_producer(), 4,
    of.bus_declared())
ROW(producer_receive_unsubscribe, nothing, NULLS(none), of.bus_producer(), 4, of.bus_declared())

REFUSAL(producer_declaration_complete, unknown, lent, neutral, of.bus_producer(), 9)
REFUSAL(producer_release_declare_id, unknown, lent, neutral, of.bus_producer(), 9)
REFUSAL(producer_prepare_event, unknown, lent, neutral, of.bus_producer(), 9)
REFUSAL(producer_send_event, unknown, lent,
        fails(5, "The local declare id of the event is not registered."), of.bus_producer(),
        of.event(), of.error())

} // namespace
} // namespace varro2::test
