// A process, ours or the switch's, that has no file descriptor left.
#include "parties.hpp"
#include "plannedswitch.hpp"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <set>

namespace varro2::test {
namespace {

// Leaves so many descriptors to the test's process while it lives.
class FewDescriptors {
 public:
  explicit FewDescriptors(std::size_t left) {
    getrlimit(RLIMIT_NOFILE, &before_);
    const rlimit low{.rlim_cur = 256, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &low);
    for (int taken = 0; (taken = open("/dev/null", O_RDONLY | O_CLOEXEC)) >= 0;)
      taken_.push_back(taken);
    for (; left > 0 && !taken_.empty(); --left) {
      close(taken_.back());
      taken_.pop_back();
    }
  }
  ~FewDescriptors() {
    for (const int taken : taken_)
      close(taken);
    setrlimit(RLIMIT_NOFILE, &before_);
  }
  FewDescriptors(const FewDescriptors &) = delete;
  FewDescriptors &operator=(const FewDescriptors &) = delete;

 private:
  rlimit before_{};
  std::vector<int> taken_;
};

class OwnDescriptors : public ::testing::Test {
 protected:
  OwnDescriptors() { iterate_pending(); } // the main context keeps a descriptor of its own

  // Gives a party one descriptor more each time, until it has what it needs. What was closed a
  // moment ago by something else may be one too many: then once more.
  template <typename Party>
  void expect_failures_on_the_way() {
    std::set<std::string> failures;
    { Party first{bus_.address()}; } // a sanitizer needs descriptors to get to know its objects
    for (int round = 0; round < 20 && failures.size() < 2; ++round)
      for (std::size_t left = 0; try_with<Party>(left, failures); ++left)
        ASSERT_LT(left, 16U) << "never connects";
    EXPECT_TRUE(failures.contains("Failed to connect to bus"));
    EXPECT_TRUE(failures.contains("Failed to get the default sd_event"));
    EXPECT_EQ(log_.texts(), std::vector<std::string>{});
  }

  LogCapture log_;
  PrivateBus bus_;

 private:
  // Whether it failed.
  template <typename Party>
  bool try_with(std::size_t left, std::set<std::string> &failures) {
    std::unique_ptr<Party> party;
    {
      const FewDescriptors few{left};
      party = std::make_unique<Party>(bus_.address());
    }
    if (!party->connected())
      failures.insert(party->setup_error());
    return !party->connected();
  }
};

class SwitchDescriptors : public PlannedSwitch {};

TEST_F(OwnDescriptors, ProducerSaysWhatItCouldNotDoAndCanBeFreed) {
  expect_failures_on_the_way<Sender>();
}

TEST_F(OwnDescriptors, ConsumerSaysWhatItCouldNotDoAndCanBeFreed) {
  expect_failures_on_the_way<Receiver>();
}

TEST_F(SwitchDescriptors, WithoutAnyItServesOnAndSaysWhatItCouldNotDo) {
  const pid_t pid = switch_.process()->pid();
  rlimit former{};
  ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, nullptr, &former), 0);
  const rlimit none{.rlim_cur = 3, .rlim_max = former.rlim_max}; // which it has
  ASSERT_EQ(prlimit(pid, RLIMIT_NOFILE, &none, nullptr), 0);
  const Answer answer = caller_.call("com.quor.Event.Switch", "/com/quor/Event/Switch",
                                     "com.quor.Event.Switch.Producer", "RemoveDeclaration",
                                     g_variant_new("(s)", "Whatever"));
  EXPECT_NE(answer.error_name, "");
  Receiver receiver{bus_.address()};
  Sender sender{bus_.address()};
  ASSERT_TRUE(iterate_until([&] { return sender.has_both_subscribers(); }));
  ASSERT_TRUE(sender.greet(1));
  ASSERT_TRUE(iterate_until([&] { return receiver.greetings().size() == 1; }));
  prlimit(pid, RLIMIT_NOFILE, &former, nullptr); // to end, a sanitizer opens files
}

// The loader needs one itself and says so in its own way; whoever started the test may have left
// some open. With one more than that the switch begins, and cannot have what it needs.
TEST_F(SwitchDescriptors, WithTooFewToStartItSaysWhy) {
  for (int limit = 4; limit < 64; ++limit) {
    ChildProcess start{{"sh", "-c", "ulimit -n $0; exec " VARRO2_SWITCHD, std::to_string(limit)}};
    const int status = start.wait();
    if (status == 127)
      continue;
    EXPECT_EQ(status, 1) << limit;
    EXPECT_NE(start.errors().find("Too many open files"), std::string::npos)
        << limit << ": " << start.errors();
    return;
  }
  FAIL() << "never begins";
}

} // namespace
} // namespace varro2::test
