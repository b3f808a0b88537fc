// Property declarations: the current value is kept and handed to whoever comes later.
#include "live.hpp"

namespace varro2::test {
namespace {

class Properties : public Live {
 protected:
  static constexpr const char *object = "/foreign/listener";

  Bytes door_event(const Declared &declared, bool open) {
    return wire::without_time(wire::stamped_event(
        {declared.global_id, declared.local_id, producer_id, true}, door_pairs(open)));
  }
  std::vector<Bytes> received() {
    std::vector<Bytes> events;
    for (const auto &call : peer_.calls("Event"))
      events.push_back(wire::without_time(call.bytes(0)));
    return events;
  }

  FakeConsumer peer_;
};

TEST_F(Properties, NothingIsSentBeforeThereIsAValue) {
  switch_.come();
  ProducerHandle producer{"doors"};
  const auto declared = declare_fully(producer, door().get());
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  switch_.refresh_property(declared.declare, 1, declared.local_id);
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(peer_.count("Event"), 0U);

  EXPECT_TRUE(send_door(producer.get(), declared.local_id, TRUE));
  ASSERT_TRUE(peer_.wait_for("Event"));
  EXPECT_EQ(received(), std::vector<Bytes>{door_event(declared, true)});
}

TEST_F(Properties, ALaterSubscriberGetsTheLatestValue) {
  switch_.come();
  ProducerHandle producer{"doors"};
  const auto declared = declare_fully(producer, door().get());
  EXPECT_TRUE(send_door(producer.get(), declared.local_id, TRUE));
  EXPECT_TRUE(send_door(producer.get(), declared.local_id, FALSE));
  iterate_pending();
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  // A producer answers a subscription to a property with its event before it answers the call.
  EXPECT_EQ(received(), std::vector<Bytes>{door_event(declared, false)});
  EXPECT_EQ(peer_.calls("Event").front().number(1), 11U);
}

TEST_F(Properties, ASubscriberThatDoesNotMatchGetsNothing) {
  switch_.come();
  ProducerHandle producer{"doors"};
  const auto declared = declare_fully(producer, door().get());
  EXPECT_TRUE(send_door(producer.get(), declared.local_id, TRUE));
  iterate_pending();
  subscribe(declared, peer_, object, 1, 11, {{"open", "0"}});
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(peer_.count("Event"), 0U);
}

TEST_F(Properties, RefreshReachesOneSubscription) {
  switch_.come();
  ProducerHandle producer{"doors"};
  const auto declared = declare_fully(producer, door().get());
  EXPECT_TRUE(send_door(producer.get(), declared.local_id, TRUE));
  iterate_pending();
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  subscribe(declared, peer_, object, 2, 12, {{"topic0", "Door"}});
  peer_.fence(declared.declare.sender);
  peer_.forget_calls();

  EXPECT_EQ(switch_.refresh_property(declared.declare, 2, declared.local_id).error_name, "");
  peer_.fence(declared.declare.sender);
  ASSERT_EQ(peer_.count("Event"), 1U);
  EXPECT_EQ(peer_.calls("Event").front().number(1), 12U);
  EXPECT_EQ(received(), std::vector<Bytes>{door_event(declared, true)});
  // Unknown subscription, unknown declaration: answered, and that is all.
  EXPECT_EQ(switch_.refresh_property(declared.declare, 3, declared.local_id).error_name, "");
  EXPECT_EQ(switch_.refresh_property(declared.declare, 2, declared.local_id + 1).error_name, "");
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(peer_.count("Event"), 1U);
}

TEST_F(Properties, APlainDeclarationHasNoCurrentValue) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), declared.local_id, "hi", 1).get(),
      nullptr));
  iterate_pending();
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Greeting"}});
  switch_.refresh_property(declared.declare, 1, declared.local_id);
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(peer_.count("Event"), 0U);
}

TEST_F(Properties, TheHookGivesTheFirstValue) {
  switch_.come();
  ProducerHandle producer{"doors"};
  int asked = 0;
  const auto hook = [](Event *event, gpointer data) -> Event * {
    ++*static_cast<int *>(data);
    const gboolean open = TRUE;
    event_set_value(event, "open", &open);
    return event;
  };
  const HeldDeclaration declaration = door();
  event_declaration_set_property(declaration.get(), "open", hook, &asked);
  const auto declared = declare_fully(producer, declaration.get());
  EXPECT_EQ(asked, 1);
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(received(), std::vector<Bytes>{door_event(declared, true)});
}

TEST_F(Properties, AnEventIsKeptWhileTheSwitchIsAway) {
  ProducerHandle producer{"doors"};
  const guint32 local_id = event_producer_declare(producer.get(), door().get());
  // Not declared to any switch yet: a property event is accepted all the same.
  EXPECT_TRUE(send_door(producer.get(), local_id, TRUE));
  iterate_pending();
  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{local_id, local_id + 100, switch_.calls("Declare").front()};
  // Subscribed before it has its ids: nothing can be sent yet.
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(peer_.count("Event"), 0U);
  identify(declared);
  subscribe(declared, peer_, object, 2, 12, {{"topic0", "Door"}});
  peer_.fence(declared.declare.sender);
  ASSERT_EQ(peer_.count("Event"), 1U);
  EXPECT_EQ(received(), std::vector<Bytes>{door_event(declared, true)});
}

TEST_F(Properties, AfterARestartTheKeptEventCarriesTheNewIds) {
  switch_.come();
  ProducerHandle producer{"doors"};
  auto declared = declare_fully(producer, door().get());
  EXPECT_TRUE(send_door(producer.get(), declared.local_id, TRUE));
  iterate_pending();
  switch_.leave();
  ASSERT_TRUE(iterate_until(
      [&] { return !event_producer_declaration_complete(producer.get(), declared.local_id); }));
  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Declare", 2));
  declared.global_id = 999;
  identify(declared);
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  peer_.fence(declared.declare.sender);
  EXPECT_EQ(received(), std::vector<Bytes>{door_event(declared, true)});
}

TEST_F(Properties, IdsThatTheEventHasItselfAreLeftAlone) {
  switch_.come();
  GError *error = nullptr;
  Producer *producer = producer_new("doors", nullptr, nullptr);
  ASSERT_TRUE(producer_init_dbus(producer, &error));
  producer_allocate_decl_data(producer, 1, door().release(), nullptr, nullptr);
  producer_send_declare(producer, 1);
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{1, 101, switch_.calls("Declare").front()};
  identify(declared);

  const HeldEvent event{producer_prepare_event(producer, 1)};
  const gboolean open = TRUE;
  event_set_value(event.get(), "open", &open);
  event_set_global_id(event.get(), 77);
  event_set_producer_id(event.get(), 0);
  EXPECT_TRUE(producer_send_event(producer, event.get(), nullptr));
  subscribe(declared, peer_, object, 1, 11, {{"topic0", "Door"}});
  peer_.fence(declared.declare.sender);
  ASSERT_EQ(peer_.count("Event"), 1U);
  GByteArray *bytes = g_byte_array_new();
  const Bytes sent = peer_.calls("Event").front().bytes(0);
  g_byte_array_append(bytes, sent.data(), static_cast<guint>(sent.size()));
  const HeldEvent received{event_deserialize(bytes)};
  g_byte_array_unref(bytes);
  EXPECT_EQ(event_get_global_id(received.get()), 77U);
  EXPECT_EQ(event_get_producer_id(received.get()), producer_id); // it had none
  g_object_unref(producer);
}

} // namespace
} // namespace varro2::test
