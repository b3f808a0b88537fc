// The asynchronous handles on a bus: orders, ends, and who owns what a callback is given.
#include "live.hpp"

#include <varro2/asyncconsumer.h>
#include <varro2/asyncproducer.h>

#include <unistd.h>

#include <algorithm>
#include <utility>

namespace varro2::test {
namespace {

using Lines = std::vector<std::string>;

// What the callbacks were told, in their order. An error is the callback's, so it is freed here.
struct Told {
  Lines lines;

  static Told &of(gpointer self) { return *static_cast<Told *>(self); }
  void end(const std::string &what, GError *error) {
    lines.push_back(what + (error ? " " + std::to_string(error->code) + " " + error->message : ""));
    g_clear_error(&error);
  }
  bool has(const std::string &line) const {
    return std::find(lines.begin(), lines.end(), line) != lines.end();
  }

  template <typename Handle>
  static void setup(Handle *, gpointer self, GError *error) {
    of(self).end("setup", error);
  }
  template <typename Handle>
  static void done(Handle *, gpointer self) {
    of(self).lines.emplace_back("done");
  }
  static void declared(guint32 id, gpointer self) {
    of(self).lines.push_back("declared " + std::to_string(id));
  }
  static void complete(guint32 id, gpointer self) {
    of(self).lines.push_back("complete " + std::to_string(id));
  }
  static void undeclared(guint32 id, gpointer self, GError *error) {
    of(self).end("undeclared " + std::to_string(id), error);
  }
  static void sent(guint32 id, Event *event, gpointer self, GError *error) {
    of(self).end("sent " + std::to_string(id) + (event ? "" : " nothing"), error);
  }
  static void subscribed(guint32 token, gpointer self) {
    of(self).lines.push_back("subscribed " + std::to_string(token));
  }
  static void refreshed(guint32 token, gpointer self, GError *error) {
    of(self).end("refreshed " + std::to_string(token), error);
  }
  static void unsubscribed(guint32 token, gpointer self, GError *error) {
    of(self).end("unsubscribed " + std::to_string(token), error);
  }
  static void event(Event *event, gpointer self) {
    of(self).lines.push_back(std::string{"event "} + event_get_value(event, "text"));
    event_free(event);
  }
  static void secure_event(Event *event, guint32 uid, gpointer self) {
    of(self).lines.push_back("event of " + std::to_string(uid));
    event_free(event);
  }
  static void notification(Notification *notification, gpointer self) {
    of(self).lines.emplace_back(notification_is_type_deleted(notification) ? "removed" : "added");
    notification_free(notification);
  }
};

constexpr const char *not_declared =
    " 5 The event has not been declared to the event switch. (The connection to the switch is "
    "likely to be broken)";

class AsyncLive : public Live {
 protected:
  AsyncLive() { switch_.come(); }

  [[nodiscard]] ::testing::AssertionResult wait_for(const std::string &line) const {
    return iterate_until([&] { return told_.has(line); });
  }

  Told told_;
};

class AsyncProducer : public AsyncLive {
 protected:
  ~AsyncProducer() override {
    if (producer_)
      free_and_wait();
  }

  void free_and_wait() {
    async_producer_free(std::exchange(producer_, nullptr), Told::done, &told_);
    EXPECT_TRUE(wait_for("done"));
  }
  guint32 declare(const EventDeclaration *declaration) {
    Failure failure;
    const guint32 id = async_producer_declare(producer_, declaration, Told::declared,
                                              Told::complete, &told_, failure.slot());
    EXPECT_FALSE(failure.is_set());
    return id;
  }
  Declared declare_fully(const EventDeclaration *declaration) {
    const auto before = switch_.count("Declare");
    const guint32 id = declare(declaration);
    EXPECT_TRUE(switch_.wait_for("Declare", before + 1));
    const Declared declared{id, id + 100, switch_.calls("Declare").at(before)};
    identify(declared);
    return declared;
  }

  EventProducer *producer_ = async_producer_new("test", Told::setup, nullptr, &told_);
};

class AsyncConsumer : public AsyncLive {
 protected:
  ~AsyncConsumer() override {
    if (consumer_)
      free_and_wait();
  }

  void free_and_wait() {
    async_consumer_free(std::exchange(consumer_, nullptr), Told::done, &told_);
    EXPECT_TRUE(wait_for("done"));
  }
  guint32 subscribe(const SubscribeExpression *expression) {
    Failure failure;
    const guint32 token = async_consumer_subscribe(consumer_, expression, Told::subscribed,
                                                   Told::event, Told::notification, &told_,
                                                   SUBSCRIPTION_TYPE_NORMAL, failure.slot());
    EXPECT_FALSE(failure.is_set());
    return token;
  }

  EventConsumer *consumer_ = async_consumer_new("test", Told::setup, &told_);
};

} // namespace

// ---- Producer

TEST_F(AsyncProducer, CallsBeforeTheSetupRunsBehindIt) {
  EXPECT_EQ(declare(greeting().get()), 1U);
  EXPECT_EQ(async_producer_prepare_event(producer_, 1), nullptr);
  EXPECT_EQ(declare(door().get()), 2U);
  async_producer_undeclare(producer_, 9, Told::undeclared, &told_);
  EXPECT_EQ(told_.lines, Lines{});
  ASSERT_TRUE(switch_.wait_for("Declare", 2));
  EXPECT_EQ(told_.lines, (Lines{"setup", "declared 1", "declared 2",
                                "undeclared 9 5 Could not find the declaration to undeclare."}));
  EXPECT_EQ(switch_.calls("Declare")[0].bytes(2),
            wire::declaration_record({0, 1, 0}, false, greeting_pairs()));
  EXPECT_EQ(switch_.calls("Declare")[0].text(1), "test");
}

TEST_F(AsyncProducer, SendsAndTellsTheEnd) {
  const auto declared = declare_fully(greeting().get());
  FakeConsumer peer;
  Live::subscribe(declared, peer, "/foreign/listener", 3, 5, {{"topic0", "Greeting"}});
  const HeldEvent event = prepared_greeting(producer_, declared.local_id, "hi", 1);
  const HeldEvent unset{async_producer_prepare_event(producer_, declared.local_id)};
  const HeldEvent stranger{event_new()};
  told_.lines.clear();
  async_producer_send_event(producer_, event.get(), Told::sent, &told_);
  async_producer_send_event(producer_, unset.get(), Told::sent, &told_);
  async_producer_send_event(producer_, stranger.get(), Told::sent, &told_);
  async_producer_send_event(producer_, nullptr, Told::sent, &told_);
  async_producer_send_event(producer_, unset.get(), nullptr, nullptr);
  event_set_value(event.get(), "text", "changed since");
  EXPECT_EQ(told_.lines, Lines{});
  ASSERT_TRUE(peer.wait_for("Event"));
  EXPECT_EQ(told_.lines, (Lines{"sent 1", "sent 1 7 The event has keys with unset values",
                                std::string{"sent 0"} + not_declared,
                                "sent 0 nothing 1 NULL object supplied as event"}));
  EXPECT_EQ(wire::without_time(peer.calls("Event").front().bytes(0)),
            wire::without_time(wire::stamped_event({declared.global_id, 1, producer_id},
                                                   greeting_pairs("hi", 1))));
  peer.fence(declared.declare.sender);
  EXPECT_EQ(peer.count("Event"), 1U);
}

TEST_F(AsyncProducer, AnEventThatIsUndeclaredMeanwhileIsRefusedThroughTheCallback) {
  const auto declared = declare_fully(greeting().get());
  const HeldEvent event = prepared_greeting(producer_, declared.local_id, "hi", 1);
  told_.lines.clear();
  async_producer_undeclare(producer_, declared.local_id, Told::undeclared, &told_);
  async_producer_send_event(producer_, event.get(), Told::sent, &told_);
  ASSERT_TRUE(switch_.wait_for("Undeclare"));
  ASSERT_TRUE(iterate_until([&] { return told_.lines.size() == 2; }));
  EXPECT_EQ(told_.lines[0], "undeclared 1");
  EXPECT_TRUE(told_.lines[1].starts_with("sent 1 5 ")) << told_.lines[1];
  EXPECT_EQ(switch_.calls("Undeclare").front().number(1), declared.global_id);
  EXPECT_EQ(async_producer_prepare_event(producer_, declared.local_id), nullptr);
}

TEST_F(AsyncProducer, FreedWithEverythingStillQueuedItIsDoneInOrder) {
  const guint32 id = declare(greeting().get());
  const HeldEvent stranger{event_new()};
  async_producer_send_event(producer_, stranger.get(), Told::sent, &told_);
  async_producer_undeclare(producer_, 9, Told::undeclared, &told_);
  async_producer_undeclare(producer_, 9, nullptr, nullptr);
  declare(door().get());
  async_producer_free(producer_, Told::done, &told_);
  const EventProducer *former = std::exchange(producer_, nullptr);
  EXPECT_NE(former, nullptr);
  EXPECT_EQ(told_.lines, Lines{});
  ASSERT_TRUE(wait_for("done"));
  EXPECT_EQ(
      told_.lines,
      (Lines{"setup", "declared " + std::to_string(id), std::string{"sent 0"} + not_declared,
             "undeclared 9 5 Could not find the declaration to undeclare.", "declared 2", "done"}));
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  EXPECT_EQ(switch_.members(), (Lines{"Declare", "Declare", "Disconnect"}));
}

TEST_F(AsyncProducer, ADeclarationThatIsTakenBackAtOnceNeverLeaves) {
  const guint32 id = declare(greeting().get());
  async_producer_undeclare(producer_, id, Told::undeclared, &told_);
  declare(door().get());
  ASSERT_TRUE(switch_.wait_for("Declare"));
  EXPECT_EQ(told_.lines, (Lines{"setup", "declared 1", "undeclared 1", "declared 2"}));
  EXPECT_EQ(switch_.members(), Lines{"Declare"});
  EXPECT_EQ(async_producer_prepare_event(producer_, id), nullptr);
}

TEST_F(AsyncProducer, CallbacksMayGoOnAndEndIt) {
  struct Chain {
    EventProducer *producer;
    Told told;
  } chain{producer_, {}};
  const auto greeting_declaration = greeting();
  async_producer_declare(
      producer_, greeting_declaration.get(),
      [](guint32 id, gpointer data) {
        auto &self = *static_cast<Chain *>(data);
        Told::declared(id, &self.told);
        async_producer_undeclare(
            self.producer, id,
            [](guint32 undeclared_id, gpointer chain_data, GError *error) {
              auto &inner = *static_cast<Chain *>(chain_data);
              Told::undeclared(undeclared_id, &inner.told, error);
              async_producer_free(inner.producer, Told::done, &inner.told);
            },
            data);
      },
      nullptr, &chain, nullptr);
  producer_ = nullptr;
  ASSERT_TRUE(iterate_until([&] { return chain.told.has("done"); }));
  EXPECT_EQ(chain.told.lines, (Lines{"declared 1", "undeclared 1", "done"}));
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
}

TEST_F(AsyncProducer, CompletionIsToldOnce) {
  const auto declared = declare_fully(greeting().get());
  identify(declared);
  EXPECT_EQ(told_.lines, (Lines{"setup", "declared 1", "complete 1"}));
}

// ---- Consumer

TEST_F(AsyncConsumer, CallsBeforeTheSetupRunsBehindIt) {
  HeldExpression expression = wants("topic0", "Greeting");
  EXPECT_EQ(subscribe(expression.get()), 1U);
  async_consumer_refresh(consumer_, 1, Told::refreshed, &told_);
  async_consumer_refresh(consumer_, 9, Told::refreshed, &told_);
  async_consumer_unsubscribe(consumer_, 9, Told::unsubscribed, &told_);
  async_consumer_unsubscribe(consumer_, 1, Told::unsubscribed, &told_);
  EXPECT_EQ(told_.lines, Lines{});
  ASSERT_TRUE(wait_for("subscribed 1"));
  expression.reset(); // borrowed until now
  ASSERT_TRUE(wait_for("unsubscribed 1"));
  EXPECT_EQ(told_.lines,
            (Lines{"setup", "subscribed 1", "refreshed 1",
                   "refreshed 9 4 Cannot find subscription token 9",
                   "unsubscribed 9 4 Cannot find subscription token 9", "unsubscribed 1"}));
}

TEST_F(AsyncConsumer, ASubscriptionGoesItsWayInTheOrderOfTheCalls) {
  const HeldExpression expression = wants("topic0", "Greeting");
  subscribe(expression.get());
  ASSERT_TRUE(wait_for("subscribed 1"));
  async_consumer_refresh(consumer_, 1, Told::refreshed, &told_);
  async_consumer_unsubscribe(consumer_, 1, Told::unsubscribed, &told_);
  free_and_wait();
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  EXPECT_EQ(switch_.members(),
            (Lines{"Subscribe", "RefreshProperty", "Unsubscribe", "Disconnect"}));
  for (const auto *member : {"RefreshProperty", "Unsubscribe"}) {
    const Call call = switch_.calls(member).front();
    EXPECT_EQ(call.text(0), switch_.calls("Subscribe").front().text(0));
    EXPECT_EQ(call.number(1), 1U);
  }
  EXPECT_EQ(told_.lines, (Lines{"setup", "subscribed 1", "refreshed 1", "unsubscribed 1", "done"}));
}

TEST_F(AsyncConsumer, ReceivesUntilItUnsubscribes) {
  const HeldExpression expression = wants("topic0", "Greeting");
  subscribe(expression.get());
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call subscribed = switch_.calls("Subscribe").front();
  FakeProducer peer;
  const Bytes event = wire::stamped_event({1, 2, 3}, greeting_pairs("hi", 1));
  EXPECT_EQ(peer.send_event(subscribed.sender, subscribed.text(0), event, 1).error_name, "");
  EXPECT_EQ(told_.lines.back(), "event hi");
  async_consumer_unsubscribe(consumer_, 1, Told::unsubscribed, &told_);
  ASSERT_TRUE(wait_for("unsubscribed 1"));
  EXPECT_EQ(peer.send_event(subscribed.sender, subscribed.text(0), event, 1).error_name, "");
  EXPECT_EQ(told_.lines, (Lines{"setup", "subscribed 1", "event hi", "unsubscribed 1"}));
}

TEST_F(AsyncConsumer, ASecureOneIsToldTheSender) {
  const HeldExpression expression = wants("topic0", "Greeting");
  EXPECT_EQ(async_consumer_subscribe(consumer_, expression.get(), Told::subscribed,
                                     reinterpret_cast<EventConsumerEventCallback>(
                                         reinterpret_cast<void (*)()>(Told::secure_event)),
                                     nullptr, &told_, SUBSCRIPTION_TYPE_SECURE, nullptr),
            1U);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call subscribed = switch_.calls("Subscribe").front();
  FakeProducer peer;
  peer.send_event(subscribed.sender, subscribed.text(0),
                  wire::stamped_event({1, 2, 3}, greeting_pairs("hi", 1)), 1);
  EXPECT_EQ(told_.lines.back(), "event of " + std::to_string(getuid()));
}

TEST_F(AsyncConsumer, FreedWithEverythingStillQueuedItIsDoneInOrder) {
  const HeldExpression expression = wants("topic0", "Greeting");
  subscribe(expression.get());
  subscribe(expression.get());
  async_consumer_unsubscribe(consumer_, 9, Told::unsubscribed, &told_);
  async_consumer_unsubscribe(consumer_, 9, nullptr, nullptr);
  async_consumer_refresh(consumer_, 2, nullptr, nullptr);
  async_consumer_free(std::exchange(consumer_, nullptr), Told::done, &told_);
  EXPECT_EQ(told_.lines, Lines{});
  ASSERT_TRUE(wait_for("done"));
  EXPECT_EQ(told_.lines, (Lines{"setup", "subscribed 1", "subscribed 2",
                                "unsubscribed 9 4 Cannot find subscription token 9", "done"}));
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  // The end has taken the subscriptions out before it was their turn to leave.
  EXPECT_EQ(switch_.members(), (Lines{"RefreshProperty", "Disconnect"}));
}

TEST_F(AsyncConsumer, CallbacksMayEndIt) {
  const HeldExpression expression = wants("topic0", "Greeting");
  struct Chain {
    EventConsumer *consumer;
    Told told;
  } chain{std::exchange(consumer_, nullptr), {}};
  async_consumer_subscribe(
      chain.consumer, expression.get(),
      [](guint32 token, gpointer data) {
        auto &self = *static_cast<Chain *>(data);
        Told::subscribed(token, &self.told);
        async_consumer_free(self.consumer, Told::done, &self.told);
      },
      Told::event, nullptr, &chain, SUBSCRIPTION_TYPE_NORMAL, nullptr);
  ASSERT_TRUE(iterate_until([&] { return chain.told.has("done"); }));
  EXPECT_EQ(chain.told.lines, (Lines{"subscribed 1", "done"}));
  ASSERT_TRUE(switch_.wait_for("Disconnect"));
  EXPECT_EQ(switch_.members(), (Lines{"Subscribe", "Disconnect"}));
}

} // namespace varro2::test
