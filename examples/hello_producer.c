/* Says hello once a second. */
#include <varro2/varro2.h>

static EventProducer *producer;
static guint32 greeting;

static gboolean say_hello(gpointer user_data) {
  static gint32 count;
  GError *error = NULL;
  Event *event = event_producer_prepare_event(producer, greeting);

  (void)user_data;
  count++;
  event_set_value(event, "text", "hello");
  event_set_value(event, "count", &count); /* by address: the key is an integer */
  if (event_producer_send_event(producer, event, &error)) {
    g_print("sent number %d\n", count);
  } else {
    g_print("not sent: %s\n", error->message); /* for example: no switch on the bus */
    g_clear_error(&error);
  }
  event_free(event);
  return G_SOURCE_CONTINUE;
}

int main(void) {
  /* What the events look like: one key with a fixed value, two that each event fills. */
  EventDeclaration *declaration = event_declaration_new(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "Greeting", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "text", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "count", VALUE_TYPE_INT);

  producer = event_producer_new("hello_producer");
  greeting = event_producer_declare(producer, declaration);
  event_declaration_free(declaration);

  g_timeout_add_seconds(1, say_hello, NULL);
  g_main_loop_run(g_main_loop_new(NULL, FALSE));
  return 0;
}
