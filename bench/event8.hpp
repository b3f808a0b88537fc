// The event of the benchmarks: 8 keys, about 600 bytes.
#pragma once

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>

namespace bench::event8 {

inline EventDeclaration *declaration() {
  EventDeclaration *declaration = event_declaration_new(FALSE);
  const auto fixed = [&](const char *key, const char *value, const char *nice_name) {
    event_declaration_add_key_value(declaration, key, value, VALUE_TYPE_STRING);
    event_declaration_set_name_space(declaration, key, "tns1");
    event_declaration_set_nice_names(declaration, key, nice_name, "");
  };
  const auto open = [&](const char *key, guint32 type, const char *nice_name) {
    event_declaration_add_key(declaration, key, type);
    event_declaration_set_nice_names(declaration, key, nice_name, "");
  };
  fixed("topic0", "Device", "");
  fixed("topic1", "Trigger", "");
  fixed("topic2", "DigitalInput", "Digital input port");
  open("InputToken", VALUE_TYPE_STRING, "Input");
  open("LogicalState", VALUE_TYPE_BOOL, "State");
  open("temperature", VALUE_TYPE_DOUBLE, "Temperature of the board");
  open("sequence", VALUE_TYPE_STRING, "Number");
  open("source", VALUE_TYPE_STRING, "Source of the event");
  return declaration;
}

inline void fill(Event *event, const char *sequence) {
  const gboolean state = TRUE;
  const gdouble temperature = 36.6;
  event_set_value(event, "InputToken", "port-17");
  event_set_value(event, "LogicalState", &state);
  event_set_value(event, "temperature", &temperature);
  event_set_value(event, "sequence", sequence);
  event_set_value(event, "source", "camera-front-door");
}

inline Event *filled_event(const char *sequence) {
  EventDeclaration *declared = declaration();
  Event *event = event_declaration_generate_event(declared);
  event_declaration_free(declared);
  fill(event, sequence);
  return event;
}

} // namespace bench::event8
