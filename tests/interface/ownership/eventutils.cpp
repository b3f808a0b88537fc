// eventutils.h and commandsource.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null no_node = aborts("node != NULL");
const Null no_name = aborts("name != NULL");

const gint32 number = 3;

ROW(event_utils_value_type_to_string, given<g_free>, NULLS(aborts("value != NULL")), &number,
    VALUE_TYPE_INT)
ROW(xml_get_attribute, lent, NULLS(no_node, no_name), of.node(), "name")
ROW(xml_set_attribute, nothing, NULLS(no_node, no_name, accepted), of.node(), "new", "value")
ROW(xml_get_boolean, lent, NULLS(no_node, no_name), of.node("<a name='true'/>"), "name")
ROW(xml_set_boolean, nothing, NULLS(no_node, no_name), of.node(), "new", TRUE)
ROW(xml_get_value_type, lent, NULLS(no_node, no_name), of.node("<a name='int'/>"), "name")
ROW(xml_set_value_type, nothing, NULLS(no_node, no_name), of.node(), "new", VALUE_TYPE_INT)
// A list without texts is no list.
ROW(event_utils_tag_list_is_equal, nothing, NULLS(accepted, accepted), of.texts("tag"),
    of.texts("tag"))
// What is made is what the type says.
void free_expression(gpointer object) {
  subscribe_expression_free(static_cast<SubscribeExpression *>(object));
}

ROW(event_utils_deserialize_xml, given<free_expression>, NULLS(refused("xml != NULL")),
    "<subscribe><expression><keyvalue key='k' value='v'/></expression></subscribe>",
    IT_SUBSCRIBE_EXPRESSION)
ROW(event_utils_set_untrusted_peers, nothing, NULLS(), FALSE)
ROW(event_utils_get_send_counters, nothing, NULLS(refused("counters != NULL")), of.counters())
ROW(callback_params_new, given<callback_params_free>, NULLS(accepted, accepted), "key", "value")
ROW(callback_params_free, nothing, NULLS(accepted),
    of.give<CallbackParams>(callback_params_new("key", "value"), callback_params_free))

ROW(connect_to_bus_and_attach_events, nothing, NULLS(aborts("source"), aborts("bus"), accepted),
    of.source_slot(), of.bus_slot(), of.error())
ROW(watch_bus_driver, lent, NULLS(aborts("bus"), aborts("watcher")), of.bus(), of.watcher())

REFUSAL(event_utils_value_type_to_string, no_text, lent, neutral, nullptr, VALUE_TYPE_STRING)
REFUSAL(event_utils_value_type_to_string, no_type, lent, neutral, &number, 5)
REFUSAL(event_utils_deserialize_xml, of_an_event, lent, aborts("FALSE"), "<event/>", IT_EVENT)

// The pair is released once, by the function alone.
TEST(Ownership, disconnect_from_bus_and_detach_events) {
  GSource *source = nullptr;
  sd_bus *bus = nullptr;
  Objects of;
  sd_bus **slot = of.bus_slot(); // turns to the bus
  ASSERT_GE(connect_to_bus_and_attach_events(&source, &bus, of.error()), 0);
  EXPECT_EQ(*slot, nullptr);
  EXPECT_DEATH(disconnect_from_bus_and_detach_events(nullptr, bus),
               "assertion failed: \\(source\\)");
  EXPECT_DEATH(disconnect_from_bus_and_detach_events(source, nullptr),
               "assertion failed: \\(bus\\)");
  disconnect_from_bus_and_detach_events(source, bus);
}

CommandSource *source(Objects &of) {
  return of.keep<CommandSource>(command_source_new_full(nullptr, nullptr, 1, 0),
                                command_source_free);
}

GMainContext *context(Objects &of) {
  return of.keep(g_main_context_new(), g_main_context_unref);
}

void command(gpointer, gpointer) {}
gpointer echo(gpointer data, gpointer) {
  return data;
}

ROW(command_source_new_full, given<command_source_free>, NULLS(accepted, accepted), context(of),
    &of, 1, 0)
ROW(command_source_free, nothing, NULLS(accepted),
    of.give<CommandSource>(command_source_new_full(nullptr, nullptr, 1, 0), command_source_free))
ROW(command_source_run_async, nothing,
    NULLS(refused("source != NULL"), refused("function != NULL"), accepted), source(of), command,
    &of)
ROW(command_source_run, lent,
    NULLS(refused("source != NULL"), refused("function != NULL"), accepted), source(of), echo, &of)

} // namespace
} // namespace varro2::test
