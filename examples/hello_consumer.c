/* Prints every greeting, and tells when somebody begins or ceases to offer them. */
#include <varro2/varro2.h>

static void on_event(Event *event, gpointer user_data) {
  gint32 count = 0;

  (void)user_data;
  event_get_typed_value(event, "count", &count);
  g_print("%s, for the %d. time\n", event_get_value(event, "text"), count);
  event_free(event); /* it is ours */
}

static void on_notification(Notification *notification, gpointer user_data) {
  (void)user_data;
  g_print("greetings are %s\n",
          notification_is_type_deleted(notification) ? "no longer offered" : "offered");
  notification_free(notification);
}

int main(void) {
  EventConsumer *consumer = event_consumer_new("hello_consumer");

  /* Which events we want: both tests must hold; subscribe_expression_or() begins a new list. */
  SubscribeExpression *wanted = subscribe_expression_new();
  subscribe_expression_add_key_value(wanted, "topic0", "Greeting");
  subscribe_expression_add_key(wanted, "count");

  event_consumer_subscribe_full(consumer, wanted, on_event, on_notification, NULL);
  subscribe_expression_free(wanted);

  g_main_loop_run(g_main_loop_new(NULL, FALSE));
  return 0;
}
