// The library: a producer handle that fills a prepared event, consumer handles that read it.
//
//   PROGRAM payload FILE    writes the bytes of such an event, for the other peers
#include "event8.hpp"
#include "harness.hpp"

#include <varro2/varro2.h>

#include <glib-unix.h>

#include <cstdlib>
#include <fstream>

namespace {

using namespace bench;

template <typename Base>
class Looped : public Base {
 public:
  Looped() : loop_{g_main_loop_new(nullptr, FALSE)} {}

  void watch(int descriptor, std::function<void()> readable) override {
    GSource *source =
        g_unix_fd_source_new(descriptor, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP));
    const GUnixFDSourceFunc call = [](gint, GIOCondition, gpointer data) -> gboolean {
      (*static_cast<std::function<void()> *>(data))();
      return G_SOURCE_CONTINUE;
    };
    g_source_set_callback(source, G_SOURCE_FUNC(call),
                          new std::function<void()>{std::move(readable)}, nullptr);
    // Otherwise the loop wakes itself up twice around every call: the application's costs.
    g_source_set_can_recurse(source, TRUE);
    g_source_attach(source, nullptr);
    g_source_unref(source);
  }
  void run() override { g_main_loop_run(loop_); }
  void quit() override { g_main_loop_quit(loop_); }

 protected:
  GMainLoop *loop_;
};

class LibraryConsumer final : public Looped<ConsumerSide> {
 public:
  LibraryConsumer() {
    consumer_ = event_consumer_new("bench");
    SubscribeExpression *expression = subscribe_expression_new();
    subscribe_expression_add_key_value(expression, "topic0", "Device");
    subscribe_expression_add_key_value(expression, "topic2", "DigitalInput");
    subscribe_expression_add_key(expression, "LogicalState");
    event_consumer_subscribe_full(consumer_, expression, on_event, nullptr, this);
    subscribe_expression_free(expression);
    wait_for_switch();
  }

  // The switch introduces producer and consumer.
  std::string address() override { return "switch"; }

 private:
  // An answer of the switch to a later call says that it has the subscription.
  void wait_for_switch() {
    SubscribeExpression *nothing = subscribe_expression_new();
    subscribe_expression_add_key_value(nothing, "nothing", "nothing");
    GError *error = nullptr;
    PropertyState *state = event_consumer_get_property_state(consumer_, nothing, &error);
    g_clear_error(&error);
    property_state_free(state);
    subscribe_expression_free(nothing);
  }

  static void on_event(Event *event, gpointer data) {
    static_cast<LibraryConsumer *>(data)->received(
        stamp_number(event_get_value(event, "sequence")));
    event_free(event);
  }

  EventConsumer *consumer_;
};

class LibraryProducer final : public Looped<ProducerSide> {
 public:
  LibraryProducer() {
    EventDeclaration *declaration = event8::declaration();
    producer_ = event_producer_new("bench");
    id_ = event_producer_declare_and_notify(producer_, declaration, on_declared, this);
    event_declaration_free(declaration);
    while (!is_declared_)
      g_main_context_iteration(nullptr, TRUE);
  }

  bool counts_answers() const override { return false; } // it has a send window of its own

  void send() override {
    Event *event = event_producer_prepare_event(producer_, id_);
    event8::fill(event, stamp_text(now_in_nanoseconds()).c_str());
    GError *error = nullptr;
    if (!event_producer_send_event(producer_, event, &error)) {
      g_printerr("%s\n", error->message);
      std::exit(1);
    }
    event_free(event);
  }

 private:
  // The subscriptions that the switch had have come before.
  static void on_declared(guint32, gpointer data) {
    static_cast<LibraryProducer *>(data)->is_declared_ = true;
  }

  EventProducer *producer_;
  guint32 id_ = 0;
  bool is_declared_ = false;
};

int write_payload(const char *name) {
  Event *event = event8::filled_event(std::string{stamp_place}.c_str());
  event_set_global_id(event, 1);
  event_set_producer_id(event, 1);
  set_event_time_now(event);
  GByteArray *bytes = event_serialize(event);
  std::ofstream{name, std::ios::binary}.write(reinterpret_cast<const char *>(bytes->data),
                                              static_cast<std::streamsize>(bytes->len));
  g_byte_array_unref(bytes);
  event_free(event);
  return 0;
}

} // namespace

int main(int argc, char **argv) {
  if (argc == 3 && std::string_view{argv[1]} == "payload")
    return write_payload(argv[2]);
  return run_side(
      argc, argv, [](const Options &) { return std::make_unique<LibraryConsumer>(); },
      [](const Options &) { return std::make_unique<LibraryProducer>(); });
}
