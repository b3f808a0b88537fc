// Who is found to be alive.
#include "privatebus.hpp"
#include "scout.hpp"

#include <gtest/gtest.h>

#include <glib.h>

namespace varro2::switchd {
namespace {

using Names = std::vector<std::string>;

class ScoutTest : public ::testing::Test {
 protected:
  ScoutTest() {
    EXPECT_GE(sd_event_new(loop_.out()), 0);
    for (Bus *bus : {&own_, &client_}) {
      EXPECT_GE(sd_bus_open_system(bus->out()), 0);
      EXPECT_GE(sd_bus_attach_event(bus->get(), loop_.get(), 0), 0);
    }
  }
  ~ScoutTest() override {
    sd_bus_detach_event(own_.get());
    sd_bus_detach_event(client_.get());
  }

  std::string client_name() const {
    const char *name = nullptr;
    sd_bus_get_unique_name(client_.get(), &name);
    return name;
  }
  template <typename Condition>
  bool run_until(Condition condition) {
    const gint64 end = g_get_monotonic_time() + 60 * gint64{G_USEC_PER_SEC};
    while (!condition() && g_get_monotonic_time() < end)
      sd_event_run(loop_.get(), 1'000'000);
    return condition();
  }

  test::PrivateBus bus_;
  EventLoop loop_;
  Bus own_;
  Bus client_; // its library answers a ping
  Names alive_;
};

TEST_F(ScoutTest, IsNotDeceivedByWhatTheBusAnswersInAClientsPlace) {
  const auto always = [](const std::string &) { return true; };
  const auto note = [this](const std::string &client) { alive_.push_back(client); };
  Scout scout{loop_.get(), own_.get(), always, note};
  scout.ask(":1.4000000"); // the bus answers for it, and before the other one does
  scout.ask(client_name());
  EXPECT_TRUE(run_until([this] { return !alive_.empty(); }));
  EXPECT_EQ(alive_, Names{client_name()});
}

TEST_F(ScoutTest, PausesLongerAndLongerBetweenPings) {
  std::vector<gint64> pings; // when they came
  const auto leave_unanswered = [](sd_bus_message *message, void *times, sd_bus_error *) {
    if (sd_bus_message_is_method_call(message, nullptr, "Ping") > 0) {
      static_cast<std::vector<gint64> *>(times)->push_back(g_get_monotonic_time());
      return 1;
    }
    return 0;
  };
  ASSERT_GE(sd_bus_add_filter(client_.get(), nullptr, leave_unanswered, &pings), 0);
  Scout scout{loop_.get(), own_.get(), [](const std::string &) { return true; },
              [this](const std::string &client) { alive_.push_back(client); }};
  const gint64 begin = g_get_monotonic_time();
  scout.ask(client_name());
  ASSERT_TRUE(run_until([&] { return pings.size() >= 3; }));
  EXPECT_GE(pings[1] - begin, 1 * G_USEC_PER_SEC);
  EXPECT_GE(pings[2] - begin, 3 * G_USEC_PER_SEC);
  EXPECT_EQ(alive_, Names{});
}

} // namespace
} // namespace varro2::switchd
