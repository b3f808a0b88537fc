// The switch and the bus come and go.
#include "childprocess.hpp"
#include "live.hpp"

namespace varro2::test {
namespace {

class Life : public Live {
 protected:
  static constexpr const char *object = "/foreign/listener";

  bool complete(const ProducerHandle &producer, guint32 local_id) {
    return event_producer_declaration_complete(producer.get(), local_id);
  }
  // Expects the last switch to be told everything that those before it left unanswered.
  void declare_past_silent_switches(int former_switches);
};

TEST_F(Life, CallsBeforeTheLoopRunsAreSentWhenItDoes) {
  switch_.come();
  ProducerHandle producer{"hello"};
  EXPECT_EQ(event_producer_declare(producer.get(), greeting().get()), 1U);
  EXPECT_EQ(event_producer_declare(producer.get(), door().get()), 2U);
  EXPECT_TRUE(send_door(producer.get(), 2, TRUE));
  Failure failure;
  EXPECT_FALSE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), 1, "hi", 1).get(), failure.slot()));
  EXPECT_TRUE(failure.is(EVENT_ERROR_NOT_REGISTERED,
                         "The event has not been declared to the event switch. (The connection to "
                         "the switch is likely to be broken)"));
  EXPECT_EQ(switch_.count("Declare"), 0U);
  ASSERT_TRUE(switch_.wait_for("Declare", 2));
  EXPECT_EQ(switch_.calls("Declare")[0].bytes(2),
            wire::declaration_record({0, 1, 0, false}, false, greeting_pairs()));
}

TEST_F(Life, WhatWasPreparedBeforeTheConnectionIsSentOnceWithIt) {
  switch_.come();
  const Held<Consumer, g_object_unref> consumer{consumer_new("listener")};
  const Held<Producer, g_object_unref> producer{producer_new("hello", nullptr, nullptr)};
  Inbox inbox;
  consumer_prepare_subscribe(consumer.get(), 5, wants("a", "b").get(), Inbox::on_event, nullptr,
                             &inbox, SUBSCRIPTION_TYPE_NORMAL);
  producer_allocate_decl_data(producer.get(), 3, greeting().release(), nullptr, nullptr);
  Failure failure;
  ASSERT_TRUE(consumer_init_dbus(consumer.get(), failure.slot()));
  ASSERT_TRUE(producer_init_dbus(producer.get(), failure.slot()));
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  ASSERT_TRUE(switch_.wait_for("Declare"));
  // They are there already.
  consumer_send_subscribe(consumer.get(), 5);
  producer_send_declare(producer.get(), 3);
  for (const Call &call : switch_.calls())
    switch_.fence(call.sender);
  EXPECT_EQ(switch_.calls("Subscribe").size(), 1U);
  EXPECT_EQ(switch_.calls("Subscribe").front().number(2), 5U);
  EXPECT_EQ(switch_.calls("Declare").size(), 1U);
}

TEST_F(Life, AProducerThatIsThereFirstIsServedWhenTheSwitchComes) {
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  event_producer_declare(producer.get(), greeting().get());
  event_consumer_subscribe(consumer.get(), wants("topic0", "Greeting").get(), Inbox::on_event,
                           &inbox);
  // The bus has refused both calls by now: nobody owned the name.
  ForeignPeer peer;
  iterate_pending();
  peer.fence("org.freedesktop.DBus");
  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Declare"));
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  switch_.fence(switch_.calls("Declare").front().sender);
  switch_.fence(switch_.calls("Subscribe").front().sender);
  EXPECT_EQ(switch_.calls().size(), 2U);
}

// A bus that would start the switch has other words for it when it cannot.
TEST_F(Life, WhoIsThereBeforeASwitchThatCannotBeStartedIsServedWhenItComes) {
  bus_.start_for(FakeSwitch::name, "/bin/false");
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  event_producer_declare(producer.get(), greeting().get());
  event_consumer_subscribe(consumer.get(), wants("a", "b").get(), Inbox::on_event, &inbox);
  // What is asked after them fails after them.
  bool failed = false;
  const auto note = [](const char *, gpointer user_data, GError *error) {
    *static_cast<bool *>(user_data) =
        g_error_matches(error, event_error_quark(), EVENT_ERROR_DBUS_FAILED) != FALSE;
    g_clear_error(&error);
  };
  event_producer_remove_declaration(producer.get(), "type", note, &failed);
  ASSERT_TRUE(iterate_until([&] { return failed; }));
  Failure failure;
  EXPECT_EQ(
      event_consumer_get_property_state(consumer.get(), wants("a", "b").get(), failure.slot()),
      nullptr);
  EXPECT_TRUE(g_error_matches(failure.get(), event_error_quark(), EVENT_ERROR_DBUS_FAILED));

  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Declare"));
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  for (const Call &call : switch_.calls())
    switch_.fence(call.sender);
  EXPECT_EQ(switch_.count("Declare"), 1U);
  EXPECT_EQ(switch_.count("Subscribe"), 1U);
}

// The next switch may have given the same id to another declaration of this producer.
TEST_F(Life, AnUndeclarationForASwitchThatHasGoneIsNotMadeToTheNext) {
  switch_.come();
  GError *error = nullptr;
  Producer *producer = producer_new("hello", nullptr, nullptr);
  ASSERT_TRUE(producer_init_dbus(producer, &error));
  for (const guint32 local_id : {1U, 2U}) {
    producer_allocate_decl_data(producer, local_id, greeting().release(), nullptr, nullptr);
    producer_send_declare(producer, local_id);
  }
  ASSERT_TRUE(switch_.wait_for("Declare", 2));
  const Call declared = switch_.calls("Declare").front();
  switch_.global_declare_id(declared, 1, 51, 1);
  switch_.global_declare_id(declared, 2, 52, 1);

  ProducerDeclarationData *released = producer_release_declare_id(producer, 1);
  switch_.leave();
  ASSERT_TRUE(iterate_until([&] { return !producer_declaration_complete(producer, 2); }));
  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Declare", 3));
  producer_send_undeclare(producer, released);
  switch_.fence(declared.sender);
  EXPECT_EQ(switch_.count("Undeclare"), 0U);

  // One that was released since is undeclared.
  switch_.global_declare_id(declared, 2, 51, 1);
  producer_send_undeclare(producer, producer_release_declare_id(producer, 2));
  switch_.fence(declared.sender);
  EXPECT_EQ(switch_.count("Undeclare"), 1U);
  g_object_unref(producer);
}

TEST_F(Life, ARestartDeclaresAndSubscribesEverythingOnce) {
  switch_.come();
  ProducerHandle producer{"hello"};
  ConsumerHandle consumer{"listener"};
  FakeConsumer peer;
  Inbox inbox;
  const auto first = declare_fully(producer, greeting().get());
  const auto second = declare_fully(producer, door().get());
  const guint32 token = event_consumer_subscribe(consumer.get(), wants("topic0", "Greeting").get(),
                                                 Inbox::on_event, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  subscribe(first, peer, object, 1, 11, {{"topic0", "Greeting"}});
  EXPECT_EQ(producer.reports(), (std::vector<std::vector<guint32>>{{first.local_id}}));

  for (std::size_t round = 1; round <= 20; ++round) {
    switch_.leave();
    ASSERT_TRUE(iterate_until([&] { return !complete(producer, first.local_id); }));
    EXPECT_FALSE(complete(producer, second.local_id));
    EXPECT_TRUE(producer.reports().back().empty());
    Failure failure;
    EXPECT_FALSE(event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), first.local_id, "hi", 1).get(),
        failure.slot()));
    EXPECT_EQ(failure.get()->code, EVENT_ERROR_NOT_REGISTERED);

    switch_.forget_calls();
    switch_.come();
    ASSERT_TRUE(switch_.wait_for("Declare", 2));
    ASSERT_TRUE(switch_.wait_for("Subscribe"));
    switch_.fence(first.declare.sender);
    EXPECT_EQ(switch_.calls().size(), 3U);
    EXPECT_EQ(switch_.calls("Subscribe").front().number(2), token);
    EXPECT_EQ(switch_.calls("Subscribe").front().bytes(3),
              wire::subscription({}, {{{"topic0", "Greeting"}}}));
    identify(first);
    subscribe(first, peer, object, 1, 11, {{"topic0", "Greeting"}});
    EXPECT_EQ(producer.reports().back(), std::vector<guint32>{first.local_id});
  }
  EXPECT_EQ(producer.reports().size(), 41U);
  peer.forget_calls();
  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), first.local_id, "hi", 1).get(), nullptr));
  EXPECT_TRUE(peer.wait_for("Event"));
}

// Each of them gives its name up, but is still there and may answer after all.
void Life::declare_past_silent_switches(int former_switches) {
  constexpr std::size_t count = 40;
  switch_.stay_silent("Declare");
  switch_.come();
  ProducerHandle producer{"hello"};
  for (std::size_t i = 0; i < count; ++i)
    event_producer_declare(producer.get(), greeting().get());
  for (int left = former_switches; left > 0; --left) {
    ASSERT_TRUE(switch_.wait_for("Declare"));
    switch_.fence(switch_.calls("Declare").front().sender);
    switch_.leave();
    switch_.forget_calls();
    if (left == 1)
      switch_.answer_again("Declare");
    switch_.come();
  }
  ASSERT_TRUE(switch_.wait_for("Declare", count));
  switch_.fence(switch_.calls("Declare").front().sender);
  EXPECT_EQ(switch_.count("Declare"), count);
}

TEST_F(Life, WhatAFormerSwitchLeftUnansweredDoesNotHoldUpTheNext) {
  declare_past_silent_switches(1);
}

// As many as leave no call for the last one.
TEST_F(Life, WhatSeveralFormerSwitchesLeftUnansweredDoesNotHoldUpTheNext) {
  declare_past_silent_switches(3);
}

TEST_F(Life, WhatAFormerSwitchLeftUnansweredDoesNotHoldUpSubscriptionsToTheNext) {
  constexpr std::size_t count = 40;
  switch_.stay_silent("Subscribe");
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  for (std::size_t i = 0; i < count; ++i)
    event_consumer_subscribe(consumer.get(), wants("a", "b").get(), Inbox::on_event, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  switch_.fence(switch_.calls("Subscribe").front().sender);

  switch_.leave();
  switch_.answer_again("Subscribe");
  switch_.forget_calls();
  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Subscribe", count));
  switch_.fence(switch_.calls("Subscribe").front().sender);
  EXPECT_EQ(switch_.count("Subscribe"), count);
}

TEST_F(Life, AForgedSignalChangesNothing) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  ForeignPeer forger;
  for (const auto &[old_owner, new_owner] :
       {std::pair{":1.1", ""}, {"", ":1.1"}, {":1.1", ":1.2"}, {"", ""}}) {
    GError *error = nullptr;
    g_dbus_connection_emit_signal(
        forger.connection(), declared.declare.sender.c_str(), "/org/freedesktop/DBus",
        "org.freedesktop.DBus", "NameOwnerChanged",
        g_variant_new("(sss)", FakeSwitch::name, old_owner, new_owner), &error);
    ASSERT_EQ(error, nullptr);
  }
  forger.fence(declared.declare.sender);
  EXPECT_TRUE(complete(producer, declared.local_id));
  switch_.fence(declared.declare.sender);
  EXPECT_EQ(switch_.count("Declare"), 1U);
}

// Only the bus knows who is there.
TEST_F(Life, WhoAnswersInTheWordsOfTheBusIsThereAllTheSame) {
  for (const char *words :
       {"org.freedesktop.DBus.Error.ServiceUnknown", "org.freedesktop.DBus.Error.NameHasNoOwner",
        "org.freedesktop.DBus.Error.Disconnected"}) {
    SCOPED_TRACE(words);
    switch_.forget_calls();
    for (const char *member : {"Declare", "Subscribe"})
      switch_.answer_error(member, words, "so I say");
    switch_.come();
    const Held<Consumer, g_object_unref> consumer{consumer_new("listener")};
    const Held<Producer, g_object_unref> producer{producer_new("hello", nullptr, nullptr)};
    Inbox inbox;
    consumer_prepare_subscribe(consumer.get(), 5, wants("a", "b").get(), Inbox::on_event, nullptr,
                               &inbox, SUBSCRIPTION_TYPE_NORMAL);
    producer_allocate_decl_data(producer.get(), 3, greeting().release(), nullptr, nullptr);
    Failure failure;
    ASSERT_TRUE(consumer_init_dbus(consumer.get(), failure.slot()));
    ASSERT_TRUE(producer_init_dbus(producer.get(), failure.slot()));
    ASSERT_TRUE(switch_.wait_for("Declare"));
    ASSERT_TRUE(switch_.wait_for("Subscribe"));
    const Declared declared{3, 103, switch_.calls("Declare").front()};
    const Call subscribed = switch_.calls("Subscribe").front();
    switch_.fence(declared.declare.sender);
    switch_.fence(subscribed.sender);
    consumer_send_subscribe(consumer.get(), 5);
    producer_send_declare(producer.get(), 3);
    switch_.fence(declared.declare.sender);
    switch_.fence(subscribed.sender);
    EXPECT_EQ(switch_.calls("Declare").size(), 1U);
    EXPECT_EQ(switch_.calls("Subscribe").size(), 1U);

    FakeConsumer peer;
    peer.answer_error("Event", words, "so I say");
    identify(declared);
    subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
    constexpr int count = 20;
    const HeldEvent event{producer_prepare_event(producer.get(), 3)};
    for (int number = 0; number < count; ++number)
      ASSERT_TRUE(producer_send_event(producer.get(), event.get(), nullptr));
    EXPECT_TRUE(peer.wait_for("Event", count));
  }
}

TEST_F(Life, UnknownIdsAreUndeclaredExactlyOnce) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  const auto undeclared = [&] { return switch_.calls("Undeclare"); };

  auto answer = switch_.global_declare_id(declared.declare, 55, 7055, 1);
  EXPECT_EQ(answer.error_name, "");
  EXPECT_EQ(answer.signature, "");
  switch_.fence(declared.declare.sender);
  ASSERT_EQ(undeclared().size(), 1U);
  EXPECT_EQ(undeclared()[0].text(0), declared.declare.text(0));
  EXPECT_EQ(undeclared()[0].number(1), 7055U);

  answer = switch_.declaration_complete(declared.declare, 56, 7056);
  EXPECT_EQ(answer.error_name, "");
  EXPECT_EQ(answer.signature, "");
  switch_.fence(declared.declare.sender);
  ASSERT_EQ(undeclared().size(), 2U);
  EXPECT_EQ(undeclared()[1].number(1), 7056U);

  // What belongs to unknown declarations is answered and ignored.
  EXPECT_EQ(switch_.unsubscribe(declared.declare, 1, 57).error_name, "");
  EXPECT_EQ(switch_.refresh_property(declared.declare, 1, 57).error_name, "");
  FakeConsumer peer;
  EXPECT_EQ(switch_
                .subscribe(declared.declare,
                           wire::subscription({1, peer.unique_name(), object, 1, false},
                                              {{{"topic0", "Greeting"}}}),
                           57)
                .error_name,
            "");
  switch_.fence(declared.declare.sender);
  EXPECT_EQ(undeclared().size(), 2U);
  EXPECT_TRUE(complete(producer, declared.local_id));
}

TEST_F(Life, AReleasedDeclarationIsUndeclaredWhenItsIdComes) {
  switch_.come();
  ProducerHandle producer{"hello"};
  const auto declared = declare(producer, greeting().get());
  EXPECT_TRUE(event_producer_undeclare(producer.get(), declared.local_id));
  const auto answer = switch_.global_declare_id(declared.declare, declared.local_id, 700, 1);
  EXPECT_EQ(answer.error_name, "");
  switch_.fence(declared.declare.sender);
  ASSERT_EQ(switch_.count("Undeclare"), 1U);
  EXPECT_EQ(switch_.calls("Undeclare").front().number(1), 700U);
}

TEST_F(Life, CompletionIsToldOnce) {
  switch_.come();
  ProducerHandle producer{"hello"};
  std::vector<guint32> completed;
  const guint32 local_id = event_producer_declare_and_notify(
      producer.get(), greeting().get(),
      [](guint32 id, gpointer list) { static_cast<std::vector<guint32> *>(list)->push_back(id); },
      &completed);
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{local_id, local_id + 100, switch_.calls("Declare").front()};
  EXPECT_FALSE(complete(producer, local_id));
  switch_.global_declare_id(declared.declare, local_id, declared.global_id, 1);
  EXPECT_TRUE(complete(producer, local_id));
  EXPECT_TRUE(completed.empty());
  switch_.declaration_complete(declared.declare, local_id, declared.global_id);
  switch_.declaration_complete(declared.declare, local_id, declared.global_id);
  EXPECT_EQ(completed, std::vector<guint32>{local_id});
}

TEST_F(Life, SubscribersAreReportedWhenTheyBeginAndEnd) {
  switch_.come();
  FakeConsumer peer;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  const wire::AndList all{{"topic0", "Greeting"}};
  subscribe(declared, peer, object, 1, 11, all, true);
  EXPECT_TRUE(producer.reports().empty()); // clandestine
  subscribe(declared, peer, object, 2, 12, all);
  subscribe(declared, peer, object, 3, 13, all);
  EXPECT_EQ(producer.reports(), (std::vector<std::vector<guint32>>{{declared.local_id}}));

  EXPECT_TRUE(event_producer_send_event(
      producer.get(), prepared_greeting(producer.get(), declared.local_id, "hi", 1).get(),
      nullptr));
  ASSERT_TRUE(peer.wait_for("Event", 3));
  std::vector<std::uint32_t> tokens;
  for (const auto &call : peer.calls("Event"))
    tokens.push_back(call.number(1));
  EXPECT_EQ(tokens, (std::vector<std::uint32_t>{11, 12, 13})); // in the order of arrival

  switch_.unsubscribe(declared.declare, 2, declared.local_id);
  EXPECT_EQ(producer.reports().size(), 1U);
  switch_.unsubscribe(declared.declare, 3, declared.local_id);
  ASSERT_EQ(producer.reports().size(), 2U);
  EXPECT_TRUE(producer.reports().back().empty());
  switch_.unsubscribe(declared.declare, 3, declared.local_id);
  EXPECT_EQ(producer.reports().size(), 2U);
}

TEST_F(Life, WithoutABusAHandleIsReturnedAndOneLineSaysWhy) {
  bus_.stop();
  {
    ProducerHandle producer{"hello"};
    ConsumerHandle consumer{"listener"};
    ASSERT_NE(producer.get(), nullptr);
    ASSERT_NE(consumer.get(), nullptr);
    const guint32 local_id = event_producer_declare(producer.get(), greeting().get());
    EXPECT_EQ(local_id, 1U);
    Failure failure;
    EXPECT_FALSE(event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), local_id, "hi", 1).get(),
        failure.slot()));
    EXPECT_EQ(failure.get()->code, EVENT_ERROR_NOT_REGISTERED);
    Inbox inbox;
    const guint32 token =
        event_consumer_subscribe(consumer.get(), wants("a", "b").get(), Inbox::on_event, &inbox);
    EXPECT_EQ(token, 1U);
    iterate_pending();
    EXPECT_TRUE(event_consumer_refresh(consumer.get(), token, nullptr));
    EXPECT_TRUE(event_consumer_unsubscribe(consumer.get(), token, nullptr));
    EXPECT_TRUE(event_producer_undeclare(producer.get(), local_id));
    Failure no_state;
    EXPECT_EQ(
        event_consumer_get_property_state(consumer.get(), wants("a", "b").get(), no_state.slot()),
        nullptr);
    EXPECT_TRUE(no_state.is_set());
    iterate_pending();
  }
  const auto criticals = log_.texts(G_LOG_LEVEL_CRITICAL);
  ASSERT_EQ(criticals.size(), 2U);
  for (const auto &line : criticals)
    EXPECT_EQ(line, "Failed to setup dbus: Failed to connect to bus (-2)"); // ENOENT
  expect_quiet_log_ = false;
}

TEST_F(Life, TheBusGoesAway) {
  switch_.come();
  auto producer = std::make_unique<ProducerHandle>("hello");
  auto consumer = std::make_unique<ConsumerHandle>("listener");
  FakeConsumer peer;
  Inbox inbox;
  const auto declared = declare_fully(*producer, greeting().get());
  subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
  event_consumer_subscribe(consumer->get(), wants("topic0", "Greeting").get(), Inbox::on_event,
                           &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  bus_.stop();
  ASSERT_TRUE(iterate_until([&] { return g_dbus_connection_is_closed(switch_.connection()); }));
  // Everything can still be called.
  for (int i = 0; i < 5; ++i) {
    event_producer_send_event(producer->get(),
                              prepared_greeting(producer->get(), declared.local_id, "hi", i).get(),
                              nullptr);
    iterate_pending();
  }
  event_producer_declare(producer->get(), door().get());
  event_consumer_subscribe(consumer->get(), wants("a", "b").get(), Inbox::on_event, &inbox);
  Failure failure;
  EXPECT_EQ(
      event_consumer_get_property_state(consumer->get(), wants("a", "b").get(), failure.slot()),
      nullptr);
  EXPECT_TRUE(failure.is_set());
  iterate_pending();
  producer.reset();
  consumer.reset();
  expect_quiet_log_ = false;
}

TEST_F(Life, FreeingSendsWhatWasQueuedBefore) {
  switch_.come();
  FakeConsumer peer;
  ProducerHandle producer{"hello"};
  const auto declared = declare_fully(producer, greeting().get());
  subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
  for (int i = 0; i < 500; ++i)
    ASSERT_TRUE(event_producer_send_event(
        producer.get(), prepared_greeting(producer.get(), declared.local_id, "hi", i).get(),
        nullptr));
  producer.free();
  ASSERT_TRUE(peer.wait_for("Event", 500));
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
}

// A receiver that is slow and answers keeps the connection of a producer that has gone, and one
// that does not answer does not keep it for long.
class Farewell : public Life {
 protected:
  // Sends events to a peer that does not answer, and frees the producer.
  void send_and_free(FakeConsumer &peer, std::size_t count) {
    switch_.come();
    ProducerHandle producer{"hello"};
    const auto declared = declare_fully(producer, greeting().get());
    connection_ = declared.declare.sender;
    subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
    for (std::size_t i = 0; i < count; ++i)
      ASSERT_TRUE(event_producer_send_event(
          producer.get(), prepared_greeting(producer.get(), declared.local_id, "hi", 1).get(),
          nullptr));
    producer.free();
    ASSERT_TRUE(switch_.wait_for("Disconnect"));
  }

  bool has_ended() {
    const Answer answer =
        switch_.call("org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
                     "NameHasOwner", g_variant_new("(s)", connection_.c_str()));
    gboolean has_owner = TRUE;
    g_variant_get(answer.arguments.get(), "(b)", &has_owner);
    return !has_owner;
  }

  std::string connection_;
};

TEST_F(Farewell, WaitsForAReceiverThatIsSlow) {
  constexpr std::size_t count = 30; // more than may be on the way
  FakeConsumer peer;
  peer.stay_silent("Event");
  send_and_free(peer, count);
  // After two seconds the connection looks whether something has moved, which the answer of the
  // switch has, and after two more again.
  g_timeout_add(
      2'100,
      [](gpointer data) -> gboolean {
        auto &slow = *static_cast<FakeConsumer *>(data);
        slow.answer_again("Event");
        for (const Call &call : slow.calls("Event"))
          slow.answer_late(call);
        return G_SOURCE_REMOVE;
      },
      &peer);
  EXPECT_TRUE(peer.wait_for("Event", count));
  EXPECT_TRUE(iterate_until([&] { return has_ended(); }));
}

// Who hears that the handle is done may end the process: nobody iterates the loop any more.
TEST_F(Farewell, HasSentAllBeforeItIsDone) {
  constexpr std::size_t count = 300; // more than a bus lets wait for an answer
  switch_.stay_silent("RemoveDeclaration");
  switch_.come();
  FakeConsumer peer;
  peer.stay_silent("Event");
  EventProducer *producer = event_producer_new("hello");
  const guint32 local_id = event_producer_declare(producer, greeting().get());
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{local_id, local_id + 100, switch_.calls("Declare").front()};
  identify(declared);
  subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
  for (std::size_t i = 0; i < count; ++i) {
    ASSERT_TRUE(event_producer_send_event(
        producer, prepared_greeting(producer, local_id, "hi", static_cast<gint32>(i)).get(),
        nullptr));
    ASSERT_TRUE(event_producer_remove_declaration(producer, "Hello", nullptr, nullptr));
  }
  bool done = false;
  event_producer_int_free(
      producer, [](EventProducer *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done);
  while (!done)
    g_main_context_iteration(nullptr, TRUE);

  const auto end = std::chrono::steady_clock::now() + generous;
  while ((peer.count("Event") < count || switch_.count("Disconnect") == 0) &&
         std::chrono::steady_clock::now() < end)
    g_usleep(1'000);
  const auto events = peer.calls("Event");
  ASSERT_EQ(events.size(), count);
  for (std::size_t i = 0; i < count; ++i)
    EXPECT_EQ(
        wire::without_time(events[i].bytes(0)),
        wire::without_time(wire::stamped_event({declared.global_id, local_id, producer_id, false},
                                               greeting_pairs("hi", static_cast<int>(i)))));
  EXPECT_EQ(switch_.count("RemoveDeclaration"), count);
  EXPECT_EQ(switch_.members().back(), "Disconnect");
  EXPECT_TRUE(switch_.calls("Disconnect").front().wants_answer);
}

// A daemon that has not read all of it by then would drop what is left.
TEST_F(Farewell, TheBusHasAllWhenAProcessHearsThatItIsDone) {
  constexpr std::size_t count = 1'000;
  switch_.come();
  for (std::size_t run = 1; run <= 5; ++run) {
    FakeConsumer peer;
    ChildProcess leaver{{LEAVER, std::to_string(count)}};
    ASSERT_TRUE(switch_.wait_for("Declare", run));
    const Declared declared{1, 101, switch_.calls("Declare").back()};
    identify(declared);
    subscribe(declared, peer, object, 1, 11, {{"topic0", "Greeting"}});
    EXPECT_EQ(leaver.wait(), 0) << leaver.errors();
    EXPECT_TRUE(peer.wait_for("Event", count)) << peer.count("Event") << " in run " << run;
    EXPECT_TRUE(switch_.wait_for("Disconnect", run));
  }
}

TEST_F(Farewell, DoesNotWaitForAReceiverThatHangs) {
  FakeConsumer peer;
  peer.stay_silent("Event");
  send_and_free(peer, 1);
  EXPECT_FALSE(has_ended());
  // A minute is the limit for one that answers.
  EXPECT_TRUE(iterate_until([&] { return has_ended(); }, std::chrono::seconds{30}));
}

} // namespace
} // namespace varro2::test
