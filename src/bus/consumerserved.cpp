// What a consumer serves on the bus.
#include "consumer.hpp"
#include "log.hpp"
#include "preconditions.hpp"
#include "untrusted.hpp"

using namespace varro2;

namespace {

using CredentialsRef = Counted<sd_bus_creds, sd_bus_creds_ref, sd_bus_creds_unref>;

// Of the peer that sent the message; 4294967295 when it cannot be read, as when the peer has left.
guint32 get_uid_from_message(sd_bus_message *m) {
  CredentialsRef credentials;
  uid_t uid = 0;
  int r = sd_bus_query_sender_creds(m, SD_BUS_CREDS_UID | SD_BUS_CREDS_EUID, credentials.out());
  if (r >= 0)
    r = sd_bus_creds_get_euid(credentials.get(), &uid);
  if (r < 0 && credentials)
    r = sd_bus_creds_get_uid(credentials.get(), &uid);
  if (r < 0) {
    VARRO2_WARNING("%sFailed to retireve UID of the connection: %d", r);
    return G_MAXUINT32;
  }
  return uid;
}

using Deliver = void (*)(const ConsumerSubscription &, const GByteArray &, guint32 uid);

// The lock is not held any more when the answer goes out.
void receive(const char *function, sd_bus_message *m, Consumer *consumer, Deliver deliver) {
  const LockedConsumer self{consumer};
  const GByteArray bytes = view_bytes(read_bytes(function, m));
  guint32 token = 0;
  const int r = sd_bus_message_read_basic(m, SD_BUS_TYPE_UINT32, &token);
  VARRO2_ASSERT_AS(function, "r >= 0", r >= 0);
  const ConsumerSubscription *subscription = self->find(token);
  guint32 uid = 0;
  if (subscription != nullptr && subscription->secure == SUBSCRIPTION_TYPE_SECURE) {
    uid = get_uid_from_message(m);
    subscription = self->find(token); // a failure is logged, and who reads that may unsubscribe
  }
  if (subscription != nullptr)
    deliver(*subscription, bytes, uid);
}

int consumer_receive_event_bus(sd_bus_message *m, void *self, sd_bus_error *error) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  if (!is_acceptable(m, is_event))
    return refuse_record(error);
  receive(__func__, m, static_cast<Consumer *>(self), deliver_event);
  return sd_bus_reply_method_return(m, nullptr);
}

int consumer_receive_notification_bus(sd_bus_message *m, void *self, sd_bus_error *error) noexcept {
  VARRO2_ASSERT(m);
  VARRO2_ASSERT(self);
  if (!is_acceptable(m, is_record<SERIALIZE_ID_NOTIFICATION>))
    return refuse_record(error);
  receive(__func__, m, static_cast<Consumer *>(self), deliver_notification);
  return sd_bus_reply_method_return(m, nullptr);
}

int consumer_get_name_bus(sd_bus *, const char *, const char *, const char *, sd_bus_message *reply,
                          void *self, sd_bus_error *) noexcept {
  VARRO2_ASSERT(self);
  const LockedConsumer consumer{static_cast<Consumer *>(self)};
  return sd_bus_message_append_basic(reply, SD_BUS_TYPE_STRING, consumer->name.c_str());
}

} // namespace

int varro2::consumer_filter_bus(sd_bus_message *m, void *self, sd_bus_error *error) noexcept {
  if (sd_bus_message_is_method_call(m, consumer_interface, "Event") <= 0 ||
      sd_bus_message_has_signature(m, "ayu") <= 0 ||
      ConsumerClass::state_of(static_cast<Consumer *>(self)).path != sd_bus_message_get_path(m))
    return 0;
  const int r = consumer_receive_event_bus(m, self, error);
  return r < 0 ? r : 1; // done with, also when nobody wanted an answer
}

const sd_bus_vtable varro2::consumer_vtable[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Event", "ayu", nullptr, consumer_receive_event_bus, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Notification", "ayu", nullptr, consumer_receive_notification_bus,
                  SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_PROPERTY("Name", "s", consumer_get_name_bus, 0, SD_BUS_VTABLE_PROPERTY_CONST),
    SD_BUS_VTABLE_END};
