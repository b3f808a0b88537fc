// How a GLib main loop drives a connection. The far end is moved by the test.
#include "bussource.hpp"
#include "connectionsource.hpp"
#include "directbus.hpp"
#include "mainloop.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <functional>
#include <string>
#include <utility>

namespace {

using namespace varro2;
using varro2::test::DirectBus;
using varro2::test::iterate_pending;
using varro2::test::iterate_undisturbed_until;
using varro2::test::iterate_until;

using LoopRef = Counted<sd_event, sd_event_ref, sd_event_unref>;

constexpr guint64 long_time = 60'000'000;
constexpr guint64 short_time = 20'000;

// Whether the loop object has nothing but the connection, which is then polled itself.
class BusSource : public ::testing::TestWithParam<bool> {
 protected:
  BusSource() {
    EXPECT_GE(sd_event_new(loop_.out()), 0);
    EXPECT_GE(sd_bus_attach_event(ends_.near(), loop_.get(), SD_EVENT_PRIORITY_NORMAL), 0);
    source_ = SourceRef::adopt(GetParam() ? connection_source_new(ends_.near())
                                          : bus_source_new(loop_.get(), ends_.near()));
    g_source_attach(source_.get(), nullptr);
  }
  ~BusSource() override {
    g_source_destroy(source_.get());
    sd_bus_detach_event(ends_.near());
  }

  void call(guint64 time_out, std::size_t size = 1) {
    const MessageRef message =
        new_call(ends_.near(), {"test.Receiver", "/receiver"}, {"test.Receiver", "Take", "test"});
    const std::string payload(size, 'x');
    append_argument({}, message.get(), payload.c_str());
    ASSERT_GE(sd_bus_call_async(ends_.near(), nullptr, message.get(), ended, this, time_out), 0);
  }

  // Until the far end has so many calls.
  [[nodiscard]] ::testing::AssertionResult arrive(std::size_t count) {
    return iterate_until([&] {
      ends_.run_far();
      return ends_.size() == count;
    });
  }

  [[nodiscard]] ::testing::AssertionResult end(std::size_t answered, std::size_t failed) {
    return iterate_undisturbed_until([&] { return answered_ == answered && failed_ == failed; });
  }

  DirectBus ends_;
  LoopRef loop_;
  SourceRef source_;
  std::size_t answered_ = 0;
  std::size_t failed_ = 0;
  std::function<void()> on_end_; // of the next call

 private:
  static int ended(sd_bus_message *answer, void *data, sd_bus_error *) noexcept {
    auto *self = static_cast<BusSource *>(data);
    ++(sd_bus_message_is_method_error(answer, nullptr) ? self->failed_ : self->answered_);
    if (const auto on_end = std::exchange(self->on_end_, {}))
      on_end();
    return 0;
  }
};

TEST_P(BusSource, TakesMoreMessagesThanFitOneTurn) {
  constexpr std::size_t count = 200;
  for (std::size_t number = 0; number < count; ++number)
    call(long_time);
  ASSERT_TRUE(arrive(count));
  while (ends_.size() > 0)
    ends_.answer_far(0);
  EXPECT_TRUE(end(count, 0));
}

TEST_P(BusSource, LetsOthersRunBetweenManyMessages) {
  constexpr std::size_t count = 200;
  for (std::size_t number = 0; number < count; ++number)
    call(long_time);
  ASSERT_TRUE(arrive(count));
  for (std::size_t number = 0; number < count; ++number)
    ends_.answer_far(0);
  std::size_t most = 0;
  EXPECT_TRUE(iterate_until([this, &most, before = std::size_t{0}]() mutable {
    most = std::max(most, answered_ - std::exchange(before, answered_));
    return answered_ == count;
  }));
  EXPECT_GT(most, 1u);
  EXPECT_LE(most, 64u);
}

// How often the main loop comes round within 50 ms.
int rounds_of_the_loop() {
  int rounds = 0;
  bool is_over = false;
  g_timeout_add(
      50,
      [](gpointer over) -> gboolean {
        *static_cast<bool *>(over) = true;
        return G_SOURCE_REMOVE;
      },
      &is_over);
  while (!is_over) {
    ++rounds;
    g_main_context_iteration(nullptr, TRUE);
  }
  return rounds;
}

// What has arrived meanwhile is for the outer loop: it must not keep the inner one awake.
TEST_P(BusSource, LeavesALoopInsideAHandlerItsSleep) {
  call(long_time);
  call(long_time);
  ASSERT_TRUE(arrive(2));
  int rounds = 0;
  on_end_ = [&rounds] { rounds = rounds_of_the_loop(); };
  ends_.answer_far(0);
  ends_.answer_far(0);
  EXPECT_TRUE(end(2, 0));
  EXPECT_LT(rounds, 100); // others have timers, too
}

TEST_P(BusSource, LeavesALoopInsideAHandlerItsSleepWhenTheOtherEndHangsUp) {
  call(long_time);
  call(long_time);
  ASSERT_TRUE(arrive(2));
  int rounds = 0;
  on_end_ = [this, &rounds] {
    ends_.hang_up_far();
    rounds = rounds_of_the_loop();
  };
  ends_.answer_far(0);
  EXPECT_TRUE(end(1, 1));
  EXPECT_LT(rounds, 100); // others have timers, too
}

TEST_P(BusSource, ReadsOnAfterALoopInsideAHandler) {
  call(long_time);
  call(long_time);
  ASSERT_TRUE(arrive(2));
  on_end_ = [] { rounds_of_the_loop(); };
  ends_.answer_far(0);
  ASSERT_TRUE(end(1, 0));
  ends_.answer_far(0);
  EXPECT_TRUE(end(2, 0));
}

TEST_P(BusSource, EndsACallInTime) {
  call(short_time);
  EXPECT_TRUE(end(0, 1));
}

TEST_P(BusSource, EndsACallInTimeAfterOneThatHadMore) {
  call(long_time);
  ASSERT_TRUE(arrive(1));
  iterate_pending(); // from here on the loop sleeps until the first call's time
  call(short_time);
  EXPECT_TRUE(end(0, 1));
  ends_.answer_far(0);
  EXPECT_TRUE(end(1, 1));
}

TEST_P(BusSource, GivesACallItsTimeAfterOneThatHadLess) {
  call(short_time);
  ASSERT_TRUE(arrive(1));
  ends_.answer_far(0);
  ASSERT_TRUE(end(1, 0));
  const gint64 begun = g_get_monotonic_time();
  call(3 * short_time);
  EXPECT_TRUE(end(1, 1));
  EXPECT_GE(g_get_monotonic_time() - begun, gint64{3 * short_time});
}

TEST_P(BusSource, WritesOnWhenTheOtherEndReads) {
  constexpr std::size_t size = 64 * 1024;
  std::size_t count = 0;
  const auto is_stuck = [this] {
    guint64 queued = 0;
    EXPECT_GE(sd_bus_get_n_queued_write(ends_.near(), &queued), 0);
    return queued > 1;
  };
  call(long_time);
  ASSERT_TRUE(arrive(++count));
  iterate_pending(); // from here on the loop sleeps until something comes in
  for (; !is_stuck(); ++count)
    call(long_time, size);
  EXPECT_TRUE(arrive(count));
  EXPECT_FALSE(is_stuck());
}

TEST_P(BusSource, EndsCallsWhenTheOtherEndHangsUp) {
  call(long_time);
  ASSERT_TRUE(arrive(1));
  ends_.hang_up_far();
  EXPECT_TRUE(end(0, 1));
}

TEST_P(BusSource, EndsCallsWhenTheOtherEndWritesNonsense) {
  call(long_time);
  ASSERT_TRUE(arrive(1));
  const std::string nonsense(64, 'x');
  ASSERT_EQ(write(sd_bus_get_fd(ends_.far()), nonsense.data(), nonsense.size()),
            static_cast<ssize_t>(nonsense.size()));
  EXPECT_TRUE(end(0, 1));
}

INSTANTIATE_TEST_SUITE_P(OfALoop, BusSource, ::testing::Bool(), [](const auto &loop) {
  return loop.param ? "OfOneConnection" : "OfMany";
});

class SharedLoop : public BusSource {};

TEST_P(SharedLoop, RunsWhatElseItHas) {
  int deferred = 0;
  int timed = 0;
  ASSERT_GE(sd_event_add_defer(
                loop_.get(), nullptr,
                [](sd_event_source *, void *data) { return ++*static_cast<int *>(data), 0; },
                &deferred),
            0);
  ASSERT_TRUE(iterate_until([&] { return deferred == 1; }));
  ASSERT_GE(
      sd_event_add_time_relative(
          loop_.get(), nullptr, CLOCK_MONOTONIC, short_time, 1,
          [](sd_event_source *, uint64_t, void *data) { return ++*static_cast<int *>(data), 0; },
          &timed),
      0);
  EXPECT_TRUE(iterate_until([&] { return timed == 1; }));
}

INSTANTIATE_TEST_SUITE_P(OfAnybody, SharedLoop, ::testing::Values(false));

} // namespace
