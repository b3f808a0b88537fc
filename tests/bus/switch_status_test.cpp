// What the switch tells operators about who holds what.
#include "switch_fixture.hpp"

#include <jansson.h>
#include <unistd.h>

#include <algorithm>

namespace varro2::test {
namespace {

constexpr const char *status_interface = "com.quor.Event.Switch.Status";

using OwnedJson = std::unique_ptr<json_t, Release<json_decref>>;

class SwitchStatus : public SwitchTest {
 protected:
  explicit SwitchStatus(std::vector<std::string> more = {}) : SwitchTest{std::move(more)} {}

  std::string text() {
    Answer answer = observer_.call(switch_name, switch_path, status_interface, "GetStatus");
    EXPECT_EQ(answer.error_name, "");
    EXPECT_EQ(answer.signature, "s");
    return answer.arguments ? answer.first_text() : "";
  }
  OwnedJson status() { return OwnedJson{json_loads(text().c_str(), 0, nullptr)}; }

  // Nothing when there is no such client.
  static json_t *client_in(const OwnedJson &status, const std::string &name) {
    std::size_t index = 0;
    json_t *client = nullptr;
    json_array_foreach(json_object_get(status.get(), "clients"), index, client) {
      if (name == json_string_value(json_object_get(client, "name")))
        return client;
    }
    return nullptr;
  }
  static json_int_t number(const json_t *object, const char *name) {
    const json_t *value = json_object_get(object, name);
    EXPECT_TRUE(json_is_integer(value)) << name;
    return json_integer_value(value);
  }
  static std::string dumped(const json_t *value) {
    const std::unique_ptr<char, Release<free>> text{
        json_dumps(value, JSON_COMPACT | JSON_ENCODE_ANY)};
    return text ? text.get() : "";
  }

  SwitchClient observer_;
};

TEST_F(SwitchStatus, NamesEveryClientWithWhatItHolds) {
  SwitchClient producer;
  producer.declare(declaration("a", 5));
  producer.declare(property("b", 6));
  ASSERT_TRUE(producer.wait_for("DeclarationComplete", 2));
  SwitchClient consumer;
  const OwnedExpression wanted{subscribe_expression_new()};
  subscribe_expression_add_key_value(wanted.get(), "topic0", "b");
  subscribe_expression_add_key(wanted.get(), "state");
  subscribe_expression_or(wanted.get());
  subscribe_expression_add_key_value(wanted.get(), "text", "it's \"so\"");
  consumer.subscribe(9, taken(subscribe_expression_serialize(wanted.get())));
  const OwnedExpression everything{subscribe_expression_new()};
  consumer.subscribe(10, taken(subscribe_expression_serialize(everything.get())));
  producer.settle();
  consumer.settle();

  const OwnedJson now = status();
  json_t *declaring = client_in(now, producer.unique_name());
  json_t *subscribing = client_in(now, consumer.unique_name());
  ASSERT_TRUE(declaring != nullptr && subscribing != nullptr);
  EXPECT_EQ(number(declaring, "uid"), static_cast<json_int_t>(geteuid()));
  EXPECT_EQ(number(declaring, "pid"), static_cast<json_int_t>(getpid()));
  EXPECT_EQ(
      dumped(json_object_get(declaring, "producers")),
      std::string{R"([{"id":1,"path":")"} + producer_path +
          R"(","name":"a producer","declarations":[)"
          R"({"id":1,"local_id":5,"topic":"a","property":false,"internal":false,"subscribers":1},)"
          R"({"id":2,"local_id":6,"topic":"b","property":true,"internal":false,"subscribers":2})"
          "]}]");
  EXPECT_EQ(dumped(json_object_get(declaring, "consumers")), "[]");
  EXPECT_EQ(dumped(json_object_get(subscribing, "producers")), "[]");
  EXPECT_EQ(dumped(json_object_get(subscribing, "consumers")),
            std::string{R"([{"path":")"} + consumer_path +
                R"(","name":"a consumer","subscriptions":[)"
                R"({"id":1,"token":9,"expression":"topic0=b & state | text=\"it's \\\"so\\\"\"",)"
                R"("matches":[2]},)"
                R"({"id":2,"token":10,"expression":"","matches":[1,2]}]}])");
  for (const json_t *client : {declaring, subscribing})
    EXPECT_EQ(dumped(json_object_get(client, "queue")),
              R"({"unanswered":0,"waiting":0,"waiting_bytes":0,"dropped":0,"overdue":0})");

  const json_t *totals = json_object_get(now.get(), "totals");
  EXPECT_EQ(number(totals, "clients"), 2);
  EXPECT_EQ(number(totals, "producers"), 1);
  EXPECT_EQ(number(totals, "declarations"), 2);
  EXPECT_EQ(number(totals, "consumers"), 1);
  EXPECT_EQ(number(totals, "subscriptions"), 2);
  EXPECT_EQ(number(totals, "lookups"), 0);
  EXPECT_EQ(number(totals, "answered"), 10); // four about declarations, three each about matches
  EXPECT_EQ(dumped(json_object_get(now.get(), "truncated")), "false");
  EXPECT_EQ(number(json_object_get(now.get(), "limits"), "declarations"), 12'000);
  const json_t *user = json_array_get(json_object_get(now.get(), "users"), 0);
  EXPECT_EQ(number(user, "uid"), static_cast<json_int_t>(geteuid()));
  EXPECT_EQ(number(user, "declarations"), 2);
  EXPECT_EQ(number(user, "subscriptions"), 2);
  EXPECT_NE(json_string_value(json_object_get(now.get(), "version")), nullptr);
}

TEST_F(SwitchStatus, WaitsForNobodyAndShowsWhoDoesNotAnswer) {
  SwitchClient producer;
  producer.stay_silent("GlobalDeclareId");
  producer.declare(declaration("a", 1));
  for (std::uint32_t id = 2; id <= 20; ++id)
    producer.declare(declaration("b", id));
  ASSERT_TRUE(producer.wait_for("GlobalDeclareId"));
  const OwnedJson now = status();
  const json_t *client = client_in(now, producer.unique_name());
  ASSERT_NE(client, nullptr);
  const json_t *queue = json_object_get(client, "queue");
  EXPECT_GT(number(queue, "unanswered"), 0);
  EXPECT_GT(number(queue, "waiting"), 0);
  EXPECT_GT(number(queue, "waiting_bytes"), 0);
}

TEST_F(SwitchStatus, WhoHasLeftIsNotThere) {
  std::string name;
  {
    SwitchClient producer;
    producer.declare(declaration("a", 1));
    name = producer.unique_name();
    EXPECT_NE(client_in(status(), name), nullptr);
  }
  ASSERT_TRUE(iterate_until([&] { return client_in(status(), name) == nullptr; }));
}

TEST_F(SwitchStatus, SaysThatItHasCutWhatWouldBeTooLong) {
  SwitchClient producer;
  const std::string topic(4000, 'a');
  for (std::uint32_t id = 1; id <= 800; ++id)
    producer.post(switch_name, switch_path, "com.quor.Event.Switch.Producer", "Declare",
                  g_variant_new("(ss@ay)", producer_path, "a producer",
                                bytes_variant(declaration(topic.c_str(), id)).get()));
  ASSERT_TRUE(producer.wait_for("DeclarationComplete", 800));
  const std::string text_now = text();
  EXPECT_GT(text_now.size(), 1'000'000u);
  EXPECT_LT(text_now.size(), 2'200'000u);
  const OwnedJson now{json_loads(text_now.c_str(), 0, nullptr)};
  ASSERT_TRUE(now);
  EXPECT_EQ(dumped(json_object_get(now.get(), "truncated")), "true");
  EXPECT_EQ(number(json_object_get(now.get(), "totals"), "declarations"), 800);
}

TEST_F(SwitchStatus, WhatIsNoTextStaysReadable) {
  SwitchClient producer;
  producer.declare(declaration("\xFF\x01", 1));
  const OwnedJson now = status();
  ASSERT_TRUE(now);
  EXPECT_NE(client_in(now, producer.unique_name()), nullptr);
}

TEST_F(SwitchStatus, IsThereForWhoLooks) {
  const std::string xml = observer_.introspect(switch_name, switch_path);
  EXPECT_NE(xml.find(R"(<interface name="com.quor.Event.Switch.Status">)"), std::string::npos);
  EXPECT_NE(xml.find(R"(<method name="GetStatus">)"), std::string::npos);
}

} // namespace
} // namespace varro2::test
