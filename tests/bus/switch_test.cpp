// Producer, consumer and the real switch, which dies and returns while events flow.
#include "live.hpp"
#include "switchprocess.hpp"

#include <csignal>
#include <set>

namespace varro2::test {
namespace {

// Its own bus, without the fake switch's claim on the name.
class RealSwitch : public ::testing::Test {
 protected:
  struct Received {
    std::set<gint32> counts;
    int doubles = 0;
    int added = 0;
    int removed = 0;
  };

  static void on_event(Event *event, gpointer data) {
    auto &self = *static_cast<Received *>(data);
    gint32 count = -1;
    event_get_typed_value(event, "count", &count);
    self.doubles += !self.counts.insert(count).second;
    event_free(event);
  }
  static void on_notification(Notification *notification, gpointer data) {
    auto &self = *static_cast<Received *>(data);
    ++(notification_is_type_deleted(notification) ? self.removed : self.added);
    notification_free(notification);
  }

  PrivateBus bus_;
  SwitchProcess switch_{VARRO2_SWITCHD};
};

bool has_subscriber(const ProducerHandle &producer, guint32 local_id) {
  const auto &reports = producer.reports();
  return !reports.empty() && std::ranges::find(reports.back(), local_id) != reports.back().end();
}

TEST_F(RealSwitch, BringsProducerAndConsumerTogether) {
  switch_.start();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  Received received;
  const guint32 local_id = event_producer_declare(producer.get(), greeting().get());
  const guint32 token = event_consumer_subscribe_full(
      consumer.get(), wants("topic0", "Greeting").get(), on_event, on_notification, &received);
  ASSERT_TRUE(iterate_until([&] { return has_subscriber(producer, local_id); }));
  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), local_id, "hi", 1).get(), nullptr));
  ASSERT_TRUE(iterate_until([&] { return received.counts.size() == 1; }));
  ASSERT_TRUE(iterate_until([&] { return received.added == 1; }));

  EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), token, nullptr));
  ASSERT_TRUE(iterate_until([&] { return !has_subscriber(producer, local_id); }));
}

TEST_F(RealSwitch, TellsWhenAProducerIsGone) {
  switch_.start();
  ConsumerHandle consumer{"listener"};
  Received received;
  event_consumer_subscribe_full(consumer.get(), wants("topic0", "Greeting").get(), on_event,
                                on_notification, &received);
  {
    ProducerHandle producer{"hello"};
    event_producer_declare(producer.get(), greeting().get());
    ASSERT_TRUE(iterate_until([&] { return received.added == 1; }));
  }
  ASSERT_TRUE(iterate_until([&] { return received.removed == 1; }));
  EXPECT_EQ(received.added, 1);
}

TEST_F(RealSwitch, AnswersWithThePropertysState) {
  switch_.start();
  ProducerHandle producer{"doors"};
  const guint32 local_id = event_producer_declare(producer.get(), door().get());
  ASSERT_TRUE(
      iterate_until([&] { return event_producer_declaration_complete(producer.get(), local_id); }));
  ConsumerHandle consumer{"listener"};
  // The producer's loop is this thread's: the question comes from another one.
  ChildProcess printer{{EVENT_PRINTER, "--count", "2", "topic0=Door"}};
  ASSERT_TRUE(iterate_until([&] { return has_subscriber(producer, local_id); }));
  EXPECT_TRUE(send_door(producer.get(), local_id, TRUE));
  EXPECT_TRUE(send_door(producer.get(), local_id, FALSE));
  ASSERT_TRUE(iterate_until([&] { return !printer.running(); }));
  EXPECT_EQ(printer.wait(), 0);
  EXPECT_NE(printer.output().find("topic0=Door open=1"), std::string::npos) << printer.output();
  EXPECT_NE(printer.output().find("topic0=Door open=0"), std::string::npos) << printer.output();
}

TEST_F(RealSwitch, DiesAndReturnsAHundredTimesAndNothingIsLost) {
  constexpr int rounds = 100;
  switch_.start();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  Received received;
  const guint32 local_id = event_producer_declare(producer.get(), greeting().get());
  event_consumer_subscribe_full(consumer.get(), wants("topic0", "Greeting").get(), on_event,
                                on_notification, &received);

  // What was handed over while a subscription was live and still was afterwards.
  std::set<gint32> certain;
  gint32 count = 0;
  const auto send = [&] {
    const bool live = has_subscriber(producer, local_id);
    const auto reports = producer.reports().size();
    ++count;
    const bool accepted = event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), local_id, "hi", count).get(), nullptr);
    g_main_context_iteration(nullptr, FALSE);
    if (accepted && live && producer.reports().size() == reports)
      certain.insert(count);
  };
  for (int round = 0; round < rounds; ++round) {
    ASSERT_TRUE(iterate_until([&] { return has_subscriber(producer, local_id); }))
        << "round " << round;
    for (int i = 0; i < 20; ++i)
      send();
    switch_.signal(SIGKILL);
    ASSERT_TRUE(iterate_until([&] {
      send();
      return !has_subscriber(producer, local_id);
    }));
    switch_.end(SIGKILL);
    send();
    switch_.launch();
    ASSERT_TRUE(iterate_until([&] { return switch_.owned(); }));
  }
  ASSERT_TRUE(iterate_until([&] { return std::ranges::includes(received.counts, certain); }));
  EXPECT_GE(certain.size(), 20U * rounds - rounds);
  EXPECT_EQ(received.doubles, 0);
  ASSERT_TRUE(iterate_until([&] { return received.added == rounds + 1; }));
}

TEST_F(RealSwitch, AConsumerKilledInTheMiddle) {
  switch_.start();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  Received received;
  const guint32 local_id = event_producer_declare(producer.get(), greeting().get());
  event_consumer_subscribe(consumer.get(), wants("topic0", "Greeting").get(), on_event, &received);
  ASSERT_TRUE(iterate_until([&] { return has_subscriber(producer, local_id); }));

  ChildProcess printer{{EVENT_PRINTER, "topic0=Greeting"}};
  gint32 count = 0;
  ASSERT_TRUE(iterate_until([&] {
    event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), local_id, "hi", ++count).get(), nullptr);
    return printer.output().find("event ") != std::string::npos;
  }));
  printer.signal(SIGKILL);
  for (int i = 0; i < 1000; ++i) {
    EXPECT_TRUE(event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), local_id, "hi", ++count).get(), nullptr));
    iterate_pending();
  }
  EXPECT_EQ(printer.wait(), 128 + SIGKILL);
  ASSERT_TRUE(
      iterate_until([&] { return received.counts.size() == static_cast<std::size_t>(count); }));
}

} // namespace
} // namespace varro2::test
