// What the tool says about the values that are given for a type.
#include "tool.hpp"

#include <gtest/gtest.h>

namespace varro2::test {
namespace {

// The first line of the complaint. There is no bus: nothing may be sent.
std::string refusal(const std::vector<std::string> &values) {
  std::vector<std::string> command{VARRO2_HERE, "send", "machine-processor"};
  command.insert(command.end(), values.begin(), values.end());
  ChildProcess tool{command,
                    {{"VARRO2_TEST_TYPES", VARRO2_TYPES},
                     {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/bus"}}};
  tool.close_input();
  EXPECT_EQ(tool.wait(), 2);
  EXPECT_EQ(tool.output(), "");
  return tool.errors().substr(0, tool.errors().find('\n'));
}

TEST(SendOfAType, NeedsAValueForEachOpenKey) {
  EXPECT_EQ(refusal({"number=1"}),
            "varro2: the type machine-processor needs a value for: load_percent (double)");
  EXPECT_EQ(refusal({}), "varro2: the type machine-processor needs a value for: "
                         "load_percent (double), number (int)");
}

TEST(SendOfAType, TakesEachValueOnce) {
  EXPECT_EQ(refusal({"number=1", "load_percent=2.5", "number=2"}),
            "varro2: 'number' is given twice");
}

TEST(SendOfAType, LeavesWhatTheTypeFixes) {
  EXPECT_EQ(refusal({"number=1", "load_percent=2.5", "topic0=Other"}),
            "varro2: the type machine-processor fixes topic0 to 'Monitoring'");
}

TEST(SendOfAType, TakesOnlyWhatTheTypeKnows) {
  EXPECT_EQ(refusal({"nmber=1", "load_percent=2.5"}),
            "varro2: the type machine-processor has no key 'nmber'; it leaves open: "
            "load_percent (double), number (int)");
  EXPECT_EQ(refusal({"number", "load_percent=2.5"}), "varro2: 'number': write KEY=VALUE");
}

} // namespace
} // namespace varro2::test
