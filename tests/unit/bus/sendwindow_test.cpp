#include "directbus.hpp"
#include "logcapture.hpp"
#include "sendwindow.hpp"

#include <gtest/gtest.h>

#include <map>
#include <optional>

namespace varro2::test {
namespace {

BytesRef payload_of(std::size_t size) {
  BytesRef payload = new_bytes();
  g_byte_array_set_size(payload.get(), static_cast<guint>(size));
  memset(payload->data, 7, size);
  return payload;
}

class SendWindowTest : public ::testing::Test {
 protected:
  void open(SendLimits limits) { window.emplace(bus.near(), limits); }

  void send(const char *receiver, guint32 number, std::size_t size = 16,
            CallCompletion completion = {}) {
    window->send(receiver, make_window_call(served_consumer::event, "/o", payload_of(size),
                                            {number}, std::move(completion)));
    bus.run();
  }

  std::vector<guint32> numbers() const {
    std::vector<guint32> all;
    for (std::size_t i = 0; i < bus.size(); ++i)
      all.push_back(bus.number(i));
    return all;
  }

  std::vector<guint32> numbers_of(const char *receiver) const {
    std::vector<guint32> all;
    for (std::size_t i = 0; i < bus.size(); ++i)
      if (bus.receiver(i) == receiver)
        all.push_back(bus.number(i));
    return all;
  }

  DirectBus bus;
  std::optional<SendWindow> window{std::in_place, bus.near()};
};

using Numbers = std::vector<guint32>;

TEST_F(SendWindowTest, LetsEightThroughToAReceiver) {
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i);
  EXPECT_EQ(numbers(), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(window->waiting(), 12u);
  bus.answer(3);
  EXPECT_EQ(numbers(), (Numbers{1, 2, 3, 5, 6, 7, 8, 9}));
}

TEST_F(SendWindowTest, KeepsTheOrderToTheEnd) {
  for (guint32 i = 1; i <= 100; ++i)
    send("a.b", i);
  for (guint32 i = 1; i <= 100; ++i) {
    ASSERT_EQ(bus.number(0), i);
    bus.answer(0);
  }
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->answered(), 100u);
  EXPECT_EQ(window->dropped(), 0u);
}

TEST_F(SendWindowTest, DoesNotLetOneReceiverHoldUpAnother) {
  for (guint32 i = 1; i <= 500; ++i)
    send("hangs.there", i);
  send("a.b", 1000);
  EXPECT_EQ(numbers_of("hangs.there").size(), 8u);
  EXPECT_EQ(numbers_of("a.b"), (Numbers{1000}));
}

TEST_F(SendWindowTest, LetsNinetySixThroughInAllToThoseWhoAnswer) {
  std::size_t most = 0;
  const auto look = [&] {
    most = std::max(most, bus.size());
    ASSERT_EQ(window->unanswered(), bus.size());
  };
  for (guint32 receiver = 0; receiver < 120; ++receiver)
    for (guint32 i = 0; i < 8; ++i)
      send(("a.b" + std::to_string(receiver)).c_str(), i);
  for (; bus.size() > 0; bus.answer(0))
    ASSERT_NO_FATAL_FAILURE(look());
  for (guint32 receiver = 0; receiver < 120; ++receiver)
    send(("a.b" + std::to_string(receiver)).c_str(), 9);
  for (; bus.size() > 0; bus.answer(0))
    ASSERT_NO_FATAL_FAILURE(look());
  EXPECT_LE(most, 96u);
  EXPECT_GT(most, 48u);
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->answered(), 120u * 9);
}

TEST_F(SendWindowTest, SharesTheConnectionInTurn) {
  open({.unanswered_per_receiver = 4, .unanswered = 2});
  for (guint32 i = 1; i <= 4; ++i)
    send("a.a", i);
  for (guint32 i = 11; i <= 13; ++i)
    send("b.b", i);
  EXPECT_EQ(numbers(), (Numbers{1, 2}));
  bus.answer(0);
  bus.answer(0);
  EXPECT_EQ(numbers(), (Numbers{3, 11}));
}

TEST_F(SendWindowTest, CountsErrorsAsAnswers) {
  for (guint32 i = 1; i <= 9; ++i)
    send("a.b", i);
  bus.answer_error(0, SD_BUS_ERROR_NO_REPLY);
  EXPECT_EQ(numbers().back(), 9u);
}

TEST_F(SendWindowTest, DropsTheQueueOfAReceiverThatLeft) {
  for (const char *name :
       {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NAME_HAS_NO_OWNER, SD_BUS_ERROR_DISCONNECTED}) {
    open({});
    for (guint32 i = 1; i <= 20; ++i)
      send("a.b", i);
    bus.answer_error(0, name);
    EXPECT_EQ(window->waiting(), 0u) << name;
    while (bus.size() > 0)
      bus.answer(0);
    EXPECT_TRUE(window->idle()) << name;
    EXPECT_EQ(window->answered(), 8u) << name;
  }
}

TEST_F(SendWindowTest, ForgetsAReceiver) {
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i);
  window->forget("c.d");
  EXPECT_EQ(window->waiting(), 12u);
  window->forget("a.b");
  EXPECT_EQ(window->waiting(), 0u);
  EXPECT_EQ(window->dropped(), 12u);
}

TEST_F(SendWindowTest, TellsWhoWaitsForACallThatItGivesUpWithItsReceiver) {
  open({.unanswered_per_receiver = 1});
  std::vector<CallEnd> ends;
  for (guint32 i = 1; i <= 3; ++i)
    send("a.b", i, 16, [&ends](CallEnd end, sd_bus_message *) { ends.push_back(end); });
  window->forget("a.b");
  EXPECT_EQ(ends, (std::vector{CallEnd::dropped, CallEnd::dropped}));
  bus.answer(0);
  EXPECT_EQ(ends, (std::vector{CallEnd::dropped, CallEnd::dropped, CallEnd::answered}));
}

TEST_F(SendWindowTest, DropsTheOldestPastItsBoundAndWarnsOnce) {
  open({.unanswered_per_receiver = 1, .queued_bytes = 100'000});
  const LogCapture log;
  for (guint32 i = 0; i <= 150; ++i)
    send("a.b", i, 1000);
  const auto warnings = log.texts(G_LOG_LEVEL_WARNING);
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("a.b"), std::string::npos);
  EXPECT_NE(warnings[0].find(" 1 "), std::string::npos);
  EXPECT_EQ(window->dropped() + window->waiting(), 150u);
  EXPECT_GT(window->waiting(), 50u);
  EXPECT_LE(window->waiting(), 100u);

  const auto first_kept = static_cast<guint32>(151 - window->waiting());
  bus.answer(0);
  EXPECT_EQ(numbers(), (Numbers{first_kept}));
}

TEST_F(SendWindowTest, CountsWhatIsToBeDelivered) {
  open({.unanswered_per_receiver = 1, .queued_bytes = 100'000});
  const LogCapture log;
  for (guint32 i = 0; i <= 400; ++i)
    send("a.b", i, 250);
  EXPECT_EQ(window->dropped(), 0u);
  EXPECT_EQ(window->waiting(), 400u);
  send("a.b", 401, 250);
  EXPECT_EQ(window->dropped(), 1u);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING).size(), 1u);
}

TEST_F(SendWindowTest, TakesABurstToAReceiverThatDoesNotHang) {
  open({.unanswered_per_receiver = 1, .queued_bytes = 10'000, .burst_bytes = 30'000});
  const LogCapture log;
  for (guint32 i = 0; i <= 30; ++i)
    send("a.b", i, 1000);
  EXPECT_EQ(window->dropped(), 0u);
  EXPECT_EQ(window->waiting(), 30u);
  send("a.b", 31, 1000);
  EXPECT_EQ(window->dropped(), 1u);
}

TEST_F(SendWindowTest, KeepsLessForAReceiverThatHangs) {
  open({.unanswered_per_receiver = 1,
        .queued_bytes = 10'000,
        .burst_bytes = 30'000,
        .hang_after = 0});
  const LogCapture log;
  for (guint32 i = 0; i <= 30; ++i)
    send("a.b", i, 1000);
  EXPECT_EQ(window->waiting(), 10u);
  EXPECT_EQ(window->dropped(), 20u);
}

TEST_F(SendWindowTest, KeepsLessForEachWhenManyHang) {
  open(
      {.unanswered_per_receiver = 1, .queued_bytes = 1024 * 1024, .all_queued_bytes = 1024 * 1024});
  const LogCapture log;
  for (int receiver = 0; receiver < 40; ++receiver)
    for (guint32 i = 0; i <= 40; ++i)
      send(("a.b" + std::to_string(receiver)).c_str(), i, 10'000);
  EXPECT_GT(window->waiting() * 10'000, 1024u * 1024 * 3 / 4);
  EXPECT_LT(window->waiting() * 10'000, 1024u * 1024 * 3 / 2);
  std::map<std::string, std::size_t> waiting;
  window->visit_queues([&waiting](const std::string &receiver, const QueueState &queue) {
    waiting[receiver] = queue.waiting;
  });
  EXPECT_EQ(waiting["a.b0"], 26u); // a quarter of all
  EXPECT_EQ(waiting["a.b39"], 1u);
}

TEST_F(SendWindowTest, WarnsAgainWhenTheQueueWasEmptyBetween) {
  open({.unanswered_per_receiver = 1, .queued_bytes = 3'000});
  const LogCapture log;
  for (int episode = 1; episode <= 2; ++episode) {
    for (guint32 i = 0; i < 10; ++i)
      send("a.b", i, 1000);
    EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING).size(), static_cast<std::size_t>(episode));
    while (bus.size() > 0)
      bus.answer(0);
  }
}

TEST_F(SendWindowTest, WarnsAgainThoughTheLastAnswersWereMissingBetween) {
  open({.unanswered_per_receiver = 2, .queued_bytes = 3'000});
  const LogCapture log;
  for (int episode = 1; episode <= 2; ++episode) {
    for (guint32 i = 0; i < 10; ++i)
      send("a.b", i, 1000);
    EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING).size(), static_cast<std::size_t>(episode));
    while (window->waiting() > 0)
      bus.answer(0);
    EXPECT_EQ(bus.size(), 2u);
  }
}

TEST_F(SendWindowTest, KeepsTheNewestHoweverLarge) {
  open({.unanswered_per_receiver = 1, .queued_bytes = 1'000});
  const LogCapture log;
  send("a.b", 1);
  send("a.b", 2, 5000);
  EXPECT_EQ(window->dropped(), 0u);
  send("a.b", 3, 5000);
  EXPECT_EQ(window->dropped(), 1u);
  bus.answer(0);
  EXPECT_EQ(numbers(), (Numbers{3}));
}

TEST_F(SendWindowTest, CompletesEveryCallOnce) {
  open({.unanswered_per_receiver = 1, .queued_bytes = 3'000});
  const LogCapture log;
  std::vector<std::string> ends(4, "");
  for (guint32 i = 0; i < 4; ++i)
    send("a.b", i, 2000, [&ends, i](CallEnd end, sd_bus_message *answer) {
      if (end == CallEnd::answered)
        ends[i] += sd_bus_message_is_method_error(answer, nullptr) ? "error" : "answered";
      else
        ends[i] += end == CallEnd::dropped ? "dropped" : "refused";
    });
  EXPECT_EQ(ends, (std::vector<std::string>{"", "dropped", "dropped", ""}));
  bus.answer(0);
  bus.answer_error(0, SD_BUS_ERROR_FAILED);
  EXPECT_EQ(ends, (std::vector<std::string>{"answered", "dropped", "dropped", "error"}));
}

TEST_F(SendWindowTest, ACompletionMaySendAgainAndMayEndTheWindow) {
  send("a.b", 1, 16, [this](CallEnd, sd_bus_message *) { send("a.b", 2); });
  bus.answer(0);
  EXPECT_EQ(numbers(), (Numbers{2}));
  send("a.b", 3, 16, [this](CallEnd, sd_bus_message *) { window.reset(); });
  bus.answer(1);
  EXPECT_FALSE(window.has_value());
  bus.answer(0); // nobody waits for it any more
}

TEST_F(SendWindowTest, TellsWhenItIsIdle) {
  int told = 0;
  window->set_idle_handler([&] { ++told; });
  send("a.b", 1);
  send("c.d", 2);
  bus.answer(0);
  EXPECT_EQ(told, 0);
  bus.answer(0);
  EXPECT_EQ(told, 1);
}

// The one who is told of the call may be the end of the window.
TEST_F(SendWindowTest, TellsThatItIsIdleBeforeHowTheCallEnded) {
  std::string told;
  window->set_idle_handler([&] { told += "idle "; });
  send("a.b", 1, 16, [&told](CallEnd, sd_bus_message *) { told += "answered"; });
  bus.answer(0);
  EXPECT_EQ(told, "idle answered");
}

TEST_F(SendWindowTest, GivesUpAllAtOnceWhenTheConnectionIsGone) {
  const LogCapture log;
  for (guint32 i = 1; i <= 300; ++i)
    send("a.b", i);
  bus.hang_up();
  EXPECT_TRUE(window->idle());
  const auto warnings = log.texts(G_LOG_LEVEL_WARNING);
  EXPECT_LE(warnings.size(), 2u);
  for (const std::string &warning : warnings)
    EXPECT_TRUE(warning.starts_with("Failed to call com.quor.Event.Consumer.Event: -")) << warning;
}

TEST_F(SendWindowTest, IsSilentAboutALostConnectionWhenUnattended) {
  const LogCapture log;
  for (guint32 i = 1; i <= 300; ++i)
    send("a.b", i);
  window->set_unattended();
  bus.hang_up();
  EXPECT_TRUE(window->idle());
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(SendWindowTest, RefusesCallsWithoutAConnection) {
  bus.hang_up();
  const LogCapture log;
  std::vector<CallEnd> ends;
  send("a.b", 1, 16, [&](CallEnd end, sd_bus_message *) { ends.push_back(end); });
  EXPECT_EQ(ends, (std::vector<CallEnd>{CallEnd::refused}));
  EXPECT_EQ(log.lines().size(), 1u);
  EXPECT_TRUE(window->idle());
}

TEST_F(SendWindowTest, SendsReadyMessagesInTheirTurn) {
  for (guint32 i = 1; i <= 10; ++i)
    window->send(
        "a.b", make_window_call(
                   build_call(bus.near(), {"a.b", "/o"}, served_producer::unsubscribe, i, 0u), 0));
  bus.run();
  EXPECT_EQ(bus.size(), 8u);
  bus.answer(0);
  bus.answer(0);
  EXPECT_EQ(numbers().back(), 10u);
}

TEST_F(SendWindowTest, SendsWithoutPayloadToo) {
  window->send("a.b", make_window_call(served_producer::global_declare_id, "/o", {}, {5, 6, 7}));
  bus.run();
  EXPECT_EQ(numbers(), (Numbers{5}));
}

/* ---- The rest, when nobody may be there to send it later ---- */

class Rest : public SendWindowTest {
 protected:
  // Of the calls, in order of arrival: a for one that asks for an answer.
  std::string asked() const {
    std::string all;
    for (std::size_t i = 0; i < bus.size(); ++i)
      all += bus.wants_answer(i) ? 'a' : '-';
    return all;
  }
  void send_rest() {
    window->send_rest();
    bus.run();
    EXPECT_EQ(window->waiting(), 0u);
  }
  static constexpr SendLimits four_in_all{.unanswered_per_receiver = 2, .unanswered = 4};
};

TEST_F(Rest, IsSentInOrderWithoutWaitingForAnswers) {
  Numbers all;
  for (guint32 i = 1; i <= 20; ++i) {
    send("a.b", i);
    all.push_back(i);
  }
  send_rest();
  EXPECT_EQ(numbers(), all);
  EXPECT_EQ(window->unanswered(), 20u);
  while (bus.size() > 0)
    bus.answer(0);
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->answered(), 20u);
  EXPECT_EQ(window->dropped(), 0u);
}

TEST_F(Rest, IsAskedForAnswersUpToTheLimit) {
  open(four_in_all);
  for (guint32 i = 1; i <= 8; ++i)
    send("a.b", i);
  send_rest();
  EXPECT_EQ(numbers(), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_EQ(asked(), "aaaa----");
  EXPECT_EQ(window->unanswered(), 4u);
}

// By the last answer it is known that the others are in, so that one is asked for in any case. Who
// waits for another one that is not asked for is told so.
TEST_F(Rest, HasItsLastAnswerIfSomebodyWaitsForIt) {
  open(four_in_all);
  std::string ends = "--------";
  for (guint32 i = 0; i < ends.size(); ++i)
    send("a.b", i, 16, [&ends, i](CallEnd end, sd_bus_message *) {
      ends[i] = end == CallEnd::answered ? 'a' : end == CallEnd::refused ? 'r' : 'd';
    });
  send_rest();
  EXPECT_EQ(asked(), "aaaa---a");
  EXPECT_EQ(ends, "----rrr-");
  for (int call = 0; call < 4; ++call)
    bus.answer(0);
  bus.answer(bus.size() - 1);
  EXPECT_EQ(ends, "aaaarrra");
  EXPECT_TRUE(window->idle());
}

TEST_F(Rest, OfAWindowThatHeldItBackIsSentToo) {
  open({.unanswered = 46});
  window->set_scout([](const std::string &) {});
  for (guint32 i = 0; i < 24; ++i)
    send(("h.h" + std::to_string(i / 8)).c_str(), i);
  send("a.b", 1);
  send("a.b", 2);
  ASSERT_TRUE(window->holds_back("a.b"));
  send_rest();
  EXPECT_EQ(numbers_of("a.b"), (Numbers{1, 2}));
  EXPECT_FALSE(window->holds_back("a.b"));
}

/* ---- Receivers that hang ---- */

class HangingReceivers : public SendWindowTest {
 protected:
  // sd-bus and the main loop wait for the time-outs, the test for what they cause.
  template <typename Condition>
  [[nodiscard]] bool run_until(Condition condition) {
    const gint64 end = g_get_monotonic_time() + 60 * G_USEC_PER_SEC;
    while (!condition() && g_get_monotonic_time() < end) {
      bus.run();
      g_main_context_iteration(nullptr, FALSE);
    }
    return condition();
  }
  bool run_until_overdue(std::size_t count) {
    return run_until([&] { return window->overdue() == count; });
  }
  static constexpr guint64 short_time = 20'000;
};

TEST_F(HangingReceivers, ACallOutOfTimeIsOverButKeepsItsPlace) {
  open({.timeout = short_time});
  int told = 0;
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i, 16, [&told](CallEnd end, sd_bus_message *answer) {
      told += end == CallEnd::answered &&
              sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NO_REPLY) > 0;
    });
  ASSERT_TRUE(run_until_overdue(8));
  EXPECT_EQ(told, 8);
  EXPECT_EQ(bus.size(), 8u);
  EXPECT_EQ(window->unanswered(), 8u);
  EXPECT_EQ(window->waiting(), 12u);
  EXPECT_EQ(window->answered(), 0u);
}

TEST_F(HangingReceivers, ALateAnswerGivesThePlaceBack) {
  open({.timeout = short_time});
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i);
  ASSERT_TRUE(run_until_overdue(8));
  bus.answer(0);
  EXPECT_EQ(window->overdue(), 7u);
  EXPECT_EQ(window->answered(), 1u);
  EXPECT_EQ(numbers().back(), 9u);
  bus.answer_error(0, SD_BUS_ERROR_FAILED);
  EXPECT_EQ(numbers().back(), 10u);
  while (bus.size() > 0)
    bus.answer(0);
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->overdue(), 0u);
  EXPECT_EQ(window->unanswered(), 0u);
}

TEST_F(HangingReceivers, WhatIsOverdueIsNotWaitedFor) {
  open({.timeout = short_time});
  int told = 0;
  window->set_idle_handler([&] { ++told; });
  send("a.b", 1);
  ASSERT_TRUE(run_until_overdue(1));
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(told, 1);
}

TEST_F(HangingReceivers, WhoLeavesGivesItsPlacesBack) {
  open({.unanswered = 10, .timeout = short_time});
  for (guint32 i = 1; i <= 9; ++i)
    send("a.b", i);
  ASSERT_TRUE(run_until_overdue(8));
  for (guint32 i = 21; i <= 25; ++i)
    send("c.d", i);
  window->forget("a.b");
  bus.run();
  EXPECT_EQ(window->overdue(), 0u);
  EXPECT_EQ(window->unanswered(), 5u);
  EXPECT_EQ(numbers_of("c.d"), (Numbers{21, 22, 23, 24, 25}));
  bus.answer(0); // nobody knows it any more
  EXPECT_EQ(window->unanswered(), 5u);
}

TEST_F(HangingReceivers, WhoLeftAndComesBackIsServedAnew) {
  open({.timeout = short_time});
  for (guint32 i = 1; i <= 8; ++i)
    send("a.b", i);
  ASSERT_TRUE(run_until_overdue(8));
  window->forget("a.b");
  std::size_t receivers = 0;
  window->visit_queues([&receivers](const std::string &, const QueueState &) { ++receivers; });
  EXPECT_EQ(receivers, 0u);
  send("a.b", 9);
  EXPECT_EQ(numbers().back(), 9u);
}

// A time-out is told by sd-bus here and by nobody else.
TEST_F(HangingReceivers, WhoAnswersInTheWordsOfATimeOutHasAnswered) {
  open({});
  for (guint32 i = 1; i <= 9; ++i)
    send("a.b", i);
  bus.answer_error(0, SD_BUS_ERROR_NO_REPLY);
  EXPECT_EQ(window->overdue(), 0u);
  EXPECT_EQ(window->answered(), 1u);
  EXPECT_EQ(numbers().back(), 9u);
}

TEST_F(HangingReceivers, AnEndedConnectionLeavesNothingOverdue) {
  const LogCapture log;
  open({.timeout = short_time});
  send("a.b", 1);
  ASSERT_TRUE(run_until_overdue(1));
  send("c.d", 2);
  bus.hang_up();
  EXPECT_EQ(window->overdue(), 1u);
  EXPECT_TRUE(window->idle());
}

// A receiver whose share grows again has calls waiting although there is room for the next one.
TEST_F(HangingReceivers, LeaveTheOrderOfTheOthersAsItIs) {
  const auto first_of = [this](bool of_the_others) {
    std::size_t index = 0;
    while (index < bus.size() && (bus.receiver(index) == "a.b") == of_the_others)
      ++index;
    return index;
  };
  for (int receiver = 0; receiver < 7; ++receiver)
    for (guint32 i = 0; i < 8; ++i)
      send(("c.d" + std::to_string(receiver)).c_str(), i);
  for (guint32 i = 1; i <= 8; ++i)
    send("a.b", i);
  ASSERT_GT(window->waiting(), 0u);
  for (std::size_t at = first_of(true); at < bus.size(); at = first_of(true))
    bus.answer(at);
  send("a.b", 9);
  Numbers arrived;
  while (bus.size() > 0) {
    arrived.push_back(bus.number(0));
    bus.answer(0);
  }
  EXPECT_EQ(arrived, (Numbers{1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST_F(HangingReceivers, GetOneEachOfTheScarceHalf) {
  for (guint32 receiver = 0; receiver < 20; ++receiver)
    for (guint32 i = 0; i < 10; ++i)
      send(("a.b" + std::to_string(receiver)).c_str(), i);
  // Up to the sixth, who takes the last but one of the first half, each gets its eight.
  EXPECT_EQ(numbers_of("a.b0").size(), 8u);
  EXPECT_EQ(numbers_of("a.b5").size(), 8u);
  for (guint32 receiver = 7; receiver < 20; ++receiver)
    EXPECT_EQ(numbers_of(("a.b" + std::to_string(receiver)).c_str()), (Numbers{0})) << receiver;
  EXPECT_LE(window->unanswered(), 48u + 1 + 14);
}

// Who leaves makes room for many at once, and what the first ones take of it the others have not.
TEST_F(HangingReceivers, WhoLeavesGivesNobodyMoreThanTheShareOfEachWhoseTurnComes) {
  open({.timeout = short_time});
  for (guint32 receiver = 0; receiver < 6; ++receiver)
    for (guint32 i = 0; i < 8; ++i)
      send(("h.h" + std::to_string(receiver)).c_str(), i);
  for (guint32 i = 0; i < 3; ++i)
    for (guint32 receiver = 0; receiver < 7; ++receiver)
      send(("a.b" + std::to_string(receiver)).c_str(), i);
  ASSERT_EQ(window->unanswered(), 48u + 7);
  ASSERT_EQ(window->waiting(), 14u);
  ASSERT_TRUE(run_until_overdue(48 + 7));
  window->forget("h.h0");
  // One more than the first half.
  EXPECT_EQ(window->unanswered(), 48u + 1);
  EXPECT_EQ(window->waiting(), 12u);
}

class FortyReceivers : public HangingReceivers {
 protected:
  void send_to_all(guint32 number) {
    for (guint32 receiver = 0; receiver < 40; ++receiver)
      send(("a.b" + std::to_string(receiver)).c_str(), number);
  }
  // More than there is room for, after each was sent one and has answered it.
  void send_many_to_all_who_have_answered() {
    send_to_all(0);
    while (bus.size() > 0)
      bus.answer(0);
    for (guint32 number = 1; number <= 4; ++number)
      send_to_all(number);
  }
  std::size_t most_to_one() {
    std::size_t most = 0;
    for (guint32 receiver = 0; receiver < 40; ++receiver)
      most = std::max(most, numbers_of(("a.b" + std::to_string(receiver)).c_str()).size());
    return most;
  }
};

// One more than the first half are taken when it begins to be scarce, and then one more than the
// next quarter.
TEST_F(FortyReceivers, GetASecondOneWhenTheyHaveJustAnsweredWhileAQuarterIsFree) {
  open({.proven_for = gint64{3600} * G_USEC_PER_SEC});
  send_many_to_all_who_have_answered();
  EXPECT_EQ(window->unanswered(), 48u + 24 + 1);
  EXPECT_EQ(most_to_one(), 2u);
}

TEST_F(FortyReceivers, GetOneEachWhenTheyHaveNotAnsweredLately) {
  open({.proven_for = 0});
  send_many_to_all_who_have_answered();
  EXPECT_EQ(window->unanswered(), 48u + 1);
}

TEST_F(FortyReceivers, GetOneEachWhenTheyHaveNeverAnswered) {
  open({.proven_for = gint64{3600} * G_USEC_PER_SEC});
  for (guint32 number = 1; number <= 4; ++number)
    send_to_all(number);
  EXPECT_EQ(window->unanswered(), 48u + 1);
}

class ManyThatHang : public HangingReceivers, public ::testing::WithParamInterface<guint32> {
 protected:
  // More for each of them than it gets.
  void send_to_all(guint32 count) {
    for (guint32 i = 0; i < count; ++i)
      for (guint32 receiver = 0; receiver < GetParam(); ++receiver)
        send(("h.h" + std::to_string(receiver)).c_str(), i);
  }
  // All are answered but those who hang. Whether one was.
  bool answer_the_others() {
    for (std::size_t i = 0; i < bus.size(); ++i)
      if (!bus.receiver(i).starts_with("h.h")) {
        bus.answer(i);
        return true;
      }
    return false;
  }
  // What arrives at those who answer, in turn with more for those who hang.
  void expect_served(std::initializer_list<const char *> others) {
    constexpr guint32 calls = 50;
    const std::uint64_t before = window->answered();
    for (guint32 i = 0; i < calls; ++i) {
      for (const char *other : others)
        send(other, i);
      send_to_all(1);
    }
    while (answer_the_others())
      EXPECT_LE(window->unanswered(), 96u);
    EXPECT_EQ(window->answered() - before, calls * others.size());
  }
};

using SomeThatHang = ManyThatHang;

// Also those who have not been heard of before.
TEST_P(SomeThatHang, LeaveRoomForAllOthers) {
  send_to_all(12);
  expect_served({"a.a", "b.b", "c.c"});
  expect_served({"d.d"});
}

// All of them have been served well until they hang, all at once, with all that they may have.
TEST_P(SomeThatHang, LeaveRoomAlsoWhenTheyWereServedBefore) {
  send_to_all(30);
  send("a.a", 1);
  while (bus.size() > 0)
    bus.answer(0);
  send_to_all(12);
  expect_served({"a.a", "b.b"});
}

INSTANTIATE_TEST_SUITE_P(Numbers, SomeThatHang, ::testing::Values(1u, 6u, 12u, 30u, 44u));

// However many they are.
TEST_P(ManyThatHang, LeaveRoomForThoseWhoAnswerAllTheTime) {
  send("a.a", 1);
  send("b.b", 1);
  send_to_all(12);
  while (answer_the_others()) {
  }
  expect_served({"a.a", "b.b"});
}

INSTANTIATE_TEST_SUITE_P(Numbers, ManyThatHang, ::testing::Values(100u, 300u));

TEST_F(HangingReceivers, AllGoesOnWhenTheyAnswerAfterAll) {
  for (guint32 i = 0; i < 12; ++i)
    for (guint32 receiver = 0; receiver < 150; ++receiver)
      send(("h.h" + std::to_string(receiver)).c_str(), i);
  while (bus.size() > 0) {
    ASSERT_LE(bus.size(), 96u);
    bus.answer(0);
  }
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->answered(), 12u * 150);
  EXPECT_EQ(window->dropped(), 0u);
}

class WithAScout : public HangingReceivers {
 protected:
  WithAScout() { open_with_scout({.unanswered = 46}); }
  void open_with_scout(SendLimits limits) {
    open(limits);
    asked.clear();
    window->set_scout([this](const std::string &receiver) { asked.push_back(receiver); });
  }
  // So many calls, to receivers that answer none of the eight which each of them gets.
  void hang(guint32 calls) {
    for (guint32 i = 0; i < calls; ++i)
      send(("h.h" + std::to_string(i / 8)).c_str(), i);
    ASSERT_EQ(window->unanswered(), calls);
    ASSERT_TRUE(asked.empty());
  }
  void hang_until_few_are_left() {
    open_with_scout({.unanswered = 32});
    hang(17);
  }
  bool wants_answer(const char *receiver) {
    for (std::size_t i = 0; i < bus.size(); ++i)
      if (bus.receiver(i) == receiver)
        return bus.wants_answer(i);
    return false;
  }

  std::vector<std::string> asked;
};

TEST_F(WithAScout, NobodyIsAskedForWhileThereIsEnough) {
  hang(23);
  send("a.b", 1);
  EXPECT_EQ(numbers_of("a.b"), (Numbers{1}));
  EXPECT_TRUE(asked.empty());
}

TEST_F(WithAScout, ScarceCallsGoToWhoIsAlive) {
  hang(24); // more than half
  send("a.b", 1);
  send("a.b", 2);
  EXPECT_TRUE(numbers_of("a.b").empty());
  EXPECT_EQ(asked, (std::vector<std::string>{"a.b"}));
  EXPECT_TRUE(window->holds_back("a.b"));
  EXPECT_FALSE(window->holds_back("c.d"));
  window->seen_alive("c.d"); // nobody asked
  window->seen_alive("a.b");
  bus.run();
  EXPECT_FALSE(window->holds_back("a.b"));
  EXPECT_FALSE(numbers_of("a.b").empty());
}

TEST_F(WithAScout, TheLastOnesAreKeptAndNobodyIsAskedToAnswer) {
  hang_until_few_are_left();
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i);
  window->seen_alive("a.b");
  bus.run();
  // So many for one sign of life.
  EXPECT_EQ(numbers_of("a.b"), (Numbers{1, 2, 3, 4, 5, 6, 7, 8}));
  EXPECT_FALSE(wants_answer("a.b"));
  EXPECT_EQ(window->unanswered(), 17u);
  EXPECT_EQ(asked, (std::vector<std::string>{"a.b", "a.b"}));
  window->seen_alive("a.b");
  bus.run();
  EXPECT_EQ(numbers_of("a.b").size(), 16u);
}

TEST_F(WithAScout, WhoseAnswerIsWaitedForGetsTheLastOnes) {
  hang_until_few_are_left();
  std::vector<CallEnd> ends;
  const auto end = [&ends](CallEnd how, sd_bus_message *) { ends.push_back(how); };
  for (int number = 0; number < 16; ++number) {
    const std::string receiver = "a.b" + std::to_string(number);
    send(receiver.c_str(), 1, 16, end);
    window->seen_alive(receiver);
    bus.run();
  }
  EXPECT_EQ(window->unanswered(), 32u);
  // There was none for the last of them, and it is told so.
  EXPECT_EQ(ends, (std::vector<CallEnd>{CallEnd::dropped}));
  EXPECT_EQ(window->waiting(), 0u);
}

TEST_F(WithAScout, WhoAnswersAPingButNoCallGetsNoMore) {
  open_with_scout({.unanswered = 46, .suspect_after = 0});
  hang(24);
  send("h.h0", 9);
  window->seen_alive("h.h0");
  bus.run();
  EXPECT_EQ(numbers_of("h.h0").size(), 8u);
}

TEST_F(WithAScout, AllGoesOnWhenThereIsEnoughAgain) {
  hang(24);
  for (guint32 i = 1; i <= 20; ++i)
    send("a.b", i);
  for (guint32 i = 8; i < 20; ++i)
    send("h.h0", i);
  while (bus.size() > 0)
    bus.answer(0);
  EXPECT_TRUE(window->idle());
  EXPECT_EQ(window->dropped(), 0u);
  EXPECT_EQ(window->answered(), 24u + 20 + 12);
}

TEST_F(WithAScout, WhoHasLeftIsHeldBackNoMore) {
  hang(24);
  send("a.b", 1);
  window->forget("a.b");
  EXPECT_FALSE(window->holds_back("a.b"));
  EXPECT_EQ(window->waiting(), 0u);
}

} // namespace
} // namespace varro2::test
