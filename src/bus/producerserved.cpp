// What a producer serves on the bus.
#include "preconditions.hpp"
#include "producer.hpp"
#include "untrusted.hpp"

using namespace varro2;

namespace {

template <typename... Numbers>
bool read_numbers(sd_bus_message *m, Numbers *...numbers) {
  return ((sd_bus_message_read_basic(m, SD_BUS_TYPE_UINT32, numbers) >= 0) && ...);
}

int producer_receive_global_declare_id_bus(sd_bus_message *m, void *self, sd_bus_error *) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  guint32 local_id = 0;
  guint32 global_id = 0;
  guint32 producer_id = 0;
  VARRO2_ASSERT_AS(__func__, "r >= 0", read_numbers(m, &local_id, &global_id, &producer_id));
  producer_receive_global_declare_id(static_cast<Producer *>(self), local_id, global_id,
                                     producer_id);
  return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_declaration_complete_bus(sd_bus_message *m, void *self,
                                              sd_bus_error *) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  guint32 local_id = 0;
  guint32 global_id = 0;
  VARRO2_ASSERT_AS(__func__, "r >= 0", read_numbers(m, &local_id, &global_id));
  producer_receive_declaration_complete(static_cast<Producer *>(self), local_id, global_id);
  return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_subscribe_bus(sd_bus_message *m, void *self, sd_bus_error *error) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  if (!is_acceptable(m, is_subscription))
    return refuse_record(error);
  GByteArray bytes = view_bytes(read_bytes(__func__, m));
  guint32 local_id = 0;
  VARRO2_ASSERT_AS(__func__, "r >= 0", read_numbers(m, &local_id));
  producer_receive_subscribe(static_cast<Producer *>(self), &bytes, local_id);
  return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_refresh_property_bus(sd_bus_message *m, void *self, sd_bus_error *) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  guint32 subscription_id = 0;
  guint32 local_id = 0;
  VARRO2_ASSERT_AS(__func__, "r >= 0", read_numbers(m, &subscription_id, &local_id));
  producer_receive_refresh_property(static_cast<Producer *>(self), subscription_id, local_id);
  return sd_bus_reply_method_return(m, nullptr);
}

int producer_receive_unsubscribe_bus(sd_bus_message *m, void *self, sd_bus_error *) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  guint32 subscription_id = 0;
  guint32 local_id = 0;
  VARRO2_ASSERT_AS(__func__, "r >= 0", read_numbers(m, &subscription_id, &local_id));
  producer_receive_unsubscribe(static_cast<Producer *>(self), subscription_id, local_id);
  return sd_bus_reply_method_return(m, nullptr);
}

int producer_get_name_bus(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply,
                          void *self, sd_bus_error *) noexcept {
  VARRO2_ASSERT(self);
  const LockedProducer producer{static_cast<Producer *>(self)};
  return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, producer->name.c_str());
}

} // namespace

const sd_bus_vtable varro2::producer_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("GlobalDeclareId", "uuu", nullptr, producer_receive_global_declare_id_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("DeclarationComplete", "uu", nullptr, producer_receive_declaration_complete_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Subscribe", "ayu", nullptr, producer_receive_subscribe_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("RefreshProperty", "uu", nullptr, producer_receive_refresh_property_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Unsubscribe", "uu", nullptr, producer_receive_unsubscribe_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Name", "s", producer_get_name_bus, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END};
