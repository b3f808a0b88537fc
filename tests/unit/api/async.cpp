#include "nobus.hpp"

using namespace varro2::test;

namespace {

constexpr const char *setup_failed = "setup -2 Failed to connect to bus";

template <typename Handle>
void note_setup(Handle *handle, gpointer user_data, GError *error) {
  Told::of(user_data).failed(handle ? "setup" : "no handle", error);
}

template <typename Handle>
void note_done(Handle *, gpointer user_data) {
  Told::of(user_data).lines.push_back("done");
}

void note_send(guint32 id, Event *event, gpointer user_data, GError *error) {
  Told::of(user_data).failed("sent " + std::to_string(id) + (event ? "" : " nothing"), error);
}

void drop_event(Event *event, gpointer) {
  event_free(event);
}

class AsyncProducers : public WithoutBus {
 protected:
  ~AsyncProducers() override {
    async_producer_free(producer, NULL, NULL);
    iterate_pending();
  }

  Told told;
  EventProducer *producer = async_producer_new("test", note_setup, NULL, &told);
};

class AsyncConsumers : public WithoutBus {
 protected:
  ~AsyncConsumers() override {
    async_consumer_free(consumer, NULL, NULL);
    iterate_pending();
  }

  Told told;
  EventConsumer *consumer = async_consumer_new("test", note_setup, &told);
  TestExpression expression = any_text();
};

} // namespace

TEST_F(AsyncProducers, SetupRunsAsACommand) {
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{setup_failed});
  EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(AsyncProducers, FailedConnectionIsLoggedWithoutASetupCallback) {
  EventProducer *other = async_producer_new("other", NULL, NULL, NULL);
  async_producer_free(other, note_done, &told);
  async_producer_free(NULL, note_done, &told);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{setup_failed, "done"}));
  EXPECT_EQ(log.texts(), Lines{no_bus_line});
}

TEST_F(AsyncProducers, PreparingIsSafeBeforeSetup) {
  EXPECT_EQ(async_producer_prepare_event(producer, 1), nullptr);
  EXPECT_EQ(log.texts(), Lines{});
  EXPECT_EQ(async_producer_prepare_event(NULL, 1), nullptr);
  EXPECT_EQ(async_producer_prepare_event(producer, 0), nullptr);
  EXPECT_EQ(log.texts(),
            (Lines{"event_producer_prepare_event: assertion 'event_producer != NULL' failed",
                   "event_producer_prepare_event: assertion 'local_declare_id != 0' failed"}));
}

TEST_F(AsyncProducers, DeclaresUnderAnIdKnownAtOnce) {
  GError *error = NULL;
  const guint32 id = async_producer_declare(producer, text_declaration().get(), Told::id_alone,
                                            NULL, &told, &error);
  EXPECT_EQ(id, 1u);
  EXPECT_EQ(take(error), no_failure);
  EXPECT_EQ(async_producer_prepare_event(producer, id), nullptr);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{setup_failed, "id 1"}));
  const TestEvent event{async_producer_prepare_event(producer, id)};
  ASSERT_TRUE(event);
  EXPECT_EQ(event_get_local_id(event.get()), id);
}

TEST_F(AsyncProducers, TellsThatItDeclaresBeforeItDoes) {
  const auto declaration = text_declaration();
  event_declaration_set_property(
      declaration.get(), NULL,
      [](Event *event, gpointer user_data) {
        Told::of(user_data).lines.push_back("asked for the property");
        return event;
      },
      &told);
  async_producer_declare(producer, declaration.get(), Told::id_alone, NULL, &told, NULL);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{setup_failed, "id 1", "asked for the property"}));
}

TEST_F(AsyncProducers, RefusedDeclarationQueuesAndLogsNothing) {
  const TestDeclaration external{event_declaration_new(FALSE)};
  GError *error = NULL;
  const auto declare = [&](EventProducer *handle, const EventDeclaration *declaration) {
    EXPECT_EQ(async_producer_declare(handle, declaration, Told::id_alone, NULL, &told, &error), 0u);
    return take(error);
  };
  EXPECT_EQ(declare(producer, external.get()), event_failure(7, "External event is missing topic"));
  EXPECT_EQ(declare(producer, NULL), event_failure(1, "NULL object supplied as declaration"));
  EXPECT_EQ(declare(NULL, external.get()),
            event_failure(1, "NULL object supplied as event producer"));
  error = earlier_error();
  EXPECT_EQ(declare(producer, external.get()), event_failure(11, "Error object already set"));
  EXPECT_EQ(async_producer_declare(producer, NULL, NULL, NULL, NULL, NULL), 0u);
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{setup_failed});
  EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(AsyncProducers, UndeclareReportsThroughTheCallbackAlone) {
  const guint32 id =
      async_producer_declare(producer, text_declaration().get(), NULL, NULL, NULL, NULL);
  async_producer_undeclare(producer, id, Told::id_and_error, &told);
  async_producer_undeclare(producer, 9, Told::id_and_error, &told);
  async_producer_undeclare(producer, 9, NULL, NULL);
  iterate_pending();
  EXPECT_EQ(told.lines,
            (Lines{setup_failed, "id 1", "id 9 5 Could not find the declaration to undeclare."}));
  EXPECT_EQ(async_producer_prepare_event(producer, id), nullptr);
  EXPECT_EQ(log.texts(), Lines{});
  async_producer_undeclare(NULL, id, Told::id_and_error, &told);
  async_producer_undeclare(producer, 0, Told::id_and_error, &told);
  iterate_pending();
  EXPECT_EQ(log.texts(),
            (Lines{"async_producer_undeclare: assertion 'event_producer != NULL' failed",
                   "async_producer_undeclare: assertion 'local_declare_id != 0' failed"}));
  EXPECT_EQ(told.lines.size(), 3u);
}

TEST_F(AsyncProducers, SendReportsThroughTheCallbackAlone) {
  const TestEvent stranger{event_new()};
  async_producer_send_event(producer, stranger.get(), note_send, &told);
  async_producer_send_event(producer, NULL, note_send, &told);
  async_producer_send_event(producer, NULL, NULL, NULL);
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines,
            (Lines{setup_failed,
                   "sent 0 5 The event has not been declared to the event switch. (The connection "
                   "to the switch is likely to be broken)",
                   "sent 0 nothing 1 NULL object supplied as event"}));
  EXPECT_EQ(log.texts(), Lines{});
  async_producer_send_event(NULL, stranger.get(), note_send, &told);
  EXPECT_EQ(log.texts(),
            Lines{"async_producer_send_event: assertion 'event_producer != NULL' failed"});
}

TEST_F(AsyncProducers, SendsTheEventAsItWasAtTheCall) {
  const guint32 id =
      async_producer_declare(producer, text_property().get(), NULL, NULL, NULL, NULL);
  iterate_pending();
  const TestEvent event{async_producer_prepare_event(producer, id)};
  async_producer_send_event(producer, event.get(), note_send, &told);
  event_set_value(event.get(), "text", "too late");
  async_producer_send_event(producer, event.get(), note_send, &told);
  iterate_pending();
  EXPECT_EQ(told.lines,
            (Lines{setup_failed, "sent 1 7 The event has keys with unset values", "sent 1"}));
}

TEST_F(AsyncProducers, ACommandOfACommandComesAfterThoseThatWait) {
  async_producer_declare(producer, text_declaration().get(), Told::id_alone, NULL, &told, NULL);
  async_producer_undeclare(producer, 9, Told::id_and_error, &told);
  async_producer_free(producer, note_done, &told);
  iterate_pending();
  // All of these come from second commands, behind the three calls and the set-up.
  EXPECT_EQ(told.lines, (Lines{setup_failed, "id 1",
                               "id 9 5 Could not find the declaration to undeclare.", "done"}));
  producer = NULL;
}

TEST_F(AsyncProducers, FreedTheOtherWayDropsWhatIsNotDoneYet) {
  iterate_pending();
  const guint32 id =
      async_producer_declare(producer, text_property().get(), NULL, NULL, NULL, NULL);
  iterate_pending();
  const TestEvent event{async_producer_prepare_event(producer, id)};
  // Of each only the first half comes before the end; with it goes what the second half holds.
  async_producer_declare(producer, text_declaration().get(), Told::id_alone, NULL, &told, NULL);
  async_producer_send_event(producer, event.get(), note_send, &told);
  async_producer_undeclare(producer, id, Told::id_and_error, &told);
  async_producer_undeclare(producer, 9, Told::id_and_error, &told);
  event_producer_free(std::exchange(producer, nullptr));
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{setup_failed});
}

TEST_F(AsyncConsumers, FreedTheOtherWayDropsWhatIsNotDoneYet) {
  const guint32 token = async_consumer_subscribe(consumer, expression.get(), NULL, drop_event, NULL,
                                                 NULL, SUBSCRIPTION_TYPE_NORMAL, NULL);
  iterate_pending();
  async_consumer_subscribe(consumer, expression.get(), Told::id_alone, drop_event, NULL, &told,
                           SUBSCRIPTION_TYPE_NORMAL, NULL);
  async_consumer_unsubscribe(consumer, token, Told::id_and_error, &told);
  async_consumer_refresh(consumer, 8, Told::id_and_error, &told);
  event_consumer_free(std::exchange(consumer, nullptr));
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{setup_failed});
}

TEST_F(AsyncConsumers, SetupRunsAsACommand) {
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{setup_failed});
  EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(AsyncConsumers, FailedConnectionIsLoggedWithoutASetupCallback) {
  EventConsumer *other = async_consumer_new("other", NULL, NULL);
  async_consumer_free(other, note_done, &told);
  async_consumer_free(NULL, note_done, &told);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{setup_failed, "done"}));
  EXPECT_EQ(log.texts(), Lines{no_bus_line});
}

TEST_F(AsyncConsumers, SubscribesUnderATokenKnownAtOnce) {
  GError *error = NULL;
  EXPECT_EQ(async_consumer_subscribe(consumer, expression.get(), Told::id_alone, drop_event, NULL,
                                     &told, SUBSCRIPTION_TYPE_NORMAL, &error),
            1u);
  EXPECT_EQ(take(error), no_failure);
  EXPECT_EQ(async_consumer_subscribe(consumer, expression.get(), Told::id_alone, drop_event, NULL,
                                     &told, SUBSCRIPTION_TYPE_SECURE, NULL),
            2u);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{setup_failed, "id 1", "id 2"}));
}

TEST_F(AsyncConsumers, RefusedSubscriptionQueuesAndLogsNothing) {
  GError *error = NULL;
  const auto subscribe = [&](EventConsumer *handle, const SubscribeExpression *asked,
                             EventConsumerEventCallback callback, guint32 type) {
    EXPECT_EQ(async_consumer_subscribe(handle, asked, Told::id_alone, callback, NULL, &told, type,
                                       &error),
              0u);
    return take(error);
  };
  EXPECT_EQ(subscribe(NULL, NULL, NULL, 2), event_failure(1, "Event consumer object was NULL"));
  EXPECT_EQ(subscribe(consumer, NULL, NULL, 2), event_failure(1, "Subscribe expression was NULL"));
  EXPECT_EQ(subscribe(consumer, expression.get(), NULL, 2),
            event_failure(1, "Subscription callback was NULL"));
  EXPECT_EQ(subscribe(consumer, expression.get(), drop_event, 2),
            event_failure(12, "Invalid subscription type"));
  error = earlier_error();
  EXPECT_EQ(subscribe(consumer, expression.get(), drop_event, 0),
            event_failure(11, "Error object already set"));
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{setup_failed});
  EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(AsyncConsumers, RefreshAndUnsubscribeReportThroughTheCallbackAlone) {
  const guint32 token = async_consumer_subscribe(consumer, expression.get(), NULL, drop_event, NULL,
                                                 NULL, SUBSCRIPTION_TYPE_NORMAL, NULL);
  async_consumer_refresh(consumer, token, Told::id_and_error, &told);
  async_consumer_refresh(consumer, 8, Told::id_and_error, &told);
  async_consumer_unsubscribe(consumer, token, Told::id_and_error, &told);
  async_consumer_unsubscribe(consumer, token, Told::id_and_error, &told);
  async_consumer_unsubscribe(consumer, 8, NULL, NULL);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{setup_failed, "id 1", "id 8 4 Cannot find subscription token 8",
                               "id 1", "id 1 4 Cannot find subscription token 1"}));
}

TEST_F(AsyncConsumers, MissingHandleAborts) {
  EXPECT_DEATH(async_consumer_refresh(NULL, 1, NULL, NULL),
               "async_consumer_refresh: assertion failed: \\(event_consumer != NULL\\)");
  EXPECT_DEATH(async_consumer_unsubscribe(NULL, 1, NULL, NULL),
               "async_consumer_unsubscribe: assertion failed: \\(event_consumer != NULL\\)");
}
