// leaver COUNT: a producer that waits for a subscriber of topic0 = Greeting, sends so many events
// with a running number and frees its handle. The process ends in the middle of the callback that
// says it is done.
#include <varro2/varro2.h>

#include <cstdlib>

#include <unistd.h>

int main(int argc, char **argv) {
  if (argc != 2)
    return 2;
  bool is_wanted = false;
  EventProducer *producer = event_producer_new_full(
      "leaver", [](GArray *, gpointer wanted) { *static_cast<bool *>(wanted) = true; }, &is_wanted);
  EventDeclaration *declaration = event_declaration_new(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "Greeting", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "count", VALUE_TYPE_INT);
  const guint32 id = event_producer_declare(producer, declaration);
  event_declaration_free(declaration);
  while (!is_wanted)
    g_main_context_iteration(nullptr, TRUE);

  for (gint32 count = 0; count < std::atoi(argv[1]); ++count) {
    Event *event = event_producer_prepare_event(producer, id);
    event_set_value(event, "count", &count);
    if (!event_producer_send_event(producer, event, nullptr))
      return EXIT_FAILURE;
    event_free(event);
  }
  event_producer_int_free(
      producer, [](EventProducer *, gpointer) { _exit(EXIT_SUCCESS); }, nullptr);
  for (;;)
    g_main_context_iteration(nullptr, TRUE);
}
