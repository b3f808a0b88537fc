#include "buscall.hpp"
#include "preconditions.hpp"

#include <varro2/consumer_bus_client.h>

using namespace varro2;

void com_quor_Event_Consumer_event_async(sd_bus *bus, const char *destination, const char *object,
                                         GByteArray *event, guint32 token,
                                         sd_bus_message_handler_t callback,
                                         void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  VARRO2_EXPECT(event);
  const auto message = build_call(bus, {destination, object}, served_consumer::event, event, token);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Consumer_notification_async(sd_bus *bus, const char *destination,
                                                const char *object, GByteArray *notification,
                                                guint32 token, sd_bus_message_handler_t callback,
                                                void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  VARRO2_EXPECT(notification);
  const auto message =
      build_call(bus, {destination, object}, served_consumer::notification, notification, token);
  queue_call(bus, message.get(), callback, user_data);
}
