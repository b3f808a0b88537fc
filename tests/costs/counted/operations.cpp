// Runs the everyday operations for whoever counts: under callgrind the instructions of each
// repetition go to a dump of the operation's name, and its allocations are printed. See
// ceilings.sh.
#include "allocations.hpp"
#include "directbus.hpp"
#include "pendingcalls.hpp"
#include "protocol.hpp"
#include "sendwindow.hpp"
#include "subscribers.hpp"

#include <varro2/varro2.h>

#include <valgrind/callgrind.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>

namespace varro2::test {
namespace {

using OwnedEvent = Owned<Event, event_free>;
using OwnedDeclaration = Owned<EventDeclaration, event_declaration_free>;

constexpr int repetitions = 10;

// Each repetition runs the operation, which is counted, and what comes after it, which is not.
void count(
    const std::string &name, const std::function<void()> &operation,
    const std::function<void()> &afterwards = [] {}) {
  // What caches and GLib's slices keep is there after a few times.
  for (int warm_up = 0; warm_up < 20; ++warm_up) {
    operation();
    afterwards();
  }
  std::size_t least = SIZE_MAX;
  for (int again = 0; again < repetitions; ++again) {
    CALLGRIND_START_INSTRUMENTATION;
    const std::size_t allocated = allocations_of(operation);
    CALLGRIND_STOP_INSTRUMENTATION;
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    least = std::min(least, allocated);
    afterwards();
  }
  std::printf("%s %zu\n", name.c_str(), least);
}

// ---- Events ----

struct Keys {
  explicit Keys(int count) : declaration{event_declaration_new(FALSE)} {
    for (int key = 0; key < count; ++key) {
      names.push_back("key" + std::to_string(key));
      if (key % 2 == 0)
        event_declaration_add_key_value(declaration.get(), names.back().c_str(), "fixed",
                                        VALUE_TYPE_STRING);
      else
        event_declaration_add_key(declaration.get(), names.back().c_str(), VALUE_TYPE_STRING);
    }
    prepared.reset(event_declaration_generate_event(declaration.get()));
    filled = build();
  }

  OwnedEvent build() const {
    OwnedEvent event{event_copy(prepared.get())};
    for (std::size_t key = 1; key < names.size(); key += 2)
      event_set_value(event.get(), names[key].c_str(), "a value");
    event_set_global_id(event.get(), 1);
    event_set_producer_id(event.get(), 1);
    set_event_time_now(event.get());
    return event;
  }

  OwnedDeclaration declaration;
  std::vector<std::string> names;
  OwnedEvent prepared;
  OwnedEvent filled;
};

OwnedExpression three_tests(const char *value) {
  OwnedExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), "key0", "fixed");
  subscribe_expression_add_key_value(expression.get(), "key1", value);
  subscribe_expression_add_key(expression.get(), "key2");
  return expression;
}

void count_events(int key_count) {
  const Keys keys{key_count};
  const std::string number = "/" + std::to_string(key_count);
  const auto bytes = BytesRef::adopt(event_serialize(keys.filled.get()));
  const OwnedText xml{event_declaration_serialize_xml(keys.declaration.get())};

  count("declare" + number, [&] { const Keys made{key_count}; });
  count("copy" + number, [&] { event_free(event_copy(keys.filled.get())); });
  count("serialise" + number, [&] { g_byte_array_unref(event_serialize(keys.filled.get())); });
  count("build_and_serialise" + number,
        [&] { g_byte_array_unref(event_serialize(keys.build().get())); });
  count("read_back" + number, [&] { event_free(event_deserialize(bytes.get())); });
  count("json" + number, [&] { std::free(event_get_json(keys.filled.get(), nullptr)); });
  count("read_xml" + number,
        [&] { event_declaration_free(event_declaration_deserialize_xml(xml.get())); });
  if (key_count < 8)
    return;
  const OwnedExpression tests = three_tests("a value");
  count("match_3_tests" + number, [&] {
    if (!event_contains(keys.filled.get(), tests.get()))
      std::abort();
  });
}

// ---- Subscriptions ----

constexpr guint32 fitting = 10; // of however many

OwnedExpression subscription(guint32 number) {
  OwnedExpression expression =
      three_tests(number < fitting ? "a value" : std::to_string(number).c_str());
  subscribe_expression_set_id(expression.get(), number + 1);
  subscribe_expression_set_dbus_service(expression.get(), ":1.7");
  subscribe_expression_set_dbus_object(expression.get(), "/com/quor/Event/Consumer/0x55d0c0ffee00");
  subscribe_expression_set_consumer_token(expression.get(), number);
  return expression;
}

void count_matching(guint32 subscriptions) {
  const Keys keys{8};
  Subscribers subscribers;
  for (guint32 number = 0; number < subscriptions; ++number)
    subscribers.add(subscription(number), keys.declaration.get());
  std::vector<const Subscriber *> matching;
  const std::string many = std::to_string(subscriptions);
  count("match_among/" + many, [&] { subscribers.match(*keys.filled, matching); });

  const auto bytes =
      BytesRef::adopt(subscribe_expression_serialize(subscription(subscriptions).get()));
  count(
      "subscribe_beside/" + many,
      [&] {
        subscribers.add(OwnedExpression{subscribe_expression_deserialize(bytes.get())},
                        keys.declaration.get());
      },
      [&] { subscribers.remove(subscriptions + 1); });
}

// ---- Sending ----

// From the event that an application hands over to messages on the wire: matching, writing, the
// window, and what sd-bus does for it.
void count_sending(guint32 consumers) {
  const Keys keys{8};
  Subscribers subscribers;
  for (guint32 number = 0; number < consumers; ++number)
    subscribers.add(subscription(number), keys.declaration.get());
  DirectBus bus;
  SendWindow window{bus.near()};
  std::vector<const Subscriber *> matching;
  count(
      "send_to/" + std::to_string(consumers),
      [&] {
        const OwnedEvent event{event_copy(keys.filled.get())};
        subscribers.match(*event, matching);
        const auto bytes = BytesRef::adopt(event_serialize(event.get()));
        for (const Subscriber *subscriber : matching)
          window.send(subscriber->service(),
                      make_window_call(served_consumer::event, subscriber->object(), bytes,
                                       {subscriber->token()}));
      },
      [&] {
        bus.run();
        while (bus.size() > 0)
          bus.answer(0);
        if (!window.idle())
          std::abort();
      });
}

} // namespace
} // namespace varro2::test

int main() {
  using namespace varro2::test;
  for (const int keys : {1, 8, 32, 256})
    count_events(keys);
  for (const guint32 subscriptions : {1U, 100U, 10'000U})
    count_matching(subscriptions);
  for (const guint32 consumers : {1U, 8U})
    count_sending(consumers);
  return 0;
}
