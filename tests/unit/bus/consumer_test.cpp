// The consumer's table, without a connection.
#include "logcapture.hpp"
#include "peers.hpp"

#include <varro2/error.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace varro2::test {
namespace {

Own<GByteArray> event_bytes() {
  const Own<Event> event{event_new()};
  event_set_local_id(event.get(), 5);
  return Own<GByteArray>{event_serialize(event.get())};
}

Own<GByteArray> notification_bytes() {
  const Own<Notification> notification{notification_new()};
  const Own<EventDeclaration> declaration{new_declaration()};
  const Own<SubscribeExpression> expression{subscribe_expression_new()};
  notification_set_declaration(notification.get(), declaration.get());
  notification_set_subscribe_expression(notification.get(), expression.get());
  notification_set_subscription_id(notification.get(), 6);
  return Own<GByteArray>{notification_serialize(notification.get())};
}

class ConsumerTest : public ::testing::Test {
 protected:
  static ConsumerTest &of(gpointer self) { return *static_cast<ConsumerTest *>(self); }

  static void on_event(Event *event, gpointer self) {
    of(self).seen.push_back("event " + std::to_string(event_get_local_id(event)));
    event_free(event);
    if (of(self).unsubscribe_inside)
      of(self).unsubscribe(1);
  }
  static void on_secure_event(Event *event, guint32 uid, gpointer self) {
    of(self).seen.push_back("event from " + std::to_string(uid));
    event_free(event);
  }
  static void on_notification(Notification *notification, gpointer self) {
    of(self).seen.push_back("notification " +
                            std::to_string(notification_get_subscription_id(notification)));
    notification_free(notification);
  }
  static void on_secure_notification(Notification *notification, guint32 uid, gpointer self) {
    of(self).seen.push_back("notification from " + std::to_string(uid));
    notification_free(notification);
  }

  void subscribe(guint32 token, ConsumerNotificationCallback notification = on_notification) {
    consumer_prepare_subscribe(consumer.get(), token, expression.get(), on_event, notification,
                               this, SUBSCRIPTION_TYPE_NORMAL);
  }
  void subscribe_secure(guint32 token) {
    consumer_prepare_subscribe(
        consumer.get(), token, expression.get(),
        reinterpret_cast<ConsumerEventCallback>(reinterpret_cast<void (*)()>(on_secure_event)),
        reinterpret_cast<ConsumerNotificationCallback>(
            reinterpret_cast<void (*)()>(on_secure_notification)),
        this, SUBSCRIPTION_TYPE_SECURE);
  }
  bool unsubscribe(guint32 token) {
    ConsumerSubscription *taken = consumer_send_unsubscribe_prepare(consumer.get(), token);
    if (taken != nullptr)
      consumer_send_unsubscribe(consumer.get(), taken);
    return taken != nullptr;
  }
  void receive(guint32 token, guint32 uid = 0) {
    consumer_receive_event(consumer.get(), event_bytes().get(), token, uid);
    consumer_receive_notification(consumer.get(), notification_bytes().get(), token, uid);
  }

  Own<Consumer> consumer{consumer_new("watcher")};
  Own<SubscribeExpression> expression{subscribe_expression_new()};
  std::vector<std::string> seen;
  bool unsubscribe_inside = false;
};

using Seen = std::vector<std::string>;

TEST_F(ConsumerTest, IsAnObjectOfItsName) {
  EXPECT_STREQ(g_type_name(consumer_get_type()), "Consumer");
  EXPECT_EQ(G_OBJECT_TYPE(consumer.get()), consumer_get_type());
}

TEST_F(ConsumerTest, DeliversByToken) {
  subscribe(1);
  receive(1, 1000);
  EXPECT_EQ(seen, (Seen{"event 5", "notification 6"}));
  receive(2);
  EXPECT_EQ(seen.size(), 2u);
}

TEST_F(ConsumerTest, TellsSecureCallbacksTheSender) {
  subscribe_secure(1);
  receive(1, 4294967295);
  EXPECT_EQ(seen, (Seen{"event from 4294967295", "notification from 4294967295"}));
}

TEST_F(ConsumerTest, DropsNotificationsThatNobodyWants) {
  subscribe(1, nullptr);
  receive(1);
  EXPECT_EQ(seen, (Seen{"event 5"}));
}

TEST_F(ConsumerTest, KnowsItsTokens) {
  subscribe(1);
  EXPECT_TRUE(consumer_token_exists(consumer.get(), 1));
  EXPECT_FALSE(consumer_token_exists(consumer.get(), 2));
  EXPECT_TRUE(unsubscribe(1));
  EXPECT_FALSE(consumer_token_exists(consumer.get(), 1));
  EXPECT_FALSE(unsubscribe(1));
  receive(1);
  EXPECT_TRUE(seen.empty());
}

TEST_F(ConsumerTest, ReplacesASubscriptionOfTheSameToken) {
  subscribe(1);
  subscribe_secure(1);
  receive(1, 7);
  EXPECT_EQ(seen, (Seen{"event from 7", "notification from 7"}));
}

TEST_F(ConsumerTest, ACallbackMayUnsubscribe) {
  subscribe(1);
  unsubscribe_inside = true;
  receive(1);
  EXPECT_EQ(seen, (Seen{"event 5"}));
}

TEST_F(ConsumerTest, CallsNobodyAfterPrepareFree) {
  subscribe(1);
  subscribe(2);
  consumer_prepare_free(consumer.get());
  EXPECT_FALSE(consumer_token_exists(consumer.get(), 2));
  receive(1);
  EXPECT_TRUE(seen.empty());
}

TEST_F(ConsumerTest, ReportsThatThereIsNoConnection) {
  const LogCapture log;
  subscribe(1);
  consumer_send_subscribe(consumer.get(), 1);
  consumer_send_refresh(consumer.get(), 1);
  consumer_send_disconnect(consumer.get());
  GError *error = nullptr;
  EXPECT_EQ(consumer_send_get_property_state(consumer.get(), expression.get(), &error), nullptr);
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain, g_quark_from_string("event-error-quark"));
  EXPECT_EQ(error->code, EVENT_ERROR_DBUS_FAILED);
  g_error_free(error);
  EXPECT_TRUE(log.lines().empty());
}

using ConsumerDeathTest = ConsumerTest;

TEST_F(ConsumerDeathTest, NeedsAnEmptyErrorSlot) {
  EXPECT_DEATH(consumer_init_dbus(consumer.get(), nullptr),
               "consumer_init_dbus: assertion failed: \\(error != NULL && \\*error == NULL\\)");
}

TEST(ConsumerArguments, AreCheckedSoftly) {
  const LogCapture log;
  consumer_prepare_free(nullptr);
  EXPECT_EQ(consumer_send_unsubscribe_prepare(nullptr, 1), nullptr);
  EXPECT_EQ(log.texts(),
            (std::vector<std::string>{
                "consumer_prepare_free: assertion 'consumer != NULL' failed",
                "consumer_send_unsubscribe_prepare: assertion 'consumer != NULL' failed"}));
}

} // namespace
} // namespace varro2::test
