// What the process tells of all its windows together.
#include "directbus.hpp"
#include "logcapture.hpp"
#include "sendwindow.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <optional>

namespace varro2::test {
namespace {

SendCounters counters() {
  SendCounters counters{};
  event_utils_get_send_counters(&counters);
  return counters;
}

TEST(SendCountersTest, FollowEveryWindow) {
  const SendCounters before = counters();
  DirectBus bus;
  DirectBus other_bus;
  std::optional<SendWindow> window{std::in_place, bus.near()};
  std::optional<SendWindow> other{std::in_place, other_bus.near(),
                                  SendLimits{.unanswered_per_receiver = 1}};
  const auto send = [](SendWindow &to) {
    to.send("a.b", make_window_call(served_consumer::event, "/o", new_bytes(), {1}));
  };
  for (int i = 0; i < 10; ++i)
    send(*window);
  for (int i = 0; i < 3; ++i)
    send(*other);
  bus.run();
  other_bus.run();
  EXPECT_EQ(counters().unanswered, before.unanswered + 8 + 1);
  EXPECT_EQ(counters().waiting, before.waiting + 2 + 2);

  bus.answer(0);
  EXPECT_EQ(counters().answered, before.answered + 1);
  EXPECT_EQ(counters().waiting, before.waiting + 1 + 2);
  other->forget("a.b");
  EXPECT_EQ(counters().dropped, before.dropped + 2);

  window.reset();
  other.reset();
  EXPECT_EQ(counters().unanswered, before.unanswered);
  EXPECT_EQ(counters().waiting, before.waiting);
  EXPECT_EQ(counters().answered, before.answered + 1);
}

TEST(SendCountersTest, NeedAPlace) {
  const LogCapture log;
  event_utils_get_send_counters(nullptr);
  EXPECT_EQ(log.texts(), std::vector<std::string>{
                             "event_utils_get_send_counters: assertion 'counters != NULL' failed"});
}

} // namespace
} // namespace varro2::test
