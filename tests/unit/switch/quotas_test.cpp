// What one user may hold, and what all of them together.
#include "quotas.hpp"

#include "buscall.hpp"

#include "logcapture.hpp"
#include "privatebus.hpp"

#include <gtest/gtest.h>

namespace varro2::switchd {
namespace {

class QuotasOfUsers : public ::testing::Test {
 protected:
  QuotasOfUsers() {
    sd_bus_open_system(own_.out());
    sd_bus_message_new_method_call(own_.get(), call_.out(), "com.quor.Event.Switch", "/", nullptr,
                                   "Declare");
    sd_bus_message_set_sender(call_.get(), ":1.7");
  }

  bool admits(uid_t user, const Holding &amount, const Holding &former = {}) {
    return quotas_.admits(call_.get(), {user, amount}, former);
  }

  test::LogCapture log_;
  test::PrivateBus bus_;
  BusRef own_;
  MessageRef call_;
  Quotas quotas_{{.declarations = 2, .subscriptions = 1, .bytes = 100, .calls = 1, .names = 1}};
};

// All together stay below twice what one may have.
TEST_F(QuotasOfUsers, OfBytesHalfOfWhatTheOthersHaveIsMissing) {
  EXPECT_TRUE(admits(1, {.bytes = 100}));
  EXPECT_FALSE(admits(1, {.bytes = 101}));
  quotas_.take({1, {.bytes = 100}});
  EXPECT_TRUE(admits(2, {.bytes = 50}));
  EXPECT_FALSE(admits(2, {.bytes = 51}));
  quotas_.take({2, {.bytes = 50}});
  EXPECT_TRUE(admits(3, {.bytes = 25}));
  EXPECT_FALSE(admits(3, {.bytes = 26}));
  quotas_.give_back({1, {.bytes = 100}});
  EXPECT_TRUE(admits(3, {.bytes = 75}));
}

TEST_F(QuotasOfUsers, OtherThingsAreForEachUserAlone) {
  quotas_.take({1, {.declarations = 2}});
  EXPECT_FALSE(admits(1, {.declarations = 1}));
  EXPECT_TRUE(admits(1, {.subscriptions = 1}));
  EXPECT_TRUE(admits(1, {.declarations = 1}, {.declarations = 1})); // in the place of another
  EXPECT_TRUE(admits(2, {.declarations = 2}));
}

} // namespace
} // namespace varro2::switchd
