// One event against many subscriptions of three tests, ten of which fit; the number in a row's
// name is that of the subscriptions.
#include "counting.hpp"

#include "event8.hpp"
#include "subscribers.hpp"

#include <malloc.h>

#include <string>

namespace {

using bench::measure;
using varro2::OwnedExpression;

OwnedExpression expression(guint32 number, std::int64_t tokens) {
  OwnedExpression made{subscribe_expression_new()};
  subscribe_expression_add_key_value(made.get(), "topic0", "Device");
  subscribe_expression_add_key_value(made.get(), "LogicalState", "1");
  const std::string token = "port-" + std::to_string(number % tokens);
  subscribe_expression_add_key_value(made.get(), "InputToken", token.c_str());
  subscribe_expression_set_id(made.get(), number + 1);
  subscribe_expression_set_dbus_service(made.get(), ":1.1234");
  subscribe_expression_set_dbus_object(made.get(), "/com/quor/Event/Consumer/0x55d0c0ffee00");
  subscribe_expression_set_consumer_token(made.get(), number);
  return made;
}

std::int64_t tokens_for(std::int64_t subscriptions) {
  return std::max<std::int64_t>(1, subscriptions / 10);
}

struct Setting {
  explicit Setting(std::int64_t count)
      : declaration{bench::event8::declaration()}, event{bench::event8::filled_event("1")} {
    event_set_value(event, "InputToken", "port-0");
    for (guint32 number = 0; number < static_cast<guint32>(count); ++number)
      subscribers.add(expression(number, tokens_for(count)), declaration);
  }
  ~Setting() {
    event_free(event);
    event_declaration_free(declaration);
  }

  EventDeclaration *declaration;
  Event *event;
  varro2::Subscribers subscribers;
};

void match_in_order(benchmark::State &state) {
  const auto before = mallinfo2().uordblks;
  const Setting setting{state.range(0)};
  state.counters["bytes"] =
      static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(state.range(0));
  std::vector<const varro2::Subscriber *> matching;
  measure(state, [&] { setting.subscribers.match(*setting.event, matching); });
  state.counters["fit"] = static_cast<double>(matching.size());
}

void ask_each(benchmark::State &state) {
  std::vector<OwnedExpression> expressions;
  for (guint32 number = 0; number < static_cast<guint32>(state.range(0)); ++number)
    expressions.push_back(expression(number, tokens_for(state.range(0))));
  const Setting setting{0};
  measure(state, [&] {
    for (const OwnedExpression &each : expressions)
      benchmark::DoNotOptimize(event_contains(setting.event, each.get()));
  });
}

BENCHMARK(match_in_order)->RangeMultiplier(10)->Range(1, 100'000);
BENCHMARK(ask_each)->RangeMultiplier(10)->Range(1, 100'000);

} // namespace
