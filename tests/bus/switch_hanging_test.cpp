// Many clients hang at once, at the limits of a system bus.
#include "switch_fixture.hpp"

#include <csignal>

namespace varro2::test {
namespace {

constexpr std::uint32_t declarations = 10;

class SwitchHanging : public SwitchTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  SwitchHanging() : crowd_{{CROWD, std::to_string(GetParam()), "a"}} {
    EXPECT_TRUE(is_said("ready"));
    crowd_.signal(SIGSTOP);
  }
  ~SwitchHanging() override { crowd_.signal(SIGCONT); }

  bool is_said(const std::string &line) {
    return static_cast<bool>(
        iterate_until([&] { return crowd_.output().find(line + "\n") != std::string::npos; }));
  }

  ChildProcess crowd_;
};

// Iterating until a condition holds fails long before a call runs out of time.
TEST_P(SwitchHanging, CostsTheOthersNothing) {
  SwitchClient follower;
  follower.subscribe(1, expression("a"));
  SwitchClient producer;
  for (std::uint32_t id = 1; id <= declarations; ++id)
    EXPECT_EQ(producer.declare(declaration("a", id)).error_name, "");
  const std::size_t subscribers = GetParam() + 1;
  ASSERT_TRUE(producer.wait_for("DeclarationComplete", declarations));
  ASSERT_TRUE(follower.wait_for("Notification", declarations));
  // In order, and nothing twice.
  std::vector<std::string> wanted;
  for (std::uint32_t id = 1; id <= declarations; ++id) {
    wanted.emplace_back("GlobalDeclareId");
    wanted.insert(wanted.end(), subscribers, "Subscribe");
    wanted.emplace_back("DeclarationComplete");
  }
  EXPECT_EQ(producer.members(), wanted);

  // Who comes now is served as well.
  SwitchClient late_follower;
  late_follower.subscribe(1, expression("a"));
  ASSERT_TRUE(late_follower.wait_for("Notification", declarations));
  ASSERT_TRUE(producer.wait_for("Subscribe", declarations * (subscribers + 1)));
  SwitchClient late_producer;
  late_producer.declare(property("b", 1));
  ASSERT_TRUE(late_producer.wait_for("DeclarationComplete"));
  EXPECT_EQ(late_follower.count("Notification"), declarations);

  crowd_.signal(SIGCONT);
  EXPECT_TRUE(is_said("notified " + std::to_string(GetParam() * declarations)));
  const std::string log = event_switch_->process()->errors();
  EXPECT_EQ(log.find("dropped"), std::string::npos);
  EXPECT_EQ(log.find(" calls unanswered, ") != std::string::npos, GetParam() >= 14) << log;
  // Everything is as before: all calls ask for an answer again.
  producer.forget_calls();
  EXPECT_EQ(producer.declare(declaration("a", 99)).error_name, "");
  ASSERT_TRUE(producer.wait_for("DeclarationComplete"));
  for (const Call &call : producer.calls())
    EXPECT_TRUE(call.wants_answer) << call.member;
  EXPECT_TRUE(is_said("notified " + std::to_string(GetParam() * (declarations + 1))));
}

INSTANTIATE_TEST_SUITE_P(Numbers, SwitchHanging, ::testing::Values(1u, 14u, 20u, 120u, 220u),
                         [](const auto &number) { return std::to_string(number.param); });

} // namespace
} // namespace varro2::test
