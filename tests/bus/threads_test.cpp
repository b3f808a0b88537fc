// Public calls from eight threads while the main loop runs.
#include "live.hpp"

#include <atomic>
#include <set>
#include <thread>

namespace varro2::test {
namespace {

constexpr int thread_count = 8;

class Threads : public Live {
 protected:
  // Runs the function on eight threads and iterates the main context until all have ended.
  template <typename Function>
  void on_all(Function function) {
    std::atomic<int> running{thread_count};
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i)
      threads.emplace_back([&, i] {
        function(i);
        --running;
      });
    EXPECT_TRUE(iterate_until([&] { return running == 0; }));
    for (auto &thread : threads)
      thread.join();
  }
};

TEST_F(Threads, SendOnOneProducer) {
  constexpr int events_each = 200;
  switch_.come();
  FakeConsumer peer;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  subscribe(declared, peer, "/foreign/listener", 1, 11, {{"topic0", "Greeting"}});
  std::atomic<int> refused{0};
  on_all([&](int thread) {
    for (int i = 0; i < events_each; ++i) {
      const auto event =
          prepared_greeting(producer.get(), declared.local_id, std::to_string(thread).c_str(), i);
      refused += !event_producer_send_event(producer.get(), event.get(), nullptr);
    }
  });
  EXPECT_EQ(refused, 0);
  ASSERT_TRUE(peer.wait_for("Event", thread_count * events_each));
  // All of them, and those of one thread in its order.
  std::vector<int> next(thread_count, 0);
  for (const auto &call : peer.calls("Event")) {
    GByteArray *array = g_byte_array_new();
    const Bytes bytes = call.bytes(0);
    g_byte_array_append(array, bytes.data(), static_cast<guint>(bytes.size()));
    const HeldEvent event{event_deserialize(array)};
    g_byte_array_free(array, TRUE);
    const auto thread = static_cast<std::size_t>(std::stoi(event_get_value(event.get(), "text")));
    EXPECT_EQ(std::stoi(event_get_value(event.get(), "count")), next.at(thread)++);
  }
  EXPECT_EQ(next, std::vector<int>(thread_count, events_each));
}

TEST_F(Threads, DeclareAndUndeclare) {
  constexpr int rounds = 25;
  switch_.come();
  ProducerHandle producer{"hello"};
  std::atomic<int> failed{0};
  on_all([&](int) {
    for (int i = 0; i < rounds; ++i) {
      const guint32 id = event_producer_declare(producer.get(), greeting().get());
      const HeldEvent event{event_producer_prepare_event(producer.get(), id)};
      failed += id == 0 || !event || !event_producer_undeclare(producer.get(), id);
    }
  });
  EXPECT_EQ(failed, 0);
  // Whatever was declared before it was taken back came with an id of its own.
  std::set<guint32> ids;
  switch_.fence(FakeSwitch::name);
  for (const auto &call : switch_.calls("Declare"))
    EXPECT_EQ(call.text(1), "hello");
}

TEST_F(Threads, SubscribeRefreshAndUnsubscribe) {
  constexpr int rounds = 25;
  switch_.come();
  ConsumerHandle consumer{"listener"};
  std::atomic<int> failed{0};
  std::mutex lock;
  std::set<guint32> tokens;
  on_all([&](int) {
    for (int i = 0; i < rounds; ++i) {
      const guint32 token = event_consumer_subscribe(
          consumer.get(), wants("topic0", "Greeting").get(),
          [](Event *event, gpointer) { event_free(event); }, nullptr);
      {
        const std::scoped_lock held{lock};
        failed += !tokens.insert(token).second;
      }
      failed += !event_consumer_refresh(consumer.get(), token, nullptr);
      failed += !event_consumer_unsubscribe(consumer.get(), token, nullptr);
    }
  });
  EXPECT_EQ(failed, 0);
  EXPECT_EQ(tokens.size(), static_cast<std::size_t>(thread_count * rounds));
  ASSERT_TRUE(switch_.wait_for("Unsubscribe", thread_count * rounds));
  EXPECT_EQ(switch_.count("RefreshProperty"), static_cast<std::size_t>(thread_count * rounds));
}

TEST_F(Threads, AskForPropertyStates) {
  switch_.come();
  wire::Pair state{"open", "1"};
  state.tags = {"property-state"};
  switch_.answer_bytes("GetPropertyState", wire::property_state({{"topic0", "Door"}, state}));
  ConsumerHandle consumer{"listener"};
  std::atomic<int> found{0};
  on_all([&](int) {
    for (int i = 0; i < 10; ++i) {
      const HeldState answer{event_consumer_get_property_state(
          consumer.get(), wants("topic0", "Door").get(), nullptr)};
      found += answer != nullptr;
    }
  });
  EXPECT_EQ(found, 10 * thread_count);
}

TEST_F(Threads, MakeAndFreeHandles) {
  switch_.come();
  on_all([&](int) {
    for (int i = 0; i < 5; ++i) {
      EventProducer *producer = event_producer_new("hello");
      event_producer_declare(producer, greeting().get());
      event_producer_free(producer);
      EventConsumer *consumer = event_consumer_new("listener");
      event_consumer_subscribe(
          consumer, wants("topic0", "Greeting").get(),
          [](Event *event, gpointer) { event_free(event); }, nullptr);
      event_consumer_free(consumer);
    }
  });
  ASSERT_TRUE(switch_.wait_for("Disconnect", 2 * 5 * thread_count));
}

} // namespace
} // namespace varro2::test
