// Commands: their order, their thread, and the ends of their sources.
#include "commandsource.hpp"
#include "logcapture.hpp"
#include "mainloop.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using varro2::test::generous;
using varro2::test::iterate_pending;
using varro2::test::iterate_until;
using varro2::test::LogCapture;

using Action = std::function<void()>;
using Question = std::function<gpointer()>;

void perform(gpointer data, gpointer) noexcept {
  const std::unique_ptr<Action> action{static_cast<Action *>(data)};
  (*action)();
}

gpointer answer(gpointer data, gpointer) noexcept {
  return (*static_cast<Question *>(data))();
}

void queue(CommandSource *source, Action action) {
  command_source_run_async(source, perform, new Action{std::move(action)});
}

void queue_quietly(CommandSource *source, Action action) {
  source->run_quietly(perform, new Action{std::move(action)},
                      [](gpointer data) noexcept { delete static_cast<Action *>(data); });
}

gpointer ask(CommandSource *source, Question question) {
  return command_source_run(source, answer, &question);
}

gpointer number(int value) {
  return GINT_TO_POINTER(value);
}

// A source on the default context, which the test's own thread iterates.
class Commands : public ::testing::Test {
 protected:
  ~Commands() override { command_source_free(source_); }

  // For tests in which the source is freed on the way.
  CommandSource *give_up() { return std::exchange(source_, nullptr); }
  Action note(const std::string &what) {
    return [this, what] { notes_.push_back(what); };
  }

  CommandSource *source_ = command_source_new_full(nullptr, this, 1, 0);
  std::vector<std::string> notes_;
  using Notes = std::vector<std::string>;
};

TEST_F(Commands, GetTheirDataAndTheUserData) {
  static gpointer got[2];
  int data = 0;
  command_source_run_async(
      source_,
      [](gpointer given, gpointer user_data) {
        got[0] = given;
        got[1] = user_data;
      },
      &data);
  iterate_pending();
  EXPECT_EQ(got[0], &data);
  EXPECT_EQ(got[1], this);
  const gpointer result = command_source_run(
      source_,
      [](gpointer given, gpointer user_data) -> gpointer {
        got[0] = user_data;
        return given;
      },
      &got);
  EXPECT_EQ(result, &got);
  EXPECT_EQ(got[0], this);
}

TEST_F(Commands, RunOnlyWhenTheContextIsIterated) {
  queue(source_, note("a"));
  EXPECT_EQ(notes_, Notes{});
  iterate_pending();
  EXPECT_EQ(notes_, Notes{"a"});
}

TEST_F(Commands, RunInTheOrderQueued) {
  Notes expected;
  for (int i = 0; i < 1000; ++i) {
    queue(source_, note(std::to_string(i)));
    expected.push_back(std::to_string(i));
  }
  iterate_pending();
  EXPECT_EQ(notes_, expected);
}

TEST_F(Commands, QueuedByACommandRunAfterThoseWaiting) {
  queue(source_, [this] {
    queue(source_, note("inner"));
    notes_.push_back("first");
  });
  queue(source_, note("second"));
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"first", "second", "inner"}));
}

TEST_F(Commands, QueuedByACommandLeaveTheLoopItsTurn) {
  queue(source_, [this] {
    notes_.push_back("first");
    queue(source_, note("inner"));
  });
  g_idle_add_full(
      G_PRIORITY_DEFAULT,
      [](gpointer data) -> gboolean {
        static_cast<Notes *>(data)->push_back("other");
        return G_SOURCE_REMOVE;
      },
      &notes_, nullptr);
  g_main_context_iteration(nullptr, FALSE);
  EXPECT_EQ(notes_, (Notes{"first", "other"}));
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"first", "other", "inner"}));
}

// Sleeps until it is woken up: a command that does so too late is not found by chance.
bool sleep_until(const std::function<bool()> &condition) {
  bool is_too_late = false;
  const guint timer = g_timeout_add(
      static_cast<guint>(std::chrono::milliseconds{generous}.count()),
      [](gpointer data) -> gboolean {
        *static_cast<bool *>(data) = true;
        return G_SOURCE_CONTINUE;
      },
      &is_too_late);
  while (!condition() && !is_too_late)
    g_main_context_iteration(nullptr, TRUE);
  g_source_remove(timer);
  return !is_too_late;
}

TEST_F(Commands, WakeASleepingLoop) {
  std::thread other{[this] { queue(source_, note("a")); }};
  EXPECT_TRUE(sleep_until([this] { return !notes_.empty(); }));
  other.join();
}

void call_from_the_loop(Action action) {
  g_idle_add_once([](gpointer data) { perform(data, nullptr); }, new Action{std::move(action)});
}

// How often the loop was woken up while it slept or before.
int wake_ups = 0;

gint counting_poll(GPollFD *records, guint count, gint timeout) {
  const gint ready = g_poll(records, count, timeout);
  wake_ups += ready > 0;
  return ready;
}

TEST_F(Commands, NeedNoWakeUpFromTheLoopsOwnThread) {
  iterate_pending();
  const GPollFunc poll = g_main_context_get_poll_func(nullptr);
  g_main_context_set_poll_func(nullptr, counting_poll);
  wake_ups = 0;
  call_from_the_loop([this] { queue(source_, note("a")); });
  iterate_pending();
  g_main_context_set_poll_func(nullptr, poll);
  EXPECT_EQ(notes_, Notes{"a"});
  EXPECT_EQ(wake_ups, 0);
}

// A source that queues a command when the loop has asked all others and is about to sleep.
struct LateSource {
  GSource source;
  Action *action;
};

gboolean act_late(GSource *source, gint *) noexcept {
  if (Action *action = std::exchange(reinterpret_cast<LateSource *>(source)->action, nullptr))
    (*action)();
  return FALSE;
}

TEST_F(Commands, WakeALoopThatIsAboutToSleep) {
  static GSourceFuncs functions{.prepare = act_late,
                                .check = nullptr,
                                .dispatch = nullptr,
                                .finalize = nullptr,
                                .closure_callback = nullptr,
                                .closure_marshal = nullptr};
  iterate_pending();
  Action action = [this] { queue(source_, note("a")); };
  GSource *late = g_source_new(&functions, sizeof(LateSource));
  reinterpret_cast<LateSource *>(late)->action = &action;
  g_source_attach(late, nullptr);
  EXPECT_TRUE(sleep_until([this] { return !notes_.empty(); }));
  g_source_destroy(late);
  g_source_unref(late);
}

TEST_F(Commands, OfAnotherThreadWakeALoopWhoseOwnWereDone) {
  call_from_the_loop([this] {
    queue(source_, note("own"));
    ask(source_, [] { return number(0); }); // runs what was queued
  });
  iterate_pending();
  std::thread other{[this] { queue(source_, note("other's")); }};
  EXPECT_TRUE(sleep_until([this] { return notes_.size() == 2; }));
  other.join();
}

TEST_F(Commands, LeaveAnIdleLoopAlone) {
  queue(source_, note("a"));
  iterate_pending();
  EXPECT_FALSE(g_main_context_pending(nullptr));
}

/* ---- Quiet ones ---- */

TEST_F(Commands, ThatAreQuietTakeNoTurnOfTheLoop) {
  iterate_pending();
  queue_quietly(source_, note("a"));
  queue_quietly(source_, note("b"));
  EXPECT_EQ(notes_, Notes{});
  EXPECT_FALSE(g_main_context_iteration(nullptr, FALSE));
  EXPECT_EQ(notes_, (Notes{"a", "b"}));
}

TEST_F(Commands, ThatAreQuietKeepTheOrderAmongTheOthers) {
  Notes expected;
  for (int i = 0; i < 100; ++i) {
    (i % 3 == 0 ? queue : queue_quietly)(source_, note(std::to_string(i)));
    expected.push_back(std::to_string(i));
  }
  iterate_pending();
  EXPECT_EQ(notes_, expected);
}

TEST_F(Commands, ThatAreQuietAreNotRunByALoopInsideACommand) {
  queue(source_, [this] {
    notes_.push_back("begin");
    queue_quietly(source_, note("queued"));
    iterate_pending();
    notes_.push_back("end");
  });
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"begin", "end", "queued"}));
}

// What another thread does as soon as the loop sleeps.
Action while_asleep;

gint acting_poll(GPollFD *records, guint count, gint timeout) {
  if (Action action = std::exchange(while_asleep, nullptr))
    std::thread{action}.join();
  return g_poll(records, count, timeout);
}

TEST_F(Commands, ThatAreQuietWakeASleepingLoop) {
  iterate_pending();
  const GPollFunc poll = g_main_context_get_poll_func(nullptr);
  g_main_context_set_poll_func(nullptr, acting_poll);
  while_asleep = [this] { queue_quietly(source_, note("a")); };
  EXPECT_TRUE(sleep_until([this] { return !notes_.empty(); }));
  g_main_context_set_poll_func(nullptr, poll);
}

TEST_F(Commands, ThatAreQuietMayQueueMore) {
  queue_quietly(source_, [this] {
    notes_.push_back("first");
    queue_quietly(source_, note("inner"));
    queue(source_, note("last"));
  });
  queue_quietly(source_, note("second"));
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"first", "second", "inner", "last"}));
}

TEST_F(Commands, ThatAreQuietMayFreeTheirSource) {
  queue_quietly(source_, [this] {
    command_source_free(give_up());
    notes_.push_back("freed");
  });
  queue_quietly(source_, note("never"));
  iterate_pending();
  EXPECT_EQ(notes_, Notes{"freed"});
}

TEST_F(Commands, OfOneThreadStayInOrderAmongThoseOfOthers) {
  constexpr int threads = 4;
  constexpr int each = 2000;
  std::vector<int> seen[threads];
  int total = 0;
  std::vector<std::thread> senders;
  for (int t = 0; t < threads; ++t)
    senders.emplace_back([this, t, &seen, &total] {
      for (int i = 0; i < each; ++i)
        queue(source_, [t, i, &seen, &total] {
          seen[t].push_back(i);
          ++total;
        });
    });
  EXPECT_TRUE(iterate_until([&] { return total == threads * each; }));
  for (std::thread &sender : senders)
    sender.join();
  for (const std::vector<int> &numbers : seen) {
    ASSERT_EQ(numbers.size(), static_cast<std::size_t>(each));
    EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
  }
}

TEST_F(Commands, RunOnTheContextTheyWereMadeFor) {
  GMainContext *context = g_main_context_new();
  CommandSource *own = command_source_new_full(context, nullptr, 1, 0);
  queue(own, note("own"));
  iterate_pending();
  EXPECT_EQ(notes_, Notes{});
  while (g_main_context_iteration(context, FALSE)) {
  }
  EXPECT_EQ(notes_, Notes{"own"});
  command_source_free(own);
  g_main_context_unref(context);
}

TEST_F(Commands, RunAtOnceOnTheContextsThread) {
  queue(source_, note("queued"));
  EXPECT_EQ(ask(source_,
                [this] {
                  notes_.push_back("asked");
                  return number(7);
                }),
            number(7));
  EXPECT_EQ(notes_, (Notes{"queued", "asked"}));
}

TEST_F(Commands, RunAtOnceInsideACallbackOfTheLoop) {
  queue(source_, [] {}); // so that the source itself is ready, too
  bool asked = false;
  std::function<void()> callback = [&] {
    queue(source_, note("queued"));
    ask(source_, [this] {
      notes_.push_back("asked");
      return nullptr;
    });
    asked = true;
  };
  g_idle_add_full(
      G_PRIORITY_HIGH,
      [](gpointer data) -> gboolean {
        (*static_cast<std::function<void()> *>(data))();
        return G_SOURCE_REMOVE;
      },
      &callback, nullptr);
  iterate_pending();
  EXPECT_TRUE(asked);
  EXPECT_EQ(notes_, (Notes{"queued", "asked"}));
}

TEST_F(Commands, QueuedMeanwhileRunAfterTheQuestion) {
  queue(source_, [this] {
    notes_.push_back("queued");
    queue(source_, note("later"));
  });
  ask(source_, [this] {
    notes_.push_back("asked");
    return nullptr;
  });
  EXPECT_EQ(notes_, (Notes{"queued", "asked"}));
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"queued", "asked", "later"}));
}

TEST_F(Commands, AskingInsideACommandArePartOfIt) {
  gpointer result = nullptr;
  queue(source_, [&] {
    notes_.push_back("begin");
    result = ask(source_, [this] {
      notes_.push_back("asked");
      return number(3);
    });
    notes_.push_back("end");
  });
  queue(source_, note("next"));
  iterate_pending();
  EXPECT_EQ(result, number(3));
  EXPECT_EQ(notes_, (Notes{"begin", "asked", "end", "next"}));
}

TEST_F(Commands, AskingInsideAQuestionArePartOfIt) {
  EXPECT_EQ(ask(source_,
                [this] {
                  queue(source_, note("queued"));
                  return ask(source_, [this] {
                    notes_.push_back("inner");
                    return number(5);
                  });
                }),
            number(5));
  EXPECT_EQ(notes_, Notes{"inner"});
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"inner", "queued"}));
}

TEST_F(Commands, AreNotRunByALoopInsideACommand) {
  queue(source_, [this] {
    notes_.push_back("begin");
    queue(source_, note("queued"));
    iterate_pending();
    notes_.push_back("end");
  });
  queue(source_, note("next"));
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"begin", "end", "next", "queued"}));
}

TEST_F(Commands, AreNotRunByALoopInsideAQuestion) {
  queue(source_, [] {});
  ask(source_, [this] {
    notes_.push_back("begin");
    queue(source_, note("queued"));
    iterate_pending();
    EXPECT_FALSE(g_main_context_pending(nullptr)); // nor does it keep that loop busy
    notes_.push_back("end");
    return nullptr;
  });
  EXPECT_EQ(notes_, (Notes{"begin", "end"}));
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"begin", "end", "queued"}));
}

TEST_F(Commands, OfAnotherSourceRunInALoopInsideACommand) {
  CommandSource *other = command_source_new_full(nullptr, nullptr, 1, 0);
  queue(source_, [&] {
    notes_.push_back("begin");
    queue(other, note("other"));
    iterate_pending();
    notes_.push_back("end");
  });
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"begin", "other", "end"}));
  command_source_free(other);
}

TEST_F(Commands, OfAnotherThreadAreWaitedFor) {
  const std::thread::id loop_thread = std::this_thread::get_id();
  std::atomic<bool> is_over = false;
  // Owned all the time, as by a loop that runs.
  ASSERT_TRUE(g_main_context_acquire(nullptr));
  std::thread other{[&] {
    queue(source_, note("queued"));
    const gpointer result = ask(source_, [&] {
      notes_.push_back(std::this_thread::get_id() == loop_thread ? "asked" : "elsewhere");
      return number(9);
    });
    EXPECT_EQ(result, number(9));
    is_over = true;
  }};
  EXPECT_TRUE(iterate_until([&] { return is_over.load(); }));
  other.join();
  g_main_context_release(nullptr);
  EXPECT_EQ(notes_, (Notes{"queued", "asked"}));
}

TEST_F(Commands, OfManyWaitingThreadsAreAllAnswered) {
  constexpr int threads = 4;
  constexpr int each = 300;
  std::atomic<int> is_over = 0;
  int asked = 0; // guarded by commands running one at a time
  std::vector<std::thread> others;
  for (int t = 0; t < threads; ++t)
    others.emplace_back([&, t] {
      for (int i = 0; i < each; ++i)
        EXPECT_EQ(ask(source_,
                      [&] {
                        ++asked;
                        return number(t * each + i + 1);
                      }),
                  number(t * each + i + 1));
      ++is_over;
    });
  EXPECT_TRUE(iterate_until([&] { return is_over == threads; }));
  for (std::thread &other : others)
    other.join();
  EXPECT_EQ(ask(source_, [&] { return number(asked); }), number(threads * each));
}

TEST_F(Commands, MayFreeTheirSource) {
  CommandSource *source = give_up();
  queue(source, [&] {
    notes_.push_back("begin");
    command_source_free(source);
    notes_.push_back("end");
  });
  iterate_pending();
  EXPECT_EQ(notes_, (Notes{"begin", "end"}));
}

TEST_F(Commands, MayFreeTheirSourceWhileItIsAsked) {
  CommandSource *source = give_up();
  queue(source, [&] {
    command_source_free(source);
    notes_.push_back("freed");
  });
  EXPECT_EQ(ask(source,
                [this] {
                  notes_.push_back("asked");
                  return number(1);
                }),
            nullptr);
  EXPECT_EQ(notes_, Notes{"freed"});
}

TEST_F(Commands, MayFreeTheirSourceInTheQuestionItself) {
  CommandSource *source = give_up();
  EXPECT_EQ(ask(source,
                [&] {
                  command_source_free(source);
                  return number(4);
                }),
            number(4));
}

TEST_F(Commands, UseTheirFreedSourceInVain) {
  CommandSource *source = give_up();
  gpointer result = number(1);
  queue(source, [&] {
    command_source_free(source);
    static bool has_run;
    has_run = false;
    command_source_run_async(
        source, [](gpointer, gpointer) { has_run = true; }, nullptr);
    result = ask(source, [] { return number(2); });
    EXPECT_FALSE(has_run);
  });
  iterate_pending();
  EXPECT_EQ(result, nullptr);
}

TEST_F(Commands, ThatStillWaitAreDropped) {
  CommandSource *source = give_up();
  static int runs;
  runs = 0;
  for (int i = 0; i < 3; ++i)
    command_source_run_async(
        source, [](gpointer, gpointer) { ++runs; }, nullptr);
  command_source_free(source);
  iterate_pending();
  EXPECT_EQ(runs, 0);
}

TEST_F(Commands, AfterTheOneThatFreesAreDropped) {
  CommandSource *source = give_up();
  static int runs;
  runs = 0;
  queue(source, [&] { command_source_free(source); });
  command_source_run_async(
      source, [](gpointer, gpointer) { ++runs; }, nullptr);
  iterate_pending();
  EXPECT_EQ(runs, 0);
}

TEST(CommandSource, DropsTheDataOfWhatNeverRuns) {
  CommandSource *source = command_source_new_full(nullptr, nullptr, 1, 0);
  std::vector<int> ran;
  std::vector<int> dropped;
  struct Data {
    int number;
    CommandSource *source;
    std::vector<int> *ran;
    std::vector<int> *dropped;
  };
  const auto run = [](gpointer data, gpointer) noexcept {
    const std::unique_ptr<Data> owned{static_cast<Data *>(data)};
    owned->ran->push_back(owned->number);
  };
  const auto drop = [](gpointer data) noexcept {
    const std::unique_ptr<Data> owned{static_cast<Data *>(data)};
    owned->dropped->push_back(owned->number);
    // It may call anything.
    command_source_run_async(
        owned->source, [](gpointer, gpointer) noexcept { ADD_FAILURE(); }, nullptr);
  };
  const auto queue_one = [&](int number) {
    source->run_async(run, new Data{number, source, &ran, &dropped}, drop);
  };
  queue_one(1);
  iterate_pending();
  queue_one(2);
  queue_one(3);
  source->ref();
  command_source_free(source);
  queue_one(4);
  source->unref();
  iterate_pending();
  EXPECT_EQ(ran, (std::vector<int>{1}));
  EXPECT_EQ(dropped, (std::vector<int>{2, 3, 4}));
}

TEST(CommandSource, ReleasesAWaitingThreadWhenItIsFreed) {
  GMainContext *context = g_main_context_new();
  ASSERT_TRUE(g_main_context_acquire(context));
  CommandSource *source = command_source_new_full(context, nullptr, 1, 0);
  std::atomic<bool> has_run = false;
  gpointer result = number(1);
  std::thread other{[&] {
    result = ask(source, [&] {
      has_run = true;
      return number(2);
    });
  }};
  // The context has something to do as soon as the thread waits.
  while (!g_main_context_pending(context))
    std::this_thread::yield();
  command_source_free(source);
  other.join();
  EXPECT_EQ(result, nullptr);
  EXPECT_FALSE(has_run);
  EXPECT_FALSE(g_main_context_iteration(context, FALSE));
  g_main_context_release(context);
  g_main_context_unref(context);
}

TEST(CommandSource, CompletesTheCommandDuringWhichAnotherThreadFreesIt) {
  CommandSource *source = command_source_new_full(nullptr, nullptr, 1, 0);
  bool is_complete = false;
  queue(source, [&] {
    std::thread{[&] { command_source_free(source); }}.join();
    is_complete = true;
  });
  iterate_pending();
  EXPECT_TRUE(is_complete);
}

TEST(CommandSource, AcceptsNoSourceToFree) {
  command_source_free(nullptr);
}

TEST(CommandSource, RefusesMissingArguments) {
  CommandSource *source = command_source_new_full(nullptr, nullptr, 1, 0);
  const LogCapture log;
  command_source_run_async(
      nullptr, [](gpointer, gpointer) {}, nullptr);
  command_source_run_async(source, nullptr, nullptr);
  EXPECT_EQ(command_source_run(nullptr, answer, nullptr), nullptr);
  EXPECT_EQ(command_source_run(source, nullptr, nullptr), nullptr);
  EXPECT_EQ(
      log.texts(G_LOG_LEVEL_CRITICAL),
      (std::vector<std::string>{"command_source_run_async: assertion 'source != NULL' failed",
                                "command_source_run_async: assertion 'function != NULL' failed",
                                "command_source_run: assertion 'source != NULL' failed",
                                "command_source_run: assertion 'function != NULL' failed"}));
  command_source_free(source);
}

} // namespace
