// Property states, queries, types and the switch's own life.
#include "switch_fixture.hpp"

#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <memory>
#include <mutex>

namespace varro2::test {
namespace {

constexpr const char *lookup_failed = "com.quor.Event.Error.LookingUpPropState";

class PropertyStateTest : public SwitchTest {
 protected:
  explicit PropertyStateTest(const char *limit = "1")
      : SwitchTest{{std::string{"--property-state-timeout="} + limit}} {}

  // The peer answers a subscription as a producer does: with the event first.
  static void tell(SwitchClient &producer, const Bytes &event) {
    producer.answer("Subscribe", [&producer, event](const Call &call) {
      const OwnedExpression read = read_expression(call.bytes(0));
      producer.post(subscribe_expression_get_dbus_service(read.get()),
                    subscribe_expression_get_dbus_object(read.get()), "com.quor.Event.Consumer",
                    "Event",
                    g_variant_new("(@ayu)", bytes_variant(event).get(),
                                  subscribe_expression_get_consumer_token(read.get())));
      return Response{};
    });
  }

  // Asks without waiting; the outcome is the error's message, or that there is a state. It has to
  // live until it is filled.
  static void ask_later(SwitchClient &consumer, const Bytes &expression, std::string &outcome) {
    const Variant array = bytes_variant(expression);
    g_dbus_connection_call(
        consumer.connection(), switch_name, switch_path, "com.quor.Event.Switch.Consumer",
        "GetPropertyState", g_variant_new("(@ay)", array.get()), nullptr, G_DBUS_CALL_FLAGS_NONE,
        -1, nullptr,
        [](GObject *source, GAsyncResult *result, gpointer text) {
          GError *error = nullptr;
          if (GVariant *reply =
                  g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &error)) {
            *static_cast<std::string *>(text) = "there is a state";
            g_variant_unref(reply);
            return;
          }
          g_dbus_error_strip_remote_error(error);
          *static_cast<std::string *>(text) = error->message;
          g_error_free(error);
        },
        &outcome);
  }

  static OwnedState state_in(const Answer &answer) {
    if (!answer.arguments)
      return nullptr;
    const Variant array = own(g_variant_get_child_value(answer.arguments.get(), 0));
    return OwnedState{property_state_deserialize(as_array(to_bytes(array.get())).get())};
  }
};

TEST_F(PropertyStateTest, IsMadeOfTheEventsKeys) {
  SwitchClient producer;
  producer.declare(property("a", 5));
  tell(producer, property_event("a", "on"));
  SwitchClient consumer;
  const Answer answer = consumer.get_property_state(expression("a"));
  EXPECT_EQ(answer.error_message, "");
  EXPECT_EQ(answer.signature, "ay");
  const OwnedState state = state_in(answer);
  ASSERT_NE(state, nullptr);
  const Inspectable *keys = property_state_get_inspectable(state.get());
  ASSERT_EQ(inspectable_get_key_count(keys), 2u);
  EXPECT_STREQ(inspectable_get_value(keys, "topic0"), "a");
  EXPECT_STREQ(inspectable_get_value(keys, "state"), "on");
  for (guint32 position = 0; position < 2; ++position)
    EXPECT_EQ(inspectable_has_tag_at(keys, position, "property-state"),
              g_str_equal(inspectable_get_key_at(keys, position), "state"));

  // Asked for clandestinely, and taken back.
  const auto told = producer.calls("Subscribe");
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0].number(1), 5u);
  const OwnedExpression read = read_expression(told[0].bytes(0));
  EXPECT_TRUE(subscribe_expression_get_clandestine(read.get()));
  ASSERT_TRUE(producer.wait_for("Unsubscribe"));
  EXPECT_EQ(producer.calls("Unsubscribe")[0].number(0), subscribe_expression_get_id(read.get()));
  EXPECT_EQ(producer.calls("Unsubscribe")[0].number(1), 5u);
  consumer.settle();
  EXPECT_EQ(consumer.members(), std::vector<std::string>{});
}

TEST_F(PropertyStateTest, KeepsNameSpaces) {
  OwnedDeclaration declared = property_of("a", 5);
  event_declaration_set_name_space(declared.get(), "topic0", "tns1");
  const OwnedEvent event{event_declaration_generate_event(declared.get())};
  event_set_value(event.get(), "state", "on");
  SwitchClient producer;
  producer.declare(taken(event_declaration_serialize(declared.get())));
  tell(producer, taken(event_serialize(event.get())));
  SwitchClient consumer;
  const OwnedState state = state_in(consumer.get_property_state(expression("a")));
  ASSERT_NE(state, nullptr);
  const Inspectable *keys = property_state_get_inspectable(state.get());
  EXPECT_STREQ(inspectable_get_name_space(keys, "topic0"), "tns1");
  EXPECT_STREQ(inspectable_get_name_space(keys, "state"), "");
}

TEST_F(PropertyStateTest, IsUnknownWithoutAPropertyOrAnEventOrAStateKey) {
  SwitchClient consumer;
  EXPECT_EQ(consumer.get_property_state(expression("a")).error_name, lookup_failed);

  SwitchClient producer;
  producer.declare(declaration("a", 1));
  EXPECT_EQ(consumer.get_property_state(expression("a")).error_name, lookup_failed);
  EXPECT_EQ(producer.count("Subscribe"), 0u);

  producer.declare(property("a", 2));
  EXPECT_EQ(consumer.get_property_state(expression("a")).error_message,
            "No producer knows the state of the property.");

  const OwnedEvent stateless{event_declaration_generate_event(declaration_of("a", 2).get())};
  tell(producer, taken(event_serialize(stateless.get())));
  EXPECT_EQ(consumer.get_property_state(expression("a")).error_name, lookup_failed);
}

TEST_F(PropertyStateTest, ComesFromWhicheverProducerKnowsIt) {
  SwitchClient empty;
  SwitchClient silent;
  SwitchClient knowing;
  empty.declare(property("a", 1));
  silent.declare(property("a", 1));
  silent.stay_silent("Subscribe");
  knowing.declare(property("a", 1));
  tell(knowing, property_event("a", "on"));
  SwitchClient consumer;
  EXPECT_EQ(consumer.get_property_state(expression("a")).error_message, "");
  ASSERT_TRUE(silent.wait_for("Unsubscribe"));
}

TEST_F(PropertyStateTest, IsGivenUpWhenTheProducerDoesNotAnswer) {
  SwitchClient producer;
  producer.declare(property("a", 1));
  producer.stay_silent("Subscribe");
  SwitchClient consumer;
  const Answer answer = consumer.get_property_state(expression("a"));
  EXPECT_EQ(answer.error_name, lookup_failed);
  EXPECT_EQ(answer.error_message, "The producer did not tell the state of the property in time.");
  ASSERT_TRUE(producer.wait_for("Unsubscribe"));
}

// The limit is not what ends a lookup here.
class LongPropertyStateTest : public PropertyStateTest {
 protected:
  LongPropertyStateTest() : PropertyStateTest{"55"} {}
  static constexpr std::chrono::seconds before_the_limit{30};
};

TEST_F(LongPropertyStateTest, EndsAtOnceWhenTheProducerVanishes) {
  auto producer = std::make_unique<SwitchClient>();
  producer->declare(property("a", 1));
  producer->stay_silent("Subscribe");
  SwitchClient consumer;
  std::string outcome;
  ask_later(consumer, expression("a"), outcome);
  ASSERT_TRUE(producer->wait_for("Subscribe"));
  producer.reset();
  ASSERT_TRUE(iterate_until([&] { return !outcome.empty(); }, before_the_limit));
  EXPECT_EQ(outcome, "No producer knows the state of the property.");
}

TEST_F(PropertyStateTest, StrangersCannotTellIt) {
  SwitchClient producer;
  producer.declare(property("a", 1));
  producer.stay_silent("Subscribe");
  SwitchClient consumer;
  std::string outcome;
  ask_later(consumer, expression("a"), outcome);
  ASSERT_TRUE(producer.wait_for("Subscribe"));

  const OwnedExpression read = read_expression(producer.calls("Subscribe")[0].bytes(0));
  SwitchClient stranger;
  EXPECT_EQ(stranger
                .call(subscribe_expression_get_dbus_service(read.get()),
                      subscribe_expression_get_dbus_object(read.get()), "com.quor.Event.Consumer",
                      "Event",
                      g_variant_new("(@ayu)", bytes_variant(property_event("a", "forged")).get(),
                                    subscribe_expression_get_consumer_token(read.get())))
                .error_name,
            "");
  ASSERT_TRUE(iterate_until([&] { return !outcome.empty(); }));
  EXPECT_EQ(outcome, "The producer did not tell the state of the property in time.");
}

TEST_F(LongPropertyStateTest, CallerThatVanishesIsForgotten) {
  SwitchClient producer;
  producer.declare(property("a", 1));
  producer.stay_silent("Subscribe");
  {
    SwitchClient consumer;
    consumer.post(switch_name, switch_path, "com.quor.Event.Switch.Consumer", "GetPropertyState",
                  g_variant_new("(@ay)", bytes_variant(expression("a")).get()));
    ASSERT_TRUE(producer.wait_for("Subscribe"));
  }
  ASSERT_TRUE(iterate_until([&] { return producer.count("Unsubscribe") == 1; }, before_the_limit));
}

std::vector<std::string> topics_in(const Answer &answer) {
  const Variant child = own(g_variant_get_child_value(answer.arguments.get(), 0));
  const OwnedArray array = as_array(to_bytes(child.get()));
  guint32 index = 0;
  GList *list = deserialize_glist(array.get(), &index, [](GByteArray *bytes, guint32 *at) {
    return static_cast<gpointer>(event_declaration_deserialize_internal(bytes, at));
  });
  std::vector<std::string> topics;
  for (const GList *at = list; at != nullptr; at = at->next) {
    const OwnedDeclaration declared{static_cast<EventDeclaration *>(at->data)};
    topics.push_back(
        std::to_string(event_declaration_get_global_id(declared.get())) + " " +
        std::to_string(event_declaration_get_producer_id(declared.get())) + " " +
        inspectable_get_value(event_declaration_get_inspectable(declared.get()), "topic0"));
  }
  g_list_free(list);
  EXPECT_EQ(index, array->len);
  return topics;
}

TEST_F(SwitchTest, AllDeclarationsAreListed) {
  SwitchClient client;
  const Answer none = client.query("GetAllDeclarations");
  ASSERT_EQ(none.signature, "ay");
  EXPECT_EQ(to_bytes(own(g_variant_get_child_value(none.arguments.get(), 0)).get()),
            (Bytes{0, 0, 0, 0}));
  client.declare(declaration("b", 2));
  client.declare(declaration("a", 1));
  client.declare(declaration("c", 1), "/other");
  client.undeclare(2);
  EXPECT_EQ(topics_in(client.query("GetAllDeclarations")),
            (std::vector<std::string>{"1 1 b", "3 2 c"}));
}

TEST_F(SwitchTest, TypesAreAddedListedAndRemoved) {
  SwitchClient client;
  EXPECT_EQ(topics_in(client.query("GetDeclarationTypes")), std::vector<std::string>{});
  const auto add = [&](const char *type, const char *topic) {
    return client.producer(
        "AddDeclaration",
        g_variant_new("(s@ay)", type, bytes_variant(declaration(topic, 3)).get()));
  };
  const auto remove = [&](const char *type) {
    return client.producer("RemoveDeclaration", g_variant_new("(s)", type));
  };
  std::filesystem::create_directory(system_types());
  std::ofstream{system_types() + "/System.xml"}
      << "<declare><expression><keyvalue key=\"topic0\" value=\"s\"/></expression></declare>";

  EXPECT_EQ(add("Lamp", "lamp").error_message, "");
  EXPECT_EQ(add("Lamp", "lamp").error_name, "com.quor.Event.Error.AlreadyExists");
  EXPECT_EQ(add("System", "lamp").error_name, "com.quor.Event.Error.AlreadyExists");
  EXPECT_EQ(add("../Lamp", "lamp").error_name, "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(topics_in(client.query("GetDeclarationTypes")),
            (std::vector<std::string>{"0 0 s", "0 0 lamp"}));
  EXPECT_EQ(remove("System").error_name, "com.quor.Event.Error.NotRegistered");
  EXPECT_EQ(remove("").error_name, "org.freedesktop.DBus.Error.InvalidArgs");
  EXPECT_EQ(remove("Lamp").error_name, "");
  EXPECT_EQ(remove("Lamp").error_name, "com.quor.Event.Error.NotRegistered");

  std::filesystem::remove_all(own_types());
  std::ofstream{own_types()} << "a file";
  EXPECT_EQ(add("Lamp", "lamp").error_name, "com.quor.Event.Error.File");
}

TEST_F(SwitchTest, MethodsTellTheirArguments) {
  SwitchClient client;
  const std::string text = client.introspect(switch_name, switch_path);
  for (const char *wanted : {"<interface name=\"com.quor.Event.Switch\">",
                             "<interface name=\"com.quor.Event.Switch.Producer\">",
                             "<interface name=\"com.quor.Event.Switch.Consumer\">",
                             "<interface name=\"com.quor.Event.Switch.Query\">",
                             "<arg type=\"ay\" name=\"subscribe_expression\" direction=\"in\"/>",
                             "<arg type=\"u\" name=\"consumer_token\" direction=\"in\"/>",
                             "<arg type=\"ay\" name=\"property_state\" direction=\"out\"/>"})
    EXPECT_NE(text.find(wanted), std::string::npos) << wanted << "\n" << text;
}

TEST_F(SwitchTest, DebugWritesTheRegistryToTheLog) {
  SwitchClient client;
  client.declare(declaration("lamp", 3));
  EXPECT_EQ(client.control("Debug").error_name, "");
  ASSERT_TRUE(iterate_until([&] {
    return event_switch_->process()->errors().find("Property states being looked up: 0") !=
           std::string::npos;
  }));
  EXPECT_NE(event_switch_->process()->errors().find("  lamp   -\n"), std::string::npos)
      << event_switch_->process()->errors();
}

TEST_F(SwitchTest, NamesOfClientsCannotBeginALogLine) {
  SwitchClient client;
  client.producer("Declare", g_variant_new("(ss@ay)", producer_path, "x\n<0>forged",
                                           bytes_variant(declaration("a", 1)).get()));
  ASSERT_TRUE(iterate_until([&] {
    return event_switch_->process()->errors().find("'x <0>forged' (") != std::string::npos;
  }));
}

// Sees the errors that peers send, and the switch's name go.
class ErrorMonitor {
 public:
  explicit ErrorMonitor(const std::string &address)
      : connection_{g_dbus_connection_new_for_address_sync(
            address.c_str(),
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
            nullptr, nullptr, nullptr)} {
    g_dbus_connection_add_filter(connection_.get(), watch, this, nullptr);
    const char *const rules[] = {"type='error'",
                                 "type='signal',member='NameOwnerChanged',"
                                 "arg0='com.quor.Event.Switch'",
                                 nullptr};
    const Variant reply{g_dbus_connection_call_sync(
        connection_.get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
        "org.freedesktop.DBus.Monitoring", "BecomeMonitor", g_variant_new("(^asu)", rules, 0u),
        nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr)};
    EXPECT_NE(reply, nullptr);
  }
  ~ErrorMonitor() { g_dbus_connection_close_sync(connection_.get(), nullptr, nullptr); }

  std::vector<std::string> errors_until_the_switch_left() {
    EXPECT_TRUE(iterate_until([this] { return left_.load(); }));
    const std::scoped_lock held{lock_};
    return errors_;
  }

 private:
  static GDBusMessage *watch(GDBusConnection *, GDBusMessage *message, gboolean,
                             gpointer self) noexcept {
    auto *monitor = static_cast<ErrorMonitor *>(self);
    const GDBusMessageType type = g_dbus_message_get_message_type(message);
    if (type == G_DBUS_MESSAGE_TYPE_ERROR) {
      const std::scoped_lock held{monitor->lock_};
      monitor->errors_.emplace_back(g_dbus_message_get_error_name(message));
    } else if (type == G_DBUS_MESSAGE_TYPE_SIGNAL &&
               g_str_equal(g_dbus_message_get_member(message), "NameOwnerChanged")) {
      monitor->left_ = true;
    }
    return message;
  }

  std::mutex lock_;
  std::vector<std::string> errors_;
  std::atomic<bool> left_ = false;
  std::unique_ptr<GDBusConnection, Release<g_object_unref>> connection_;
};

TEST_F(SwitchTest, QuitIsAnsweredOnceAndEndsIt) {
  ErrorMonitor monitor{bus_.address()};
  SwitchClient client;
  EXPECT_EQ(client.control("Quit").error_name, "");
  EXPECT_EQ(event_switch_->process()->wait(), 0);
  EXPECT_FALSE(event_switch_->owned());
  EXPECT_EQ(monitor.errors_until_the_switch_left(), std::vector<std::string>{});
}

// Root can be a stranger, and whoever else runs the tests can be the switch's own user.
TEST_F(SwitchTest, AStrangerCannotEndItButItsOwnUserCan) {
  if (geteuid() != 0) {
    SwitchClient own;
    EXPECT_EQ(own.control("Quit").error_name, "");
    EXPECT_EQ(event_switch_->process()->wait(), 0);
    return;
  }
  std::filesystem::permissions(bus_.folder(), std::filesystem::perms{0711}); // holds the socket
  const std::string nobody = "65534";
  ChildProcess stranger{{"setpriv", "--reuid=" + nobody, "--regid=" + nobody, "--clear-groups",
                         "dbus-send", "--bus=" + bus_.address(), "--print-reply",
                         "--dest=" + std::string{switch_name}, switch_path,
                         "com.quor.Event.Switch.Quit"}};
  EXPECT_EQ(stranger.wait(), 1);
  EXPECT_TRUE(stranger.errors().starts_with("Error org.freedesktop.DBus.Error.AccessDenied: "))
      << stranger.errors();
  SwitchClient client;
  EXPECT_EQ(client.declare(declaration("a", 1)).error_name, "");
}

TEST_F(SwitchTest, EndsCleanlyOnASignal) {
  for (const int number : {SIGTERM, SIGINT}) {
    event_switch_->signal(number);
    EXPECT_EQ(event_switch_->process()->wait(), 0);
    EXPECT_FALSE(event_switch_->owned());
    event_switch_->start();
  }
  event_switch_->signal(SIGHUP);
  ASSERT_TRUE(iterate_until([&] {
    return event_switch_->process()->errors().find("0 declaration types can be used") !=
           std::string::npos;
  }));
}

TEST_F(SwitchTest, SecondSwitchOnABusGivesUp) {
  ChildProcess second{{VARRO2_SWITCHD, "--bus-address=" + bus_.address()}};
  EXPECT_EQ(second.wait(), 1);
  EXPECT_EQ(second.errors(), "varro2-switchd: error: The name com.quor.Event.Switch is taken: "
                             "another switch is running on this bus\n");
  EXPECT_TRUE(event_switch_->owned());
}

TEST_F(SwitchTest, FailsWhenTheBusGoesAway) {
  bus_.stop();
  EXPECT_EQ(event_switch_->process()->wait(), 1);
  EXPECT_NE(event_switch_->process()->errors().find("The connection to the message bus ended"),
            std::string::npos);
  bus_.start();
}

TEST(SwitchOptions, AreExplainedAndChecked) {
  ChildProcess version{{VARRO2_SWITCHD, "--version"}};
  EXPECT_EQ(version.wait(), 0);
  EXPECT_TRUE(version.output().starts_with("varro2-switchd ")) << version.output();
  ChildProcess help{{VARRO2_SWITCHD, "--help"}};
  EXPECT_EQ(help.wait(), 0);
  for (const char *option : {"--bus-address", "--types-dir", "--verbose", "--version"})
    EXPECT_NE(help.output().find(option), std::string::npos) << option;
  for (const char *wrong : {"--none", "word", "--property-state-timeout=0"}) {
    ChildProcess refused{{VARRO2_SWITCHD, wrong}};
    EXPECT_EQ(refused.wait(), 1) << wrong;
    EXPECT_TRUE(refused.errors().starts_with("varro2-switchd: ")) << refused.errors();
  }
  ChildProcess nowhere{{VARRO2_SWITCHD, "--bus-address=unix:path=/nonexistent"}};
  EXPECT_EQ(nowhere.wait(), 1);
  EXPECT_NE(nowhere.errors().find("Could not connect to the message bus"), std::string::npos);
}

} // namespace
} // namespace varro2::test
