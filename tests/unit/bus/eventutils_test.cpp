// The bus half of the helpers, as far as no bus is needed.
#include "logcapture.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

namespace varro2::test {
namespace {

TEST(CallbackParams, AreCopies) {
  char key[] = "port";
  char value[] = "1";
  CallbackParams *params = callback_params_new(key, value);
  key[0] = value[0] = 'x';
  EXPECT_STREQ(params->key, "port");
  EXPECT_STREQ(params->value, "1");
  callback_params_free(params);
}

TEST(CallbackParams, FreeAcceptsNull) {
  const LogCapture log;
  callback_params_free(nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventTime, IsSetToNowInUtc) {
  Event *event = event_new();
  const gint64 before = g_get_real_time() / G_USEC_PER_SEC;
  set_event_time_now(event);
  const gint64 after = g_get_real_time() / G_USEC_PER_SEC;
  GDateTime *time = event_get_timestamp2(event);
  ASSERT_NE(time, nullptr);
  EXPECT_GE(g_date_time_to_unix(time), before);
  EXPECT_LE(g_date_time_to_unix(time), after);
  EXPECT_EQ(g_date_time_get_utc_offset(time), 0);
  event_free(event);
}

TEST(EventTime, IsLeftAloneWhenItIsSet) {
  Event *event = event_new();
  GDateTime *time = g_date_time_new_from_unix_utc(1700000000);
  event_set_timestamp2(event, time);
  set_event_time_now(event);
  EXPECT_EQ(event_get_timestamp2(event), time);
  g_date_time_unref(time);
  event_free(event);
}

TEST(EventTime, RefusesNull) {
  const LogCapture log;
  set_event_time_now(nullptr);
  EXPECT_EQ(log.texts(),
            (std::vector<std::string>{"set_event_time_now: assertion 'event != NULL' failed"}));
}

TEST(ConnectionDeathTest, NeedsPlacesForItsResults) {
  GSource *source = nullptr;
  sd_bus *bus = nullptr;
  EXPECT_DEATH(connect_to_bus_and_attach_events(nullptr, &bus, nullptr),
               "connect_to_bus_and_attach_events: assertion failed: \\(source\\)");
  EXPECT_DEATH(connect_to_bus_and_attach_events(&source, nullptr, nullptr),
               "connect_to_bus_and_attach_events: assertion failed: \\(bus\\)");
}

TEST(ConnectionDeathTest, NeedsWhatItReleases) {
  auto *some_bus = reinterpret_cast<sd_bus *>(0x1000);
  auto *some_source = reinterpret_cast<GSource *>(0x1000);
  EXPECT_DEATH(disconnect_from_bus_and_detach_events(nullptr, some_bus),
               "disconnect_from_bus_and_detach_events: assertion failed: \\(source\\)");
  EXPECT_DEATH(disconnect_from_bus_and_detach_events(some_source, nullptr),
               "disconnect_from_bus_and_detach_events: assertion failed: \\(bus\\)");
}

TEST(WatchDeathTest, NeedsBusAndWatcher) {
  BusWatcher watcher{};
  EXPECT_DEATH(watch_bus_driver(nullptr, &watcher),
               "watch_bus_driver: assertion failed: \\(bus\\)");
  EXPECT_DEATH(watch_bus_driver(reinterpret_cast<sd_bus *>(0x1000), nullptr),
               "watch_bus_driver: assertion failed: \\(watcher\\)");
}

} // namespace
} // namespace varro2::test
