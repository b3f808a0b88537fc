// The one way to make a method call on the bus. Everything here runs on the connection's thread.
#pragma once

#include "owning.hpp"
#include "protocol.hpp"

#include <systemd/sd-bus.h>

namespace varro2 {

using BusRef = Counted<sd_bus, sd_bus_ref, sd_bus_unref>;
using MessageRef = Counted<sd_bus_message, sd_bus_message_ref, sd_bus_message_unref>;
using SlotRef = Counted<sd_bus_slot, sd_bus_slot_ref, sd_bus_slot_unref>;

// What all calls wait for their answer, in microseconds.
inline constexpr guint64 call_timeout = 60'000'000;

// A message that cannot be built is a mistake in the program: it aborts in the name of the method's
// stub.
MessageRef new_call(sd_bus *bus, const BusAddress &to, const BusMethod &method);
void append_argument(const BusMethod &method, sd_bus_message *message, const char *text);
void append_argument(const BusMethod &method, sd_bus_message *message, guint32 number);
void append_argument(const BusMethod &method, sd_bus_message *message, const GByteArray *payload);

template <typename... Arguments>
MessageRef build_call(sd_bus *bus, const BusAddress &to, const BusMethod &method,
                      Arguments... arguments) {
  MessageRef message = new_call(bus, to, method);
  (append_argument(method, message.get(), arguments), ...);
  return message;
}

template <typename... Arguments>
MessageRef build_switch_call(sd_bus *bus, const BusMethod &method, Arguments... arguments) {
  return build_call(bus, switch_address, method, arguments...);
}

// Queues a call. One that cannot be queued is dropped with a warning.
void queue_call(sd_bus *bus, sd_bus_message *message, sd_bus_message_handler_t handler,
                void *user_data);

// The warning for a call that sd-bus did not take; status is the negative errno.
void warn_of_refused_call(sd_bus_message *message, int status);

// A byte array inside a message, which lends it.
struct ByteView {
  const guint8 *data;
  gsize length;
};

// A message of another shape aborts in the name of `function`.
ByteView read_bytes(const char *function, sd_bus_message *message);

// The same as an array, to be read only and not kept.
GByteArray view_bytes(const ByteView &view);

} // namespace varro2
