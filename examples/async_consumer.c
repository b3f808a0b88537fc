/* Prints every greeting, as hello_consumer does, but no call waits for anything: every result comes
 * through a callback, on the thread that runs the main loop. */
#include <varro2/varro2.h>

#include <glib-unix.h>

static GMainLoop *loop;
static EventConsumer *consumer;
static SubscribeExpression *wanted;
static int status;

static void on_setup(EventConsumer *handle, gpointer user_data, GError *error) {
  (void)handle;
  (void)user_data;
  if (error == NULL) {
    g_print("connected\n");
    return;
  }
  g_print("not connected: %s\n", error->message);
  g_error_free(error); /* an error that a callback gets is its own */
  status = 1;
  g_main_loop_quit(loop);
}

static void on_subscribed(guint32 token, gpointer user_data) {
  (void)user_data;
  g_print("subscribed under %u\n", token);
  /* Until now it was only borrowed. */
  g_clear_pointer(&wanted, subscribe_expression_free);
}

static void on_event(Event *event, gpointer user_data) {
  gint32 count = 0;

  (void)user_data;
  event_get_typed_value(event, "count", &count);
  g_print("%s, for the %d. time\n", event_get_value(event, "text"), count);
  event_free(event);
}

static gboolean on_signal(gpointer user_data) {
  (void)user_data;
  g_main_loop_quit(loop);
  return G_SOURCE_CONTINUE;
}

static void on_unsubscribed(guint32 token, gpointer user_data, GError *error) {
  (void)user_data;
  g_print("%u %s\n", token, error == NULL ? "unsubscribed" : error->message);
  g_clear_error(&error);
}

static void on_freed(EventConsumer *former_handle, gpointer user_data) {
  (void)former_handle;
  (void)user_data;
  g_main_loop_quit(loop);
}

int main(void) {
  GError *error = NULL;
  guint32 token;

  loop = g_main_loop_new(NULL, FALSE);
  consumer = async_consumer_new("async_consumer", on_setup, NULL);

  wanted = subscribe_expression_new();
  subscribe_expression_add_key_value(wanted, "topic0", "Greeting");
  subscribe_expression_add_key(wanted, "count");
  token = async_consumer_subscribe(consumer, wanted, on_subscribed, on_event, NULL, NULL,
                                   SUBSCRIPTION_TYPE_NORMAL, &error);
  if (token == 0)
    g_error("%s", error->message);

  g_unix_signal_add(SIGINT, on_signal, NULL);
  g_unix_signal_add(SIGTERM, on_signal, NULL);
  g_main_loop_run(loop);

  async_consumer_unsubscribe(consumer, token, on_unsubscribed, NULL);
  async_consumer_free(consumer, on_freed, NULL);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return status;
}
