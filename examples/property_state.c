/* Asks for the state that a property is in, then follows it: one subscription for the state that
 * is waited for and one for every other. The property is a network link, for example one that
 * machine_monitor or register_by_type reports.
 *
 *   property_state [INTERFACE]
 */
#include <varro2/varro2.h>

#include <glib-unix.h>

static void on_event(Event *event, gpointer text) {
  g_print("%s is %s\n", event_get_value(event, "interface"), (const char *)text);
  event_free(event); /* it is ours */
}

static void print_state_now(EventConsumer *consumer, const char *interface) {
  GError *error = NULL;
  SubscribeExpression *which = subscribe_expression_new();
  PropertyState *state;

  subscribe_expression_add_key_value(which, "topic1", "NetworkLink");
  subscribe_expression_add_key_value(which, "interface", interface);
  state = event_consumer_get_property_state(consumer, which, &error); /* waits for the answer */
  if (state != NULL) {
    const Inspectable *pairs = property_state_get_inspectable(state);
    g_print("found: up=%s\n", inspectable_get_value(pairs, "up"));
    property_state_free(state);
  } else {
    g_print("not found: %s\n", error->message); /* for example: nobody declares such a link */
    g_clear_error(&error);
  }
  subscribe_expression_free(which);
}

static gboolean on_signal(gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_CONTINUE;
}

static void on_freed(EventConsumer *former_handle, gpointer loop) {
  (void)former_handle;
  g_main_loop_quit(loop);
}

int main(int argc, char **argv) {
  GMainLoop *loop = g_main_loop_new(NULL, FALSE);
  const char *interface = argc > 1 ? argv[1] : "example0";
  EventConsumer *consumer = event_consumer_new("property_state");

  /* From before the first line on, so that whoever has read it can end the program properly. */
  g_unix_signal_add(SIGINT, on_signal, loop);
  g_unix_signal_add(SIGTERM, on_signal, loop);

  print_state_now(consumer, interface);

  /* The state that we wait for: all pairs say which property it is, the last one its state. */
  PropertyState *is_up = property_state_new();
  property_state_add_key_value(is_up, "topic1", "NetworkLink", FALSE);
  property_state_add_key_value(is_up, "interface", interface, FALSE);
  property_state_add_key_value(is_up, "up", "1", TRUE); /* values are texts; "1" is true */

  /* Both expressions belong to the state. A subscriber hears at once what holds now. */
  event_consumer_subscribe(consumer, property_state_get_subscribe_expression(is_up), on_event,
                           (gpointer) "up");
  event_consumer_subscribe(consumer, property_state_get_inverted_subscribe_expression(is_up),
                           on_event, (gpointer) "down");
  property_state_free(is_up);

  g_main_loop_run(loop);

  event_consumer_int_free(consumer, on_freed, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}
