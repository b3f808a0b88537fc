#include "eventproducer.hpp"
#include "nobus.hpp"

#include <atomic>
#include <thread>

using namespace varro2::test;

namespace {

class Producers : public WithoutBus {
 protected:
  ~Producers() override {
    event_producer_free(producer);
    iterate_pending();
  }

  EventProducer *producer = event_producer_new("test");
};

void note_setup(EventProducer *handle, gpointer user_data, GError *error) {
  Told::of(user_data).failed(handle ? "setup" : "no handle", error);
}

void note_done(EventProducer *, gpointer user_data) {
  Told::of(user_data).lines.push_back("done");
}

void note_send(guint32 id, Event *event, gpointer user_data, GError *error) {
  Told::of(user_data).failed("sent " + std::to_string(id) + (event ? "" : " nothing"), error);
}

const Failure not_declared =
    event_failure(5, "The event has not been declared to the event switch. (The connection to the "
                     "switch is likely to be broken)");

} // namespace

TEST_F(Producers, FailedConnectionIsLoggedOnceAndTheHandleLives) {
  EXPECT_EQ(criticals(no_bus_line), 0u);
  iterate_pending();
  EXPECT_EQ(criticals(no_bus_line), 1u);
  EXPECT_EQ(event_producer_declare(producer, text_declaration().get()), 1u);
}

TEST_F(Producers, NeedAName) {
  EXPECT_EQ(event_producer_new(NULL), nullptr);
  EXPECT_EQ(criticals("event_producer_new_full: assertion 'name != NULL' failed"), 1u);
  EXPECT_EQ(async_producer_new(NULL, note_setup, NULL, NULL), nullptr);
  EXPECT_EQ(criticals("async_producer_new: assertion 'name != NULL' failed"), 1u);
}

TEST_F(Producers, SetupCallbackGetsTheFailureInPlaceOfTheLog) {
  log.clear();
  Told told;
  EventProducer *other = event_producer_int_new_empty();
  event_producer_int_setup(other, "other", note_setup, NULL, &told);
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"setup -2 Failed to connect to bus"});
  EXPECT_EQ(criticals(no_bus_line), 1u); // of the other handle
  event_producer_int_free(other, note_done, &told);
  EXPECT_EQ(told.lines.size(), 1u);
  iterate_pending();
  EXPECT_EQ(told.lines.back(), "done");
}

TEST_F(Producers, DoneCallbackGetsTheFormerAddress) {
  static EventProducer *seen;
  EventProducer *other = event_producer_new("other");
  event_producer_int_free(
      other, [](EventProducer *handle, gpointer) { seen = handle; }, NULL);
  ASSERT_TRUE(iterate_until([] { return seen != nullptr; }));
  EXPECT_EQ(seen, other);
}

TEST_F(Producers, FreedInsideItsOwnCallback) {
  Told told;
  EventProducer *other = event_producer_int_new_empty();
  const auto free_handle = [](EventProducer *handle, gpointer user_data, GError *error) {
    g_clear_error(&error);
    event_producer_int_free(handle, note_done, user_data);
    Told::of(user_data).lines.push_back("setup returns");
  };
  event_producer_int_setup(other, "other", free_handle, NULL, &told);
  event_producer_int_declare(other, text_declaration().get(), 1, Told::id_alone, NULL, &told);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{"setup returns", "id 1", "done"}));
}

TEST_F(Producers, DoneCallbackComesWhenTheHandleIsFreed) {
  static gpointer alive;
  static bool was_alive;
  EventProducer *other = event_producer_new("other");
  alive = other->producer.get();
  g_object_add_weak_pointer(G_OBJECT(alive), &alive);
  Told told;
  event_producer_int_free(
      other,
      [](EventProducer *handle, gpointer user_data) {
        was_alive = alive != nullptr;
        note_done(handle, user_data);
      },
      &told);
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"done"});
  EXPECT_FALSE(was_alive);
}

TEST_F(Producers, FreeingNothingDoesNothing) {
  log.clear();
  event_producer_free(NULL);
  EXPECT_EQ(log.texts(), Lines{});
  EXPECT_DEATH(event_producer_int_free(NULL, NULL, NULL),
               "event_producer_int_free: assertion failed: \\(event_producer != NULL\\)");
}

TEST_F(Producers, IdsCountUpwards) {
  const auto declaration = text_declaration();
  EXPECT_EQ(event_producer_declare(producer, declaration.get()), 1u);
  EXPECT_EQ(event_producer_declare_and_notify(producer, declaration.get(), NULL, NULL), 2u);
  EXPECT_TRUE(event_producer_undeclare(producer, 2));
  iterate_pending();
  EXPECT_EQ(event_producer_declare(producer, declaration.get()), 3u);
}

TEST_F(Producers, WhatMayBeDeclared) {
  const TestDeclaration internal{event_declaration_new(TRUE)};
  const TestDeclaration external{event_declaration_new(FALSE)};
  const TestDeclaration open{event_declaration_new(FALSE)};
  event_declaration_add_key(open.get(), "topic0", VALUE_TYPE_STRING);
  GError *error = NULL;
  EXPECT_EQ(event_producer_int_get_decl_id(producer, internal.get(), &error), 1u);
  EXPECT_EQ(take(error), no_failure);
  EXPECT_EQ(event_producer_int_get_decl_id(producer, external.get(), &error), 0u);
  EXPECT_EQ(take(error), event_failure(7, "External event is missing topic"));
  // What stands in the topic is not looked at.
  EXPECT_EQ(event_producer_int_get_decl_id(producer, open.get(), &error), 2u);
  EXPECT_EQ(take(error), no_failure);
  EXPECT_EQ(event_producer_int_get_decl_id(producer, NULL, &error), 0u);
  EXPECT_EQ(take(error), event_failure(1, "NULL object supplied as declaration"));
  EXPECT_EQ(event_producer_int_get_decl_id(NULL, NULL, &error), 0u);
  EXPECT_EQ(take(error), event_failure(1, "NULL object supplied as event producer"));
  error = earlier_error();
  EXPECT_EQ(event_producer_int_get_decl_id(NULL, NULL, &error), 0u);
  EXPECT_EQ(take(error), event_failure(11, "Error object already set"));
  EXPECT_EQ(event_producer_int_get_decl_id(producer, external.get(), NULL), 0u);
}

TEST_F(Producers, RefusedDeclarationIsLogged) {
  const TestDeclaration external{event_declaration_new(FALSE)};
  EXPECT_EQ(event_producer_declare(producer, external.get()), 0u);
  EXPECT_EQ(event_producer_declare(producer, NULL), 0u);
  EXPECT_EQ(event_producer_declare(NULL, external.get()), 0u);
  EXPECT_EQ(warnings(), (Lines{"Failed to declare: External event is missing topic",
                               "Failed to declare: NULL object supplied as declaration",
                               "Failed to declare: NULL object supplied as event producer"}));
}

TEST_F(Producers, DeclaringUnderNoIdDoesNothing) {
  Told told;
  event_producer_int_declare(producer, text_declaration().get(), 0, Told::id_alone, NULL, &told);
  event_producer_int_declare(NULL, text_declaration().get(), 0, Told::id_alone, NULL, &told);
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{});
}

TEST_F(Producers, SameIdTwiceAborts) {
  event_producer_int_declare(producer, text_declaration().get(), 5, NULL, NULL, NULL);
  EXPECT_DEATH(event_producer_int_declare(producer, text_declaration().get(), 5, NULL, NULL, NULL),
               "producer_allocate_decl_data: assertion failed");
}

TEST_F(Producers, PreparedEventIsACopyThatTheCallerOwns) {
  const guint32 id = event_producer_declare(producer, text_declaration().get());
  const TestEvent first{event_producer_prepare_event(producer, id)};
  const TestEvent second{event_producer_prepare_event(producer, id)};
  ASSERT_TRUE(first && second);
  EXPECT_NE(first, second);
  EXPECT_EQ(event_get_local_id(first.get()), id);
  EXPECT_STREQ(event_get_value(first.get(), "topic0"), "topic");
  ASSERT_TRUE(event_set_value(first.get(), "text", "hello"));
  EXPECT_STREQ(event_get_value(second.get(), "text"), "");
  EXPECT_EQ(event_producer_prepare_event(producer, id + 1), nullptr);
}

TEST_F(Producers, PreparingChecksSoftly) {
  EXPECT_EQ(event_producer_prepare_event(NULL, 1), nullptr);
  EXPECT_EQ(event_producer_prepare_event(producer, 0), nullptr);
  EXPECT_EQ(criticals("event_producer_prepare_event: assertion 'event_producer != NULL' failed"),
            1u);
  EXPECT_EQ(criticals("event_producer_prepare_event: assertion 'local_declare_id != 0' failed"),
            1u);
}

TEST_F(Producers, PreparedEventLivesUntilTheUndeclareCommandHasRun) {
  Told told;
  const guint32 id = event_producer_declare(producer, text_declaration().get());
  EXPECT_TRUE(event_producer_undeclare_and_notify(producer, id, Told::id_and_error, &told));
  EXPECT_TRUE(TestEvent{event_producer_prepare_event(producer, id)});
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"id 1"});
  EXPECT_EQ(event_producer_prepare_event(producer, id), nullptr);
}

TEST_F(Producers, UndeclaringAnUnknownId) {
  Told told;
  EXPECT_FALSE(event_producer_undeclare_and_notify(producer, 9, Told::id_and_error, &told));
  EXPECT_FALSE(event_producer_undeclare(producer, 9));
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{"id 9 5 Could not find the declaration to undeclare."});
  // A second time the id is unknown at once, before the first command has run.
  const guint32 id = event_producer_declare(producer, text_declaration().get());
  EXPECT_TRUE(event_producer_undeclare(producer, id));
  EXPECT_FALSE(event_producer_undeclare(producer, id));
}

TEST_F(Producers, UndeclaringChecksSoftly) {
  EXPECT_FALSE(event_producer_undeclare(NULL, 1));
  EXPECT_FALSE(event_producer_undeclare(producer, 0));
  EXPECT_EQ(criticals("event_producer_int_undeclare: assertion 'event_producer != NULL' failed"),
            1u);
  EXPECT_EQ(criticals("event_producer_int_undeclare: assertion 'local_declare_id != 0' failed"),
            1u);
}

TEST_F(Producers, NothingIsCompleteWithoutASwitch) {
  const guint32 id = event_producer_declare(producer, text_declaration().get());
  iterate_pending();
  EXPECT_FALSE(event_producer_declaration_complete(producer, id));
  EXPECT_FALSE(event_producer_declaration_complete(producer, id + 1));
  EXPECT_FALSE(event_producer_declaration_complete(NULL, id));
  EXPECT_EQ(criticals("event_producer_declaration_complete: assertion 'event_producer != NULL' "
                      "failed"),
            1u);
}

TEST_F(Producers, WhatMayBeSent) {
  const guint32 plain = event_producer_declare(producer, text_declaration().get());
  const guint32 property = event_producer_declare(producer, text_property().get());
  const TestEvent event{event_producer_prepare_event(producer, plain)};
  const TestEvent state{event_producer_prepare_event(producer, property)};
  GError *error = NULL;

  EXPECT_FALSE(event_producer_send_event(NULL, event.get(), &error));
  EXPECT_EQ(take(error), event_failure(1, "NULL object supplied as event producer"));
  EXPECT_FALSE(event_producer_send_event(producer, NULL, &error));
  EXPECT_EQ(take(error), event_failure(1, "NULL object supplied as event"));
  EXPECT_FALSE(event_producer_send_event(producer, event.get(), &error));
  EXPECT_EQ(take(error), not_declared); // before its open key is noticed
  EXPECT_FALSE(event_producer_send_event(producer, state.get(), &error));
  EXPECT_EQ(take(error), event_failure(7, "The event has keys with unset values"));
  event_set_value(state.get(), "text", "on");
  EXPECT_TRUE(event_producer_send_event(producer, state.get(), &error));
  EXPECT_EQ(take(error), no_failure);

  for (EventProducer *handle : {producer, static_cast<EventProducer *>(nullptr)}) {
    EXPECT_FALSE(event_producer_send_event(handle, event.get(), NULL));
    EXPECT_FALSE(event_producer_send_event_async(handle, NULL));
  }
  EXPECT_TRUE(event_producer_send_event_async(producer, state.get()));
  iterate_pending();
  EXPECT_EQ(log.texts(), Lines{no_bus_line}); // a failed send is told, not logged
}

TEST_F(Producers, ErrorSlotThatIsTakenEndsTheSend) {
  const guint32 id = event_producer_declare(producer, text_declaration().get());
  const TestEvent event{event_producer_prepare_event(producer, id)};
  GError *error = earlier_error();
  EXPECT_FALSE(event_producer_send_event(producer, event.get(), &error));
  EXPECT_EQ(take(error), event_failure(11, "Error object already set"));
  error = earlier_error();
  EXPECT_FALSE(event_producer_send_event(producer, NULL, &error));
  EXPECT_EQ(take(error), event_failure(11, "Error object already set"));
  error = earlier_error();
  EXPECT_FALSE(event_producer_send_event(NULL, event.get(), &error));
  EXPECT_EQ(take(error), event_failure(1, "NULL object supplied as event producer"));
}

TEST_F(Producers, SendLeavesTheCallersEventAlone) {
  const guint32 id = event_producer_declare(producer, text_property().get());
  const TestEvent event{event_producer_prepare_event(producer, id)};
  event_set_value(event.get(), "text", "on");
  EXPECT_TRUE(event_producer_send_event(producer, event.get(), NULL));
  EXPECT_EQ(event_get_timestamp2(event.get()), nullptr);
}

TEST_F(Producers, SendCallbackHearsOfEveryEnd) {
  const guint32 plain = event_producer_declare(producer, text_declaration().get());
  const guint32 property = event_producer_declare(producer, text_property().get());
  const TestEvent event{event_producer_prepare_event(producer, plain)};
  const TestEvent state{event_producer_prepare_event(producer, property)};
  event_set_value(state.get(), "text", "on");
  Told told;
  const auto send = [&](const Event *sent, GError **slot) {
    return event_producer_int_send_event(producer, sent, sent ? event_copy(sent) : NULL, note_send,
                                         &told, slot);
  };
  GError *error = earlier_error();
  EXPECT_FALSE(send(event.get(), NULL));
  EXPECT_FALSE(send(NULL, NULL));
  EXPECT_FALSE(send(event.get(), &error));
  EXPECT_EQ(take(error), event_failure(11, "Error object already set"));
  EXPECT_TRUE(send(state.get(), &error));
  EXPECT_EQ(take(error), no_failure);
  EXPECT_TRUE(event_producer_undeclare(producer, property));
  EXPECT_TRUE(send(state.get(), NULL)); // known to be unknown only when it is sent
  EXPECT_EQ(told.lines, Lines{});
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{"sent 1 5 " + not_declared.message,
                               "sent 0 nothing 1 NULL object supplied as event",
                               "sent 1 11 Error object already set",
                               "sent 2 5 The local declare id of the event is not registered.",
                               "sent 2 5 The local declare id of the event is not registered."}));
}

TEST_F(Producers, SendCallbackGetsTheCallersPointer) {
  static Event *seen;
  const TestEvent event{event_new()};
  event_producer_int_send_event(
      producer, event.get(), event_copy(event.get()),
      [](guint32, Event *sent, gpointer, GError *error) {
        seen = sent;
        g_clear_error(&error);
      },
      NULL, NULL);
  ASSERT_TRUE(iterate_until([] { return seen != nullptr; }));
  EXPECT_EQ(seen, event.get());
}

TEST_F(Producers, SendWithoutAHandleAborts) {
  EXPECT_DEATH(event_producer_int_send_event(NULL, NULL, NULL, NULL, NULL, NULL),
               "event_producer_int_send_event: assertion failed: \\(event_producer != NULL\\)");
}

TEST_F(Producers, TypesAreCheckedSoftly) {
  const auto declaration = text_declaration();
  EXPECT_FALSE(event_producer_add_declaration(NULL, "T", declaration.get(), NULL, NULL));
  EXPECT_FALSE(event_producer_add_declaration(producer, NULL, declaration.get(), NULL, NULL));
  EXPECT_FALSE(event_producer_add_declaration(producer, "T", NULL, NULL, NULL));
  EXPECT_FALSE(event_producer_remove_declaration(NULL, "T", NULL, NULL));
  EXPECT_FALSE(event_producer_remove_declaration(producer, NULL, NULL, NULL));
  EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL),
            (Lines{"event_producer_add_declaration: assertion 'event_producer != NULL' failed",
                   "event_producer_add_declaration: assertion 'type != NULL' failed",
                   "event_producer_add_declaration: assertion 'declaration != NULL' failed",
                   "event_producer_remove_declaration: assertion 'event_producer != NULL' failed",
                   "event_producer_remove_declaration: assertion 'type != NULL' failed"}));
}

TEST_F(Producers, TypesAreAnsweredWithoutABus) {
  static Lines told;
  told.clear();
  const auto note = [](const char *type, gpointer, GError *error) {
    told.push_back(std::string{type} + (error ? " failed" : " done"));
    g_clear_error(&error);
  };
  EXPECT_TRUE(event_producer_add_declaration(producer, "T", text_declaration().get(), note, NULL));
  EXPECT_TRUE(event_producer_remove_declaration(producer, "U", note, NULL));
  iterate_pending();
  EXPECT_EQ(told, (Lines{"T failed", "U failed"}));
}

TEST_F(Producers, CommandsRunInTheOrderOfTheCalls) {
  Told told;
  EventProducer *other = event_producer_int_new_empty();
  event_producer_int_setup(other, "other", note_setup, NULL, &told);
  event_producer_int_declare(other, text_declaration().get(), 7, Told::id_alone, NULL, &told);
  event_producer_int_send_event(other, NULL, NULL, note_send, &told, NULL);
  event_producer_int_undeclare(other, 7, Told::id_and_error, &told);
  event_producer_int_free(other, note_done, &told);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{"setup -2 Failed to connect to bus", "id 7",
                               "sent 0 nothing 1 NULL object supplied as event", "id 7", "done"}));
}

TEST_F(Producers, MayBeUsedFromAnyThread) {
  constexpr guint32 count = 200;
  std::thread others[2];
  for (std::thread &other : others)
    other = std::thread{[this] {
      for (guint32 i = 0; i < count; ++i) {
        const guint32 id = event_producer_declare(producer, text_declaration().get());
        const TestEvent event{event_producer_prepare_event(producer, id)};
        event_producer_send_event(producer, event.get(), NULL);
        event_producer_undeclare(producer, id);
      }
    }};
  for (std::thread &other : others)
    other.join();
  iterate_pending();
  EXPECT_EQ(event_producer_declare(producer, text_declaration().get()), 2 * count + 1);
  EXPECT_EQ(event_producer_prepare_event(producer, 2 * count), nullptr);
}

// Each thread comes through one lock alone: another one on its way could hide that this is missing.
TEST_F(Producers, LooksUpWhileDeclarationsComeAndGo) {
  const guint32 shared = event_producer_declare(producer, text_declaration().get());
  const TestEvent event{event_producer_prepare_event(producer, shared)};
  event_set_local_id(event.get(), G_MAXUINT32);       // behind all that come and go
  constexpr auto relaxed = std::memory_order_relaxed; // orders nothing
  std::atomic<bool> enough{false};
  std::atomic<int> prepared{0};
  std::atomic<int> filled{0};
  std::thread preparing{[&] {
    for (; !enough.load(relaxed); prepared.fetch_add(1, relaxed))
      event_free(event_producer_prepare_event(producer, shared));
  }};
  std::thread filling{[&] {
    for (; !enough.load(relaxed); filled.fetch_add(1, relaxed))
      producer_fill_global_event_data(producer->producer.get(), event.get());
  }};
  for (int i = 0; i < 500 || prepared.load(relaxed) < 500 || filled.load(relaxed) < 500; ++i) {
    const guint32 id = event_producer_declare(producer, text_declaration().get());
    if (i % 2 != 0) {
      EXPECT_TRUE(event_producer_undeclare(producer, id));
    }
    iterate_pending();
  }
  enough = true;
  preparing.join();
  filling.join();
  EXPECT_EQ(event_get_global_id(event.get()), 0u);
}
