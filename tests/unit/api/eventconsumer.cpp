#include "eventconsumer.hpp"
#include "nobus.hpp"

#include <atomic>
#include <thread>
#include <vector>

using namespace varro2::test;

namespace {

void drop_event(Event *event, gpointer) {
  event_free(event);
}
void drop_secure_event(Event *event, guint32, gpointer) {
  event_free(event);
}

void note_setup(EventConsumer *handle, gpointer user_data, GError *error) {
  Told::of(user_data).failed(handle ? "setup" : "no handle", error);
}

void note_done(EventConsumer *, gpointer user_data) {
  Told::of(user_data).lines.push_back("done");
}

const Failure already_set = event_failure(11, "Error object already set");
const Failure nothing_supplied = event_failure(1, "NULL object supplied");

class Consumers : public WithoutBus {
 protected:
  ~Consumers() override {
    event_consumer_free(consumer);
    iterate_pending();
  }

  Failure refused(EventConsumer *handle, const SubscribeExpression *asked,
                  EventConsumerEventCallback callback, guint32 type) {
    GError *error = NULL;
    EXPECT_EQ(event_consumer_int_generate_token(handle, asked, callback, type, &error), 0u);
    return take(error);
  }

  EventConsumer *consumer = event_consumer_new("test");
  TestExpression expression = any_text();
};

} // namespace

TEST_F(Consumers, FailedConnectionIsLoggedOnceAndTheHandleLives) {
  iterate_pending();
  EXPECT_EQ(criticals(no_bus_line), 1u);
  EXPECT_EQ(event_consumer_subscribe(consumer, expression.get(), drop_event, NULL), 1u);
}

TEST_F(Consumers, NeedAName) {
  EXPECT_EQ(event_consumer_new(NULL), nullptr);
  EXPECT_EQ(criticals("event_consumer_new: assertion 'name != NULL' failed"), 1u);
  EXPECT_EQ(async_consumer_new(NULL, note_setup, NULL), nullptr);
  EXPECT_EQ(criticals("async_consumer_new: assertion 'name != NULL' failed"), 1u);
}

TEST_F(Consumers, SetupCallbackGetsTheFailureInPlaceOfTheLog) {
  iterate_pending();
  log.clear();
  Told told;
  EventConsumer *other = event_consumer_int_new_empty();
  event_consumer_int_setup(other, "other", note_setup, &told);
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"setup -2 Failed to connect to bus"});
  EXPECT_EQ(criticals(no_bus_line), 0u);
  event_consumer_int_free(other, note_done, &told);
  EXPECT_EQ(told.lines.size(), 1u);
  iterate_pending();
  EXPECT_EQ(told.lines.back(), "done");
}

TEST_F(Consumers, DoneCallbackGetsTheFormerAddress) {
  static EventConsumer *seen;
  EventConsumer *other = event_consumer_new("other");
  event_consumer_int_free(
      other, [](EventConsumer *handle, gpointer) { seen = handle; }, NULL);
  ASSERT_TRUE(iterate_until([] { return seen != nullptr; }));
  EXPECT_EQ(seen, other);
}

TEST_F(Consumers, DoneCallbackComesWhenTheHandleIsFreed) {
  static gpointer alive;
  static bool was_alive;
  EventConsumer *other = event_consumer_new("other");
  alive = other->consumer.get();
  g_object_add_weak_pointer(G_OBJECT(alive), &alive);
  Told told;
  event_consumer_int_free(
      other,
      [](EventConsumer *handle, gpointer user_data) {
        was_alive = alive != nullptr;
        note_done(handle, user_data);
      },
      &told);
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"done"});
  EXPECT_FALSE(was_alive);
}

TEST_F(Consumers, FreeingNothingDoesNothing) {
  event_consumer_free(NULL);
  EXPECT_EQ(log.texts(), Lines{});
  EXPECT_DEATH(event_consumer_int_free(NULL, NULL, NULL),
               "event_consumer_int_free: assertion failed: \\(event_consumer != NULL\\)");
}

TEST_F(Consumers, WhatMayBeSubscribed) {
  const SubscribeExpression *asked = expression.get();
  EXPECT_EQ(refused(NULL, NULL, NULL, 2), event_failure(1, "Event consumer object was NULL"));
  EXPECT_EQ(refused(consumer, NULL, NULL, 2), event_failure(1, "Subscribe expression was NULL"));
  EXPECT_EQ(refused(consumer, asked, NULL, 2), event_failure(1, "Subscription callback was NULL"));
  EXPECT_EQ(refused(consumer, asked, drop_event, 2),
            event_failure(12, "Invalid subscription type"));
  EXPECT_EQ(refused(consumer, asked, drop_event, G_MAXUINT32),
            event_failure(12, "Invalid subscription type"));
  GError *error = earlier_error();
  EXPECT_EQ(event_consumer_int_generate_token(NULL, NULL, NULL, 2, &error), 0u);
  EXPECT_EQ(take(error), already_set);
  EXPECT_EQ(event_consumer_int_generate_token(consumer, asked, drop_event, 2, NULL), 0u);
  EXPECT_EQ(event_consumer_int_generate_token(consumer, asked, drop_event, SUBSCRIPTION_TYPE_SECURE,
                                              &error),
            1u);
  EXPECT_EQ(take(error), no_failure);
}

TEST_F(Consumers, TokensCountUpwards) {
  const SubscribeExpression *asked = expression.get();
  EXPECT_EQ(event_consumer_subscribe(consumer, asked, drop_event, NULL), 1u);
  EXPECT_EQ(event_consumer_subscribe_full(consumer, asked, drop_event, NULL, NULL), 2u);
  EXPECT_EQ(event_consumer_subscribe_secure(consumer, asked, drop_secure_event, NULL), 3u);
  EXPECT_EQ(event_consumer_subscribe_secure_full(consumer, asked, drop_secure_event, NULL, NULL),
            4u);
  EXPECT_TRUE(event_consumer_unsubscribe(consumer, 4, NULL));
  iterate_pending();
  EXPECT_EQ(event_consumer_subscribe(consumer, asked, drop_event, NULL), 5u);
}

TEST_F(Consumers, RefusedSubscriptionIsLogged) {
  EXPECT_EQ(event_consumer_subscribe(NULL, expression.get(), drop_event, NULL), 0u);
  EXPECT_EQ(event_consumer_subscribe_full(consumer, NULL, drop_event, NULL, NULL), 0u);
  EXPECT_EQ(event_consumer_subscribe_secure(consumer, expression.get(), NULL, NULL), 0u);
  EXPECT_EQ(event_consumer_subscribe_secure_full(consumer, expression.get(), NULL, NULL, NULL), 0u);
  EXPECT_EQ(warnings(), (Lines{"Failed to subscribe: Event consumer object was NULL",
                               "Failed to subscribe: Subscribe expression was NULL",
                               "Failed to subscribe: Subscription callback was NULL",
                               "Failed to subscribe: Subscription callback was NULL"}));
}

TEST_F(Consumers, MisuseOfTheInnerSubscribeAborts) {
  const auto subscribe = [](EventConsumer *handle, guint32 token, const auto *asked,
                            EventConsumerEventCallback callback, guint32 type) {
    event_consumer_int_subscribe(handle, token, asked, NULL, callback, NULL, type, NULL);
  };
  const SubscribeExpression *asked = expression.get();
  const SubscribeExpression *nothing = nullptr;
  EXPECT_DEATH(subscribe(NULL, 0, nothing, NULL, 2),
               "event_consumer_int_subscribe: assertion failed: \\(event_consumer != NULL\\)");
  EXPECT_DEATH(subscribe(consumer, 0, nothing, NULL, 2), "\\(token != 0\\)");
  EXPECT_DEATH(subscribe(consumer, 1, nothing, NULL, 2), "\\(subscribe_expression != NULL\\)");
  EXPECT_DEATH(subscribe(consumer, 1, asked, NULL, 2), "\\(event_callback != NULL\\)");
  EXPECT_DEATH(subscribe(consumer, 1, asked, drop_event, 2),
               "\\(subscription_type == SUBSCRIPTION_TYPE_NORMAL \\|\\| subscription_type == "
               "SUBSCRIPTION_TYPE_SECURE\\)");
}

TEST_F(Consumers, RefreshAnswersAtOnce) {
  const guint32 token = event_consumer_subscribe(consumer, expression.get(), drop_event, NULL);
  GError *error = NULL;
  EXPECT_TRUE(event_consumer_refresh(consumer, token, &error));
  EXPECT_EQ(take(error), no_failure);
  EXPECT_FALSE(event_consumer_refresh(NULL, token, &error));
  EXPECT_EQ(take(error), nothing_supplied);
  EXPECT_FALSE(event_consumer_refresh(consumer, 9, &error));
  EXPECT_EQ(take(error), event_failure(4, "Cannot find subscription token 9"));
  EXPECT_FALSE(event_consumer_refresh(consumer, G_MAXUINT32, &error));
  EXPECT_EQ(take(error), event_failure(4, "Cannot find subscription token -1"));
  error = earlier_error();
  EXPECT_FALSE(event_consumer_refresh(consumer, token, &error));
  EXPECT_EQ(take(error), already_set);
  error = earlier_error();
  EXPECT_FALSE(event_consumer_refresh(NULL, token, &error));
  EXPECT_EQ(take(error), nothing_supplied);
  EXPECT_TRUE(event_consumer_refresh_async(consumer, token));
  EXPECT_FALSE(event_consumer_refresh_async(consumer, 9));
  EXPECT_FALSE(event_consumer_refresh_async(NULL, token));
}

TEST_F(Consumers, UnsubscribeAnswersAtOnce) {
  const guint32 token = event_consumer_subscribe(consumer, expression.get(), drop_event, NULL);
  GError *error = earlier_error();
  EXPECT_FALSE(event_consumer_unsubscribe(consumer, token, &error));
  EXPECT_EQ(take(error), already_set);
  EXPECT_FALSE(event_consumer_unsubscribe(NULL, token, &error));
  EXPECT_EQ(take(error), nothing_supplied);
  EXPECT_TRUE(event_consumer_unsubscribe(consumer, token, &error));
  EXPECT_EQ(take(error), no_failure);
  EXPECT_FALSE(event_consumer_unsubscribe(consumer, token, &error));
  EXPECT_EQ(take(error), event_failure(4, "Cannot find subscription token 1"));
  EXPECT_FALSE(event_consumer_refresh(consumer, token, NULL));
}

TEST_F(Consumers, CallbacksHearOfEveryEnd) {
  Told told;
  const guint32 token = event_consumer_subscribe(consumer, expression.get(), drop_event, NULL);
  GError *error = earlier_error();
  event_consumer_unsubscribe_and_notify(NULL, 8, Told::id_and_error, &told, NULL);
  event_consumer_unsubscribe_and_notify(consumer, 8, Told::id_and_error, &told, &error);
  g_clear_error(&error);
  EXPECT_FALSE(event_consumer_int_refresh(consumer, 9, Told::id_and_error, &told, NULL));
  EXPECT_TRUE(event_consumer_int_refresh(consumer, token, Told::id_and_error, &told, NULL));
  EXPECT_FALSE(event_consumer_unsubscribe_and_notify(consumer, 9, Told::id_and_error, &told, NULL));
  EXPECT_TRUE(
      event_consumer_unsubscribe_and_notify(consumer, token, Told::id_and_error, &told, NULL));
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{"id 9 4 Cannot find subscription token 9", "id 1",
                               "id 9 4 Cannot find subscription token 9", "id 1"}));
}

TEST_F(Consumers, MisuseOfTheInnerCallsAborts) {
  GError *error = earlier_error();
  EXPECT_DEATH(event_consumer_int_refresh(NULL, 1, NULL, NULL, &error),
               "event_consumer_int_refresh: assertion failed: \\(error == NULL \\|\\| \\*error == "
               "NULL\\)");
  EXPECT_DEATH(event_consumer_int_refresh(NULL, 1, NULL, NULL, NULL),
               "event_consumer_int_refresh: assertion failed: \\(event_consumer != NULL\\)");
  EXPECT_DEATH(event_consumer_int_unsubscribe(NULL, 1, NULL, NULL, &error),
               "event_consumer_int_unsubscribe: assertion failed: \\(error == NULL \\|\\| "
               "\\*error == NULL\\)");
  EXPECT_DEATH(event_consumer_int_unsubscribe(NULL, 1, NULL, NULL, NULL),
               "event_consumer_int_unsubscribe: assertion failed: \\(event_consumer != NULL\\)");
  g_error_free(error);
}

TEST_F(Consumers, SubscribedCallbackComesWithTheCommand) {
  Told told;
  event_consumer_int_subscribe(consumer, 3, expression.get(), Told::id_alone, drop_event, NULL,
                               SUBSCRIPTION_TYPE_NORMAL, &told);
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"id 3"});
}

TEST_F(Consumers, PropertyStateIsCheckedSoftly) {
  GError *error = NULL;
  EXPECT_EQ(event_consumer_get_property_state(NULL, expression.get(), &error), nullptr);
  EXPECT_EQ(event_consumer_get_property_state(consumer, NULL, &error), nullptr);
  EXPECT_EQ(take(error), no_failure);
  EXPECT_EQ(log.texts(),
            (Lines{"event_consumer_get_property_state: assertion 'event_consumer != NULL' failed",
                   "event_consumer_get_property_state: assertion 'subscribe_expression != NULL' "
                   "failed"}));
}

TEST_F(Consumers, PropertyStateWithoutABusIsAFailure) {
  GError *error = NULL;
  EXPECT_EQ(event_consumer_get_property_state(consumer, expression.get(), &error), nullptr);
  EXPECT_EQ(take(error).code, 2);
  EXPECT_EQ(event_consumer_get_property_state(consumer, expression.get(), NULL), nullptr);
  error = earlier_error();
  EXPECT_EQ(event_consumer_get_property_state(consumer, expression.get(), &error), nullptr);
  EXPECT_EQ(take(error), already_set);
}

TEST_F(Consumers, PropertyStateFromAnotherThreadWaitsForTheLoop) {
  bool answered = false;
  GError *error = NULL;
  std::thread other{[&] {
    event_consumer_get_property_state(consumer, expression.get(), &error);
    g_main_context_invoke(
        NULL,
        [](gpointer data) -> gboolean {
          *static_cast<bool *>(data) = true;
          return G_SOURCE_REMOVE;
        },
        &answered);
  }};
  EXPECT_TRUE(iterate_until([&] { return answered; }));
  other.join();
  EXPECT_EQ(take(error).code, 2);
}

// A thread that asks all the time for a token that is not there. It comes through one lock alone:
// another one on its way could hide that this is missing.
class LookingUp {
 public:
  explicit LookingUp(Consumer *consumer)
      : thread_{[this, consumer] {
          for (; !enough_.load(relaxed); times_.fetch_add(1, relaxed))
            was_ever_there_ |= consumer_token_exists(consumer, unknown) != FALSE;
        }} {}
  ~LookingUp() {
    enough_ = true;
    thread_.join();
    EXPECT_FALSE(was_ever_there_);
  }
  LookingUp(const LookingUp &) = delete;
  LookingUp &operator=(const LookingUp &) = delete;

  int times() const { return times_.load(relaxed); }
  // Until it has asked once more from beginning to end.
  void wait() const {
    for (const int before = times(); times() < before + 2;)
      std::this_thread::yield();
  }

 private:
  static constexpr auto relaxed = std::memory_order_relaxed; // orders nothing
  static constexpr guint32 unknown = G_MAXUINT32;            // behind all that come and go

  std::atomic<bool> enough_{false};
  std::atomic<int> times_{0};
  bool was_ever_there_ = false;
  std::thread thread_;
};

TEST_F(Consumers, LooksUpWhileSubscriptionsComeAndGo) {
  const auto asked = any_text();
  event_consumer_subscribe(consumer, asked.get(), drop_event, NULL);
  const LookingUp looking{consumer->consumer.get()};
  for (int i = 0; i < 500 || looking.times() < 500; ++i) {
    const guint32 token = event_consumer_subscribe(consumer, asked.get(), drop_event, NULL);
    if (i % 2 != 0) {
      EXPECT_TRUE(event_consumer_unsubscribe(consumer, token, NULL));
    }
    iterate_pending();
  }
}

// Looked up before this thread takes the lock for something else.
TEST_F(Consumers, LooksUpAfterASubscriptionWasTaken) {
  const auto asked = any_text();
  std::vector<guint32> tokens;
  for (int i = 0; i < 8; ++i)
    tokens.push_back(event_consumer_subscribe(consumer, asked.get(), drop_event, NULL));
  iterate_pending();
  Consumer *inner = consumer->consumer.get();
  const LookingUp looking{inner};
  for (const guint32 token : tokens) {
    looking.wait();
    ConsumerSubscription *taken = consumer_send_unsubscribe_prepare(inner, token);
    looking.wait();
    ASSERT_NE(taken, nullptr);
    consumer_send_unsubscribe(inner, taken);
  }
}
