// The switch under a service manager.
#include "switch_fixture.hpp"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

namespace varro2::test {
namespace {

// The service manager's end of the notifications.
class ServiceManager {
 public:
  explicit ServiceManager(const std::string &path)
      : socket_{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)} {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    setenv("WATCHDOG_USEC", "200000", 1);
  }
  ~ServiceManager() {
    unsetenv("NOTIFY_SOCKET");
    unsetenv("WATCHDOG_USEC");
    close(socket_);
  }
  ServiceManager(const ServiceManager &) = delete;
  ServiceManager &operator=(const ServiceManager &) = delete;

  // Reads until a message has the line.
  bool is_told(const std::string &line) {
    for (pollfd ready{socket_, POLLIN, 0}; poll(&ready, 1, 20'000) == 1;) {
      char buffer[4096];
      const ssize_t size = recv(socket_, buffer, sizeof buffer, 0);
      if (size > 0 && ("\n" + std::string{buffer, static_cast<std::size_t>(size)} + "\n")
                              .find("\n" + line + "\n") != std::string::npos)
        return true;
    }
    return false;
  }

 private:
  int socket_;
};

TEST(SwitchService, TellsTheServiceManagerHowItIs) {
  const PrivateBus bus;
  ServiceManager manager{bus.folder() + "/notify"};
  SwitchProcess event_switch{VARRO2_SWITCHD};
  event_switch.start();
  EXPECT_TRUE(manager.is_told("READY=1"));
  EXPECT_TRUE(manager.is_told("WATCHDOG=1"));
  {
    SwitchClient client;
    client.declare(declaration("a", 1));
    client.declare(declaration("b", 2));
    client.subscribe(1, expression("a"));
    EXPECT_TRUE(
        manager.is_told("STATUS=Serving 2 declarations of 1 producers, and 1 subscriptions"));
  }
  EXPECT_TRUE(manager.is_told("STATUS=Serving 0 declarations of 0 producers, and 0 subscriptions"));
  EXPECT_TRUE(manager.is_told("WATCHDOG=1"));
  event_switch.signal(SIGTERM);
  EXPECT_TRUE(manager.is_told("STOPPING=1"));
  EXPECT_EQ(event_switch.process()->wait(), 0);
}

TEST(SwitchArguments, WhatMakesNoSenseIsRefused) {
  const std::string limit = "varro2-switchd: a limit is 0 or more\n";
  const std::pair<std::string, std::string> mistakes[] = {
      {"nonsense", "varro2-switchd: 'nonsense' is not understood\n"},
      {"--property-state-timeout=0", "varro2-switchd: --property-state-timeout is from 1 to 55\n"},
      {"--property-state-timeout=56", "varro2-switchd: --property-state-timeout is from 1 to 55\n"},
      {"--max-declarations=-1", limit},
      {"--max-subscriptions=-1", limit},
      {"--max-bytes=-1", limit},
      {"--max-calls=-1", limit},
      {"--max-names=-1", limit}};
  for (const auto &[argument, told] : mistakes) {
    ChildProcess event_switch{{VARRO2_SWITCHD, argument}};
    EXPECT_EQ(event_switch.wait(), 1) << argument;
    EXPECT_EQ(event_switch.errors(), told);
    EXPECT_EQ(event_switch.output(), "");
  }
}

TEST_F(SwitchTest, ABusThatGoesIsAFailure) {
  bus_.stop();
  EXPECT_EQ(event_switch_->process()->wait(), 1);
  EXPECT_NE(event_switch_->process()->errors().find("The connection to the message bus ended"),
            std::string::npos)
      << event_switch_->process()->errors();
}

TEST_F(SwitchTest, ReadsTheTypesAgainAtAHangup) {
  std::filesystem::create_directories(own_types());
  event_switch_->signal(SIGHUP);
  ASSERT_TRUE(iterate_until([this] {
    return event_switch_->process()->errors().find("0 declaration types can be used") !=
           std::string::npos;
  }));
}

} // namespace
} // namespace varro2::test
