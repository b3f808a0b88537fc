// Who is told when the switch comes and goes.
#include "directbus.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <memory>

namespace varro2::test {
namespace {

class BusWatching : public ::testing::Test {
 protected:
  BusWatching() { event_utils_set_untrusted_peers(TRUE); }
  ~BusWatching() override { event_utils_set_untrusted_peers(FALSE); }
};

// A connection and its watcher. They are of no use after a fork: who is to die makes its own there.
struct Watched {
  Watched() {
    *watcher = {.online = on_online, .offline = on_offline, .user_data = this};
    EXPECT_GE(watch_bus_driver(bus.near(), watcher.get()), 0);
  }

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

  static void on_online(gpointer self) { static_cast<Watched *>(self)->told += "online "; }
  static void on_offline(gpointer user_data) {
    auto &self = *static_cast<Watched *>(user_data);
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
  Watched watched;
  watched.owner_changes("", ":1.1");
  watched.owner_changes(":1.1", ":1.2");
  watched.owner_changes(":1.2", "");
  EXPECT_EQ(watched.told, "online offline online offline ");
}

TEST_F(BusWatching, AmongTrustedPeersThereIsNoHandOver) {
  event_utils_set_untrusted_peers(FALSE);
  EXPECT_DEATH(Watched{}.owner_changes(":1.1", ":1.2"),
               "driver_name_owner_changed: code should not be");
  EXPECT_DEATH(Watched{}.owner_changes("", ""), "driver_name_owner_changed: code should not be");
  Watched watched;
  watched.owner_changes("", ":1.1");
  watched.owner_changes(":1.1", "");
  EXPECT_EQ(watched.told, "online offline ");
}

TEST_F(BusWatching, WhoWantsNotToBeToldIsNot) {
  Watched watched;
  watched.watcher->online = nullptr;
  watched.owner_changes("", ":1.1");
  watched.owner_changes(":1.1", "");
  watched.watcher->online = Watched::on_online;
  watched.watcher->offline = nullptr;
  watched.owner_changes("", ":1.1");
  watched.owner_changes(":1.1", "");
  EXPECT_EQ(watched.told, "offline online ");
}

TEST_F(BusWatching, WhoGoesInAHandOverIsNotToldOfItsOtherHalf) {
  Watched watched;
  watched.ends_when_offline = true;
  watched.owner_changes(":1.1", ":1.2");
  EXPECT_EQ(watched.told, "offline ");
}

} // namespace
} // namespace varro2::test
