// Many events: all of them arrive, memory stays where it is, nobody is delayed by a peer that
// hangs.
#include "live.hpp"

#include <malloc.h>

#include <fstream>

namespace varro2::test {
namespace {

class Load : public Live {
 protected:
  static constexpr const char *object = "/foreign/listener";

  void send(const ProducerHandle &producer, guint32 local_id, int count) {
    ASSERT_TRUE(event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), local_id, "hi", count).get(), nullptr));
  }
};

// Bytes in use, as the allocator counts them; with a sanitizer, which has its own allocator, 0.
std::size_t bytes_in_use() {
  return mallinfo2().uordblks;
}

TEST_F(Load, AHundredThousandEvents) {
  constexpr int total = 100'000;
  constexpr int burst = 100;
  switch_.come();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  struct State {
    int received = 0;
    int out_of_order = 0;
  } state;
  const guint32 token = event_consumer_subscribe(
      consumer.get(), wants("topic0", "Greeting").get(),
      [](Event *event, gpointer data) {
        auto &self = *static_cast<State *>(data);
        gint32 count = -1;
        event_get_typed_value(event, "count", &count);
        self.out_of_order += count != self.received;
        ++self.received;
        event_free(event);
      },
      &state);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call subscribed = switch_.calls("Subscribe").front();
  const auto declared = declare_fully(producer, greeting().get());
  switch_.subscribe(declared.declare,
                    wire::subscription({1, subscribed.sender, subscribed.text(0), token, false},
                                       {{{"topic0", "Greeting"}}}),
                    declared.local_id);
  std::size_t before = 0;
  for (int sent = 0; sent < total;) {
    for (int i = 0; i < burst; ++i, ++sent)
      send(producer, declared.local_id, sent);
    ASSERT_TRUE(iterate_until([&] { return state.received == sent; }));
    if (sent == total / 10)
      before = bytes_in_use();
  }
  EXPECT_EQ(state.out_of_order, 0);
  // Queues keep the room that they once needed; a leak of the smallest block per event would be
  // more than a megabyte.
  EXPECT_LE(bytes_in_use(), before + 256 * 1024);
}

// They have answered until then, and what is sent to all goes to them first.
TEST_F(Load, ThirtyThatHangAtOnceHoldNobodyUp) {
  constexpr std::size_t hanging = 30;
  constexpr std::size_t before = 20;
  constexpr std::size_t total = 2000;
  const wire::AndList all{{"topic0", "Greeting"}};
  switch_.come();
  std::vector<std::unique_ptr<FakeConsumer>> peers;
  FakeConsumer healthy;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  for (std::size_t i = 0; i < hanging; ++i) {
    peers.push_back(std::make_unique<FakeConsumer>());
    subscribe(declared, *peers.back(), object, static_cast<std::uint32_t>(i + 1), 11, all);
  }
  subscribe(declared, healthy, object, hanging + 1, 12, all);
  for (std::size_t i = 0; i < before; ++i)
    send(producer, declared.local_id, static_cast<int>(i));
  for (const auto &peer : peers)
    ASSERT_TRUE(peer->wait_for("Event", before));
  ASSERT_TRUE(healthy.wait_for("Event", before));

  for (const auto &peer : peers)
    peer->stay_silent("Event");
  for (std::size_t i = before; i < total; ++i)
    send(producer, declared.local_id, static_cast<int>(i));
  // Long before the first call runs out of time.
  ASSERT_TRUE(healthy.wait_for("Event", total));
  std::size_t unanswered = 0;
  for (const auto &peer : peers) {
    const std::size_t silent = peer->count("Event") - before;
    EXPECT_GE(silent, 1u);
    EXPECT_LE(silent, 8u);
    unanswered += silent;
  }
  EXPECT_LE(unanswered, 96u);

  // A late comer is served as well.
  FakeConsumer late;
  subscribe(declared, late, object, hanging + 2, 13, all);
  send(producer, declared.local_id, static_cast<int>(total));
  ASSERT_TRUE(late.wait_for("Event"));
}

TEST_F(Load, ABurstBeyondTheBusLimitArrivesWhole) {
  constexpr int burst = 5000; // the bus refuses the 129th unanswered call
  switch_.come();
  FakeConsumer peer;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
  for (int i = 0; i < burst; ++i)
    send(producer, declared.local_id, i);
  ASSERT_TRUE(peer.wait_for("Event", burst));
  peer.fence(declared.declare.sender);
  EXPECT_EQ(peer.count("Event"), static_cast<std::size_t>(burst));
}

TEST_F(Load, AHangingConsumerDelaysNobody) {
  constexpr int burst = 500;
  switch_.come();
  FakeConsumer hanging;
  FakeConsumer healthy;
  hanging.stay_silent("Event");
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  const wire::AndList all{{"topic0", "Greeting"}};
  subscribe(declared, hanging, object, 1, 11, all);
  subscribe(declared, healthy, object, 2, 12, all);
  for (int i = 0; i < burst; ++i)
    send(producer, declared.local_id, i);
  ASSERT_TRUE(healthy.wait_for("Event", burst));
  EXPECT_LT(hanging.count("Event"), 128U);
}

TEST_F(Load, AConsumerThatDiesInTheMiddleDelaysNobody) {
  constexpr int burst = 2000;
  switch_.come();
  auto dying = std::make_unique<FakeConsumer>();
  FakeConsumer healthy;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  const wire::AndList all{{"topic0", "Greeting"}};
  subscribe(declared, *dying, object, 1, 11, all);
  subscribe(declared, healthy, object, 2, 12, all);
  for (int i = 0; i < burst; ++i) {
    send(producer, declared.local_id, i);
    if (i == burst / 2)
      dying.reset();
    if (i % 10 == 0)
      iterate_pending();
  }
  ASSERT_TRUE(healthy.wait_for("Event", burst));
  expect_quiet_log_ = false;
}

TEST_F(Load, AHangingConsumerHasFewCallsOnTheWay) {
  switch_.come();
  FakeConsumer peer;
  peer.stay_silent("Event");
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
  for (int i = 0; i < 300; ++i)
    send(producer, declared.local_id, i);
  iterate_pending();
  peer.fence(declared.declare.sender);
  EXPECT_EQ(peer.count("Event"), 8U);
}

TEST_F(Load, ManyDeclarationsAndSubscriptionsAtOnce) {
  constexpr int many = 1000;
  switch_.come();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  for (int i = 0; i < many; ++i) {
    event_producer_declare(producer.get(), greeting().get());
    event_consumer_subscribe(
        consumer.get(), wants("topic0", "Greeting").get(),
        [](Event *event, gpointer) { event_free(event); }, nullptr);
  }
  for (std::size_t restart = 1; restart <= 3; ++restart) {
    ASSERT_TRUE(switch_.wait_for("Declare", restart * many));
    ASSERT_TRUE(switch_.wait_for("Subscribe", restart * many));
    switch_.fence(switch_.calls("Declare").front().sender);
    switch_.fence(switch_.calls("Subscribe").front().sender);
    EXPECT_EQ(switch_.calls().size(), restart * 2 * many);
    if (restart < 3) {
      switch_.leave();
      switch_.come();
    }
  }
}

} // namespace
} // namespace varro2::test
