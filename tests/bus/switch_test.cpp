// Producer, consumer and the real switch, which dies and returns while events flow.
#include "live.hpp"
#include "switchprocess.hpp"

#include <algorithm>
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
  return !reports.empty() && std::ranges::count(reports.back(), local_id) > 0;
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
  // In a process of its own: this one's loop stands still while it asks.
  ChildProcess monitor{{MACHINE_MONITOR}};
  ConsumerHandle consumer{"listener"};
  Received received;
  const HeldExpression loopback = wants("interface", "lo");
  event_consumer_subscribe_full(consumer.get(), loopback.get(), on_event, on_notification,
                                &received);
  ASSERT_TRUE(iterate_until([&] { return received.added == 1; }));
  Failure failure;
  const HeldState state{
      event_consumer_get_property_state(consumer.get(), loopback.get(), failure.slot())};
  ASSERT_NE(state, nullptr) << failure.get()->message;
  Inspectable *keys = property_state_get_inspectable(state.get());
  EXPECT_STREQ(inspectable_get_value(keys, "topic1"), "NetworkLink");
  EXPECT_STREQ(inspectable_get_value(keys, "interface"), "lo");
  EXPECT_NE(inspectable_get_value(keys, "up"), nullptr);

  EXPECT_EQ(event_consumer_get_property_state(consumer.get(), wants("interface", "none").get(),
                                              failure.slot()),
            nullptr);
  EXPECT_EQ(failure.get()->code, EVENT_ERROR_LOOKING_UP_PROP_STATE);
  monitor.signal(SIGTERM);
  EXPECT_EQ(monitor.wait(), 0);
}

TEST_F(RealSwitch, TheExamplesUnderstandEachOther) {
  switch_.start();
  ProducerHandle producer{"doors"};
  const guint32 local_id = event_producer_declare(producer.get(), door().get());
  ChildProcess printer{{EVENT_PRINTER, "--count", "2", "topic0=Window", "or", "topic0=Door"}};
  ASSERT_TRUE(iterate_until([&] { return has_subscriber(producer, local_id); }));
  EXPECT_TRUE(send_door(producer.get(), local_id, TRUE));
  EXPECT_TRUE(send_door(producer.get(), local_id, FALSE));
  ASSERT_TRUE(iterate_until([&] { return !printer.running(); }));
  EXPECT_EQ(printer.wait(), 0);
  EXPECT_NE(printer.output().find("topic0=Door open=1\n"), std::string::npos) << printer.output();
  EXPECT_NE(printer.output().find("topic0=Door open=0\n"), std::string::npos) << printer.output();
  EXPECT_NE(printer.output().find("2 events, "), std::string::npos) << printer.output();
}

class WrongArguments : public ::testing::TestWithParam<std::vector<std::string>> {};

TEST_P(WrongArguments, AreNamed) {
  const auto &arguments = GetParam();
  std::vector<std::string> command{EVENT_PRINTER};
  command.insert(command.end(), arguments.begin(), arguments.end() - 1);
  ChildProcess printer{command};
  EXPECT_EQ(printer.wait(), 2);
  EXPECT_EQ(printer.output(), "");
  const std::string errors = printer.errors();
  EXPECT_TRUE(errors.starts_with("event_printer: " + arguments.back() + "\n")) << errors;
  EXPECT_NE(errors.find("usage: event_printer"), std::string::npos);
}

// The last text is what is said about the arguments before it.
INSTANTIATE_TEST_SUITE_P(
    EventPrinter, WrongArguments,
    ::testing::Values(
        std::vector<std::string>{"no test was given"},
        std::vector<std::string>{"--loud", "a", "unknown option '--loud'"},
        std::vector<std::string>{"--count", "argument '--count' needs a number"},
        std::vector<std::string>{"--count", "0", "a", "argument '--count 0': not a number from 1"},
        std::vector<std::string>{"=x", "argument '=x' names no key"},
        std::vector<std::string>{"*", "argument '*': '*' needs a value and takes no name space"},
        std::vector<std::string>{
            "!a=b", "argument '!a=b': write KEY!=VALUE for a value that is not wanted"},
        std::vector<std::string>{"or", "a", "argument 1, 'or', must stand between tests"},
        std::vector<std::string>{"a", "or", "argument 2, 'or', must stand between tests"}));

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
    ASSERT_TRUE(iterate_until([&] {
      return has_subscriber(producer, local_id) && received.added >= round + 1;
    })) << "round "
        << round << ", " << received.added << " notifications";
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
  ASSERT_TRUE(iterate_until([&] {
    return std::includes(received.counts.begin(), received.counts.end(), certain.begin(),
                         certain.end());
  }));
  EXPECT_GE(certain.size(), 20U * rounds - rounds);
  EXPECT_EQ(received.doubles, 0);
  ASSERT_TRUE(iterate_until([&] { return received.added == rounds + 1; })) << received.added;
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
