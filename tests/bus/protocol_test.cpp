// What a foreign peer sees of a producer and of a consumer.
#include "live.hpp"

#include <regex>

namespace varro2::test {
namespace {

class Protocol : public Live {
 protected:
  struct Subscribed {
    guint32 token;
    Call call;
  };

  // Subscribes to events, and waits for the call to the switch.
  Subscribed listen(const ConsumerHandle &consumer, const char *key, const char *value,
                    Inbox &inbox) {
    const guint32 token =
        event_consumer_subscribe(consumer.get(), wants(key, value).get(), Inbox::on_event, &inbox);
    EXPECT_TRUE(switch_.wait_for("Subscribe"));
    return {token, switch_.calls("Subscribe").front()};
  }
};

using Names = std::vector<std::string>;

bool matches(const std::string &text, const char *pattern) {
  return std::regex_match(text, std::regex{pattern});
}

TEST_F(Protocol, ProducerDeclares) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto [local_id, global_id, call] = declare(producer, greeting().get());
  EXPECT_EQ(local_id, 1U);
  EXPECT_EQ(call.path, "/com/quor/Event/Switch");
  EXPECT_EQ(call.interface, "com.quor.Event.Switch.Producer");
  EXPECT_EQ(call.signature, "ssay");
  EXPECT_TRUE(call.wants_answer);
  EXPECT_PRED2(matches, call.text(0), "/com/quor/Event/Producer/0x[0-9a-f]+");
  EXPECT_EQ(call.text(1), "hello");
  EXPECT_EQ(call.bytes(2), wire::declaration_record({0, 1, 0, false}, false, greeting_pairs()));
}

TEST_F(Protocol, ConsumerSubscribes) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const HeldExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), "topic0", "Greeting");
  subscribe_expression_add_not_value(expression.get(), "secret");
  const guint32 token =
      event_consumer_subscribe(consumer.get(), expression.get(), Inbox::on_event, &inbox);
  EXPECT_EQ(token, 1U);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call call = switch_.calls("Subscribe").front();
  EXPECT_EQ(call.path, "/com/quor/Event/Switch");
  EXPECT_EQ(call.interface, "com.quor.Event.Switch.Consumer");
  EXPECT_EQ(call.signature, "ssuay");
  EXPECT_PRED2(matches, call.text(0), "/com/quor/Event/Consumer/0x[0-9a-f]+");
  EXPECT_EQ(call.text(1), "listener");
  EXPECT_EQ(call.number(2), 1U);
  wire::Pair no_secret{"", "secret"};
  no_secret.any_key = true;
  no_secret.negated = true;
  EXPECT_EQ(call.bytes(3), wire::subscription({}, {{{"topic0", "Greeting"}, no_secret}}));
}

TEST_F(Protocol, EventReachesAForeignConsumer) {
  switch_.come();
  FakeConsumer peer;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  subscribe(declared, peer, "/foreign/listener", 31, 99, {{"text", "hi"}});

  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), declared.local_id, "ho", 1).get(),
      nullptr));
  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), declared.local_id, "hi", 2).get(),
      nullptr));
  ASSERT_TRUE(peer.wait_for("Event"));
  peer.fence(declared.declare.sender);
  ASSERT_EQ(peer.members(), Names{"Event"});
  const Call call = peer.calls().front();
  EXPECT_EQ(call.sender, declared.declare.sender);
  EXPECT_EQ(call.path, "/foreign/listener");
  EXPECT_EQ(call.interface, "com.quor.Event.Consumer");
  EXPECT_EQ(call.signature, "ayu");
  EXPECT_TRUE(call.wants_answer);
  EXPECT_EQ(call.number(1), 99U);
  EXPECT_EQ(
      wire::without_time(call.bytes(0)),
      wire::without_time(wire::stamped_event(
          {declared.global_id, declared.local_id, producer_id, false}, greeting_pairs("hi", 2))));
}

TEST_F(Protocol, ConsumerTakesEventsAndNotificationsFromForeignPeers) {
  switch_.come();
  FakeProducer peer;
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const guint32 token =
      event_consumer_subscribe_full(consumer.get(), wants("topic0", "Greeting").get(),
                                    Inbox::on_event, Inbox::on_notification, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call call = switch_.calls("Subscribe").front();

  const auto sent =
      peer.send_event(call.sender, call.text(0),
                      wire::stamped_event({5, 6, 7, true}, greeting_pairs("hi", 3)), token);
  EXPECT_EQ(sent.error_name, "");
  EXPECT_EQ(sent.signature, "");
  ASSERT_EQ(inbox.events.size(), 1U);
  const Event *event = inbox.events[0].get();
  EXPECT_STREQ(event_get_value(event, "text"), "hi");
  gint32 count = 0;
  EXPECT_TRUE(event_get_typed_value(event, "count", &count));
  EXPECT_EQ(count, 3);
  EXPECT_EQ(event_get_global_id(event), 5U);
  EXPECT_EQ(event_get_local_id(event), 6U);
  EXPECT_EQ(event_get_producer_id(event), 7U);
  EXPECT_TRUE(event_is_property(event));
  GDateTime *time = event_get_timestamp2(event);
  ASSERT_NE(time, nullptr);
  EXPECT_EQ(g_date_time_to_unix(time), 1'700'000'000);
  EXPECT_EQ(g_date_time_get_microsecond(time), 5);

  const auto told = switch_.notify(
      call,
      wire::notification(41, 42, true, wire::subscription({}, {{{"topic0", "Greeting"}}}),
                         wire::declaration_record({7, 6, 5, false}, false, greeting_pairs())),
      token);
  EXPECT_EQ(told.error_name, "");
  EXPECT_EQ(told.signature, "");
  ASSERT_EQ(inbox.notifications.size(), 1U);
  const Notification *notification = inbox.notifications[0].get();
  EXPECT_TRUE(notification_is_type_deleted(notification));
  EXPECT_EQ(notification_get_subscription_id(notification), 41U);
  EXPECT_EQ(notification_get_declaration_id(notification), 42U);
  EXPECT_STREQ(notification_get_value(notification, "topic0"), "Greeting");
}

// One that nobody wants an answer to counts once as well; what is not an event of this object is
// not delivered.
TEST_F(Protocol, EventsAreDeliveredOnceAndOnlyWhereTheyAreAddressed) {
  switch_.come();
  FakeProducer peer;
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const Subscribed subscribed = listen(consumer, "topic0", "Greeting", inbox);
  const Call &call = subscribed.call;
  const auto event = [token = subscribed.token] {
    return FakeProducer::event_arguments(wire::stamped_event({}, greeting_pairs("hi", 1)), token);
  };
  peer.post(call.sender, call.text(0), "com.quor.Event.Consumer", "Event", event());
  peer.fence(call.sender);
  EXPECT_EQ(inbox.events.size(), 1U);
  const auto error_of = [&](const std::string &path, const char *interface, const char *member,
                            GVariant *arguments) {
    return peer.call(call.sender, path, interface, member, arguments).error_name;
  };
  EXPECT_EQ(error_of("/com/quor/Event/Consumer/0x1", "com.quor.Event.Consumer", "Event", event()),
            "org.freedesktop.DBus.Error.UnknownObject");
  EXPECT_EQ(error_of(call.text(0), "com.quor.Event.Producer", "Event", event()),
            "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_EQ(error_of(call.text(0), "com.quor.Event.Consumer", "Event",
                     g_variant_new("(su)", "bytes", subscribed.token)),
            "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(inbox.events.size(), 1U);
}

TEST_F(Protocol, UnknownTokensAreAnsweredAndDropped) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const auto [token, call] = listen(consumer, "topic0", "Greeting", inbox);
  FakeProducer peer;
  const auto answer = peer.send_event(call.sender, call.text(0),
                                      wire::stamped_event({}, greeting_pairs("hi", 1)), token + 1);
  EXPECT_EQ(answer.error_name, "");
  // No notification callback was given.
  const auto told =
      switch_.notify(call,
                     wire::notification(1, 2, false, wire::subscription({}, {{}}),
                                        wire::declaration_record({}, false, greeting_pairs())),
                     token);
  EXPECT_EQ(told.error_name, "");
  EXPECT_TRUE(inbox.events.empty());
}

TEST_F(Protocol, ProducerAsIntrospected) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare(producer, greeting().get());
  const std::string xml = switch_.introspect(declared.declare.sender, declared.declare.text(0));
  GError *error = nullptr;
  GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(xml.c_str(), &error);
  ASSERT_NE(node, nullptr) << error->message;
  GDBusInterfaceInfo *interface =
      g_dbus_node_info_lookup_interface(node, "com.quor.Event.Producer");
  ASSERT_NE(interface, nullptr) << xml;

  std::vector<std::pair<std::string, std::string>> methods;
  for (GDBusMethodInfo **method = interface->methods; *method; ++method) {
    std::string signature;
    for (GDBusArgInfo **argument = (*method)->in_args; argument && *argument; ++argument)
      signature += (*argument)->signature;
    EXPECT_TRUE((*method)->out_args == nullptr || (*method)->out_args[0] == nullptr);
    methods.emplace_back((*method)->name, signature);
  }
  EXPECT_EQ(methods,
            (std::vector<std::pair<std::string, std::string>>{{"GlobalDeclareId", "uuu"},
                                                              {"DeclarationComplete", "uu"},
                                                              {"Subscribe", "ayu"},
                                                              {"RefreshProperty", "uu"},
                                                              {"Unsubscribe", "uu"}}));
  ASSERT_NE(interface->properties[0], nullptr);
  EXPECT_EQ(interface->properties[1], nullptr);
  EXPECT_STREQ(interface->properties[0]->name, "Name");
  EXPECT_STREQ(interface->properties[0]->signature, "s");
  EXPECT_EQ(interface->properties[0]->flags, G_DBUS_PROPERTY_INFO_FLAGS_READABLE);
  EXPECT_NE(xml.find("org.freedesktop.DBus.Property.EmitsChangedSignal\" value=\"const\""),
            std::string::npos)
      << xml;
  g_dbus_node_info_unref(node);
}

TEST_F(Protocol, ConsumerAsIntrospected) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const Call call = listen(consumer, "a", "b", inbox).call;
  const std::string xml = switch_.introspect(call.sender, call.text(0));
  GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(xml.c_str(), nullptr);
  ASSERT_NE(node, nullptr);
  GDBusInterfaceInfo *interface =
      g_dbus_node_info_lookup_interface(node, "com.quor.Event.Consumer");
  ASSERT_NE(interface, nullptr) << xml;
  Names methods;
  for (GDBusMethodInfo **method = interface->methods; *method; ++method) {
    std::string text = (*method)->name;
    for (GDBusArgInfo **argument = (*method)->in_args; argument && *argument; ++argument)
      text += std::string{" "} + (*argument)->signature;
    methods.push_back(text);
  }
  EXPECT_EQ(methods, (Names{"Event ay u", "Notification ay u"}));
  EXPECT_STREQ(interface->properties[0]->name, "Name");
  g_dbus_node_info_unref(node);
}

TEST_F(Protocol, NameCanBeReadAndNotWritten) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const Call declared = declare(producer, greeting().get()).declare;
  const auto name =
      switch_.get_property(declared.sender, declared.text(0), "com.quor.Event.Producer", "Name");
  ASSERT_EQ(name.error_name, "");
  GVariant *value = nullptr;
  g_variant_get(name.arguments.get(), "(v)", &value);
  EXPECT_STREQ(g_variant_get_string(value, nullptr), "hello");
  g_variant_unref(value);
  const auto refused =
      switch_.set_property(declared.sender, declared.text(0), "com.quor.Event.Producer", "Name",
                           g_variant_new_string("other"));
  EXPECT_EQ(refused.error_name, "org.freedesktop.DBus.Error.PropertyReadOnly");

  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const Call subscribed = listen(consumer, "a", "b", inbox).call;
  const auto other = switch_.get_property(subscribed.sender, subscribed.text(0),
                                          "com.quor.Event.Consumer", "Name");
  ASSERT_EQ(other.error_name, "");
  g_variant_get(other.arguments.get(), "(v)", &value);
  EXPECT_STREQ(g_variant_get_string(value, nullptr), "listener");
  g_variant_unref(value);
}

TEST_F(Protocol, EachHandleHasAConnectionOfItsOwn) {
  switch_.come();
  ProducerHandle first{"one"};
  ProducerHandle second{"two"};
  const Call one = declare(first, greeting().get()).declare;
  const Call two = declare(second, greeting().get()).declare;
  EXPECT_NE(one.sender, two.sender);
  EXPECT_NE(one.text(0), two.text(0));
}

TEST_F(Protocol, ProducerTakesItsLeave) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto first = declare_fully(producer, greeting().get());
  const auto second = declare(producer, door().get()); // never identified
  EXPECT_TRUE(event_producer_undeclare(producer.get(), first.local_id));
  ASSERT_TRUE(switch_.wait_for("Undeclare"));
  EXPECT_TRUE(event_producer_undeclare(producer.get(), second.local_id));
  producer.free();
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  EXPECT_EQ(switch_.members(), (Names{"Declare", "Declare", "Undeclare", "Disconnect"}));
  const Call undeclare = switch_.calls("Undeclare").front();
  EXPECT_EQ(undeclare.interface, "com.quor.Event.Switch.Producer");
  EXPECT_EQ(undeclare.signature, "su");
  EXPECT_EQ(undeclare.text(0), first.declare.text(0));
  EXPECT_EQ(undeclare.number(1), first.global_id);
  const Call disconnect = switch_.calls("Disconnect").front();
  EXPECT_EQ(disconnect.interface, "com.quor.Event.Switch.Producer");
  EXPECT_EQ(disconnect.signature, "s");
  EXPECT_EQ(disconnect.text(0), first.declare.text(0));
}

TEST_F(Protocol, ConsumerTakesItsLeaveBeforeItHasSubscribed) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const guint32 token =
      event_consumer_subscribe(consumer.get(), wants("a", "b").get(), Inbox::on_event, &inbox);
  EXPECT_TRUE(event_consumer_refresh(consumer.get(), token, nullptr));
  EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), token, nullptr));
  consumer.free();
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  // The subscription was taken out before the loop ran: its Subscribe is never sent.
  EXPECT_EQ(switch_.members(), (Names{"RefreshProperty", "Unsubscribe", "Disconnect"}));
  EXPECT_EQ(switch_.calls("Disconnect").front().interface, "com.quor.Event.Switch.Consumer");
  EXPECT_EQ(switch_.calls("Disconnect").front().signature, "s");
}

TEST_F(Protocol, ConsumerCallsInOrder) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const guint32 token =
      event_consumer_subscribe(consumer.get(), wants("a", "b").get(), Inbox::on_event, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  EXPECT_TRUE(event_consumer_refresh(consumer.get(), token, nullptr));
  ASSERT_TRUE(switch_.wait_for("RefreshProperty"));
  EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), token, nullptr));
  ASSERT_TRUE(switch_.wait_for("Unsubscribe"));
  EXPECT_EQ(switch_.members(), (Names{"Subscribe", "RefreshProperty", "Unsubscribe"}));
  for (const auto &call : switch_.calls()) {
    EXPECT_EQ(call.interface, "com.quor.Event.Switch.Consumer");
    EXPECT_EQ(call.text(0), switch_.calls().front().text(0));
  }
  EXPECT_EQ(switch_.calls("RefreshProperty").front().signature, "su");
  EXPECT_EQ(switch_.calls("RefreshProperty").front().number(1), token);
  EXPECT_EQ(switch_.calls("Unsubscribe").front().signature, "su");
  EXPECT_EQ(switch_.calls("Unsubscribe").front().number(1), token);
}

TEST_F(Protocol, TypesAreAddedAndRemoved) {
  struct Reply {
    std::string type;
    int code = 0;
    std::string message;
    int count = 0;
  };
  const auto on_reply = [](const char *type, gpointer data, GError *error) {
    auto &reply = *static_cast<Reply *>(data);
    ++reply.count;
    reply.type = type;
    reply.code = error ? error->code : 0;
    reply.message = error ? error->message : "";
    if (error) {
      EXPECT_EQ(error->domain, event_error_quark());
      g_error_free(error);
    }
  };
  switch_.come();
  ProducerHandle producer{"hello"};
  Reply added;
  EXPECT_TRUE(
      event_producer_add_declaration(producer.get(), "Hello", greeting().get(), on_reply, &added));
  ASSERT_TRUE(iterate_until([&] { return added.count == 1; }));
  EXPECT_EQ(added.type, "Hello");
  EXPECT_EQ(added.code, 0);
  const Call call = switch_.calls("AddDeclaration").front();
  EXPECT_EQ(call.interface, "com.quor.Event.Switch.Producer");
  EXPECT_EQ(call.signature, "say");
  EXPECT_EQ(call.text(0), "Hello");
  EXPECT_EQ(call.bytes(1), wire::declaration_record({}, false, greeting_pairs()));

  Reply refused;
  switch_.answer_error("RemoveDeclaration", "com.quor.Event.Error.NotRegistered", "never heard of");
  EXPECT_TRUE(event_producer_remove_declaration(producer.get(), "Hello", on_reply, &refused));
  ASSERT_TRUE(iterate_until([&] { return refused.count == 1; }));
  EXPECT_EQ(refused.code, 5);
  EXPECT_EQ(refused.message, "never heard of");
  EXPECT_EQ(switch_.calls("RemoveDeclaration").front().signature, "s");

  Reply failed;
  switch_.answer_error("AddDeclaration", "org.freedesktop.DBus.Error.AccessDenied", "not you");
  EXPECT_TRUE(
      event_producer_add_declaration(producer.get(), "Hello", greeting().get(), on_reply, &failed));
  ASSERT_TRUE(iterate_until([&] { return failed.count == 1; }));
  EXPECT_EQ(failed.code, 2);
  EXPECT_EQ(failed.message, "not you");
}

// However many: more than may be on the way at once.
TEST_F(Protocol, WithoutASwitchTheBusAnswersForEveryTypeInTurn) {
  std::vector<std::pair<std::string, std::string>> answers;
  const auto note = [](const char *type, gpointer data, GError *error) {
    auto &noted = *static_cast<std::vector<std::pair<std::string, std::string>> *>(data);
    noted.emplace_back(type, error ? error->message : "");
    EXPECT_TRUE(error && error->domain == event_error_quark() && error->code == 2);
    g_clear_error(&error);
  };
  ProducerHandle producer{"hello"};
  std::vector<std::string> types;
  for (int i = 0; i < 60; ++i) {
    types.push_back("Type" + std::to_string(i));
    event_producer_remove_declaration(producer.get(), types.back().c_str(), note, &answers);
  }
  ASSERT_TRUE(iterate_until([&] { return answers.size() == types.size(); }));
  for (std::size_t i = 0; i < types.size(); ++i) {
    EXPECT_EQ(answers[i].first, types[i]);
    EXPECT_EQ(answers[i].second, answers.front().second);
  }
}

TEST_F(Protocol, CallsOfAnotherShapeAreRefused) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  const auto call = [&](const char *member, GVariant *arguments) {
    return switch_
        .call(declared.declare.sender, declared.declare.text(0), "com.quor.Event.Producer", member,
              arguments)
        .error_name;
  };
  EXPECT_EQ(call("GlobalDeclareId", g_variant_new("(uu)", 1, 2)),
            "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(call("Unsubscribe", g_variant_new("(us)", 1, "2")),
            "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(call("NoSuchMethod", nullptr), "org.freedesktop.DBus.Error.UnknownMethod");
  const auto elsewhere =
      switch_.call(declared.declare.sender, "/com/quor/Event/Producer/0x1",
                   "com.quor.Event.Producer", "Unsubscribe", g_variant_new("(uu)", 1, 2));
  EXPECT_EQ(elsewhere.error_name, "org.freedesktop.DBus.Error.UnknownObject");
  EXPECT_TRUE(event_producer_declaration_complete(producer.get(), declared.local_id));
}

} // namespace
} // namespace varro2::test
