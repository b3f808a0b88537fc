/* Prints only the greetings of one user: whoever runs it, or the one on the command line. With a
 * secure subscription each event comes with the user id of the process that sent it, as the message
 * bus knows it; a sender cannot choose it.
 *
 *   secure_subscription [UID]
 */
#include <varro2/varro2.h>

#include <glib-unix.h>

#include <unistd.h>

static guint32 trusted;

static void on_event(Event *event, guint32 uid, gpointer user_data) {
  (void)user_data;
  /* G_MAXUINT32: the bus could not say, for example because the sender has left. */
  if (uid == G_MAXUINT32)
    g_print("somebody said something\n");
  else if (uid == trusted)
    g_print("user %u says %s\n", uid, event_get_value(event, "text"));
  else
    g_print("user %u is not trusted\n", uid);
  event_free(event);
}

static void on_notification(Notification *notification, guint32 uid, gpointer user_data) {
  (void)user_data;
  g_print("user %u, who runs the switch: greetings are %s\n", uid,
          notification_is_type_deleted(notification) ? "no longer offered" : "offered");
  notification_free(notification);
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
  EventConsumer *consumer = event_consumer_new("secure_subscription");
  SubscribeExpression *wanted = subscribe_expression_new();
  guint32 token;

  trusted = argc > 1 ? (guint32)g_ascii_strtoull(argv[1], NULL, 10) : getuid();
  subscribe_expression_add_key_value(wanted, "topic0", "Greeting");
  token = event_consumer_subscribe_secure_full(consumer, wanted, on_event, on_notification, NULL);
  subscribe_expression_free(wanted);

  g_unix_signal_add(SIGINT, on_signal, loop);
  g_unix_signal_add(SIGTERM, on_signal, loop);
  g_main_loop_run(loop);

  event_consumer_unsubscribe(consumer, token, NULL);
  event_consumer_int_free(consumer, on_freed, loop);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return 0;
}
