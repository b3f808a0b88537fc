/* Says hello once a second, as hello_producer does, but no call waits for anything: every result
 * comes through a callback, on the thread that runs the main loop. */
#include <varro2/varro2.h>

#include <glib-unix.h>

static GMainLoop *loop;
static EventProducer *producer;
static guint32 greeting;
static guint timer;
static int status;

static void on_setup(EventProducer *handle, gpointer user_data, GError *error) {
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

static void on_declared(guint32 local_declare_id, gpointer user_data) {
  (void)user_data;
  g_print("declaring %u\n", local_declare_id);
}

static void on_sent(guint32 local_declare_id, Event *event, gpointer user_data, GError *error) {
  (void)local_declare_id;
  (void)event; /* the address that was handed in; freed since */
  g_print("number %d %s\n", GPOINTER_TO_INT(user_data), error == NULL ? "sent" : error->message);
  g_clear_error(&error);
}

static gboolean say_hello(gpointer user_data) {
  static gint32 count;
  Event *event = async_producer_prepare_event(producer, greeting);

  (void)user_data;
  count++;
  event_set_value(event, "text", "hello");
  event_set_value(event, "count", &count);
  async_producer_send_event(producer, event, on_sent, GINT_TO_POINTER(count));
  event_free(event); /* what is sent is a copy */
  return G_SOURCE_CONTINUE;
}

static void on_complete(guint32 local_declare_id, gpointer user_data) {
  (void)user_data;
  g_print("the switch knows %u\n", local_declare_id);
  timer = g_timeout_add_seconds(1, say_hello, NULL);
}

static gboolean on_signal(gpointer user_data) {
  (void)user_data;
  g_main_loop_quit(loop);
  return G_SOURCE_CONTINUE;
}

static void on_undeclared(guint32 local_declare_id, gpointer user_data, GError *error) {
  (void)user_data;
  g_print("%u %s\n", local_declare_id, error == NULL ? "undeclared" : error->message);
  g_clear_error(&error);
}

static void on_freed(EventProducer *former_handle, gpointer user_data) {
  (void)former_handle;
  (void)user_data;
  g_main_loop_quit(loop);
}

int main(void) {
  GError *error = NULL;
  EventDeclaration *declaration = event_declaration_new(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "Greeting", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "text", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "count", VALUE_TYPE_INT);

  loop = g_main_loop_new(NULL, FALSE);
  producer = async_producer_new("async_producer", on_setup, NULL, NULL);

  /* Commands run in the order of the calls, so that nothing has to wait for the connection. Only
   * mistakes that show at once are told at once. */
  greeting = async_producer_declare(producer, declaration, on_declared, on_complete, NULL, &error);
  event_declaration_free(declaration);
  if (greeting == 0)
    g_error("%s", error->message);

  g_unix_signal_add(SIGINT, on_signal, NULL);
  g_unix_signal_add(SIGTERM, on_signal, NULL);
  g_main_loop_run(loop);

  if (timer != 0)
    g_source_remove(timer);
  async_producer_undeclare(producer, greeting, on_undeclared, NULL);
  async_producer_free(producer, on_freed, NULL);
  g_main_loop_run(loop);
  g_main_loop_unref(loop);
  return status;
}
