// Eight threads and the real switch. Nothing of GDBus runs in this process, so that the thread
// sanitizer sees the library's own threads only.
#include "live.hpp"
#include "switchprocess.hpp"

#include <atomic>
#include <csignal>
#include <mutex>
#include <set>
#include <thread>

namespace varro2::test {
namespace {

constexpr int thread_count = 8;

class RealThreads : public ::testing::Test {
 protected:
  struct Received {
    std::mutex lock;
    std::multiset<gint32> counts;
  };
  static void on_event(Event *event, gpointer data) {
    auto &received = *static_cast<Received *>(data);
    gint32 count = 0;
    event_get_typed_value(event, "count", &count);
    event_free(event);
    const std::scoped_lock held{received.lock};
    received.counts.insert(count);
  }
  static void drop_event(Event *event, gpointer) { event_free(event); }

  void SetUp() override { switch_.start(); }

  template <typename Function>
  void on_all(
      Function function, const std::function<void()> &meanwhile = [] {}) {
    std::atomic<int> running{thread_count};
    std::vector<std::thread> threads;
    for (int i = 0; i < thread_count; ++i)
      threads.emplace_back([&, i] {
        function(i);
        --running;
      });
    EXPECT_TRUE(iterate_until([&] {
      meanwhile();
      return running == 0;
    }));
    for (auto &thread : threads)
      thread.join();
  }

  PrivateBus bus_;
  SwitchProcess switch_{VARRO2_SWITCHD};
};

TEST_F(RealThreads, EverythingAtOnce) {
  constexpr int rounds = 30;
  std::atomic<int> subscribed{0};
  EventProducer *producer = event_producer_new_full(
      "hello",
      [](GArray *ids, gpointer flag) {
        *static_cast<std::atomic<int> *>(flag) = static_cast<int>(ids->len);
      },
      &subscribed);
  EventConsumer *consumer = event_consumer_new("listener");
  Received received;
  const guint32 shared = event_producer_declare(producer, greeting().get());
  event_consumer_subscribe(consumer, wants("text", "shared").get(), on_event, &received);
  ASSERT_TRUE(iterate_until([&] { return subscribed > 0; }));

  std::atomic<int> failed{0};
  on_all([&](int thread) {
    for (int i = 0; i < rounds; ++i) {
      const auto event = prepared_greeting(producer, shared, "shared", thread * rounds + i);
      failed += !event_producer_send_event(producer, event.get(), nullptr);
      const guint32 own = event_producer_declare(producer, door().get());
      failed += !send_door(producer, own, TRUE);
      const guint32 token =
          event_consumer_subscribe(consumer, wants("topic0", "Door").get(), drop_event, nullptr);
      failed += !event_consumer_refresh(consumer, token, nullptr);
      event_producer_declaration_complete(producer, own);
      failed += !event_consumer_unsubscribe(consumer, token, nullptr);
      failed += !event_producer_undeclare(producer, own);
    }
  });
  EXPECT_EQ(failed, 0);
  std::multiset<gint32> expected;
  for (int i = 0; i < thread_count * rounds; ++i)
    expected.insert(i);
  EXPECT_TRUE(iterate_until([&] {
    const std::scoped_lock held{received.lock};
    return received.counts == expected;
  }));

  std::atomic<int> freed{0};
  event_producer_int_free(
      producer, [](auto *, gpointer count) { ++*static_cast<std::atomic<int> *>(count); }, &freed);
  event_consumer_int_free(
      consumer, [](auto *, gpointer count) { ++*static_cast<std::atomic<int> *>(count); }, &freed);
  ASSERT_TRUE(iterate_until([&] { return freed == 2; }));
}

TEST_F(RealThreads, WhileTheSwitchDiesAndReturns) {
  EventProducer *producer = event_producer_new("hello");
  const guint32 id = event_producer_declare(producer, door().get());
  std::atomic<bool> enough{false};
  int deaths = 0;
  on_all(
      [&](int) {
        std::atomic<bool> gone{true};
        while (!enough) {
          // One handle at a time: a bus has a limit for the connections of a user.
          if (!gone.exchange(false)) {
            std::this_thread::yield();
            continue;
          }
          EXPECT_TRUE(send_door(producer, id, TRUE));
          EventConsumer *consumer = event_consumer_new("listener");
          event_consumer_subscribe(consumer, wants("topic0", "Door").get(), drop_event, nullptr);
          event_consumer_int_free(
              consumer,
              [](auto *, gpointer flag) { *static_cast<std::atomic<bool> *>(flag) = true; }, &gone);
        }
        while (!gone)
          std::this_thread::yield();
      },
      [&] {
        if (deaths < 5) {
          switch_.restart(SIGKILL);
          ++deaths;
        } else {
          enough = true;
        }
      });
  bool freed = false;
  event_producer_int_free(
      producer, [](auto *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &freed);
  ASSERT_TRUE(iterate_until([&] { return freed; }));
}

TEST_F(RealThreads, MatchAgainstOneExpression) {
  // Reading is allowed to all threads at once.
  const auto expression = wants("topic0", "Door");
  const auto declaration = door();
  const HeldEvent event{event_declaration_generate_event(declaration.get())};
  std::atomic<int> matches{0};
  on_all([&](int) {
    for (int i = 0; i < 1000; ++i)
      matches += event_contains(event.get(), expression.get());
  });
  EXPECT_EQ(matches, 1000 * thread_count);
}

} // namespace
} // namespace varro2::test
