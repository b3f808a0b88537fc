// Who is told when the switch comes and goes.
#include "directbus.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <memory>

namespace varro2::test {
namespace {

class BusWatching : public ::testing::Test {
 protected:
  BusWatching() {
    event_utils_set_untrusted_peers(TRUE);
    *watcher = {.online = on_online, .offline = on_offline, .user_data = this};
    EXPECT_GE(watch_bus_driver(bus.near(), watcher.get()), 0);
  }
  ~BusWatching() override { event_utils_set_untrusted_peers(FALSE); }

  void owner_changes(const char *from, const char *to) {
    MessageRef signal;
    ASSERT_GE(sd_bus_message_new_signal(bus.far(), signal.out(), "/org/freedesktop/DBus",
                                        "org.freedesktop.DBus", "NameOwnerChanged"),
              0);
    ASSERT_GE(sd_bus_message_set_sender(signal.get(), "org.freedesktop.DBus"), 0);
    ASSERT_GE(sd_bus_message_append(signal.get(), "sss", "com.quor.Event.Switch", from, to), 0);
    ASSERT_GE(sd_bus_send(bus.far(), signal.get(), nullptr), 0);
    while (sd_bus_process(bus.far(), nullptr) > 0) {
    }
    while (sd_bus_process(bus.near(), nullptr) > 0) {
    }
  }

  static void on_online(gpointer self) { static_cast<BusWatching *>(self)->told += "online "; }
  static void on_offline(gpointer user_data) {
    auto &self = *static_cast<BusWatching *>(user_data);
    self.told += "offline ";
    if (self.ends_when_offline) {
      sd_bus_close(self.bus.near());
      self.watcher.reset();
    }
  }

  DirectBus bus;
  std::unique_ptr<BusWatcher> watcher = std::make_unique<BusWatcher>();
  bool ends_when_offline = false;
  std::string told;
};

TEST_F(BusWatching, AHandOverIsALeaveAndAReturn) {
  owner_changes("", ":1.1");
  owner_changes(":1.1", ":1.2");
  owner_changes(":1.2", "");
  EXPECT_EQ(told, "online offline online offline ");
}

TEST_F(BusWatching, AmongTrustedPeersThereIsNoHandOver) {
  GTEST_FLAG_SET(death_test_style, "threadsafe"); // a connection is of no use after a fork
  event_utils_set_untrusted_peers(FALSE);
  EXPECT_DEATH(owner_changes(":1.1", ":1.2"), "driver_name_owner_changed: code should not be");
  EXPECT_DEATH(owner_changes("", ""), "driver_name_owner_changed: code should not be");
  owner_changes("", ":1.1");
  owner_changes(":1.1", "");
  EXPECT_EQ(told, "online offline ");
}

TEST_F(BusWatching, WhoWantsNotToBeToldIsNot) {
  watcher->online = nullptr;
  owner_changes("", ":1.1");
  owner_changes(":1.1", "");
  watcher->online = on_online;
  watcher->offline = nullptr;
  owner_changes("", ":1.1");
  owner_changes(":1.1", "");
  EXPECT_EQ(told, "offline online ");
}

TEST_F(BusWatching, WhoGoesInAHandOverIsNotToldOfItsOtherHalf) {
  ends_when_offline = true;
  owner_changes(":1.1", ":1.2");
  EXPECT_EQ(told, "offline ");
}

} // namespace
} // namespace varro2::test
