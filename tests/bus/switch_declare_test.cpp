// What producers and consumers hear when declarations and subscriptions come and go.
#include "switch_fixture.hpp"

namespace varro2::test {
namespace {

using Members = std::vector<std::string>;

std::vector<std::uint32_t> numbers(const Call &call, std::size_t count) {
  std::vector<std::uint32_t> result;
  for (std::size_t index = 0; index < count; ++index)
    result.push_back(call.number(index));
  return result;
}

using Numbers = std::vector<std::uint32_t>;

TEST_F(SwitchTest, DeclarationGetsItsIdsAndIsComplete) {
  SwitchClient producer;
  EXPECT_EQ(producer.declare(declaration("a", 7)).error_message, "");
  EXPECT_EQ(producer.members(), (Members{"GlobalDeclareId", "DeclarationComplete"}));
  const Call identified = producer.calls()[0];
  EXPECT_EQ(identified.interface, "com.quor.Event.Producer");
  EXPECT_EQ(identified.path, producer_path);
  EXPECT_EQ(identified.signature, "uuu");
  EXPECT_EQ(numbers(identified, 3), (Numbers{7, 1, 1}));
  EXPECT_EQ(producer.calls()[1].signature, "uu");
  EXPECT_EQ(numbers(producer.calls()[1], 2), (Numbers{7, 1}));

  producer.declare(declaration("b", 8));
  EXPECT_EQ(numbers(producer.calls("GlobalDeclareId").back(), 3), (Numbers{8, 2, 1}));
  producer.declare(declaration("b", 8), "/com/quor/Event/Producer/0x2");
  EXPECT_EQ(numbers(producer.calls("GlobalDeclareId").back(), 3), (Numbers{8, 3, 2}));
  SwitchClient another;
  another.declare(declaration("b", 8));
  EXPECT_EQ(numbers(another.calls("GlobalDeclareId").back(), 3), (Numbers{8, 4, 3}));
}

TEST_F(SwitchTest, DeclarationMeetsTheSubscriptionsInTheirOrder) {
  SwitchClient consumer;
  SwitchClient late_consumer;
  consumer.subscribe(5, expression("a"));
  late_consumer.subscribe(1, expression("a"));
  consumer.subscribe(4, expression("a"));
  consumer.subscribe(3, expression("other"));
  SwitchClient producer;
  producer.declare(declaration("a", 7));

  EXPECT_EQ(producer.members(), (Members{"GlobalDeclareId", "Subscribe", "Subscribe", "Subscribe",
                                         "DeclarationComplete"}));
  const auto told = producer.calls("Subscribe");
  const Numbers tokens{5, 1, 4};
  const Numbers ids{1, 2, 3};
  for (std::size_t index = 0; index < told.size(); ++index) {
    EXPECT_EQ(told[index].signature, "ayu");
    EXPECT_EQ(told[index].number(1), 7u);
    const OwnedExpression read = read_expression(told[index].bytes(0));
    EXPECT_EQ(subscribe_expression_get_id(read.get()), ids[index]);
    EXPECT_EQ(subscribe_expression_get_consumer_token(read.get()), tokens[index]);
    EXPECT_EQ(subscribe_expression_get_dbus_service(read.get()),
              index == 1 ? late_consumer.unique_name() : consumer.unique_name());
    EXPECT_STREQ(subscribe_expression_get_dbus_object(read.get()), consumer_path);
    EXPECT_FALSE(subscribe_expression_get_clandestine(read.get()));
  }

  consumer.settle();
  const auto notified = consumer.calls("Notification");
  ASSERT_EQ(notified.size(), 2u);
  EXPECT_EQ(notified[0].interface, "com.quor.Event.Consumer");
  EXPECT_EQ(notified[0].path, consumer_path);
  EXPECT_EQ(notified[0].number(1), 5u);
  EXPECT_EQ(notified[1].number(1), 4u);
  const OwnedNotification read = read_notification(notified[1].bytes(0));
  EXPECT_EQ(notification_get_subscription_id(read.get()), 3u);
  EXPECT_EQ(notification_get_declaration_id(read.get()), 1u);
  EXPECT_EQ(notification_get_type(read.get()), NOTIFY_DECLARATION_ADDED);
  EXPECT_STREQ(notification_get_value(read.get(), "topic0"), "a");
  EXPECT_NE(notification_get_timestamp2(read.get()), nullptr);
  EXPECT_EQ(
      subscribe_expression_get_consumer_token(notification_get_subscribe_expression(read.get())),
      4u);
  const EventDeclaration *declared = notification_get_declaration(read.get());
  EXPECT_EQ(event_declaration_get_global_id(declared), 1u);
  EXPECT_EQ(event_declaration_get_producer_id(declared), 1u);
  EXPECT_EQ(event_declaration_get_local_id(declared), 7u);
}

TEST_F(SwitchTest, SubscriptionMeetsTheDeclarations) {
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  producer.declare(declaration("b", 2));
  producer.declare(declaration("a", 3));
  producer.forget_calls();
  SwitchClient consumer;
  EXPECT_EQ(consumer.subscribe(9, expression("a")).error_message, "");

  EXPECT_EQ(consumer.members(), (Members{"Notification", "Notification"}));
  EXPECT_EQ(notification_get_declaration_id(read_notification(consumer.calls()[1].bytes(0)).get()),
            3u);
  producer.settle();
  EXPECT_EQ(producer.members(), (Members{"Subscribe", "Subscribe"}));
  EXPECT_EQ(producer.calls()[0].number(1), 1u);
  EXPECT_EQ(producer.calls()[1].number(1), 3u);
}

TEST_F(SwitchTest, SenderCannotSubscribeForAnother) {
  const OwnedExpression forged{subscribe_expression_new_full(TRUE)};
  subscribe_expression_add_key_value(forged.get(), "topic0", "a");
  subscribe_expression_set_id(forged.get(), 77);
  subscribe_expression_set_dbus_service(forged.get(), ":1.0");
  subscribe_expression_set_dbus_object(forged.get(), "/victim");
  subscribe_expression_set_consumer_token(forged.get(), 78);
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  SwitchClient consumer;
  consumer.subscribe(9, taken(subscribe_expression_serialize(forged.get())));

  producer.settle();
  const auto told = producer.calls("Subscribe");
  ASSERT_EQ(told.size(), 1u);
  const OwnedExpression read = read_expression(told[0].bytes(0));
  EXPECT_EQ(subscribe_expression_get_id(read.get()), 1u);
  EXPECT_EQ(subscribe_expression_get_dbus_service(read.get()), consumer.unique_name());
  EXPECT_STREQ(subscribe_expression_get_dbus_object(read.get()), consumer_path);
  EXPECT_EQ(subscribe_expression_get_consumer_token(read.get()), 9u);
  EXPECT_TRUE(subscribe_expression_get_clandestine(read.get()));
}

TEST_F(SwitchTest, SameTokenReplacesTheSubscription) {
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  producer.declare(declaration("b", 2));
  SwitchClient consumer;
  consumer.subscribe(9, expression("a"));
  consumer.subscribe(9, expression("b"));
  producer.settle();
  ASSERT_EQ(producer.members(),
            (Members{"GlobalDeclareId", "DeclarationComplete", "GlobalDeclareId",
                     "DeclarationComplete", "Subscribe", "Unsubscribe", "Subscribe"}));
  EXPECT_EQ(producer.calls()[4].number(1), 1u);
  EXPECT_EQ(producer.calls()[5].signature, "uu");
  EXPECT_EQ(numbers(producer.calls()[5], 2), (Numbers{1, 1}));
  EXPECT_EQ(producer.calls()[6].number(1), 2u);
  EXPECT_EQ(subscribe_expression_get_id(read_expression(producer.calls()[6].bytes(0)).get()), 2u);
}

TEST_F(SwitchTest, SameLocalIdReplacesTheDeclaration) {
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  SwitchClient producer;
  producer.declare(declaration("a", 4));
  producer.forget_calls();
  producer.declare(declaration("b", 4));
  ASSERT_EQ(producer.members(), (Members{"Unsubscribe", "GlobalDeclareId", "DeclarationComplete"}));
  EXPECT_EQ(numbers(producer.calls()[0], 2), (Numbers{1, 4}));
  EXPECT_EQ(numbers(producer.calls()[1], 3), (Numbers{4, 2, 1}));
  consumer.settle();
  const auto notified = consumer.calls("Notification");
  ASSERT_EQ(notified.size(), 2u);
  const OwnedNotification removed = read_notification(notified[1].bytes(0));
  EXPECT_TRUE(notification_is_type_deleted(removed.get()));
  EXPECT_EQ(notification_get_declaration_id(removed.get()), 1u);
}

// A client that was slow to hear of two switches declares to the second one twice: because it heard
// of the first, and because it heard of the second. What it has been given meanwhile stays with it,
// so that its events find their way all the time.
TEST_F(SwitchTest, TheSameDeclarationAgainKeepsItsIdAndSubscriptions) {
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  SwitchClient producer;
  producer.declare(declaration("a", 4));
  producer.forget_calls();
  EXPECT_EQ(producer.declare(declaration("a", 4)).error_message, "");
  producer.settle();
  ASSERT_EQ(producer.members(), (Members{"GlobalDeclareId", "DeclarationComplete"}));
  EXPECT_EQ(numbers(producer.calls()[0], 3), (Numbers{4, 1, 1}));
  EXPECT_EQ(numbers(producer.calls()[1], 2), (Numbers{4, 1}));
  consumer.settle();
  EXPECT_EQ(consumer.count("Notification"), 1u);
  // It is held once.
  EXPECT_EQ(producer.undeclare(1).error_message, "");
  EXPECT_EQ(producer.undeclare(2).error_name, "com.quor.Event.Error.NotRegistered");
}

TEST_F(SwitchTest, TheSameSubscriptionAgainKeepsItsIdAndIsToldWhatThereIs) {
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  producer.declare(property("a", 2));
  SwitchClient consumer;
  consumer.subscribe(9, expression("a"));
  producer.settle();
  producer.forget_calls();
  consumer.settle();
  consumer.forget_calls();
  EXPECT_EQ(consumer.subscribe(9, expression("a")).error_message, "");
  producer.settle();
  ASSERT_EQ(producer.members(), Members{"RefreshProperty"});
  EXPECT_EQ(numbers(producer.calls()[0], 2), (Numbers{1, 2}));
  consumer.settle();
  EXPECT_EQ(consumer.count("Notification"), 2u);
  // It is held once.
  EXPECT_EQ(consumer.unsubscribe(9).error_message, "");
  producer.settle();
  EXPECT_EQ(producer.count("Unsubscribe"), 2u);
}

TEST_F(SwitchTest, UndeclareTakesBackAndOnlyItsOwnerMay) {
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  SwitchClient producer;
  producer.declare(declaration("a", 4));
  producer.forget_calls();

  EXPECT_EQ(consumer.undeclare(1).error_name, "com.quor.Event.Error.NotRegistered");
  EXPECT_EQ(producer.undeclare(1, "/elsewhere").error_name, "com.quor.Event.Error.NotRegistered");
  EXPECT_EQ(producer.undeclare(2).error_name, "com.quor.Event.Error.NotRegistered");
  EXPECT_EQ(producer.undeclare(2).error_message, "The producer has no declaration 2.");
  EXPECT_EQ(producer.members(), Members{});

  EXPECT_EQ(producer.undeclare(1).error_name, "");
  EXPECT_EQ(producer.members(), Members{"Unsubscribe"});
  EXPECT_EQ(numbers(producer.calls()[0], 2), (Numbers{1, 4}));
  consumer.settle();
  EXPECT_EQ(consumer.count("Notification"), 2u);
  EXPECT_EQ(producer.undeclare(1).error_name, "com.quor.Event.Error.NotRegistered");
}

TEST_F(SwitchTest, UnsubscribeIsToldAndOnlyItsOwnerMay) {
  SwitchClient producer;
  producer.declare(declaration("a", 4));
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  producer.settle();
  producer.forget_calls();

  EXPECT_EQ(producer.unsubscribe(1).error_name, "com.quor.Event.Error.NoSubscr");
  EXPECT_EQ(consumer.unsubscribe(1, "/elsewhere").error_name, "com.quor.Event.Error.NoSubscr");
  EXPECT_EQ(consumer.unsubscribe(2).error_message,
            "The consumer has no subscription with token 2.");
  EXPECT_EQ(consumer.unsubscribe(1).error_name, "");
  producer.settle();
  EXPECT_EQ(producer.members(), Members{"Unsubscribe"});
  EXPECT_EQ(numbers(producer.calls()[0], 2), (Numbers{1, 4}));
  EXPECT_EQ(consumer.unsubscribe(1).error_name, "com.quor.Event.Error.NoSubscr");
}

TEST_F(SwitchTest, DisconnectEndsOneObjectOfAConnection) {
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  producer.declare(declaration("a", 1), "/other");
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  consumer.subscribe(2, expression("a"), "/other");
  consumer.subscribe(3, expression("a"), "/other");
  producer.settle();
  producer.forget_calls();
  consumer.forget_calls();

  EXPECT_EQ(consumer.consumer("Disconnect", g_variant_new("(s)", "/other")).error_name, "");
  producer.settle();
  EXPECT_EQ(producer.members(), (Members{4, "Unsubscribe"}));
  producer.forget_calls();

  EXPECT_EQ(producer.producer("Disconnect", g_variant_new("(s)", producer_path)).error_name, "");
  producer.settle();
  EXPECT_EQ(producer.members(), Members{});
  consumer.settle();
  ASSERT_EQ(consumer.members(), Members{"Notification"});
  EXPECT_EQ(consumer.calls()[0].path, consumer_path);
  const OwnedNotification removed = read_notification(consumer.calls()[0].bytes(0));
  EXPECT_TRUE(notification_is_type_deleted(removed.get()));
  EXPECT_EQ(notification_get_declaration_id(removed.get()), 1u);

  // Who has nothing may go as well.
  EXPECT_EQ(producer.producer("Disconnect", g_variant_new("(s)", "/none")).error_name, "");
  EXPECT_EQ(producer.consumer("Disconnect", g_variant_new("(s)", "/none")).error_name, "");
}

TEST_F(SwitchTest, ClientThatVanishesIsTakenBack) {
  auto both = std::make_unique<SwitchClient>();
  SwitchClient producer;
  SwitchClient consumer;
  both->declare(declaration("a", 1));
  both->subscribe(1, expression("a"));
  producer.declare(declaration("a", 1));
  consumer.subscribe(1, expression("a"));
  producer.settle();
  consumer.settle();
  producer.forget_calls();
  consumer.forget_calls();
  both.reset();

  ASSERT_TRUE(producer.wait_for("Unsubscribe"));
  ASSERT_TRUE(consumer.wait_for("Notification"));
  EXPECT_EQ(producer.members(), Members{"Unsubscribe"});
  EXPECT_EQ(numbers(producer.calls()[0], 2), (Numbers{1, 1}));
  EXPECT_EQ(consumer.members(), Members{"Notification"});
  EXPECT_TRUE(notification_is_type_deleted(read_notification(consumer.calls()[0].bytes(0)).get()));
}

TEST_F(SwitchTest, ClientThatVanishesTakesAllItsObjectsAlong) {
  auto leaving = std::make_unique<SwitchClient>();
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  leaving->declare(declaration("a", 1));
  leaving->declare(declaration("a", 1), "/other");
  consumer.settle();
  consumer.forget_calls();
  leaving.reset();

  ASSERT_TRUE(consumer.wait_for("Notification", 2));
  for (const auto &call : consumer.calls())
    EXPECT_TRUE(notification_is_type_deleted(read_notification(call.bytes(0)).get()));
}

TEST_F(SwitchTest, ForgedSignalTakesNobodyAway) {
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  SwitchClient consumer;
  consumer.subscribe(1, expression("a"));
  consumer.forget_calls();
  producer.emit(
      "/org/freedesktop/DBus", "org.freedesktop.DBus", "NameOwnerChanged",
      g_variant_new("(sss)", producer.unique_name().c_str(), producer.unique_name().c_str(), ""));
  // Straight at the switch, which gets it without a rule for it.
  GDBusMessage *forged = g_dbus_message_new_signal("/org/freedesktop/DBus", "org.freedesktop.DBus",
                                                   "NameOwnerChanged");
  g_dbus_message_set_destination(forged, switch_name);
  g_dbus_message_set_body(forged, g_variant_new("(sss)", producer.unique_name().c_str(),
                                                producer.unique_name().c_str(), ""));
  g_dbus_connection_send_message(producer.connection(), forged, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                 nullptr, nullptr);
  g_object_unref(forged);
  producer.settle();
  consumer.settle();
  EXPECT_EQ(consumer.members(), Members{});
  EXPECT_EQ(producer.undeclare(1).error_name, "");
}

TEST_F(SwitchTest, RefreshGoesToTheMatchingProperties) {
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  producer.declare(property("a", 2));
  producer.declare(property("b", 3));
  SwitchClient consumer;
  consumer.subscribe(6, expression("a"));
  producer.settle();
  producer.forget_calls();

  EXPECT_EQ(
      consumer.consumer("RefreshProperty", g_variant_new("(su)", consumer_path, 6)).error_name, "");
  producer.settle();
  EXPECT_EQ(producer.members(), Members{"RefreshProperty"});
  EXPECT_EQ(numbers(producer.calls()[0], 2), (Numbers{1, 2}));
  EXPECT_EQ(
      consumer.consumer("RefreshProperty", g_variant_new("(su)", consumer_path, 7)).error_name,
      "com.quor.Event.Error.NoSubscr");
}

TEST_F(SwitchTest, ArgumentsThatCannotBeServedAreRefused) {
  SwitchClient client;
  // A valid path whose length no longer fits into an expression's record.
  const std::string long_path = "/" + std::string(65'535, 'a');
  for (const char *path : {"", "no/path", "/a/", "/\xC3\xA4", long_path.c_str()}) {
    EXPECT_EQ(client.declare(declaration("a", 1), path).error_name,
              "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(client.subscribe(1, expression("a"), path).error_name,
              "org.freedesktop.DBus.Error.InvalidArgs");
  }
  for (const Bytes &bytes : {Bytes{}, Bytes{0}, expression("a")})
    EXPECT_EQ(client.declare(bytes).error_name, "org.freedesktop.DBus.Error.InvalidArgs");
  for (const Bytes &bytes : {Bytes{}, Bytes{0}, declaration("a", 1)}) {
    EXPECT_EQ(client.subscribe(1, bytes).error_name, "org.freedesktop.DBus.Error.InvalidArgs");
    EXPECT_EQ(client.get_property_state(bytes).error_name,
              "org.freedesktop.DBus.Error.InvalidArgs");
  }
  EXPECT_EQ(client.members(), Members{});
  EXPECT_EQ(client.declare(declaration("a", 1)).error_name, "");
}

TEST_F(SwitchTest, ManyConsumersOfOneDeclarationAreAllServed) {
  // More than the calls that a connection may leave without an answer.
  constexpr std::uint32_t many = 300;
  SwitchClient consumer;
  for (std::uint32_t token = 1; token <= many; ++token)
    consumer.subscribe(token, expression("a"));
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  ASSERT_TRUE(producer.wait_for("DeclarationComplete"));
  EXPECT_EQ(producer.count("Subscribe"), many);
  EXPECT_EQ(producer.members().back(), "DeclarationComplete");
  EXPECT_TRUE(consumer.wait_for("Notification", many));
}

TEST_F(SwitchTest, AClientThatDoesNotAnswerKeepsNobodyWaiting) {
  SwitchClient hanging;
  for (const char *member : {"GlobalDeclareId", "Subscribe", "DeclarationComplete"})
    hanging.stay_silent(member);
  for (std::uint32_t id = 1; id <= 100; ++id)
    EXPECT_EQ(hanging.declare(declaration("a", id)).error_name, "");
  SwitchClient producer;
  producer.declare(declaration("a", 1));
  ASSERT_TRUE(producer.wait_for("DeclarationComplete"));
  SwitchClient consumer;
  EXPECT_EQ(consumer.subscribe(1, expression("a")).error_name, "");
  ASSERT_TRUE(consumer.wait_for("Notification", 101));
  // It got as many calls as it left without an answer, and no more.
  EXPECT_EQ(hanging.count("GlobalDeclareId") + hanging.count("DeclarationComplete"), 8u);
}

} // namespace
} // namespace varro2::test
