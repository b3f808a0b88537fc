// How a send window hears of the answers to calls that only it waits for.
#include "directbus.hpp"
#include "logcapture.hpp"
#include "sendwindow.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>
#include <systemd/sd-event.h>

#include <array>
#include <optional>

namespace varro2::test {
namespace {

using LoopRef = Counted<sd_event, sd_event_ref, sd_event_unref>;

constexpr guint64 short_time = 20'000;

// A turn of the main loop, without waiting.
void turn_main_loop() {
  g_main_context_iteration(nullptr, FALSE);
}

class WindowAnswers : public ::testing::Test {
 protected:
  void open(SendLimits limits, sd_event *loop = nullptr) {
    window.emplace(bus.near(), limits, loop);
    window->set_idle_handler([this] { ++told_idle; });
  }
  static void send(SendWindow &to, const char *receiver, guint32 number,
                   CallCompletion completion = {}) {
    to.send(receiver, make_window_call(served_consumer::event, "/o", new_bytes(), {number},
                                       std::move(completion)));
  }
  void send(const char *receiver, guint32 number, CallCompletion completion = {}) {
    send(*window, receiver, number, std::move(completion));
  }
  template <typename Turn>
  [[nodiscard]] bool turn_until_overdue(std::size_t count, Turn turn) {
    const gint64 end = g_get_monotonic_time() + 60 * G_USEC_PER_SEC;
    while (window->overdue() != count && g_get_monotonic_time() < end) {
      bus.run();
      turn();
    }
    return window->overdue() == count;
  }
  // What the process counts, since the test began.
  SendCounters counted() const {
    SendCounters now{};
    event_utils_get_send_counters(&now);
    return {.answered = now.answered - before.answered,
            .dropped = now.dropped - before.dropped,
            .unanswered = now.unanswered - before.unanswered,
            .waiting = now.waiting - before.waiting};
  }

  SendCounters before = [] {
    SendCounters counters{};
    event_utils_get_send_counters(&counters);
    return counters;
  }();
  DirectBus bus;
  std::optional<SendWindow> window{std::in_place, bus.near()};
  int told_idle = 0;
};

TEST_F(WindowAnswers, ManyCallsAreAnsweredOnceEach) {
  open({});
  constexpr guint32 calls = 10'000;
  for (guint32 i = 0; i < calls; ++i)
    send(("a.b" + std::to_string(i % 7)).c_str(), i);
  std::array<guint32, 7> next{0, 1, 2, 3, 4, 5, 6};
  bus.run();
  for (std::size_t turn = 0; bus.size() > 0; ++turn) {
    ASSERT_LE(bus.size(), 56u);
    ASSERT_EQ(window->unanswered(), bus.size());
    const guint32 number = bus.number(0);
    ASSERT_EQ(number, std::exchange(next[number % 7], number + 7));
    bus.answer(0);
  }
  EXPECT_EQ(window->answered(), calls);
  EXPECT_EQ(counted().answered, calls);
  EXPECT_EQ(counted().unanswered, 0u);
  EXPECT_EQ(told_idle, 1);
}

TEST_F(WindowAnswers, MayComeInAnyOrder) {
  open({});
  for (guint32 i = 0; i < 90; ++i)
    send(("a.b" + std::to_string(i % 20)).c_str(), i);
  bus.run();
  for (std::size_t turn = 0; bus.size() > 0; ++turn) {
    bus.answer(turn * 7 % bus.size());
    ASSERT_EQ(window->unanswered(), bus.size());
  }
  EXPECT_EQ(window->answered(), 90u);
  EXPECT_TRUE(window->idle());
}

TEST_F(WindowAnswers, AreToldApartFromThoseThatSomebodyWaitsFor) {
  open({});
  std::string told;
  for (guint32 i = 0; i < 8; ++i)
    send(
        "a.b", i, i % 2 == 0 ? CallCompletion{} : [&told, i](CallEnd, sd_bus_message *) {
          told += std::to_string(i);
        });
  bus.run();
  EXPECT_EQ(window->unanswered(), 8u);
  while (bus.size() > 0)
    bus.answer(bus.size() - 1);
  EXPECT_EQ(told, "7531");
  EXPECT_EQ(window->answered(), 8u);
  EXPECT_EQ(told_idle, 1);
}

TEST_F(WindowAnswers, GoToTheWindowThatMadeTheCall) {
  open({});
  SendWindow other{bus.near()};
  for (guint32 i = 0; i < 6; ++i)
    send(i % 2 == 0 ? *window : other, "a.b", i);
  bus.run();
  bus.answer(0);
  bus.answer(0);
  bus.answer(0);
  EXPECT_EQ(window->answered(), 2u);
  EXPECT_EQ(other.answered(), 1u);
  EXPECT_EQ(counted().answered, 3u);
  window.reset();
  while (bus.size() > 0)
    bus.answer(0);
  EXPECT_EQ(other.answered(), 3u);
  EXPECT_TRUE(other.idle());
  EXPECT_EQ(counted().unanswered, 0u);
}

TEST_F(WindowAnswers, AreNobodysWhenTheWindowHasGone) {
  open({});
  for (guint32 i = 0; i < 20; ++i)
    send("a.b", i);
  bus.run();
  window.reset();
  while (bus.size() > 0)
    bus.answer(0);
  EXPECT_EQ(counted().answered, 0u);
  EXPECT_EQ(counted().unanswered, 0u);
  EXPECT_EQ(told_idle, 0);
  open({});
  send("a.b", 1);
  bus.run();
  bus.answer(0);
  EXPECT_EQ(window->answered(), 1u);
}

// One that drops a queue may end the window while the connection hands out an answer.
TEST_F(WindowAnswers, MayEndTheWindowByWhatTheyDrop) {
  open({.unanswered_per_receiver = 1});
  send("a.b", 1);
  int told = 0;
  send("a.b", 2, [&](CallEnd end, sd_bus_message *) {
    ++told;
    EXPECT_EQ(end, CallEnd::dropped);
    window.reset();
  });
  bus.run();
  bus.answer_error(0, SD_BUS_ERROR_SERVICE_UNKNOWN);
  EXPECT_EQ(told, 1);
  EXPECT_FALSE(window.has_value());
}

TEST_F(WindowAnswers, OfACallThatTheWindowDidNotMakeAreLeftAlone) {
  open({});
  send("a.b", 1);
  int answers = 0;
  sd_bus_call_async(
      bus.near(), nullptr,
      build_call(bus.near(), {"a.b", "/o"}, served_producer::unsubscribe, 2u, 0u).get(),
      [](sd_bus_message *, void *counter, sd_bus_error *) {
        return ++*static_cast<int *>(counter), 0;
      },
      &answers, 0);
  bus.run();
  bus.answer(1);
  EXPECT_EQ(answers, 1);
  EXPECT_EQ(window->answered(), 0u);
  EXPECT_EQ(window->unanswered(), 1u);
}

// Where nothing is on the way, the window does not look at all that comes.
TEST_F(WindowAnswers, AreHeardAfterOtherMessages) {
  open({});
  for (std::uint64_t answers = 1; answers <= 3; ++answers) {
    send("a.b", 1);
    bus.run();
    bus.answer(0);
    EXPECT_EQ(window->answered(), answers);
    for (int time = 0; time < 2; ++time)
      EXPECT_GE(sd_bus_emit_signal(bus.far(), "/o", "i.f", "Signal", ""), 0);
    bus.run();
  }
}

TEST_F(WindowAnswers, CountOnceThoughTheyComeTwice) {
  open({});
  send("a.b", 1);
  send("a.b", 2);
  bus.run();
  bus.answer_twice(0);
  EXPECT_EQ(window->answered(), 1u);
  EXPECT_EQ(window->unanswered(), 1u);
}

/* ---- The end of the connection ---- */

TEST_F(WindowAnswers, AllCountAsComeWhenTheConnectionEnds) {
  open({});
  window->set_unattended();
  std::string told;
  for (guint32 i = 0; i < 12; ++i)
    send(
        "a.b", i, i % 3 != 0 ? CallCompletion{} : [&told](CallEnd end, sd_bus_message *) {
          told += end == CallEnd::answered ? "answered " : "refused ";
        });
  EXPECT_EQ(window->unanswered(), 8u);
  EXPECT_EQ(window->waiting(), 4u);
  bus.hang_up();
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->answered(), 8u);
  EXPECT_EQ(window->unanswered(), 0u);
  EXPECT_EQ(window->dropped(), 4u);
  EXPECT_EQ(counted().answered, 8u);
  EXPECT_EQ(counted().unanswered, 0u);
  EXPECT_EQ(counted().dropped, 4u);
  EXPECT_EQ(told_idle, 1);
  std::size_t receivers = 0;
  window->visit_queues([&receivers](const std::string &, const QueueState &) { ++receivers; });
  EXPECT_EQ(receivers, 0u);
}

TEST_F(WindowAnswers, MayEndTheWindowWhenTheConnectionEnds) {
  open({.unanswered_per_receiver = 1});
  window->set_unattended();
  for (const char *receiver : {"a.b", "c.d"}) {
    send(receiver, 1);
    send(receiver, 2, [this](CallEnd end, sd_bus_message *) {
      EXPECT_EQ(end, CallEnd::refused);
      window.reset();
    });
  }
  bus.hang_up();
  EXPECT_FALSE(window.has_value());
  EXPECT_EQ(counted().unanswered, 0u);
  EXPECT_EQ(counted().waiting, 0u);
}

TEST_F(WindowAnswers, EndInEachWindowOfAConnectionThatEnds) {
  open({});
  SendWindow other{bus.near()};
  send("a.b", 1);
  send(other, "a.b", 2);
  bus.hang_up();
  EXPECT_TRUE(window->idle());
  EXPECT_TRUE(other.idle());
  EXPECT_EQ(counted().answered, 2u);
}

TEST_F(WindowAnswers, AreNotMadeUpWhenTheConnectionIsClosedHere) {
  open({});
  send("a.b", 1);
  bus.run();
  sd_bus_close(bus.near());
  while (sd_bus_process(bus.near(), nullptr) > 0) {
  }
  EXPECT_EQ(window->unanswered(), 1u);
  EXPECT_EQ(told_idle, 0);
}

/* ---- Time ---- */

TEST_F(WindowAnswers, AreOverdueEachInItsTime) {
  open({.timeout = short_time});
  send("a.b", 1);
  ASSERT_TRUE(turn_until_overdue(1, turn_main_loop));
  EXPECT_EQ(told_idle, 1);
  send("a.b", 2);
  EXPECT_EQ(window->overdue(), 1u);
  EXPECT_FALSE(window->idle());
  ASSERT_TRUE(turn_until_overdue(2, turn_main_loop));
  EXPECT_EQ(told_idle, 2);
  EXPECT_EQ(counted().unanswered, 2u);
  bus.answer(1);
  bus.answer(0);
  EXPECT_EQ(window->overdue(), 0u);
  EXPECT_EQ(counted().unanswered, 0u);
  EXPECT_EQ(told_idle, 2); // as it was before
}

TEST_F(WindowAnswers, ThatCameInTimeLeaveTheOthersTheirs) {
  constexpr gint64 time = 10 * gint64{short_time};
  open({.timeout = static_cast<guint64>(time)});
  const gint64 first = g_get_monotonic_time();
  send("a.b", 1);
  bus.run();
  bus.answer(0);
  while (g_get_monotonic_time() < first + time / 2)
    turn_main_loop();
  const gint64 second = g_get_monotonic_time();
  send("a.b", 2);
  ASSERT_TRUE(turn_until_overdue(1, turn_main_loop));
  constexpr gint64 coarse = 20'000; // to which the time of a call is known
  EXPECT_GE(g_get_monotonic_time() + coarse, second + time);
}

TEST_F(WindowAnswers, AreNotAwaitedInTheMainLoopForLong) {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
  open({.timeout = short_time});
  for (guint32 i = 0; i < 3; ++i) {
    send("a.b", i);
    bus.run();
    bus.answer(0);
  }
  int wakeups = 0;
  const gint64 end = g_get_monotonic_time() + 5 * gint64{short_time};
  while (g_get_monotonic_time() < end)
    wakeups += g_main_context_iteration(nullptr, FALSE);
  EXPECT_LE(wakeups, 1);
  EXPECT_EQ(window->overdue(), 0u);
  EXPECT_EQ(told_idle, 3);
}

TEST_F(WindowAnswers, AreOverdueInAnEventLoopToo) {
  LoopRef loop;
  ASSERT_GE(sd_event_new(loop.out()), 0);
  open({.timeout = short_time}, loop.get());
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i);
  ASSERT_TRUE(turn_until_overdue(8, [&] { sd_event_run(loop.get(), 1000); }));
  EXPECT_EQ(window->unanswered(), 8u);
  EXPECT_EQ(told_idle, 0);
  while (bus.size() > 0)
    bus.answer(0);
  EXPECT_EQ(window->answered(), 20u);
  window.reset();
  send(window.emplace(bus.near(), SendLimits{.timeout = short_time}, loop.get()), "a.b", 1);
  window.reset(); // with the time running
  EXPECT_EQ(sd_event_run(loop.get(), 2 * short_time), 0);
}

} // namespace
} // namespace varro2::test
