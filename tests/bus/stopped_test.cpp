// One of many consumers is stopped while events flow, at the limits of a system bus.
#include "live.hpp"
#include "switchprocess.hpp"

#include <algorithm>
#include <csignal>

namespace varro2::test {
namespace {

constexpr int total = 50'000;

struct Follower {
  ConsumerHandle consumer{"follower"};
  gint32 last = 0;
  int received = 0;
  int out_of_order = 0;

  Follower() {
    event_consumer_subscribe(consumer.get(), wants("topic0", "Greeting").get(), on_event, this);
  }
  static void on_event(Event *event, gpointer data) {
    auto &self = *static_cast<Follower *>(data);
    gint32 count = 0;
    event_get_typed_value(event, "count", &count);
    event_free(event);
    self.out_of_order += count != self.last + 1;
    self.last = count;
    ++self.received;
  }
};

SendCounters counters() {
  SendCounters now{};
  event_utils_get_send_counters(&now);
  return now;
}

// How many events it has printed. Counts on from where it was: the output is long.
class Printed {
 public:
  std::size_t by(ChildProcess &printer) {
    constexpr std::string_view text = "event ";
    const std::string &output = printer.output();
    for (; (at_ = output.find(text, at_)) != std::string::npos; at_ += text.size())
      ++count_;
    at_ = output.size() < text.size() ? 0 : output.size() - text.size() + 1;
    return count_;
  }

 private:
  std::size_t at_ = 0;
  std::size_t count_ = 0;
};

TEST(StoppedConsumer, CostsTheOthersNothingAndGetsItsQueueLater) {
  LogCapture log;
  const PrivateBus bus;
  SwitchProcess event_switch{VARRO2_SWITCHD};
  event_switch.start();
  ProducerHandle producer{"hello"};
  Follower followers[3];
  const guint32 local_id = event_producer_declare(producer.get(), greeting().get());
  ASSERT_TRUE(
      iterate_until([&] { return event_producer_declaration_complete(producer.get(), local_id); }));
  const auto send = [&](gint32 count) {
    EXPECT_TRUE(event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), local_id, "hi", count).get(), nullptr));
  };
  ChildProcess printer{{EVENT_PRINTER, "topic0=Greeting"}};
  ASSERT_TRUE(iterate_until([&] {
    send(0);
    return printer.output().find("event ") != std::string::npos;
  }));
  ASSERT_TRUE(iterate_until([&] { return counters().unanswered + counters().waiting == 0; }));
  for (Follower &follower : followers)
    follower.last = follower.received = follower.out_of_order = 0;

  Printed printed;
  const std::size_t printed_before = printed.by(printer);
  const SendCounters before = counters();
  printer.signal(SIGSTOP);
  for (gint32 count = 1; count <= total; ++count) {
    send(count);
    // They are never far behind, although they run on the sender's own thread.
    if (count % 500 == 0) {
      ASSERT_TRUE(iterate_until([&] {
        return std::ranges::all_of(
            followers, [count](const Follower &each) { return each.received >= count - 400; });
      })) << count;
    }
  }
  for (Follower &follower : followers) {
    ASSERT_TRUE(iterate_until([&] { return follower.received == total; })) << follower.received;
    EXPECT_EQ(follower.out_of_order, 0);
  }
  // What it left unanswered is on the way, what its queue holds waits, and the oldest has gone.
  ASSERT_TRUE(iterate_until([] { return counters().unanswered == 8; }));
  const SendCounters stopped = counters();
  EXPECT_EQ(stopped.answered - before.answered, 3u * total);
  const guint64 dropped = stopped.dropped - before.dropped;
  EXPECT_EQ(stopped.waiting + dropped + 8, static_cast<guint64>(total));
  EXPECT_GT(stopped.waiting, 1000u);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING).size(), dropped > 0 ? 1u : 0u);

  printer.signal(SIGCONT);
  ASSERT_TRUE(iterate_until([&] {
    return printed.by(printer) == printed_before + static_cast<std::size_t>(total - dropped);
  })) << printed.by(printer)
      << ", " << dropped << " dropped";
  ASSERT_TRUE(iterate_until([] { return counters().unanswered + counters().waiting == 0; }));
  EXPECT_EQ(counters().dropped - before.dropped, dropped);
}

} // namespace
} // namespace varro2::test
