// What the library does with events, declarations and expressions, by their size; the number in a
// row's name is that of the keys, or of what else the row's name says.
#include "counting.hpp"
#include "event8.hpp"
#include "libraryevent.hpp"

#include <varro2/producer.h>

#include <glib-object.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using bench::facts;
using bench::key_counts;
using bench::Library;
using bench::measure;
using Row = benchmark::internal::Benchmark;

// ---- By the number of keys ----

void create(benchmark::State &state) {
  const Library way{facts(state.range(0))};
  measure(state, [&] { way.create(); });
}
void serialise(benchmark::State &state) {
  const Library way{facts(state.range(0))};
  measure(state, [&] { way.serialise(); });
}
void copy(benchmark::State &state) {
  const Library way{facts(state.range(0))};
  measure(state, [&] { way.copy(); });
}
void json(benchmark::State &state) {
  const Library way{facts(state.range(0))};
  measure(state, [&] { way.json(); });
}

// Three tests that hold, of the first, the middle and the last key.
void match(benchmark::State &state) {
  const Library way{facts(state.range(0))};
  SubscribeExpression *tests = subscribe_expression_new();
  for (const std::size_t at : {std::size_t{0}, way.facts().size() / 2, way.facts().size() - 1})
    subscribe_expression_add_key_value(tests, way.facts()[at].key.c_str(),
                                       way.facts()[at].value.c_str());
  if (!event_contains(way.filled(), tests))
    state.SkipWithError("does not match");
  measure(state, [&] { benchmark::DoNotOptimize(event_contains(way.filled(), tests)); });
  subscribe_expression_free(tests);
}

void read_declaration_xml(benchmark::State &state) {
  const Library way{facts(state.range(0))};
  char *xml = event_declaration_serialize_xml(way.declaration());
  measure(state, [&] {
    EventDeclaration *read = event_declaration_deserialize_xml(xml);
    if (read == nullptr)
      std::abort();
    event_declaration_free(read);
  });
  state.counters["bytes"] = static_cast<double>(std::strlen(xml));
  g_free(xml);
}
void read_expression_xml(benchmark::State &state) {
  SubscribeExpression *tests = subscribe_expression_new();
  for (const auto &fact : facts(state.range(0)))
    subscribe_expression_add_key_value(tests, fact.key.c_str(), fact.value.c_str());
  char *xml = subscribe_expression_serialize_xml(tests);
  subscribe_expression_free(tests);
  measure(state, [&] {
    SubscribeExpression *read = subscribe_expression_deserialize_xml(xml);
    if (read == nullptr)
      std::abort();
    subscribe_expression_free(read);
  });
  state.counters["bytes"] = static_cast<double>(std::strlen(xml));
  g_free(xml);
}

// ---- By the number of declarations ----

// One producer's: an event is prepared from one of them and finds its way back to it. Nobody wants
// it, and there is no bus.
void prepare_and_send(benchmark::State &state) {
  Producer *producer = producer_new("bench", nullptr, nullptr);
  const auto count = static_cast<guint32>(state.range(0));
  for (guint32 id = 1; id <= count; ++id)
    producer_allocate_decl_data(producer, id, bench::event8::declaration(), nullptr, nullptr);
  guint32 turn = 0;
  measure(state, [&] {
    Event *event = producer_prepare_event(producer, 1 + turn++ % count);
    if (!producer_send_event(producer, event, nullptr))
      std::abort();
    event_free(event);
  });
  g_object_unref(producer);
}

// ---- What is held ----

template <typename Make, typename Free>
void hold(benchmark::State &state, Make make, Free free_one) {
  using Object = decltype(make());
  std::vector<Object> held(1000);
  for (auto _ : state) {
    const std::size_t before = mallinfo2().uordblks;
    for (Object &object : held)
      object = make();
    state.counters["bytes"] =
        static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(held.size());
    for (Object object : held)
      free_one(object);
  }
}
void hold_event(benchmark::State &state) {
  hold(
      state, [] { return bench::event8::filled_event("1"); }, event_free);
}
void hold_received_event(benchmark::State &state) {
  Event *event = bench::event8::filled_event("1");
  GByteArray *bytes = event_serialize(event);
  hold(
      state, [&] { return event_deserialize(bytes); }, event_free);
  g_byte_array_unref(bytes);
  event_free(event);
}
void hold_declaration(benchmark::State &state) {
  hold(state, bench::event8::declaration, event_declaration_free);
}
// What a producer keeps.
void hold_copied_declaration(benchmark::State &state) {
  EventDeclaration *declaration = bench::event8::declaration();
  hold(
      state, [&] { return event_declaration_copy(declaration); }, event_declaration_free);
  event_declaration_free(declaration);
}
void hold_expression(benchmark::State &state) {
  hold(
      state,
      [] {
        SubscribeExpression *tests = subscribe_expression_new();
        subscribe_expression_add_key_value(tests, "topic0", "Device");
        subscribe_expression_add_key_value(tests, "InputToken", "port-17");
        subscribe_expression_add_key(tests, "LogicalState");
        return tests;
      },
      subscribe_expression_free);
}

BENCHMARK(create)->Apply(key_counts<Row>);
BENCHMARK(serialise)->Apply(key_counts<Row>);
BENCHMARK(copy)->Apply(key_counts<Row>);
BENCHMARK(json)->Apply(key_counts<Row>);
BENCHMARK(match)->Apply(key_counts<Row>);
BENCHMARK(read_declaration_xml)->Apply(key_counts<Row>);
BENCHMARK(read_expression_xml)->Apply(key_counts<Row>);
BENCHMARK(prepare_and_send)->RangeMultiplier(10)->Range(1, 10'000);
BENCHMARK(hold_event)->Iterations(1);
BENCHMARK(hold_received_event)->Iterations(1);
BENCHMARK(hold_declaration)->Iterations(1);
BENCHMARK(hold_copied_declaration)->Iterations(1);
BENCHMARK(hold_expression)->Iterations(1);

} // namespace
