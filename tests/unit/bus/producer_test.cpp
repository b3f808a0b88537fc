// The producer's tables, without a connection.
#include "logcapture.hpp"
#include "peers.hpp"

#include <varro2/error.h>

#include <gtest/gtest.h>

#include <vector>

namespace varro2::test {
namespace {

using Ids = std::vector<guint32>;

class ProducerTest : public ::testing::Test {
 protected:
  static void note_report(GArray *local_ids, gpointer self) {
    const auto *ids = reinterpret_cast<const guint32 *>(local_ids->data);
    auto *test = static_cast<ProducerTest *>(self);
    test->reports.emplace_back(ids, ids + local_ids->len);
    if (test->release_on_report)
      test->undeclare(1);
  }
  static void note_complete(guint32 local_id, gpointer self) {
    static_cast<ProducerTest *>(self)->completed.push_back(local_id);
  }
  static Event *fill_in(Event *event, gpointer self) {
    auto *test = static_cast<ProducerTest *>(self);
    ++test->hook_calls;
    if (test->release_in_hook)
      test->undeclare(1);
    event_set_value(event, "value", "from the hook");
    return event;
  }

  void declare(guint32 local_id, bool property = false) {
    producer_allocate_decl_data(producer.get(), local_id, new_declaration(property), note_complete,
                                this);
  }
  void declare_with_hook(guint32 local_id) {
    EventDeclaration *declaration = new_declaration();
    event_declaration_set_property(declaration, "value", fill_in, this);
    producer_allocate_decl_data(producer.get(), local_id, declaration, nullptr, nullptr);
  }
  bool undeclare(guint32 local_id) {
    ProducerDeclarationData *data = producer_release_declare_id(producer.get(), local_id);
    if (data != nullptr)
      producer_send_undeclare(producer.get(), data);
    return data != nullptr;
  }
  void subscribe(guint32 id, guint32 local_id, bool clandestine = false) {
    producer_receive_subscribe(producer.get(), expression_bytes(id, clandestine).get(), local_id);
  }

  Own<Producer> producer{producer_new("doors", note_report, this)};
  std::vector<Ids> reports;
  Ids completed;
  int hook_calls = 0;
  bool release_on_report = false;
  bool release_in_hook = false;
};

TEST_F(ProducerTest, IsAnObjectOfItsName) {
  EXPECT_STREQ(g_type_name(producer_get_type()), "Producer");
  EXPECT_EQ(G_OBJECT_TYPE(producer.get()), producer_get_type());
  EXPECT_EQ(g_type_parent(producer_get_type()), G_TYPE_OBJECT);
}

TEST_F(ProducerTest, PreparesEventsWithTheLocalId) {
  declare(4);
  const Own<Event> event{producer_prepare_event(producer.get(), 4)};
  ASSERT_TRUE(event);
  EXPECT_EQ(event_get_local_id(event.get()), 4u);
  EXPECT_STREQ(event_get_value(event.get(), "topic0"), "door");
  EXPECT_EQ(producer_prepare_event(producer.get(), 5), nullptr);
}

TEST_F(ProducerTest, FillsTheIdsOfTheSwitchIn) {
  declare(4);
  EXPECT_FALSE(producer_declaration_complete(producer.get(), 4));
  producer_receive_global_declare_id(producer.get(), 4, 70, 8);
  EXPECT_TRUE(producer_declaration_complete(producer.get(), 4));
  EXPECT_FALSE(producer_declaration_complete(producer.get(), 5));

  const Own<Event> event{event_new()};
  event_set_global_id(event.get(), 1);
  producer_fill_global_event_data(producer.get(), event.get()); // local id 0: unknown
  EXPECT_EQ(event_get_global_id(event.get()), 1u);
  event_set_local_id(event.get(), 4);
  producer_fill_global_event_data(producer.get(), event.get());
  EXPECT_EQ(event_get_global_id(event.get()), 70u);
  EXPECT_EQ(event_get_producer_id(event.get()), 8u);
}

TEST_F(ProducerTest, CompletesOnce) {
  declare(4);
  producer_receive_declaration_complete(producer.get(), 4, 70);
  producer_receive_declaration_complete(producer.get(), 4, 70);
  EXPECT_EQ(completed, (Ids{4}));
}

TEST_F(ProducerTest, ReportsTheFirstAndTheLastSubscriber) {
  declare(1);
  declare(2);
  subscribe(10, 2);
  EXPECT_EQ(reports, (std::vector<Ids>{{2}}));
  subscribe(11, 2);
  EXPECT_EQ(reports.size(), 1u);
  subscribe(12, 1);
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports.back(), (Ids{1, 2}));
  producer_receive_unsubscribe(producer.get(), 10, 2);
  EXPECT_EQ(reports.size(), 2u);
  producer_receive_unsubscribe(producer.get(), 11, 2);
  EXPECT_EQ(reports.back(), (Ids{1}));
  EXPECT_TRUE(undeclare(1));
  EXPECT_EQ(reports.back(), (Ids{}));
  EXPECT_EQ(reports.size(), 4u);
}

TEST_F(ProducerTest, DoesNotReportTheClandestine) {
  declare(1);
  subscribe(10, 1, true);
  producer_receive_unsubscribe(producer.get(), 10, 1);
  subscribe(10, 1, true);
  EXPECT_TRUE(undeclare(1));
  EXPECT_TRUE(reports.empty());
}

TEST_F(ProducerTest, IgnoresSubscriptionsToWhatItHasNot) {
  subscribe(10, 1);
  producer_receive_refresh_property(producer.get(), 10, 1);
  producer_receive_unsubscribe(producer.get(), 10, 1);
  declare(1);
  producer_receive_unsubscribe(producer.get(), 10, 1);
  EXPECT_TRUE(reports.empty());
}

TEST_F(ProducerTest, AReportMayReleaseTheDeclaration) {
  declare(1);
  release_on_report = true;
  subscribe(10, 1);
  EXPECT_EQ(reports, (std::vector<Ids>{{1}, {}}));
  EXPECT_FALSE(undeclare(1));
}

TEST_F(ProducerTest, AHookMayReleaseTheDeclaration) {
  declare_with_hook(1);
  release_in_hook = true;
  producer_send_declare(producer.get(), 1);
  EXPECT_EQ(hook_calls, 1);
  EXPECT_FALSE(undeclare(1));
}

TEST_F(ProducerTest, CallsNobodyAfterPrepareFree) {
  declare_with_hook(1);
  declare(2);
  producer_prepare_free(producer.get());
  producer_send_declare(producer.get(), 1);
  subscribe(10, 2);
  EXPECT_EQ(hook_calls, 0);
  EXPECT_TRUE(reports.empty());
  const Own<Event> property{producer_prepare_event(producer.get(), 1)};
  EXPECT_TRUE(event_is_property(property.get()));
  const Own<Event> plain{producer_prepare_event(producer.get(), 2)};
  EXPECT_FALSE(event_is_property(plain.get()));
}

TEST_F(ProducerTest, SendsOnlyEventsOfItsDeclarations) {
  declare(1);
  const Own<Event> event{producer_prepare_event(producer.get(), 1)};
  EXPECT_TRUE(producer_send_event(producer.get(), event.get(), nullptr));
  event_set_local_id(event.get(), 2);
  GError *error = nullptr;
  EXPECT_FALSE(producer_send_event(producer.get(), event.get(), &error));
  ASSERT_NE(error, nullptr);
  EXPECT_EQ(error->domain, g_quark_from_string("event-error-quark"));
  EXPECT_EQ(error->code, EVENT_ERROR_NOT_REGISTERED);
  EXPECT_STREQ(error->message, "The local declare id of the event is not registered.");
  g_error_free(error);
  EXPECT_FALSE(producer_send_event(producer.get(), event.get(), nullptr));
}

TEST_F(ProducerTest, AnswersForTypesWithoutAConnection) {
  std::vector<std::string> answers;
  const auto note = [](const char *type, gpointer user_data, GError *error) {
    static_cast<std::vector<std::string> *>(user_data)->push_back(
        std::string{type} + (error != nullptr ? ": " + std::to_string(error->code) : ""));
    g_clear_error(&error);
  };
  const Own<EventDeclaration> declaration{new_declaration()};
  const LogCapture log;
  producer_add_declaration(producer.get(), "Door", declaration.get(), note, &answers);
  producer_remove_declaration(producer.get(), "Door", note, &answers);
  EXPECT_EQ(answers, (std::vector<std::string>{"Door: 2", "Door: 2"}));
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(ProducerTest, IsQuietWithoutAConnection) {
  const LogCapture log;
  declare(1, true);
  producer_send_declare(producer.get(), 1);
  producer_receive_global_declare_id(producer.get(), 9, 70, 8);
  producer_receive_global_declare_id(producer.get(), 1, 70, 8);
  subscribe(10, 1);
  const Own<Event> event{producer_prepare_event(producer.get(), 1)};
  event_set_value(event.get(), "value", "open");
  EXPECT_TRUE(producer_send_event(producer.get(), event.get(), nullptr));
  producer_receive_refresh_property(producer.get(), 10, 1);
  EXPECT_TRUE(undeclare(1));
  producer_send_disconnect(producer.get());
  EXPECT_TRUE(log.lines().empty());
}

using ProducerDeathTest = ProducerTest;

TEST_F(ProducerDeathTest, RefusesALocalIdInUse) {
  declare(1);
  EXPECT_DEATH(declare(1), "producer_allocate_decl_data: assertion failed: \\(declared == NULL\\)");
}

TEST_F(ProducerDeathTest, KeepsCompletePropertiesOnly) {
  declare(1, true);
  const Own<Event> event{producer_prepare_event(producer.get(), 1)};
  EXPECT_DEATH(producer_send_event(producer.get(), event.get(), nullptr),
               "declaration_data_set_cached_event: assertion failed: "
               "\\(event_is_complete\\(event\\)\\)");
  CallbackParams *params = callback_params_new("topic0", "window");
  EXPECT_DEATH(producer_add_callback_params(producer.get(), 1, params),
               "assertion failed: \\(event_is_complete\\(event\\)\\)");
  callback_params_free(params);
}

TEST_F(ProducerDeathTest, NeedsAnEmptyErrorSlot) {
  EXPECT_DEATH(producer_init_dbus(producer.get(), nullptr),
               "producer_init_dbus: assertion failed: \\(error != NULL && \\*error == NULL\\)");
}

TEST(ProducerArguments, AreCheckedSoftly) {
  const LogCapture log;
  producer_prepare_free(nullptr);
  EXPECT_EQ(producer_prepare_event(nullptr, 1), nullptr);
  EXPECT_EQ(log.texts(), (std::vector<std::string>{
                             "producer_prepare_free: assertion 'producer != NULL' failed",
                             "producer_prepare_event: assertion 'producer != NULL' failed"}));
}

} // namespace
} // namespace varro2::test
