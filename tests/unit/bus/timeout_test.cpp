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

TEST(CallTimeout, IsAMinuteForAnEvent) {
  DirectBus bus;
  SendWindow window{bus.near()};
  expect_a_minute(bus, [&] {
    window.send(":1.1", make_window_call(served_consumer::event, "/object", new_bytes(), {1}));
  });
}

} // namespace
} // namespace varro2::test
