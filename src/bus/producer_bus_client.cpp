#include "buscall.hpp"
#include "preconditions.hpp"

#include <varro2/producer_bus_client.h>

using namespace varro2;

void com_quor_Event_Producer_global_declare_id_async(sd_bus *bus, const char *destination,
                                                     const char *object, guint32 local_id,
                                                     guint32 global_id, guint32 producer_id,
                                                     sd_bus_message_handler_t callback,
                                                     void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  const auto message = build_call(bus, {destination, object}, served_producer::global_declare_id,
                                  local_id, global_id, producer_id);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Producer_declaration_complete_async(sd_bus *bus, const char *destination,
                                                        const char *object, guint32 local_id,
                                                        guint32 global_id,
                                                        sd_bus_message_handler_t callback,
                                                        void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  const auto message = build_call(bus, {destination, object}, served_producer::declaration_complete,
                                  local_id, global_id);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Producer_subscribe_async(sd_bus *bus, const char *destination,
                                             const char *object,
                                             GByteArray *subscribe_expression_data,
                                             guint32 local_id, sd_bus_message_handler_t callback,
                                             void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  VARRO2_EXPECT(subscribe_expression_data);
  const auto message = build_call(bus, {destination, object}, served_producer::subscribe,
                                  subscribe_expression_data, local_id);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Producer_refresh_property_async(sd_bus *bus, const char *destination,
                                                    const char *object, guint32 subscription_id,
                                                    guint32 local_id,
                                                    sd_bus_message_handler_t callback,
                                                    void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  const auto message = build_call(bus, {destination, object}, served_producer::refresh_property,
                                  subscription_id, local_id);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Producer_unsubscribe_async(sd_bus *bus, const char *destination,
                                               const char *object, guint32 subscription_id,
                                               guint32 local_id, sd_bus_message_handler_t callback,
                                               void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(destination);
  VARRO2_EXPECT(object);
  const auto message = build_call(bus, {destination, object}, served_producer::unsubscribe,
                                  subscription_id, local_id);
  queue_call(bus, message.get(), callback, user_data);
}
