// One life of a producer and a consumer under a real switch, with one fault at one message; again
// for every message that any of the three sends or receives.
#include "busproxy.hpp"
#include "parties.hpp"
#include "switchprocess.hpp"

#include <csignal>

namespace varro2::test {
namespace {

using Fate = BusProxy::Fate;

enum class Party { event_switch, producer, consumer };

struct Fault {
  const char *name;
  Party victim;
  Fate fate;
  std::string error{};
};

void PrintTo(const Fault &fault, std::ostream *out) {
  *out << fault.name;
}

class Steps : public ::testing::TestWithParam<Fault> {
 protected:
  Steps() { start_switch(bus_.address()); }

  BusProxy &proxy_of(Party party) {
    return party == Party::event_switch ? switch_proxy_
           : party == Party::producer   ? producer_proxy_
                                        : consumer_proxy_;
  }

  void start_switch(const std::string &address) {
    setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
    switch_.launch();
    EXPECT_TRUE(iterate_until([this] { return switch_.owned() || !switch_.process()->running(); }));
  }

  void arm(int step) {
    fired_ = mended_ = false;
    const Fault &fault = GetParam();
    proxy_of(fault.victim).judge([this, step, &fault](const BusProxy::Passing &passing) {
      if (passing.number != step)
        return BusProxy::Verdict{};
      const char *member = g_dbus_message_get_member(passing.message);
      at_ = member ? member : "an answer";
      fired_ = true;
      return BusProxy::Verdict{fault.fate, fault.error};
    });
    if (fault.victim != Party::event_switch)
      return;
    switch_.end(SIGTERM);
    start_switch(switch_proxy_.address());
  }

  // Puts a new party in the place of one that the fault took. What was refused is asked for again
  // when a switch comes: so a new one does.
  void mend() {
    if (!fired_ || mended_)
      return;
    mended_ = true;
    const Fault &fault = GetParam();
    if (fault.fate == Fate::delay)
      return;
    if (fault.victim == Party::producer && (fault.fate == Fate::cut || !sender_->connected()))
      sender_ = std::make_unique<Sender>(bus_.address());
    else if (fault.victim == Party::consumer &&
             (fault.fate == Fate::cut || !receiver_->connected()))
      receiver_ = std::make_unique<Receiver>(bus_.address());
    else
      renew_switch();
  }

  void renew_switch() {
    switch_.end(GetParam().fate == Fate::cut ? SIGKILL : SIGTERM);
    start_switch(bus_.address());
  }

  ::testing::AssertionResult await(const std::function<bool()> &condition) {
    return iterate_until([&] {
      mend();
      return condition();
    });
  }

  void live_one_life();
  void deliver();
  bool is_all_over();
  std::vector<std::string> unexpected_lines() const;
  std::string report(int step) const { return "message " + std::to_string(step) + ", " + at_; }

  // Of the proxies' threads, which end before these go.
  std::atomic<bool> fired_{false};
  std::string at_;

  LogCapture log_;
  PrivateBus bus_;
  BusProxy switch_proxy_{bus_.folder() + "/switch", bus_.address()};
  BusProxy producer_proxy_{bus_.folder() + "/producer", bus_.address()};
  BusProxy consumer_proxy_{bus_.folder() + "/consumer", bus_.address()};
  SwitchProcess switch_{VARRO2_SWITCHD};
  ForeignPeer observer_{bus_.address()};

  bool mended_ = false;
  std::size_t descriptors_ = 10'000; // of this process, when nobody lives
  std::unique_ptr<Sender> sender_;
  std::unique_ptr<Receiver> receiver_;
};

// What is sent to a subscriber that both sides know of arrives, once and in order. Who has come in
// the place of another is not known to the sender yet, and what is refused is lost: after such a
// fault it sends again until something arrives.
void Steps::deliver() {
  gint32 count = 0;
  ASSERT_TRUE(await([&] { return sender_->has_both_subscribers(); }));
  const auto send = [&] {
    sender_->open_door();
    sender_->greet(++count);
  };
  send();
  ASSERT_TRUE(await([&] {
    if (mended_ && GetParam().fate != Fate::delay)
      send();
    return receiver_->saw_open_door() && !receiver_->greetings().empty();
  }));
  EXPECT_TRUE(std::is_sorted(receiver_->greetings().begin(), receiver_->greetings().end(),
                             std::less_equal{}));
}

void Steps::live_one_life() {
  receiver_ = std::make_unique<Receiver>(consumer_proxy_.address());
  sender_ = std::make_unique<Sender>(producer_proxy_.address());
  ASSERT_NO_FATAL_FAILURE(deliver());
  ASSERT_TRUE(await([&] {
    receiver_->unsubscribe();
    return sender_->has_no_subscribers();
  }));
  ASSERT_TRUE(await([&] { return is_all_over(); }));
}

// Whether nothing of this life is left: no handle, nothing at the switch, no descriptor. Ends what
// is there, also what has come in the place of another only now.
bool Steps::is_all_over() {
  sender_->withdraw();
  sender_->end();
  receiver_->end();
  if (!sender_->ended() || !receiver_->ended())
    return false;
  const Answer all = observer_.call("com.quor.Event.Switch", "/com/quor/Event/Switch",
                                    "com.quor.Event.Switch.Query", "GetAllDeclarations");
  return all.signature == "ay" &&
         to_bytes(own(g_variant_get_child_value(all.arguments.get(), 0)).get()) ==
             Bytes{0, 0, 0, 0} &&
         open_descriptors() <= descriptors_;
}

// A party that has lost its connection says which calls it could not make any more.
std::vector<std::string> Steps::unexpected_lines() const {
  auto lines = log_.texts();
  if (GetParam().fate == Fate::cut && GetParam().victim != Party::event_switch)
    std::erase_if(lines, [](const std::string &line) {
      return line.starts_with("Failed to call com.quor.Event.") &&
             (line.ends_with(": -104") || line.ends_with(": -107")); // reset, not connected
    });
  return lines;
}

TEST_P(Steps, EveryMessageMayBeTheOneThatGoesWrong) {
  ASSERT_NO_FATAL_FAILURE(live_one_life()); // fills what the process keeps
  // The proxy holds both ends of the connection that goes through it.
  descriptors_ = open_descriptors() + (GetParam().victim == Party::event_switch ? 2 : 0);
  int step = 0;
  do {
    arm(++step);
    SCOPED_TRACE(step);
    ASSERT_NO_FATAL_FAILURE(live_one_life()) << report(step);
    ASSERT_EQ(unexpected_lines(), std::vector<std::string>{}) << report(step);
  } while (fired_);
  EXPECT_GT(step, 10) << "few messages pass the proxy";
}

constexpr const char *limits = "org.freedesktop.DBus.Error.LimitsExceeded";
constexpr const char *no_reply = "org.freedesktop.DBus.Error.NoReply";
constexpr const char *denied = "org.freedesktop.DBus.Error.AccessDenied";

INSTANTIATE_TEST_SUITE_P(
    Of, Steps,
    ::testing::Values(Fault{"SwitchKilled", Party::event_switch, Fate::cut},
                      Fault{"SwitchDelayed", Party::event_switch, Fate::delay},
                      Fault{"SwitchOverLimits", Party::event_switch, Fate::refuse, limits},
                      Fault{"SwitchUnanswered", Party::event_switch, Fate::refuse, no_reply},
                      Fault{"SwitchDenied", Party::event_switch, Fate::refuse, denied},
                      Fault{"ProducerCutOff", Party::producer, Fate::cut},
                      Fault{"ProducerDelayed", Party::producer, Fate::delay},
                      Fault{"ProducerOverLimits", Party::producer, Fate::refuse, limits},
                      Fault{"ProducerUnanswered", Party::producer, Fate::refuse, no_reply},
                      Fault{"ProducerDenied", Party::producer, Fate::refuse, denied},
                      Fault{"ConsumerCutOff", Party::consumer, Fate::cut},
                      Fault{"ConsumerDelayed", Party::consumer, Fate::delay},
                      Fault{"ConsumerOverLimits", Party::consumer, Fate::refuse, limits},
                      Fault{"ConsumerUnanswered", Party::consumer, Fate::refuse, no_reply},
                      Fault{"ConsumerDenied", Party::consumer, Fate::refuse, denied}),
    [](const auto &named) { return std::string{named.param.name}; });

} // namespace
} // namespace varro2::test
