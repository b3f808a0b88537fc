// eventconsumer.h, eventconsumer_int.h and asyncconsumer.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null no_name = refused("name != NULL");
const Null no_handle = aborts("event_consumer != NULL");
const Null nobody = fails(1, "NULL object supplied");
const Null nobody_subscribes = warned("Failed to subscribe: Event consumer object was NULL");
const Null nothing_wanted = warned("Failed to subscribe: Subscribe expression was NULL");
const Null nobody_told = warned("Failed to subscribe: Subscription callback was NULL");
const Null nobody_subscribes_failure = fails(1, "Event consumer object was NULL");
const Null nothing_wanted_failure = fails(1, "Subscribe expression was NULL");
const Null nobody_told_failure = fails(1, "Subscription callback was NULL");

void got_event(Event *event, gpointer) {
  event_free(event);
}
void got_secure_event(Event *event, guint32, gpointer) {
  event_free(event);
}
void got_notification(Notification *notification, gpointer) {
  notification_free(notification);
}
void got_secure_notification(Notification *notification, guint32, gpointer) {
  notification_free(notification);
}
void subscribed(guint32, gpointer) {}
void ended(guint32, gpointer, GError *error) {
  g_clear_error(&error);
}
void set_up(EventConsumer *, gpointer, GError *error) {
  g_clear_error(&error);
}
void done(EventConsumer *, gpointer) {}

void async_free(EventConsumer *consumer) {
  async_consumer_free(consumer, nullptr, nullptr);
}

ROW(event_consumer_new, given<event_consumer_free>, NULLS(no_name), "name")
ROW(event_consumer_free, nothing, NULLS(accepted), of.given_consumer())
ROW(event_consumer_subscribe, lent, NULLS(nobody_subscribes, nothing_wanted, nobody_told, accepted),
    of.consumer(), of.expression(), got_event, &of)
ROW(event_consumer_subscribe_full, lent,
    NULLS(nobody_subscribes, nothing_wanted, nobody_told, accepted, accepted), of.consumer(),
    of.expression(), got_event, got_notification, &of)
ROW(event_consumer_subscribe_secure, lent,
    NULLS(nobody_subscribes, nothing_wanted, nobody_told, accepted), of.consumer(), of.expression(),
    got_secure_event, &of)
ROW(event_consumer_subscribe_secure_full, lent,
    NULLS(nobody_subscribes, nothing_wanted, nobody_told, accepted, accepted), of.consumer(),
    of.expression(), got_secure_event, got_secure_notification, &of)
ROW(event_consumer_refresh, lent, NULLS(nobody, accepted), of.connected_consumer(), of.subscribed(),
    of.error())
ROW(event_consumer_refresh_async, lent, NULLS(neutral), of.connected_consumer(), of.subscribed())
ROW(event_consumer_unsubscribe_and_notify, lent, NULLS(nobody, accepted, accepted, accepted),
    of.connected_consumer(), of.subscribed(), ended, &of, of.error())
ROW(event_consumer_unsubscribe, lent, NULLS(nobody, accepted), of.connected_consumer(),
    of.subscribed(), of.error())
ROW(event_consumer_get_property_state, given<property_state_free>,
    NULLS(refused("event_consumer != NULL"), refused("subscribe_expression != NULL"), accepted),
    of.connected_consumer(), of.expression(), of.error())

REFUSAL(event_consumer_refresh, unknown, lent, fails(4, "Cannot find subscription token 9"),
        of.consumer(), 9, of.error())
REFUSAL(event_consumer_refresh, taken_slot, lent, fails(11, "Error object already set"),
        of.consumer(), 9, of.taken_error())
REFUSAL(event_consumer_unsubscribe, unknown, lent, fails(4, "Cannot find subscription token 9"),
        of.consumer(), 9, of.error())
REFUSAL(event_consumer_unsubscribe, taken_slot, lent, fails(11, "Error object already set"),
        of.consumer(), 9, of.taken_error())

// ---- What the two faces share

// A handle is made in two steps and ends by being freed.
TEST(Ownership, event_consumer_int_new_empty) {
  Objects of;
  EventConsumer *consumer = event_consumer_int_new_empty();
  ASSERT_NE(consumer, nullptr);
  of.consumer(); // turns away from the bus
  bool failed = false;
  event_consumer_int_setup(
      consumer, "name",
      [](EventConsumer *, gpointer flag, GError *error) {
        *static_cast<bool *>(flag) = error != nullptr;
        g_clear_error(&error); // ours
      },
      &failed);
  of.settle();
  EXPECT_TRUE(failed);
  event_consumer_int_free(consumer, nullptr, nullptr);
  of.settle();
}

EventConsumer *empty(Objects &of) {
  of.consumer(); // turns away from the bus
  return of.keep<EventConsumer>(event_consumer_int_new_empty(), event_consumer_free);
}

ROW(event_consumer_int_setup, nothing, NULLS(no_handle, aborts("name != NULL"), accepted, accepted),
    empty(of), "name", set_up, &of)
ROW(event_consumer_int_free, nothing, NULLS(no_handle, accepted, accepted), of.given_consumer(),
    done, &of)
ROW(event_consumer_int_generate_token, lent,
    NULLS(nobody_subscribes_failure, nothing_wanted_failure, nobody_told_failure, accepted),
    of.consumer(), of.expression(), got_event, SUBSCRIPTION_TYPE_NORMAL, of.error())
ROW(event_consumer_int_subscribe, nothing,
    NULLS(no_handle, aborts("subscribe_expression != NULL"), accepted,
          aborts("event_callback != NULL"), accepted, accepted),
    of.consumer(), 9, of.expression(), subscribed, got_event, got_notification,
    SUBSCRIPTION_TYPE_NORMAL, &of)
ROW(event_consumer_int_refresh, lent, NULLS(no_handle, accepted, accepted, accepted),
    of.connected_consumer(), of.subscribed(), ended, &of, of.error())
ROW(event_consumer_int_unsubscribe, lent, NULLS(no_handle, accepted, accepted, accepted),
    of.connected_consumer(), of.subscribed(), ended, &of, of.error())

REFUSAL(event_consumer_int_generate_token, taken_slot, lent, fails(11, "Error object already set"),
        of.consumer(), of.expression(), got_event, SUBSCRIPTION_TYPE_NORMAL, of.taken_error())
REFUSAL(event_consumer_int_generate_token, no_type, lent, fails(12, "Invalid subscription type"),
        of.consumer(), of.expression(), got_event, 2, of.error())
REFUSAL(event_consumer_int_subscribe, no_token, lent, aborts("token != 0"), of.consumer(), 0,
        of.expression(), subscribed, got_event, got_notification, SUBSCRIPTION_TYPE_NORMAL, &of)
REFUSAL(event_consumer_int_subscribe, no_type, lent,
        aborts("subscription_type == SUBSCRIPTION_TYPE_NORMAL || subscription_type == "
               "SUBSCRIPTION_TYPE_SECURE"),
        of.consumer(), 9, of.expression(), subscribed, got_event, got_notification, 2, &of)
REFUSAL(event_consumer_int_refresh, unknown, lent, fails(4, "Cannot find subscription token 9"),
        of.consumer(), 9, ended, &of, of.error())
REFUSAL(event_consumer_int_unsubscribe, unknown, lent, fails(4, "Cannot find subscription token 9"),
        of.consumer(), 9, ended, &of, of.error())
REFUSAL(event_consumer_int_refresh, taken_slot, lent, aborts("error == NULL || *error == NULL"),
        of.consumer(), 9, ended, &of, of.taken_error())

// ---- The asynchronous face

ROW(async_consumer_new, given<async_free>, NULLS(no_name, accepted, accepted), "name", set_up, &of)
ROW(async_consumer_free, nothing, NULLS(accepted, accepted, accepted), of.given_consumer(), done,
    &of)
ROW(async_consumer_subscribe, lent,
    NULLS(nobody_subscribes_failure, nothing_wanted_failure, accepted, nobody_told_failure,
          accepted, accepted, accepted),
    of.consumer(), of.expression(), subscribed, got_event, got_notification, &of,
    SUBSCRIPTION_TYPE_NORMAL, of.error())
ROW(async_consumer_refresh, nothing, NULLS(no_handle, accepted, accepted), of.connected_consumer(),
    of.subscribed(), ended, &of)
ROW(async_consumer_unsubscribe, nothing, NULLS(no_handle, accepted, accepted),
    of.connected_consumer(), of.subscribed(), ended, &of)

} // namespace
} // namespace varro2::test
