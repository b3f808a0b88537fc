// The example programs on a bus with the real switch: each does what it says.
#include "live.hpp"
#include "switchprocess.hpp"

#include <unistd.h>

#include <csignal>

namespace varro2::test {
namespace {

std::string example(const std::string &name) {
  return VARRO2_EXAMPLES "/" + name;
}

const Environment with_types{{"VARRO2_TEST_TYPES", VARRO2_TYPES}};

class Examples : public ::testing::Test {
 protected:
  Examples()
      : switch_{VARRO2_SWITCHD,
                {"--types-dir=" + bus_.folder() + "/own", "--system-types-dir=" VARRO2_TYPES}} {
    switch_.start();
  }

  // A consumer may hear of a declaration before the producer has read of the consumer. The switch's
  // calls to a producer come in order: with those about another declaration the others have come.
  static void read_of_all_consumers(const ProducerHandle &producer) {
    const guint32 other = event_producer_declare(producer.get(), greeting().get());
    EXPECT_TRUE(iterate_until(
        [&] { return event_producer_declaration_complete(producer.get(), other) != FALSE; }));
  }

  // Until one of its lines has the text; the test's own handles go on meanwhile.
  static void expect_line(ChildProcess &program, const std::string &text) {
    EXPECT_TRUE(iterate_until(
        [&] { return program.output().find(text) != std::string::npos || !program.running(); }));
    EXPECT_NE(program.output().find(text), std::string::npos)
        << "no '" << text << "' in:\n"
        << program.output() << program.errors();
  }

  static void end(ChildProcess &program) {
    program.signal(SIGTERM);
    EXPECT_TRUE(iterate_until([&] { return !program.running(); }));
    EXPECT_EQ(program.wait(), 0);
    EXPECT_EQ(program.errors(), "");
  }

  PrivateBus bus_;
  SwitchProcess switch_;
};

TEST_F(Examples, Hello) {
  ChildProcess consumer{{example("hello_consumer")}};
  ChildProcess producer{{example("hello_producer")}};
  expect_line(producer, "sent number 1\n");
  expect_line(consumer, "greetings are offered\n");
  expect_line(consumer, "hello, for the 2. time\n");
  producer.signal(SIGTERM);
  expect_line(consumer, "greetings are no longer offered\n");
  EXPECT_EQ(consumer.errors(), "");
  EXPECT_EQ(producer.errors(), "");
}

TEST_F(Examples, RegisteringByTypeAndPropertyState) {
  ChildProcess producer{{example("register_by_type_here"), "eth7"}, with_types};
  expect_line(producer, "the switch knows eth7\n");
  ChildProcess follower{{example("property_state"), "eth7"}};
  expect_line(follower, "found: up=");
  expect_line(follower, "eth7 is up\n");
  expect_line(follower, "eth7 is down\n");
  expect_line(producer, "now it is down\n");
  end(follower);
  end(producer);
}

TEST_F(Examples, RegisteringATypeThatIsNotThere) {
  ChildProcess producer{{example("register_by_type_here")}};
  EXPECT_EQ(producer.wait(), 1);
  EXPECT_EQ(producer.output(), "");
  EXPECT_NE(producer.errors().find("Error when registering event: "
                                   "event_declaration_new_from_type() failed for "
                                   "machine-network-link\n"),
            std::string::npos)
      << producer.errors();
}

TEST_F(Examples, PropertyThatNobodyDeclares) {
  ChildProcess follower{{example("property_state"), "eth8"}};
  expect_line(follower, "not found: ");
  end(follower);
}

TEST_F(Examples, AsynchronousProducerAndConsumer) {
  ChildProcess consumer{{example("async_consumer")}};
  expect_line(consumer, "connected\nsubscribed under 1\n");
  ChildProcess producer{{example("async_producer")}};
  expect_line(producer, "connected\ndeclaring 1\nthe switch knows 1\n");
  expect_line(producer, "number 1 sent\n");
  expect_line(consumer, "hello, for the 2. time\n");
  end(producer);
  EXPECT_TRUE(producer.output().ends_with("sent\n1 undeclared\n")) << producer.output();
  end(consumer);
  EXPECT_TRUE(consumer.output().ends_with("time\n1 unsubscribed\n")) << consumer.output();
}

TEST_F(Examples, AsynchronousHandlesWithoutABus) {
  const Environment nowhere{{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/varro2/bus"}};
  for (const auto *name : {"async_producer", "async_consumer"}) {
    ChildProcess program{{example(name)}, nowhere};
    EXPECT_EQ(program.wait(), 1) << name;
    EXPECT_TRUE(program.output().starts_with("not connected: Failed to connect to bus\n") ||
                program.output().find("\nnot connected: Failed to connect to bus\n") !=
                    std::string::npos)
        << program.output();
    EXPECT_EQ(program.errors(), "");
  }
}

TEST_F(Examples, SecureSubscription) {
  const std::string own = std::to_string(getuid());
  ChildProcess trusting{{example("secure_subscription")}};
  ChildProcess wary{{example("secure_subscription"), std::to_string(getuid() + 1)}};
  ChildProcess producer{{example("hello_producer")}};
  expect_line(trusting, "user " + own + ", who runs the switch: greetings are offered\n");
  expect_line(trusting, "user " + own + " says hello\n");
  expect_line(wary, "user " + own + " is not trusted\n");
  end(trusting);
  end(wary);
}

TEST_F(Examples, TopicTree) {
  ProducerHandle producer{"test"};
  const HeldDeclaration named = door();
  event_declaration_set_name_space(named.get(), "topic0", "x");
  event_declaration_set_nice_names(named.get(), "topic0", nullptr, "A door");
  const HeldDeclaration open = greeting();
  const HeldDeclaration below = greeting();
  event_declaration_add_key_value(below.get(), "topic1", "Loud", VALUE_TYPE_STRING);
  const HeldDeclaration fixed{event_declaration_new(FALSE)};
  event_declaration_add_key_value(fixed.get(), "topic0", "Greeting", VALUE_TYPE_STRING);
  event_declaration_add_key_value(fixed.get(), "text", "bye", VALUE_TYPE_STRING);
  guint32 last = 0;
  for (const auto *declaration : {named.get(), open.get(), below.get(), fixed.get()})
    last = event_producer_declare(producer.get(), declaration);
  ASSERT_TRUE(
      iterate_until([&] { return event_producer_declaration_complete(producer.get(), last); }));

  ChildProcess plain{{example("topic_tree")}, {{"LC_ALL", "C"}}};
  EXPECT_EQ(plain.wait(), 0);
  EXPECT_EQ(plain.output(), ".\n"
                            "|-- x:Door (A door)\n"
                            "|   * open\n"
                            "`-- Greeting\n"
                            "    |   * text, count\n"
                            "    |   * text=bye\n"
                            "    `-- Loud\n"
                            "        * text, count\n");
  EXPECT_EQ(plain.errors(), "");
  ChildProcess drawn{{example("topic_tree")}, {{"LC_ALL", "C.UTF-8"}}};
  EXPECT_EQ(drawn.wait(), 0);
  EXPECT_TRUE(drawn.output().starts_with(".\n├── x:Door (A door)\n│   * open\n└── Greeting\n"))
      << drawn.output();
}

TEST_F(Examples, TopicTreeOfTheTypes) {
  ChildProcess types{{example("topic_tree"), "--types"}, {{"LC_ALL", "C"}}};
  EXPECT_EQ(types.wait(), 0);
  EXPECT_EQ(types.output(), ".\n"
                            "|-- tns1:Device (This device)\n"
                            "|   `-- tnsquor:Sample (Sample of everything)\n"
                            "|       * channel=1, level, active, comment, details\n"
                            "`-- tns1:Monitoring\n"
                            "    |-- tns1:FileSystem (File system)\n"
                            "    |   * mount_point, almost_full, free_mib, number\n"
                            "    |-- tns1:Memory (Main memory)\n"
                            "    |   * total_mib, available_mib, number\n"
                            "    |-- tns1:NetworkLink (Network link)\n"
                            "    |   * interface, up, number\n"
                            "    `-- tns1:Processor (Processor load)\n"
                            "        * load_percent, number\n");
  EXPECT_EQ(types.errors(), "");
  ChildProcess wrong{{example("topic_tree"), "--loud"}};
  EXPECT_EQ(wrong.wait(), 2);
  EXPECT_EQ(wrong.errors(), "usage: topic_tree [--types]\n");
}

TEST_F(Examples, MachineMonitorRegistersTypesThatAreInstalled) {
  ChildProcess monitor{{example("machine_monitor_here")}, with_types};
  ConsumerHandle consumer{"listener"};
  Inbox links;
  Inbox processors;
  event_consumer_subscribe_full(consumer.get(), wants("interface", "lo").get(), Inbox::on_event,
                                Inbox::on_notification, &links);
  event_consumer_subscribe(consumer.get(), wants("topic1", "Processor").get(), Inbox::on_event,
                           &processors);
  ASSERT_TRUE(iterate_until([&] { return !links.events.empty() && !processors.events.empty(); }));
  Event *link = links.events.front().get();
  EXPECT_TRUE(event_is_property(link));
  EXPECT_STREQ(event_get_value(link, "topic1"), "NetworkLink");
  EXPECT_STREQ(event_get_name_space(link, "topic1"), "tns1");
  EXPECT_STREQ(event_get_key_nice_name(link, "interface"), "Interface");
  EXPECT_TRUE(event_has_tag_at(link, event_get_index(link, "up"), "property-state"));
  EXPECT_TRUE(event_has_value_at(link, event_get_index(link, "up")));
  EXPECT_STREQ(event_get_value(link, "number"), "0");
  end(monitor);
  EXPECT_EQ(monitor.output().find("not installed"), std::string::npos) << monitor.output();
}

TEST_F(Examples, MachineMonitorDeclaresTheSameByHand) {
  // A program without the variable finds no type; beside it stand the files of the build.
  ChildProcess monitor{{example("machine_monitor_here")}};
  ConsumerHandle consumer{"listener"};
  Inbox links;
  event_consumer_subscribe(consumer.get(), wants("interface", "lo").get(), Inbox::on_event, &links);
  ASSERT_TRUE(iterate_until([&] { return !links.events.empty(); }));
  Event *link = links.events.front().get();
  EXPECT_TRUE(event_is_property(link));
  EXPECT_STREQ(event_get_key_nice_name(link, "interface"), "Interface");
  EXPECT_TRUE(event_has_value_at(link, event_get_index(link, "up")));
  EXPECT_STREQ(event_get_value(link, "number"), "0");
  end(monitor);
  const std::string said = "share/event/declarations.d: not installed as types\n";
  const auto first = monitor.output().find(said);
  EXPECT_NE(first, std::string::npos) << monitor.output();
  EXPECT_EQ(monitor.output().find(said, first + 1), std::string::npos) << monitor.output();
}

TEST_F(Examples, EventPrinterWritesJson) {
  HeldDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", "Door", VALUE_TYPE_STRING);
  event_declaration_set_name_space(declaration.get(), "topic0", "tns1");
  event_declaration_add_key(declaration.get(), "open", VALUE_TYPE_BOOL);
  event_declaration_add_key_tag(declaration.get(), "open", "onvif-data");
  ChildProcess json{{example("event_printer"), "--format", "json", "--count", "1", "tns1:topic0"}};
  ChildProcess onvif{
      {example("event_printer"), "--count", "1", "--format", "onvif", "topic0=Door"}};
  ProducerHandle producer{"doors"};
  const guint32 local_id = event_producer_declare(producer.get(), declaration.get());
  ASSERT_TRUE(
      iterate_until([&] { return event_producer_declaration_complete(producer.get(), local_id); }));
  ASSERT_TRUE(iterate_until([&] {
    const bool both = json.errors().find("added ") != std::string::npos &&
                      onvif.errors().find("added ") != std::string::npos;
    return both;
  }));
  read_of_all_consumers(producer);
  const HeldEvent event{event_producer_prepare_event(producer.get(), local_id)};
  const gboolean open = TRUE;
  event_set_value(event.get(), "open", &open);
  G_GNUC_BEGIN_IGNORE_DEPRECATIONS
  event_set_timestamp(event.get(), GTimeVal{1'700'000'000, 123456});
  G_GNUC_END_IGNORE_DEPRECATIONS
  EXPECT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
  ASSERT_TRUE(iterate_until([&] { return !json.running() && !onvif.running(); }));
  EXPECT_EQ(json.wait(), 0);
  EXPECT_EQ(onvif.wait(), 0);
  EXPECT_EQ(json.output(), R"({"topic":"tns1:Door","timestamp":1700000000123,)"
                           R"("message":{"source":{},"key":{},"data":{"open":true}}})"
                           "\n");
  EXPECT_EQ(onvif.output(), R"({"UtcTime":"2023-11-14T22:13:20.123456Z","Source":{},)"
                            R"("Data":{"open":"1"}})"
                            "\n");
  EXPECT_NE(json.errors().find("total "), std::string::npos) << json.errors();
}

TEST_F(Examples, EventPrinterKnowsThreeFormats) {
  ChildProcess unknown{{example("event_printer"), "--format", "xml", "a"}};
  EXPECT_EQ(unknown.wait(), 2);
  EXPECT_TRUE(unknown.errors().starts_with(
      "event_printer: argument '--format xml': not text, json or onvif\n"))
      << unknown.errors();
  ChildProcess missing{{example("event_printer"), "--format"}};
  EXPECT_EQ(missing.wait(), 2);
  EXPECT_TRUE(missing.errors().starts_with(
      "event_printer: argument '--format' needs text, json or onvif\n"))
      << missing.errors();
}

} // namespace
} // namespace varro2::test
