// Who sent malformed records is put down for all connections together.
#include "buscall.hpp"
#include "directbus.hpp"
#include "logcapture.hpp"
#include "untrusted.hpp"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace varro2::test {
namespace {

// Each of two threads has a connection of its own, and they have the list of senders in common.
TEST(MalformedRecords, ArePutDownToEachSenderOfAnyThread) {
  constexpr int senders = 500;
  const LogCapture log;
  const auto note_all = [](int thread) {
    const DirectBus bus;
    for (int sender = 0; sender < senders; ++sender) {
      const MessageRef message = new_call(bus.near(), switch_address, switch_control::debug);
      const std::string name = ":" + std::to_string(thread) + "." + std::to_string(sender);
      ASSERT_GE(sd_bus_message_set_sender(message.get(), name.c_str()), 0);
      note_malformed_record(message.get());
    }
  };
  std::thread other{note_all, 1};
  note_all(2);
  other.join();
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING).size(), 2u * senders);
  EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "Dropped a malformed record from :1.7"), 1u);
}

} // namespace
} // namespace varro2::test
