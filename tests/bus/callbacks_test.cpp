// Callbacks that end the very thing that is calling them.
#include "live.hpp"

#include <unistd.h>

namespace varro2::test {
namespace {

class Callbacks : public Live {
 protected:
  struct Subscribed {
    Call call;
    guint32 token;
  };
  Subscribed subscribe_at_switch(EventConsumer *consumer, EventConsumerEventCallback on_event,
                                 gpointer data) {
    const auto before = switch_.count("Subscribe");
    const guint32 token =
        event_consumer_subscribe(consumer, wants("topic0", "Greeting").get(), on_event, data);
    EXPECT_TRUE(switch_.wait_for("Subscribe", before + 1));
    return {switch_.calls("Subscribe").at(before), token};
  }
  void post_events(const Subscribed &to, int count) {
    for (int i = 0; i < count; ++i)
      peer_.post(
          to.call.sender, to.call.text(0), "com.quor.Event.Consumer", "Event",
          g_variant_new("(@ayu)",
                        bytes_variant(wire::stamped_event({}, greeting_pairs("hi", i))).get(),
                        to.token));
  }

  FakeProducer peer_;
};

struct Unsubscriber {
  EventConsumer *consumer = nullptr;
  guint32 token = 0;
  int events = 0;
  bool result = false;
};

TEST_F(Callbacks, UnsubscribesItself) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Unsubscriber state{consumer.get()};
  const auto subscribed = subscribe_at_switch(
      consumer.get(),
      [](Event *event, gpointer data) {
        auto &self = *static_cast<Unsubscriber *>(data);
        ++self.events;
        self.result = event_consumer_unsubscribe(self.consumer, self.token, nullptr);
        event_free(event);
      },
      &state);
  state.token = subscribed.token;
  post_events(subscribed, 3);
  ASSERT_TRUE(switch_.wait_for("Unsubscribe"));
  peer_.fence(subscribed.call.sender);
  EXPECT_EQ(state.events, 1);
  EXPECT_TRUE(state.result);
}

TEST_F(Callbacks, SubscribesAgain) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Unsubscriber state{consumer.get()};
  const auto subscribed = subscribe_at_switch(
      consumer.get(),
      [](Event *event, gpointer data) {
        auto &self = *static_cast<Unsubscriber *>(data);
        event_free(event);
        event_consumer_unsubscribe(self.consumer, self.token, nullptr);
        self.token = event_consumer_subscribe(
            self.consumer, wants("topic0", "Greeting").get(),
            [](Event *second, gpointer) { event_free(second); }, nullptr);
        ++self.events;
      },
      &state);
  state.token = subscribed.token;
  post_events(subscribed, 2);
  ASSERT_TRUE(switch_.wait_for("Subscribe", 2));
  peer_.fence(subscribed.call.sender);
  EXPECT_EQ(state.events, 1);
  EXPECT_EQ(switch_.members(), (std::vector<std::string>{"Subscribe", "Unsubscribe", "Subscribe"}));
  EXPECT_EQ(switch_.calls("Subscribe")[1].number(2), subscribed.token + 1);
}

TEST_F(Callbacks, FreesItsConsumer) {
  switch_.come();
  struct State {
    EventConsumer *consumer = nullptr;
    int events = 0;
  } state;
  state.consumer = event_consumer_new("listener");
  const auto subscribed = subscribe_at_switch(
      state.consumer,
      [](Event *event, gpointer data) {
        auto &self = *static_cast<State *>(data);
        ++self.events;
        event_free(event);
        event_consumer_free(std::exchange(self.consumer, nullptr));
      },
      &state);
  post_events(subscribed, 3);
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  iterate_pending();
  EXPECT_EQ(state.events, 1);
}

TEST_F(Callbacks, FreesItsConsumerInANotification) {
  switch_.come();
  struct State {
    EventConsumer *consumer = nullptr;
    int notifications = 0;
  } state;
  state.consumer = event_consumer_new("listener");
  const guint32 token = event_consumer_subscribe_full(
      state.consumer, wants("topic0", "Greeting").get(),
      [](Event *event, gpointer) { event_free(event); },
      [](Notification *notification, gpointer data) {
        auto &self = *static_cast<State *>(data);
        ++self.notifications;
        notification_free(notification);
        event_consumer_free(std::exchange(self.consumer, nullptr));
      },
      &state);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const auto answer =
      switch_.notify(switch_.calls("Subscribe").front(),
                     wire::notification(1, 2, false, wire::subscription({}, {{}}),
                                        wire::declaration_record({}, false, greeting_pairs())),
                     token);
  EXPECT_EQ(answer.error_name, ""); // answered, although the handle is gone
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  EXPECT_EQ(state.notifications, 1);
}

struct Undeclarer {
  EventProducer *producer = nullptr;
  guint32 local_id = 0;
  int reports = 0;
  bool frees = false;
};

void on_subscribers(GArray *ids, gpointer data) {
  auto &self = *static_cast<Undeclarer *>(data);
  ++self.reports;
  if (ids->len == 0 || !self.producer)
    return;
  if (self.frees)
    event_producer_free(std::exchange(self.producer, nullptr));
  else
    event_producer_undeclare(self.producer, self.local_id);
}

class SubscribersChanged : public Callbacks {
 protected:
  Declared begin(Undeclarer &state, const EventDeclaration *declaration) {
    switch_.come();
    state.producer = event_producer_new_full("hello", on_subscribers, &state);
    state.local_id = event_producer_declare(state.producer, declaration);
    EXPECT_TRUE(switch_.wait_for("Declare"));
    const Declared declared{state.local_id, state.local_id + 100, switch_.calls("Declare").front()};
    identify(declared);
    return declared;
  }
};

TEST_F(SubscribersChanged, UndeclaresWhatIsBeingSubscribed) {
  Undeclarer state;
  FakeConsumer consumer;
  const auto declared = begin(state, door().get());
  EXPECT_TRUE(send_door(state.producer, state.local_id, TRUE));
  iterate_pending();
  subscribe(declared, consumer, "/foreign/listener", 1, 11, {{"topic0", "Door"}});
  ASSERT_TRUE(switch_.wait_for("Undeclare"));
  consumer.fence(declared.declare.sender);
  EXPECT_EQ(consumer.count("Event"), 0U);
  EXPECT_EQ(state.reports, 2); // with the declaration, and without it
  event_producer_free(state.producer);
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
}

TEST_F(SubscribersChanged, FreesItsProducer) {
  Undeclarer state;
  state.frees = true;
  FakeConsumer consumer;
  const auto declared = begin(state, door().get());
  EXPECT_TRUE(send_door(state.producer, state.local_id, TRUE));
  iterate_pending();
  subscribe(declared, consumer, "/foreign/listener", 1, 11, {{"topic0", "Door"}});
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  EXPECT_EQ(state.reports, 1);
}

TEST_F(SubscribersChanged, UndeclaresOnTheLastUnsubscribe) {
  switch_.come();
  struct State {
    EventProducer *producer = nullptr;
    guint32 local_id = 0;
    int empty_reports = 0;
  } state;
  state.producer = event_producer_new_full(
      "hello",
      [](GArray *ids, gpointer data) {
        auto &self = *static_cast<State *>(data);
        if (ids->len)
          return;
        ++self.empty_reports;
        event_producer_undeclare(self.producer, self.local_id);
      },
      &state);
  state.local_id = event_producer_declare(state.producer, greeting().get());
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{state.local_id, state.local_id + 100, switch_.calls("Declare").front()};
  identify(declared);
  FakeConsumer consumer;
  const wire::AndList all{{"topic0", "Greeting"}};
  subscribe(declared, consumer, "/foreign/listener", 1, 11, all);
  subscribe(declared, consumer, "/foreign/listener", 2, 12, all, true); // clandestine: remains
  EXPECT_EQ(switch_.unsubscribe(declared.declare, 1, state.local_id).error_name, "");
  ASSERT_TRUE(switch_.wait_for("Undeclare"));
  EXPECT_EQ(state.empty_reports, 1);
  event_producer_free(state.producer);
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
}

TEST_F(SubscribersChanged, UndeclaresWhileTheSwitchLeaves) {
  switch_.come();
  Undeclarer state;
  state.producer = event_producer_new_full(
      "hello",
      [](GArray *ids, gpointer data) {
        auto &self = *static_cast<Undeclarer *>(data);
        ++self.reports;
        if (ids->len == 0)
          event_producer_undeclare(self.producer, self.local_id);
      },
      &state);
  state.local_id = event_producer_declare(state.producer, greeting().get());
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{state.local_id, state.local_id + 100, switch_.calls("Declare").front()};
  identify(declared);
  FakeConsumer consumer;
  subscribe(declared, consumer, "/foreign/listener", 1, 11, {{"topic0", "Greeting"}});
  switch_.leave();
  ASSERT_TRUE(iterate_until([&] { return state.reports == 2; }));
  switch_.come();
  switch_.fence(declared.declare.sender);
  EXPECT_EQ(switch_.count("Declare"), 1U); // it was undeclared meanwhile
  event_producer_free(state.producer);
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
}

TEST_F(Callbacks, CompletionUndeclares) {
  switch_.come();
  struct State {
    EventProducer *producer = nullptr;
    int completed = 0;
  } state;
  ProducerHandle producer{"hello"};
  state.producer = producer.get();
  const guint32 local_id = event_producer_declare_and_notify(
      producer.get(), greeting().get(),
      [](guint32 id, gpointer data) {
        auto &self = *static_cast<State *>(data);
        ++self.completed;
        event_producer_undeclare(self.producer, id);
      },
      &state);
  ASSERT_TRUE(switch_.wait_for("Declare"));
  const Declared declared{local_id, 300, switch_.calls("Declare").front()};
  identify(declared);
  ASSERT_TRUE(switch_.wait_for("Undeclare"));
  EXPECT_EQ(state.completed, 1);
  EXPECT_EQ(event_producer_prepare_event(producer.get(), local_id), nullptr);
}

// The queue for a switch that hangs is full of declaration types. To declare a property once more
// drops the oldest, and whoever waited for that one releases the property.
TEST_F(Callbacks, AnEndedTypeReleasesWhatIsBeingDeclared) {
  constexpr std::size_t bound = 64 * 1024 * 1024; // of the queue
  constexpr guint32 local_id = 1;
  expect_quiet_log_ = false;
  switch_.come();
  switch_.stay_silent("AddDeclaration");
  struct State {
    Producer *producer = producer_new("doors", nullptr, nullptr);
    int ended = 0;
    bool released = false;
  } state;
  Failure failure;
  ASSERT_TRUE(producer_init_dbus(state.producer, failure.slot()));
  const auto on_type = [](const char *, gpointer data, GError *error) {
    auto &self = *static_cast<State *>(data);
    g_clear_error(&error);
    ++self.ended;
    if (ProducerDeclarationData *released = producer_release_declare_id(self.producer, local_id)) {
      producer_send_undeclare(self.producer, released);
      self.released = true;
    }
  };

  HeldDeclaration small{event_declaration_new(FALSE)};
  for (int i = 0; i < 24; ++i) // all that go out without an answer
    producer_add_declaration(state.producer, "small", small.get(), on_type, &state);
  HeldDeclaration large{event_declaration_new(FALSE)};
  const std::string value(60'000, 'x');
  for (int i = 0; i < 100; ++i)
    event_declaration_add_key_value(large.get(), ("key" + std::to_string(i)).c_str(), value.c_str(),
                                    VALUE_TYPE_STRING);
  GByteArray *bytes = event_declaration_serialize(large.get());
  const std::size_t size = bytes->len;
  g_byte_array_unref(bytes);
  for (std::size_t queued = 0; queued + size <= bound; queued += size)
    producer_add_declaration(state.producer, "large", large.get(), on_type, &state);
  ASSERT_EQ(state.ended, 0);

  event_declaration_set_property(
      large.get(), "key0",
      [](Event *event, gpointer) {
        event_set_value(event, "key0", "filled");
        return event;
      },
      nullptr);
  producer_allocate_decl_data(state.producer, local_id, large.release(), nullptr, nullptr);
  producer_send_declare(state.producer, local_id);
  EXPECT_GE(state.ended, 1);
  EXPECT_TRUE(state.released);
  producer_prepare_free(state.producer);
  g_object_unref(state.producer);
}

TEST_F(Callbacks, AsksForAPropertyStateInside) {
  switch_.come();
  switch_.answer_error("GetPropertyState", "com.quor.Event.Error.LookingUpPropState", "none");
  struct State {
    EventConsumer *consumer = nullptr;
    int code = 0;
  } state;
  ConsumerHandle consumer{"listener"};
  state.consumer = consumer.get();
  const auto subscribed = subscribe_at_switch(
      consumer.get(),
      [](Event *event, gpointer data) {
        auto &self = *static_cast<State *>(data);
        event_free(event);
        Failure failure;
        event_consumer_get_property_state(self.consumer, wants("topic0", "Door").get(),
                                          failure.slot());
        self.code = failure.get()->code;
      },
      &state);
  post_events(subscribed, 1);
  ASSERT_TRUE(iterate_until([&] { return state.code != 0; }));
  EXPECT_EQ(state.code, EVENT_ERROR_LOOKING_UP_PROP_STATE);
}

TEST_F(Callbacks, SecureOnesGetTheSendersUserId) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const guint32 token = event_consumer_subscribe_secure_full(
      consumer.get(), wants("topic0", "Greeting").get(), Inbox::on_secure_event,
      Inbox::on_secure_notification, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Subscribed subscribed{switch_.calls("Subscribe").front(), token};
  post_events(subscribed, 1);
  switch_.notify(subscribed.call,
                 wire::notification(1, 2, false, wire::subscription({}, {{}}),
                                    wire::declaration_record({}, false, greeting_pairs())),
                 token);
  ASSERT_TRUE(iterate_until([&] { return inbox.uids.size() == 2; }));
  EXPECT_EQ(inbox.uids, (std::vector<guint32>{geteuid(), geteuid()}));
  EXPECT_EQ(inbox.events.size(), 1U);
  EXPECT_EQ(inbox.notifications.size(), 1U);
}

TEST_F(Callbacks, ASenderThatHasLeftHasNoUserId) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Inbox inbox;
  const guint32 token = event_consumer_subscribe_secure(
      consumer.get(), wants("topic0", "Greeting").get(), Inbox::on_secure_event, &inbox);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call call = switch_.calls("Subscribe").front();
  {
    // Gone before the consumer's loop has read what it sent.
    FakeProducer leaving;
    leaving.post(call.sender, call.text(0), "com.quor.Event.Consumer", "Event",
                 g_variant_new(
                     "(@ayu)",
                     bytes_variant(wire::stamped_event({}, greeting_pairs("hi", 1))).get(), token));
    ASSERT_TRUE(g_dbus_connection_flush_sync(leaving.connection(), nullptr, nullptr));
  }
  ASSERT_TRUE(iterate_until([&] { return inbox.uids.size() == 1; }));
  EXPECT_EQ(inbox.uids, std::vector<guint32>{4294967295U});
  const auto warnings = log_.texts(G_LOG_LEVEL_WARNING);
  ASSERT_EQ(warnings.size(), 1U);
  EXPECT_TRUE(warnings[0].starts_with("Failed to retireve UID of the connection: -"))
      << warnings[0];
  EXPECT_EQ(log_.lines().size(), 1U);
  log_.clear();
}

} // namespace
} // namespace varro2::test
