// The program on a bus of the test's own, with the real switch.
#include "commandline.hpp"
#include "fakeswitch.hpp"

#include <csignal>
#include <sstream>

namespace varro2::test {
namespace {

TEST_F(CommandLine, AnEventGoesThroughWithEverything) {
  auto monitor = subscribed({"monitor", "--json", "--secure", "--count", "1"});
  const Result sent = varro2({"send", "--from", "-"}, port_event + "\n");
  EXPECT_EQ(sent.code, 0) << sent.errors;
  ASSERT_EQ(monitor->wait(), 0);
  const Json event{monitor->output()};
  ASSERT_TRUE(event) << monitor->output();
  EXPECT_STREQ(json_string_value(event.at("topic")), "tns1:Device/IO");
  EXPECT_EQ(json_integer_value(event.value("port")), 1);
  EXPECT_EQ(json_real_value(event.value("level")), 2.5);
  EXPECT_TRUE(json_is_true(event.value("state")));
  EXPECT_STREQ(json_string_value(event.value("text")), "a b");
  EXPECT_STREQ(json_string_value(json_object_get(event.at("namespaces"), "topic1")), "tns1");
  EXPECT_STREQ(json_string_value(json_array_get(json_object_get(event.at("tags"), "port"), 0)),
               "onvif-source");
  EXPECT_TRUE(json_is_integer(event.at("uid")));
  EXPECT_TRUE(json_is_real(event.at("monotonic")));
  EXPECT_TRUE(json_is_string(event.at("time")));
}

TEST_F(CommandLine, TheExpressionChooses) {
  auto monitor = subscribed({"monitor", "tns1:topic0=Device and", "(port=2 or port=3)", "--count",
                             "2", "--format", "{topic} {port} {missing} {{}}\\t{key:text}"});
  std::string events;
  for (const char *port : {"1", "2", "4", "3"}) {
    std::string event = port_event;
    event.replace(event.find("\"port\":1") + 7, 1, port);
    events += event + '\n';
  }
  EXPECT_EQ(varro2({"send", "--from", "-"}, events).code, 0);
  ASSERT_EQ(monitor->wait(), 0);
  EXPECT_EQ(monitor->output(), "tns1:Device/IO 2 - {}\ta b\ntns1:Device/IO 3 - {}\ta b\n");
}

// Many at once, in order, none lost, also where the reader takes its time.
TEST_F(CommandLine, NoEventIsLost) {
  constexpr int count = 10000;
  auto monitor =
      subscribed({"monitor", "--json", "topic0=Burst", "--count", std::to_string(count)});
  std::string events;
  for (int number = 0; number < count; ++number)
    events += "{\"topic0\":\"Burst\",\"number\":" + std::to_string(number) + "}\n";
  const std::string file = write_file("burst.jsonl", events);
  // The monitor's output is not read meanwhile.
  EXPECT_EQ(varro2({"send", "--from", file, "--rate", "5000"}).code, 0);
  for (int number = 0; number < count; ++number) {
    const auto line = monitor->read_line();
    ASSERT_TRUE(line) << number;
    const Json event{*line};
    ASSERT_EQ(json_integer_value(event.value("number")), number);
  }
  EXPECT_EQ(monitor->wait(), 0);
}

TEST_F(CommandLine, AReaderThatGoesIsNoError) {
  auto shell = subscribed({"monitor"}); // some other subscriber, so that there is one left
  ChildProcess pipeline{
      {"bash", "-c",
       "set -o pipefail; '" VARRO2
       "' monitor topic0=Device --format '{port}' | { read -r line; echo \"$line\"; "
       "exec <&-; }; echo \"code $?\""}};
  ChildProcess sender{{VARRO2, "send", "--from", "-"}};
  // The pipeline subscribes at some time; until then events go on.
  EXPECT_TRUE(iterate_until([&] {
    sender.write(port_event + "\n");
    return pipeline.output().find("code") != std::string::npos;
  }));
  EXPECT_EQ(pipeline.output(), "1\ncode 0\n");
  EXPECT_EQ(pipeline.errors(), "");
}

TEST_F(CommandLine, SurvivesTheSwitch) {
  auto monitor = subscribed({"monitor", "topic0=Device", "--count", "1", "--format", "{port}"});
  switch_.end(SIGKILL);
  EXPECT_TRUE(iterate_until(
      [&] { return monitor->errors().find("the event switch has gone") != std::string::npos; }));
  switch_.start();
  EXPECT_TRUE(iterate_until([&] {
    return monitor->errors().find("the event switch is back") != std::string::npos &&
           switch_.process()->errors().find("subscribed") != std::string::npos;
  }));
  EXPECT_EQ(varro2({"send", "--from", "-"}, port_event + "\n").code, 0);
  EXPECT_EQ(monitor->wait(), 0);
  EXPECT_EQ(monitor->output(), "1\n");
}

TEST_F(CommandLine, ListTreeAndDescribeShowWhatIsDeclared) {
  ChildProcess holder{{VARRO2, "send", "--from", "-", "--hold", "600"}};
  holder.write(port_event + "\n");
  EXPECT_TRUE(iterate_until([&] { return varro2({"list"}).code == 0; }));
  const Result list = varro2({"list"});
  EXPECT_EQ(list.output, "ID  TOPIC           KEYS                                           "
                         "PRODUCER\n"
                         "1   tns1:Device/IO  port=1 level(double) state(bool) text(string)  1\n")
      << "columns that no row has anything in are left out";
  EXPECT_EQ(varro2({"list", "port=2"}).code, 3);
  EXPECT_EQ(lines_in(varro2({"list", "--json", "state=1"}).output), 1u);
  EXPECT_NE(varro2({"tree"}).output.find("event port=1 level(double)"), std::string::npos);
  EXPECT_TRUE(Json{varro2({"tree", "--json"}).output});
  EXPECT_NE(varro2({"describe", "Device/IO"}).output.find("onvif-source"), std::string::npos);
  EXPECT_EQ(varro2({"describe", "1"}).code, 0);
  EXPECT_EQ(varro2({"describe", "tns1:Device"}).code, 0);
  const Result unknown = varro2({"describe", "Device/OI"});
  EXPECT_EQ(unknown.code, 3);
  EXPECT_NE(unknown.errors.find("did you mean 'Device/IO'?"), std::string::npos);
  EXPECT_EQ(varro2({"explain", "port=2", "--live"}).code, 3);
  EXPECT_EQ(varro2({"explain", "port=1", "--live"}).code, 0);
}

// Shells put these words on command lines.
TEST_F(CommandLine, CompletionsMeanNothingToAShell) {
  ChildProcess holder{{VARRO2, "send", "--from", "-", "--hold", "600"}};
  holder.write("{\"topic0\":\"Device\",\"$(reboot)\":1,\"a b\":2,\"port\":3}\n");
  EXPECT_TRUE(iterate_until([&] { return varro2({"list"}).code == 0; }));
  EXPECT_EQ(varro2({"complete", "keys"}).output, "port=\ntopic0=\n");
  EXPECT_EQ(varro2({"complete", "tests"}).output, "topic0=Device\n");
  EXPECT_EQ(varro2({"complete", "topics"}).output, "Device\n");
}

TEST_F(CommandLine, StateAndWait) {
  ChildProcess holder{{VARRO2, "send", "--from", "-", "--hold", "600"}};
  holder.write(R"({"values":{"topic0":"Door","open":true},"tags":{"open":["property-state"]},)"
               R"("property":true})"
               "\n");
  EXPECT_TRUE(iterate_until([&] { return varro2({"state", "topic0=Door"}).code == 0; }));
  EXPECT_EQ(varro2({"state", "topic0=Door"}).output, "Door open=1  {state: open}\n");
  const Json state{varro2({"state", "topic0=Door", "--json"}).output};
  EXPECT_TRUE(json_is_true(state.value("open")));
  EXPECT_EQ(varro2({"state", "topic0=Window"}).code, 3);
  EXPECT_EQ(varro2({"wait", "topic0=Door", "--format", "{kind} {open}"}).output, "property 1\n");
  const Result late = varro2({"wait", "topic0=Window", "--timeout", "0.05"});
  EXPECT_EQ(late.code, 124);
  EXPECT_EQ(late.errors, "varro2: no such event came in time\n");
}

TEST_F(CommandLine, ReplaySendsWhatWasRecorded) {
  const std::string file = bus_.folder() + "/recorded.jsonl";
  auto recorder = subscribed({"record", file, "topic0=Device", "--count", "2"});
  EXPECT_EQ(varro2({"send", "--from", "-"}, port_event + '\n' + port_event + '\n').code, 0);
  EXPECT_EQ(recorder->wait(), 0);
  EXPECT_EQ(recorder->errors(), "varro2: 2 events recorded\n");
  EXPECT_EQ(varro2({"record", file}).code, 1) << "a file that is there is not written over";
  auto monitor = subscribed({"monitor", "topic0=Device", "--count", "2", "--format", "{values}"});
  EXPECT_EQ(varro2({"replay", file, "--speed", "0"}).errors, "varro2: 2 events sent\n");
  EXPECT_EQ(monitor->wait(), 0);
  EXPECT_EQ(monitor->output(), "port=1 level=2.500000 state=1 text=\"a b\"\n"
                               "port=1 level=2.500000 state=1 text=\"a b\"\n");
}

TEST_F(CommandLine, TypesComeAndGo) {
  const std::string file = write_file(
      "type.xml", "<declare><expression><keyvalue key='topic0' name-space='tns1' value='T'/>"
                  "<keyvalue key='port' value-wildcard='true' value-type='int'/></expression>"
                  "</declare>");
  EXPECT_EQ(varro2({"add-type", "test-of-the-command-line", file}).code, 0);
  const Result again = varro2({"add-type", "test-of-the-command-line", file});
  EXPECT_EQ(again.code, 1);
  EXPECT_EQ(again.errors, "varro2: there is already a type 'test-of-the-command-line'\n");
  // In a folder that only this switch knows: a number stands for the name.
  EXPECT_EQ(varro2({"types"}).output, "TYPE  TOPIC   KEYS\n"
                                      "#1    tns1:T  port(int)\n");
  EXPECT_EQ(json_integer_value(Json{varro2({"types", "--json"}).output}.at("number")), 1);
  EXPECT_EQ(varro2({"describe", "#1"}).output.find("tns1:T\n  declaration type #1\n"), 0u);
  EXPECT_EQ(varro2({"tree", "--types"}).code, 0);
  EXPECT_EQ(varro2({"remove-type", "test-of-the-command-line"}).code, 0);
  const Result gone = varro2({"remove-type", "test-of-the-command-line"});
  EXPECT_EQ(gone.code, 1);
  EXPECT_EQ(gone.errors,
            "varro2: there is no type 'test-of-the-command-line' that could be removed\n");
  const std::string other = write_file(
      "other.xml", "<subscribe><expression><keyvalue key='a' value='1'/></expression></subscribe>");
  const Result refused = varro2({"add-type", "test-of-the-command-line", other});
  EXPECT_EQ(refused.code, 1);
  EXPECT_EQ(refused.errors, "varro2: " + other + ": is no declaration but an expression\n");
}

TEST_F(CommandLine, MistakesInEventsAreTold) {
  const auto mistake = [](const std::string &line) {
    const Result result = varro2({"send", "--from", "-"}, "\n" + line + "\n");
    EXPECT_NE(result.code, 0);
    return result.errors;
  };
  EXPECT_EQ(mistake(R"({"topic0":null})"),
            "varro2: standard input:2: the value of \"topic0\" must be a string, a number, true or "
            "false, not null\n");
  EXPECT_EQ(mistake(R"({"values":{"topic0":"T"},"namespaces":3})"),
            "varro2: standard input:2: \"namespaces\" must be an object\n");
  EXPECT_NE(mistake("{").find("standard input:2: no JSON object:"), std::string::npos);
  EXPECT_NE(
      mistake(R"({"type":"no-such-type-anywhere","values":{}})").find("no-such-type-anywhere"),
      std::string::npos);
}

TEST_F(CommandLine, NothingInAFileIsNothingFound) {
  const std::string file = write_file("empty.jsonl", "\n\n");
  for (const std::vector<std::string> &command : {std::vector<std::string>{"send", "--from", file},
                                                  {"replay", file},
                                                  {"explain", "a", file}}) {
    const Result result = varro2(command);
    EXPECT_EQ(result.code, 3) << command.front();
    EXPECT_EQ(result.errors, "varro2: " + file + ": there is no event in it\n");
  }
  EXPECT_EQ(varro2({"send", "--from", "/"}).errors, "varro2: /: Is a directory\n");
}

TEST_F(CommandLine, AWaitThatIsInterruptedHasNotSeenItsEvent) {
  auto wait = subscribed({"wait", "topic0=Never"});
  wait->signal(SIGINT);
  EXPECT_EQ(wait->wait(), 130);
  auto monitor = subscribed({"monitor", "topic0=Never"});
  monitor->signal(SIGINT);
  EXPECT_EQ(monitor->wait(), 0);
}

TEST_F(CommandLine, OutputThatCannotBeWrittenIsAFailure) {
  for (const std::string command : {"status", "--help"}) {
    ChildProcess full{{"bash", "-c", "'" VARRO2 "' " + command + " >/dev/full"}};
    full.close_input();
    EXPECT_EQ(full.wait(), 1) << command;
    EXPECT_EQ(full.errors(), "varro2: standard output: No space left on device\n") << command;
  }
}

TEST(Numbers, ThatMakeNoSenseAreUsage) {
  for (const char *argument : {"--timeout=-1", "--timeout=x", "--count=0", "--count=-1"}) {
    const Result result = varro2({"monitor", argument});
    EXPECT_EQ(result.code, 2) << argument;
    EXPECT_EQ(result.output, "") << argument;
  }
}

TEST(CommandLineAmongStrangers, AListThatIsNoneIsAFailure) {
  const PrivateBus bus;
  FakeSwitch stranger;
  stranger.answer_bytes("GetAllDeclarations", {1, 0, 0, 0});
  stranger.come();
  const Result result = varro2({"list"});
  EXPECT_EQ(result.code, 1) << result.errors;
}

TEST_F(CommandLine, NoSwitchIsOneClearLine) {
  switch_.end(SIGTERM);
  for (const char *command : {"list", "tree", "types", "monitor"}) {
    const Result result = varro2({command});
    EXPECT_EQ(result.code, 1) << command;
    EXPECT_EQ(result.errors,
              "varro2: there is no event switch on the bus (is varro2-switchd running?)\n");
  }
  EXPECT_EQ(varro2({"status"}).code, 1);
  bus_.stop();
  const Result result = varro2({"monitor"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(lines_in(result.errors), 1u);
  EXPECT_EQ(result.errors.find("varro2: no message bus at "), 0u);
}

TEST_F(CommandLine, ABusThatGoesEndsTheMonitor) {
  auto monitor = subscribed({"monitor"});
  bus_.stop();
  EXPECT_EQ(monitor->wait(), 1);
  EXPECT_NE(monitor->errors().find("varro2: the message bus went away\n"), std::string::npos);
}

TEST_F(CommandLine, ABusThatGoesEndsASender) {
  ChildProcess sender{{VARRO2, "send", "--from", "-"}};
  sender.write(port_event + "\n");
  EXPECT_TRUE(iterate_until([&] { return varro2({"list"}).code == 0; }));
  bus_.stop();
  EXPECT_EQ(sender.wait(), 1);
  EXPECT_NE(sender.errors().find("varro2: the message bus went away\n"), std::string::npos)
      << sender.errors();
}

TEST_F(CommandLine, ConvertThereAndBack) {
  const std::string xml = write_file(
      "d.xml", "<declare><expression><keyvalue key=\"topic0\" name-space=\"tns1\" value=\"T\"/>"
               "<keyvalue key=\"port\" value-wildcard=\"true\" value-type=\"int\"><tag "
               "tag=\"x\"/></keyvalue></expression></declare>");
  const std::string binary = bus_.folder() + "/d.bin";
  ASSERT_EQ(varro2({"convert", xml, "--to", "binary", "--output", binary}).code, 0);
  EXPECT_EQ(varro2({"convert", binary, "--to", "xml"}).output,
            "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
            "<declare>\n"
            "  <expression>\n"
            "    <keyvalue key=\"topic0\" name-space=\"tns1\" value=\"T\"/>\n"
            "    <keyvalue key=\"port\" value-wildcard=\"true\" value-type=\"int\">\n"
            "      <tag tag=\"x\"/>\n"
            "    </keyvalue>\n"
            "  </expression>\n"
            "</declare>\n");
  EXPECT_NE(varro2({"convert", binary}).output.find("[tns1:topic0 = 'T']"), std::string::npos);
  std::filesystem::resize_file(binary, std::filesystem::file_size(binary) - 1);
  EXPECT_EQ(varro2({"convert", binary}).errors,
            "varro2: " + binary + ": the record is damaged or cut off\n");
  EXPECT_EQ(varro2({"convert", "-"}, "hello").errors,
            "varro2: standard input: neither XML nor JSON nor a binary record\n");
  EXPECT_EQ(varro2({"lint", xml}).output, xml + ": good (declaration)\n");
}

TEST_F(CommandLine, ExplainSaysWhichTestFailed) {
  const Result result = varro2({"explain", "topic0=Device & port=2 | text=b", "-"}, port_event);
  EXPECT_EQ(result.code, 3);
  EXPECT_NE(result.output.find("port=2         port is 1"), std::string::npos) << result.output;
  EXPECT_NE(result.output.find("text=b  text is \"a b\""), std::string::npos) << result.output;
  EXPECT_EQ(varro2({"explain", "port=1", "-"}, port_event).code, 0);
  EXPECT_EQ(varro2({"explain", "port=1 &", "-"}, port_event).code, 2);
}

TEST_F(CommandLine, WrongArgumentsAreUsage) {
  const auto usage = [](std::vector<std::string> arguments) {
    const Result result = varro2(std::move(arguments));
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.output, "");
    return result.errors.substr(0, result.errors.find('\n'));
  };
  EXPECT_EQ(usage({}), "varro2: which command?");
  EXPECT_EQ(usage({"lsit"}), "varro2: there is no command 'lsit'; did you mean 'list'?");
  EXPECT_EQ(usage({"--nope"}), "varro2: there is no option '--nope'");
  EXPECT_EQ(usage({"monitor", "--cuont", "3"}),
            "varro2 monitor: there is no option '--cuont'; did you mean '--count'?");
  EXPECT_EQ(usage({"monitor", "--count", "0"}),
            "varro2 monitor: --count: '0' is no whole number from 1");
  EXPECT_EQ(usage({"monitor", "--timeout"}), "varro2 monitor: --timeout needs a value");
  EXPECT_EQ(usage({"convert", "x", "--to", "foo"}),
            "varro2 convert: --to: 'foo' is none of xml, binary, json, dump");
  EXPECT_EQ(usage({"describe", "a", "b"}), "varro2 describe: 'b' is one argument too many");
  EXPECT_EQ(usage({"wait"}), "varro2 wait: EXPRESSION is required");
  EXPECT_EQ(usage({"send"}), "varro2 send: TYPE or --from is required");
  EXPECT_EQ(usage({"tree", "--color", "red"}),
            "varro2 tree: --color: 'red' is none of auto, always, never")
      << "what is meant for all commands may stand behind one";
}

TEST(Help, FitsAScreen) {
  std::vector<std::string> commands{""};
  std::istringstream lines{varro2({"--help"}).output};
  for (std::string line; std::getline(lines, line) && line != "Subcommands:";) {
  }
  for (std::string line; std::getline(lines, line) && !line.empty();)
    commands.push_back(line.substr(2, line.find(' ', 2) - 2));
  EXPECT_GT(commands.size(), 15u);
  for (const std::string &command : commands) {
    const std::string help = varro2(command.empty() ? std::vector<std::string>{"--help"}
                                                    : std::vector{command, std::string{"--help"}})
                                 .output;
    EXPECT_LE(lines_in(help), 32u) << command;
    std::istringstream rows{help};
    for (std::string row; std::getline(rows, row);)
      EXPECT_LE(row.size(), 80u) << command << ": " << row;
  }
}

TEST(Help, ThatCannotBeWrittenIsAFailure) {
  ChildProcess shell{{"bash", "-c", "'" VARRO2 "' --help >/dev/full"}};
  EXPECT_EQ(shell.wait(), 1);
  EXPECT_EQ(shell.errors(), "varro2: standard output: No space left on device\n");
}

TEST(Mistakes, SteerNoTerminal) {
  EXPECT_EQ(varro2({"\x1b[31m"}).errors,
            "varro2: there is no command '\\x1b[31m'\nTry 'varro2 --help'.\n");
  EXPECT_EQ(varro2({"lint", "\x1b\xff"}).errors,
            "varro2: \\x1b\uFFFD: No such file or directory\n");
}

} // namespace
} // namespace varro2::test
