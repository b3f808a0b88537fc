// The connection and its source as a program gets them that makes its own.
#include "foreignpeer.hpp"
#include "mainloop.hpp"
#include "privatebus.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace varro2::test {
namespace {

// What stands behind the GSource.
struct Behind {
  GPollFD poll;
  sd_event *loop;
};

class ConnectionTest : public ::testing::Test {
 protected:
  ConnectionTest() {
    EXPECT_GE(connect_to_bus_and_attach_events(&source_, &bus_, &error_), 0);
    EXPECT_EQ(error_, nullptr);
    g_source_ref(source_);
  }
  ~ConnectionTest() override {
    disconnect_from_bus_and_detach_events(source_, bus_);
    g_source_unref(source_);
  }

  const Behind &behind() const { return *reinterpret_cast<const Behind *>(source_ + 1); }
  sd_event *loop() const { return sd_bus_get_event(bus_); }

  PrivateBus daemon_;
  GSource *source_ = nullptr;
  sd_bus *bus_ = nullptr;
  GError *error_ = nullptr;
};

TEST_F(ConnectionTest, HasASourceForItsLoop) {
  EXPECT_EQ(behind().loop, loop());
  EXPECT_EQ(behind().poll.fd, sd_event_get_fd(loop()));
  EXPECT_EQ(behind().poll.events, 25);
  EXPECT_EQ(g_source_get_context(source_), g_main_context_default());
  EXPECT_EQ(g_source_get_priority(source_), G_PRIORITY_DEFAULT);
  EXPECT_EQ(g_source_get_ready_time(source_), -1);
  const GSourceFuncs &functions = *source_->source_funcs;
  EXPECT_NE(functions.prepare, nullptr);
  EXPECT_NE(functions.check, nullptr);
  EXPECT_NE(functions.dispatch, nullptr);
  EXPECT_NE(functions.finalize, nullptr);
  EXPECT_EQ(functions.closure_callback, nullptr);
  EXPECT_EQ(functions.closure_marshal, nullptr);
  sd_event *of_thread = nullptr;
  ASSERT_GE(sd_event_default(&of_thread), 0);
  EXPECT_NE(of_thread, loop());
  sd_event_unref(of_thread);
}

TEST_F(ConnectionTest, LeavesTheTimeToWaitAlone) {
  gint timeout = 1234;
  source_->source_funcs->prepare(source_, &timeout);
  EXPECT_EQ(timeout, 1234);
}

TEST_F(ConnectionTest, IsDrivenByTheSourcesSteps) {
  ForeignPeer peer;
  const char *name = nullptr;
  ASSERT_GE(sd_bus_get_unique_name(bus_, &name), 0);
  const GSourceFuncs &functions = *source_->source_funcs;
  gint timeout = -1;
  // Until nothing is left of getting connected.
  while (functions.prepare(source_, &timeout) || functions.check(source_))
    ASSERT_TRUE(functions.dispatch(source_, nullptr, nullptr));
  ASSERT_FALSE(functions.prepare(source_, &timeout));
  peer.post(name, "/", "org.freedesktop.DBus.Peer", "Ping");
  GPollFD waiting = behind().poll;
  ASSERT_EQ(g_poll(&waiting, 1, 60'000), 1);
  EXPECT_TRUE(functions.check(source_));
  EXPECT_TRUE(functions.dispatch(source_, nullptr, nullptr));
}

TEST_F(ConnectionTest, LosesItsSourceWhenItsLoopIsToldToExit) {
  ASSERT_GE(sd_event_exit(loop(), 0), 0);
  ASSERT_TRUE(iterate_until([this] { return g_source_is_destroyed(source_) != FALSE; }));
  EXPECT_EQ(sd_event_get_state(behind().loop), SD_EVENT_FINISHED);
}

TEST_F(ConnectionTest, LosesItsSourceWhenAHandlerTellsItsLoopToExit) {
  ForeignPeer peer;
  const char *name = nullptr;
  ASSERT_GE(sd_bus_get_unique_name(bus_, &name), 0);
  const auto leave = [](sd_bus_message *m, void *, sd_bus_error *) {
    return sd_event_exit(sd_bus_get_event(sd_bus_message_get_bus(m)), 0);
  };
  ASSERT_GE(sd_bus_add_object(bus_, nullptr, "/exit", leave, nullptr), 0);
  peer.post(name, "/exit", "com.example.Exit", "Now");
  EXPECT_TRUE(iterate_until([this] { return g_source_is_destroyed(source_) != FALSE; }));
}

TEST_F(ConnectionTest, HasNothingToDispatchForALoopThatHasEnded) {
  ASSERT_GE(sd_event_exit(loop(), 0), 0);
  ASSERT_GE(sd_event_loop(loop()), 0);
  ASSERT_EQ(sd_event_get_state(behind().loop), SD_EVENT_FINISHED);
  const GSourceFuncs &functions = *source_->source_funcs;
  gint timeout = -1;
  EXPECT_FALSE(functions.prepare(source_, &timeout));
  EXPECT_FALSE(functions.check(source_));
  EXPECT_FALSE(functions.dispatch(source_, nullptr, nullptr));
}

TEST(ConnectionFailure, IsReportedAndLeavesNothing) {
  { const PrivateBus gone; }
  GSource *source = nullptr;
  sd_bus *bus = nullptr;
  GError *error = nullptr;
  const gint32 status = connect_to_bus_and_attach_events(&source, &bus, &error);
  g_unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  EXPECT_LT(status, 0);
  EXPECT_EQ(source, nullptr);
  EXPECT_EQ(bus, nullptr);
  ASSERT_NE(error, nullptr);
  EXPECT_TRUE(g_error_matches(error, g_quark_from_string("libvarro2"), status));
  EXPECT_STREQ(error->message, "Failed to connect to bus");
  g_error_free(error);
}

} // namespace
} // namespace varro2::test
