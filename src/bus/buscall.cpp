#include "buscall.hpp"

#include "log.hpp"
#include "preconditions.hpp"

namespace varro2 {

MessageRef new_call(sd_bus *bus, const BusAddress &to, const BusMethod &method) {
  MessageRef message;
  const int r = sd_bus_message_new_method_call(bus, message.out(), to.service, to.object,
                                               method.interface, method.member);
  VARRO2_ASSERT_AS(method.stub, "r >= 0", r >= 0);
  return message;
}

void append_argument(const BusMethod &method, sd_bus_message *message, const char *text) {
  const int r = sd_bus_message_append_basic(message, SD_BUS_TYPE_STRING, text);
  VARRO2_ASSERT_AS(method.stub, "r >= 0", r >= 0);
}

void append_argument(const BusMethod &method, sd_bus_message *message, guint32 number) {
  const int r = sd_bus_message_append_basic(message, SD_BUS_TYPE_UINT32, &number);
  VARRO2_ASSERT_AS(method.stub, "r >= 0", r >= 0);
}

void append_argument(const BusMethod &method, sd_bus_message *message, const GByteArray *payload) {
  const int r = sd_bus_message_append_array(message, SD_BUS_TYPE_BYTE, payload->data, payload->len);
  VARRO2_ASSERT_AS(method.stub, "r >= 0", r >= 0);
}

void queue_call(sd_bus *bus, sd_bus_message *message, sd_bus_message_handler_t handler,
                void *user_data) {
  const int r = sd_bus_call_async(bus, nullptr, message, handler, user_data, call_timeout);
  if (r < 0)
    warn_of_refused_call(message, r);
}

void warn_of_refused_call(sd_bus_message *message, int status) {
  const OwnedText member{g_strdup_printf("%s.%s", sd_bus_message_get_interface(message),
                                         sd_bus_message_get_member(message))};
  VARRO2_WARNING("%sFailed to call %s: %d", member.get(), status);
}

ByteView read_bytes(const char *function, sd_bus_message *message) {
  const void *data = nullptr;
  gsize length = 0;
  const int r = sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &data, &length);
  VARRO2_ASSERT_AS(function, "r >= 0", r >= 0);
  return {static_cast<const guint8 *>(data), length};
}

GByteArray view_bytes(const ByteView &view) {
  return {.data = const_cast<guint8 *>(view.data), .len = static_cast<guint>(view.length)};
}

} // namespace varro2
