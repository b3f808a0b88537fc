// How long it takes until a new handle is of use, and what it holds, on the bus and with the switch
// that DBUS_SYSTEM_BUS_ADDRESS names. Beside it the least that any program does on a bus: a
// connection and one call that is answered.
#include "event8.hpp"

#include <varro2/varro2.h>

#include <benchmark/benchmark.h>
#include <malloc.h>
#include <systemd/sd-bus.h>

#include <cstdlib>
#include <vector>

namespace {

void iterate_until(const bool &done) {
  while (!done)
    g_main_context_iteration(nullptr, TRUE);
}

// Handles take leave of the switch when they are freed, which needs the loop.
void iterate_while_anything_is_ready() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

void set(gpointer done) {
  *static_cast<bool *>(done) = true;
}

// Declared: the switch has told the ids, and all subscriptions there are.
struct ProducerHandle {
  static EventProducer *start() {
    EventDeclaration *declaration = bench::event8::declaration();
    bool declared = false;
    EventProducer *producer = event_producer_new("bench");
    event_producer_declare_and_notify(
        producer, declaration, [](guint32, gpointer done) { set(done); }, &declared);
    event_declaration_free(declaration);
    iterate_until(declared);
    return producer;
  }
  static void end(EventProducer *producer) {
    event_producer_free(producer);
    iterate_while_anything_is_ready();
  }
};

// Subscribed: the switch has told of a declaration that fits.
struct ConsumerHandle {
  static EventConsumer *start() {
    static EventProducer *const wanted = ProducerHandle::start();
    benchmark::DoNotOptimize(wanted);
    SubscribeExpression *tests = subscribe_expression_new();
    subscribe_expression_add_key_value(tests, "topic0", "Device");
    subscribe_expression_add_key_value(tests, "topic2", "DigitalInput");
    subscribe_expression_add_key(tests, "LogicalState");
    static bool subscribed;
    subscribed = false;
    EventConsumer *consumer = event_consumer_new("bench");
    event_consumer_subscribe_full(
        consumer, tests, [](Event *event, gpointer) { event_free(event); },
        [](Notification *notification, gpointer done) {
          notification_free(notification);
          set(done);
        },
        &subscribed);
    subscribe_expression_free(tests);
    iterate_until(subscribed);
    return consumer;
  }
  static void end(EventConsumer *consumer) {
    event_consumer_free(consumer);
    iterate_while_anything_is_ready();
  }
};

struct BareConnection {
  static sd_bus *start() {
    sd_bus *bus = nullptr;
    sd_bus_message *answer = nullptr;
    if (sd_bus_open_system(&bus) < 0 ||
        sd_bus_call_method(bus, "com.quor.Event.Switch", "/", "org.freedesktop.DBus.Peer", "Ping",
                           nullptr, &answer, "") < 0)
      std::abort();
    sd_bus_message_unref(answer);
    return bus;
  }
  static void end(sd_bus *bus) { sd_bus_flush_close_unref(bus); }
};

template <typename Kind>
void start(benchmark::State &state) {
  for (auto _ : state) {
    auto *handle = Kind::start();
    state.PauseTiming();
    Kind::end(handle);
    state.ResumeTiming();
  }
}

std::size_t bytes_held() {
  const auto info = mallinfo2();
  return info.uordblks + info.hblkhd;
}

template <typename Kind>
void hold(benchmark::State &state) {
  Kind::end(Kind::start()); // what the process keeps is there
  std::vector<decltype(Kind::start())> held(40);
  for (auto _ : state) {
    const std::size_t before = bytes_held();
    for (auto *&handle : held)
      handle = Kind::start();
    iterate_while_anything_is_ready();
    state.counters["bytes"] =
        static_cast<double>(bytes_held() - before) / static_cast<double>(held.size());
    for (auto *handle : held)
      Kind::end(handle);
  }
}

BENCHMARK(start<ProducerHandle>)->UseRealTime();
BENCHMARK(start<ConsumerHandle>)->UseRealTime();
BENCHMARK(start<BareConnection>)->UseRealTime();
BENCHMARK(hold<ProducerHandle>)->Iterations(1);
BENCHMARK(hold<ConsumerHandle>)->Iterations(1);
BENCHMARK(hold<BareConnection>)->Iterations(1);

} // namespace
