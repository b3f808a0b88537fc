// How long calls wait for their answer.
#include "directbus.hpp"
#include "sendwindow.hpp"

#include <varro2/switch_bus_client.h>

#include <gtest/gtest.h>

#include <functional>

namespace varro2::test {
namespace {

constexpr guint64 minute = 60 * G_USEC_PER_SEC;

guint64 now() {
  return static_cast<guint64>(g_get_monotonic_time());
}

void expect_a_minute(DirectBus &bus, const std::function<void()> &call) {
  const guint64 before = now();
  call();
  const guint64 after = now();
  guint64 end = 0;
  ASSERT_GT(sd_bus_get_timeout(bus.near(), &end), 0);
  EXPECT_GE(end, before + minute);
  EXPECT_LE(end, after + minute);
}

TEST(CallTimeout, IsAMinuteForACallToTheSwitch) {
  DirectBus bus;
  expect_a_minute(bus, [&] {
    com_quor_Event_Switch_Producer_disconnect_async(
        bus.near(), "/object", [](sd_bus_message *, void *, sd_bus_error *) { return 0; }, nullptr);
  });
}

TEST(CallTimeout, IsAMinuteForAnEventWhoseEndSomebodyIsTold) {
  DirectBus bus;
  SendWindow window{bus.near()};
  expect_a_minute(bus, [&] {
    window.send(":1.1", make_window_call(served_consumer::event, "/object", new_bytes(), {1},
                                         [](CallEnd, sd_bus_message *) {}));
  });
}

// As long as the main loop would wait if there were nothing else. Microseconds.
gint64 wait_of_main_loop() {
  GMainContext *context = g_main_context_default();
  EXPECT_TRUE(g_main_context_acquire(context));
  gint timeout = 0;
  g_main_context_prepare(context, nullptr);
  g_main_context_query(context, G_MAXINT, &timeout, nullptr, 0);
  g_main_context_release(context);
  return timeout * gint64{1000};
}

TEST(CallTimeout, IsAMinuteForAnEvent) {
  DirectBus bus;
  SendWindow window{bus.near()};
  const gint64 before = g_get_monotonic_time();
  window.send(":1.1", make_window_call(served_consumer::event, "/object", new_bytes(), {1}));
  const gint64 wait = wait_of_main_loop();
  const gint64 after = g_get_monotonic_time();
  EXPECT_GE(wait, gint64{minute} - (after - before));
  EXPECT_LE(wait, gint64{minute});
}

} // namespace
} // namespace varro2::test
