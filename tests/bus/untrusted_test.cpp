// Peers that send whatever they like, to handles and a switch that trust nobody.
#include "live.hpp"
#include "switchprocess.hpp"

#include <fstream>
#include <random>

namespace varro2::test {
namespace {

constexpr const char *invalid_args = "org.freedesktop.DBus.Error.InvalidArgs";
constexpr const char *bus_driver = "org.freedesktop.DBus";

class Untrusted : public Live {
 protected:
  Untrusted() { event_utils_set_untrusted_peers(TRUE); }
  ~Untrusted() override { event_utils_set_untrusted_peers(FALSE); }

  std::size_t complaints(const ForeignPeer &peer) const {
    return log_.count(G_LOG_LEVEL_WARNING, "Dropped a malformed record from " + peer.unique_name());
  }
};

Bytes cut(Bytes bytes) {
  bytes.pop_back();
  return bytes;
}

Answer deliver(FakeProducer &peer, const Call &subscribe, const char *member, const Bytes &bytes) {
  return peer.call(subscribe.sender, subscribe.text(0), FakeConsumer::interface, member,
                   g_variant_new("(@ayu)", bytes_variant(bytes).get(), subscribe.number(2)));
}

TEST_F(Untrusted, AConsumerRefusesWhatItCannotRead) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  event_consumer_subscribe_full(consumer.get(), wants("topic0", "Greeting").get(), Inbox::on_event,
                                Inbox::on_notification, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call subscribe = switch_.calls("Subscribe").front();
  const Bytes event = wire::stamped_event({}, greeting_pairs("hi", 1));
  const Bytes notification =
      wire::notification(1, 2, false, wire::subscription({}, {{{"topic0", "Greeting"}}}),
                         wire::declaration_record({}, false, greeting_pairs()));
  FakeProducer peer;
  const Bytes neither_true_nor_false =
      wire::stamped_event({}, {{"topic0", "Greeting"}, {"open", "maybe", wire::boolean}});
  for (const Bytes &bytes :
       {Bytes{}, Bytes{0xF1}, cut(event), notification, neither_true_nor_false})
    EXPECT_EQ(deliver(peer, subscribe, "Event", bytes).error_name, invalid_args);
  for (const Bytes &bytes : {Bytes{}, cut(notification), event})
    EXPECT_EQ(deliver(peer, subscribe, "Notification", bytes).error_name, invalid_args);
  EXPECT_EQ(complaints(peer), 1u);
  EXPECT_TRUE(inbox.events.empty());

  EXPECT_EQ(deliver(peer, subscribe, "Event", event).error_name, "");
  EXPECT_EQ(deliver(peer, subscribe, "Notification", notification).error_name, "");
  EXPECT_EQ(inbox.events.size(), 1u);
  EXPECT_EQ(inbox.notifications.size(), 1u);

  FakeProducer other;
  EXPECT_EQ(deliver(other, subscribe, "Event", {}).error_name, invalid_args);
  EXPECT_EQ(complaints(other), 1u);
  log_.clear();
}

TEST_F(Untrusted, AProducerRefusesSubscriptionsThatItCannotServe) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  FakeConsumer peer;
  const auto subscribe_as = [&](const Bytes &bytes) {
    return switch_
        .call(declared.declare.sender, declared.declare.text(0), "com.quor.Event.Producer",
              "Subscribe", g_variant_new("(@ayu)", bytes_variant(bytes).get(), declared.local_id))
        .error_name;
  };
  const wire::AndList tests{{"topic0", "Greeting"}};
  EXPECT_EQ(subscribe_as({}), invalid_args);
  EXPECT_EQ(subscribe_as(wire::subscription({1, "no name", "/a", 2}, {tests})), invalid_args);
  EXPECT_EQ(subscribe_as(wire::subscription({1, peer.unique_name(), "no path", 2}, {tests})),
            invalid_args);
  EXPECT_EQ(subscribe_as(wire::subscription({1, peer.unique_name(), "/a", 2}, {tests})), "");
  EXPECT_EQ(complaints(switch_), 1u);
  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), declared.local_id, "hi", 1).get(),
      nullptr));
  EXPECT_TRUE(peer.wait_for("Event"));
  log_.clear();
}

TEST_F(Untrusted, AnswersThatCannotBeReadAreFailures) {
  switch_.come();
  ConsumerHandle consumer{"asker"};
  EventQuery *query = event_query_new();
  for (const Bytes &bytes : {Bytes{9}, Bytes{9, 9, 9, 9, 9}}) {
    switch_.answer_bytes("GetPropertyState", bytes);
    switch_.answer_bytes("GetAllDeclarations", bytes);
    switch_.answer_bytes("GetDeclarationTypes", bytes);
    Failure failure;
    EXPECT_EQ(
        event_consumer_get_property_state(consumer.get(), wants("a", "b").get(), failure.slot()),
        nullptr);
    EXPECT_TRUE(failure.is(EVENT_ERROR_DBUS_FAILED, "The record is malformed."));
    EXPECT_EQ(event_query_get_declarations(query), nullptr);
    EXPECT_EQ(event_query_get_declaration_types(query), nullptr);
  }
  EXPECT_EQ(complaints(switch_), 1u);
  EXPECT_EQ(
      log_.count(G_LOG_LEVEL_WARNING, "Could not get event declarations: The record is malformed."),
      2u);
  // Answers of another shape.
  switch_.answer_again("GetPropertyState");
  switch_.answer_again("GetDeclarationTypes");
  EXPECT_EQ(event_consumer_get_property_state(consumer.get(), wants("a", "b").get(), nullptr),
            nullptr);
  EXPECT_EQ(event_query_get_declaration_types(query), nullptr);
  event_query_free(query);
  iterate_pending();
  log_.clear();
}

TEST_F(Untrusted, ASwitchThatTakesTheNameOverIsANewOne) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  FakeSwitch successor; // stands in line for the name
  successor.call(bus_driver, "/org/freedesktop/DBus", bus_driver, "RequestName",
                 g_variant_new("(su)", "com.quor.Event.Switch", 0U));
  switch_.leave();
  ASSERT_TRUE(successor.wait_for("Declare"));
  EXPECT_FALSE(event_producer_declaration_complete(producer.get(), declared.local_id));
}

// ---- Very many of them

class Breaker {
 public:
  explicit Breaker(std::vector<Bytes> records) : records_{std::move(records)} {}

  Bytes operator()() {
    Bytes bytes = records_[below(records_.size())];
    for (std::size_t changes = below(3); changes > 0 && !bytes.empty(); --changes) {
      const auto at = bytes.begin() + static_cast<std::ptrdiff_t>(below(bytes.size()));
      switch (below(4)) {
      case 0:
        *at = static_cast<std::uint8_t>(below(256));
        break;
      case 1:
        *at = static_cast<std::uint8_t>(*at ^ (1u << below(8)));
        break;
      case 2:
        bytes.erase(at);
        break;
      default:
        bytes.resize(static_cast<std::size_t>(at - bytes.begin()));
      }
    }
    return bytes;
  }
  std::uint32_t number() { return static_cast<std::uint32_t>(below(100)); }

 private:
  std::size_t below(std::size_t limit) {
    return std::uniform_int_distribution<std::size_t>{0, limit - 1}(random_);
  }

  std::mt19937 random_{20261120};
  std::vector<Bytes> records_;
};

std::vector<Bytes> sound_records(const std::string &service) {
  const wire::AndList tests{{"topic0", "Greeting"}};
  const Bytes expression = wire::subscription({1, service, "/a", 2}, {tests, tests});
  const Bytes declaration = wire::declaration_record({1, 2, 3, true}, false, door_pairs(true));
  return {wire::stamped_event({1, 2, 3, true}, greeting_pairs("hi", 1)), expression, declaration,
          wire::notification(1, 2, false, expression, declaration),
          wire::property_state({{"topic0", "Door"}})};
}

TEST_F(Untrusted, HandlesOutliveBrokenRecords) {
  switch_.come();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const auto declared = declare_fully(producer, greeting().get());
  event_consumer_subscribe_full(consumer.get(), wants("topic0", "Greeting").get(), Inbox::on_event,
                                Inbox::on_notification, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call subscribed = switch_.calls("Subscribe").front();
  FakeProducer peer;
  Breaker broken{sound_records(peer.unique_name())};
  for (int round = 1; round <= 17'000; ++round) {
    for (const char *member : {"Event", "Notification"})
      peer.post(subscribed.sender, subscribed.text(0), FakeConsumer::interface, member,
                g_variant_new("(@ayu)", bytes_variant(broken()).get(), subscribed.number(2)));
    peer.post(declared.declare.sender, declared.declare.text(0), "com.quor.Event.Producer",
              "Subscribe",
              g_variant_new("(@ayu)", bytes_variant(broken()).get(), declared.local_id));
    if (round % 100 == 0) {
      peer.fence(subscribed.sender);
      peer.fence(declared.declare.sender);
      inbox = {};
    }
  }
  EXPECT_EQ(complaints(peer), 1u);
  EXPECT_EQ(deliver(peer, subscribed, "Event", wire::stamped_event({}, greeting_pairs("hi", 1)))
                .error_name,
            "");
  EXPECT_EQ(inbox.events.size(), 1u);
  log_.clear();
}

std::size_t resident_kilobytes(pid_t process) {
  std::ifstream status{"/proc/" + std::to_string(process) + "/status"};
  for (std::string word; status >> word;)
    if (word == "VmRSS:") {
      std::size_t size = 0;
      status >> size;
      return size;
    }
  return 0;
}

TEST(UntrustedSwitch, OutlivesBrokenRecordsAndHoldsNoMemory) {
  const PrivateBus bus;
  SwitchProcess event_switch{VARRO2_SWITCHD};
  event_switch.start();
  [[maybe_unused]] std::size_t first_size = 0;
  for (int round = 0; round < 10; ++round) {
    {
      ForeignPeer peer;
      Breaker broken{sound_records(peer.unique_name())};
      const auto post = [&](const char *part, const char *member, GVariant *arguments) {
        peer.post("com.quor.Event.Switch", "/com/quor/Event/Switch",
                  std::string{"com.quor.Event.Switch."} + part, member, arguments);
      };
      for (int calls = 1; calls <= 1'000; ++calls) {
        post("Producer", "Declare",
             g_variant_new("(ss@ay)", "/p", "p", bytes_variant(broken()).get()));
        post("Consumer", "Subscribe",
             g_variant_new("(ssu@ay)", "/c", "c", broken.number(), bytes_variant(broken()).get()));
        post("Consumer", "GetPropertyState", g_variant_new("(@ay)", bytes_variant(broken()).get()));
        post("Producer", "Undeclare", g_variant_new("(su)", "/p", broken.number()));
        post("Consumer", "Unsubscribe", g_variant_new("(uu)", broken.number(), broken.number()));
        if (calls % 50 == 0)
          peer.fence("com.quor.Event.Switch");
      }
    }
    ForeignPeer next;
    EXPECT_EQ(next.call("com.quor.Event.Switch", "/com/quor/Event/Switch",
                        "com.quor.Event.Switch.Query", "GetAllDeclarations")
                  .error_name,
              "");
    if (round == 2)
      first_size = resident_kilobytes(event_switch.process()->pid());
  }
  EXPECT_TRUE(event_switch.process()->running());
#ifndef __SANITIZE_ADDRESS__ // which keeps what was freed for a while
  EXPECT_LT(resident_kilobytes(event_switch.process()->pid()), first_size + 2'000);
#endif
  // One line for each peer that sent them.
  const std::string log = event_switch.process()->errors();
  std::size_t lines = 0;
  for (std::size_t at = 0;
       (at = log.find("Dropped a malformed record from :", at)) != std::string::npos; ++at)
    ++lines;
  EXPECT_EQ(lines, 10u);
}

} // namespace
} // namespace varro2::test
