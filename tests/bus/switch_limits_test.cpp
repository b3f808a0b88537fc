// What one user may hold in the switch, and what is said when it is too much.
#include "switch_fixture.hpp"

#include <unistd.h>

namespace varro2::test {
namespace {

constexpr const char *limits_exceeded = "org.freedesktop.DBus.Error.LimitsExceeded";

std::size_t count_in(const std::string &text, const std::string &part) {
  std::size_t count = 0;
  for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
    ++count;
  return count;
}

class SwitchLimits : public SwitchTest {
 protected:
  SwitchLimits()
      : SwitchTest{{"--max-declarations=3", "--max-subscriptions=2", "--max-bytes=2000",
                    "--max-calls=1"}} {}

  // What the switch has logged once it has nothing more to do for the client.
  std::string log_after(SwitchClient &client) {
    client.settle();
    return event_switch_->process()->errors();
  }
  std::string complaint(const char *what, const SwitchClient &client) const {
    return "The user " + std::to_string(geteuid()) + " holds all the " + what +
           client.unique_name();
  }
};

TEST_F(SwitchLimits, DeclarationsAreCountedForAllConnectionsOfAUser) {
  SwitchClient first;
  SwitchClient second;
  EXPECT_EQ(first.declare(declaration("a", 1)).error_name, "");
  EXPECT_EQ(first.declare(declaration("b", 2)).error_name, "");
  EXPECT_EQ(second.declare(declaration("c", 1)).error_name, "");
  for (std::uint32_t id = 2; id < 10; ++id)
    EXPECT_EQ(second.declare(declaration("d", id)).error_name, limits_exceeded);
  EXPECT_EQ(count_in(log_after(second),
                     complaint("declarations allowed (3): refused Declare of ", second)),
            1u);

  // The same declaration once more takes no more room, nor does another in its place; one that has
  // gone leaves its own.
  EXPECT_EQ(second.declare(declaration("c", 1)).error_name, "");
  EXPECT_EQ(second.declare(declaration("e", 1)).error_name, "");
  ASSERT_TRUE(first.wait_for("DeclarationComplete", 2));
  EXPECT_EQ(first.undeclare(first.calls("GlobalDeclareId")[0].number(1)).error_name, "");
  EXPECT_EQ(second.declare(declaration("d", 2)).error_name, "");
}

TEST_F(SwitchLimits, WhoLeavesGivesEverythingBack) {
  for (int round = 0; round < 5; ++round) {
    SwitchClient client;
    for (std::uint32_t id = 1; id <= 3; ++id)
      EXPECT_EQ(client.declare(declaration("a", id)).error_name, "");
    EXPECT_EQ(client.subscribe(1, expression("b")).error_name, "");
    EXPECT_EQ(client.declare(declaration("a", 4)).error_name, limits_exceeded);
  }
}

TEST_F(SwitchLimits, SubscriptionsAndBytes) {
  SwitchClient client;
  EXPECT_EQ(client.subscribe(1, expression("a")).error_name, "");
  EXPECT_EQ(client.subscribe(2, expression("b")).error_name, "");
  EXPECT_EQ(client.subscribe(3, expression("c")).error_name, limits_exceeded);
  EXPECT_EQ(client.subscribe(2, expression("c")).error_name, "");
  EXPECT_EQ(client.declare(declaration(std::string(2000, 'a').c_str(), 1)).error_name,
            limits_exceeded);
  EXPECT_EQ(client.declare(declaration("a", 1)).error_name, "");
  const std::string log = log_after(client);
  EXPECT_EQ(count_in(log, complaint("subscriptions allowed (2): refused Subscribe of ", client)),
            1u);
  EXPECT_EQ(count_in(log, complaint("bytes allowed (2000): refused Declare of ", client)), 1u);
}

class SwitchNames : public SwitchTest {
 protected:
  SwitchNames() : SwitchTest{{"--max-names=20"}} {}

  static Bytes with_key(const std::string &key, std::uint32_t local_id) {
    const OwnedDeclaration declaration = declaration_of("a", local_id);
    event_declaration_add_key(declaration.get(), key.c_str(), VALUE_TYPE_STRING);
    return taken(event_declaration_serialize(declaration.get()));
  }
};

// The names of keys stay with the switch for good, so who leaves gives nothing back.
TEST_F(SwitchNames, AreCountedForGood) {
  for (int round = 0; round < 19; ++round) {
    SwitchClient client;
    EXPECT_EQ(client.declare(with_key("new" + std::to_string(round), 1)).error_name, "") << round;
  }
  SwitchClient client;
  EXPECT_EQ(client.declare(with_key("one too many", 1)).error_name, limits_exceeded);
  const OwnedExpression wanted{subscribe_expression_new()};
  subscribe_expression_add_key(wanted.get(), "another");
  const Bytes bytes = taken(subscribe_expression_serialize(wanted.get()));
  EXPECT_EQ(client.subscribe(1, bytes).error_name, limits_exceeded);
  EXPECT_EQ(client.get_property_state(bytes).error_name, limits_exceeded);
  EXPECT_EQ(client
                .producer("AddDeclaration",
                          g_variant_new("(s@ay)", "type", bytes_variant(with_key("x", 1)).get()))
                .error_name,
            limits_exceeded);
  // What is known can still be used.
  EXPECT_EQ(client.declare(with_key("new3", 1)).error_name, "");
  client.settle();
  EXPECT_NE(event_switch_->process()->errors().find(
                "holds all the new names of keys allowed (20): refused Declare of " +
                client.unique_name()),
            std::string::npos);
}

TEST_F(SwitchNames, LongOnesCountMore) {
  SwitchClient client;
  EXPECT_EQ(client.declare(with_key(std::string(64 * 20, 'n'), 1)).error_name, limits_exceeded);
  EXPECT_EQ(client.declare(with_key(std::string(64 * 18, 'n'), 1)).error_name, "");
}

TEST_F(SwitchLimits, WaitingCalls) {
  SwitchClient producer;
  producer.stay_silent("Subscribe");
  producer.declare(property("a", 1));
  ASSERT_TRUE(producer.wait_for("DeclarationComplete"));
  SwitchClient waiting;
  waiting.post(switch_name, switch_path, "com.quor.Event.Switch.Consumer", "GetPropertyState",
               g_variant_new("(@ay)", bytes_variant(expression("a")).get()));
  ASSERT_TRUE(producer.wait_for("Subscribe"));
  SwitchClient other;
  EXPECT_EQ(other.get_property_state(expression("a")).error_name, limits_exceeded);
  EXPECT_EQ(count_in(log_after(other),
                     complaint("waiting calls allowed (1): refused GetPropertyState of ", other)),
            1u);
}

} // namespace
} // namespace varro2::test
