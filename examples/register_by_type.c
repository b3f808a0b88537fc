/* Declares an event by the name of its type: what such events look like says a file that came with
 * the system, data/declarations.d/machine-network-link.xml. A program only gives the values that
 * the file leaves open. This one plays a network link that goes up and down.
 *
 *   register_by_type [INTERFACE]
 */
#include <varro2/varro2.h>

#include <glib-unix.h>

static EventProducer *producer;
static guint32 link_id;
static gboolean up = TRUE;
static gint32 number;

static void on_complete(guint32 local_declare_id, gpointer user_data) {
  (void)local_declare_id;
  g_print("the switch knows %s\n", (const char *)user_data);
}

static gboolean change(gpointer user_data) {
  GError *error = NULL;
  Event *event = event_producer_prepare_event(producer, link_id); /* "interface" is in it already */

  (void)user_data;
  up = !up;
  number++;
  event_set_value(event, "up", &up); /* by address: the type says that it is a boolean */
  event_set_value(event, "number", &number);
  if (event_producer_send_event(producer, event, &error)) {
    g_print("now it is %s\n", up ? "up" : "down");
  } else {
    g_print("not sent: %s\n", error->message);
    g_clear_error(&error);
  }
  event_free(event);
  return G_SOURCE_CONTINUE;
}

static gboolean on_signal(gpointer loop) {
  g_main_loop_quit(loop);
  return G_SOURCE_CONTINUE;
}

static void on_freed(EventProducer *former_handle, gpointer loop) {
  (void)former_handle;
  g_main_loop_quit(loop);
}

int main(int argc, char **argv) {
  GMainLoop *loop = g_main_loop_new(NULL, FALSE);
  const char *interface = argc > 1 ? argv[1] : "example0";

  producer = event_producer_new("register_by_type");

  /* Key, address of the value, type of the value, for every key that the file leaves open. The
   * link is a property: the value of "up" is its state, which a subscriber hears at once. */
  /* clang-format off */
  link_id = event_producer_register_and_notify(producer, "machine-network-link",
                                               on_complete, (gpointer)interface,
                                               "interface", interface, VALUE_TYPE_STRING,
                                               "up", &up, VALUE_TYPE_BOOL,
                                               "number", &number, VALUE_TYPE_INT,
                                               NULL);
  /* clang-format on */
  if (link_id != 0) { /* if not, the log has said why */
    g_timeout_add_seconds(1, change, NULL);
    g_unix_signal_add(SIGINT, on_signal, loop);
    g_unix_signal_add(SIGTERM, on_signal, loop);
    g_main_loop_run(loop);
  }

  /* The handle's last messages leave while the loop runs. */
  event_producer_int_free(producer, on_freed, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return link_id != 0 ? 0 : 1;
}
