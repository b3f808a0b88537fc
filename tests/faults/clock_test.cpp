// A wall clock that is set while everything runs, as on a device that learns the time late.
#include "parties.hpp"
#include "plannedswitch.hpp"

namespace varro2::test {
namespace {

constexpr std::int64_t year = 365 * 24 * 3600;

class ClockJumps : public PlannedSwitch {};

TEST_F(ClockJumps, NothingIsLostOrHeldUp) {
  Receiver receiver{bus_.address()};
  Sender sender{bus_.address()};
  ASSERT_TRUE(iterate_until([&] { return sender.has_both_subscribers(); }));
  gint32 count = 0;
  for (const std::int64_t offset : {std::int64_t{0}, 50 * year, -20 * year, 100 * year}) {
    plan_->clock_offset = offset;
    ASSERT_TRUE(sender.greet(++count));
    ASSERT_TRUE(iterate_until([&] { return std::ssize(receiver.greetings()) == count; }));
    EXPECT_EQ(receiver.greetings().back(), count);
    // The switch introduces newcomers as before.
    Receiver newcomer{bus_.address()};
    ASSERT_TRUE(iterate_until([&] {
      sender.greet(++count);
      return !newcomer.greetings().empty();
    }));
    ASSERT_TRUE(iterate_until([&] { return std::ssize(receiver.greetings()) == count; }));
  }
}

} // namespace
} // namespace varro2::test
