#include "event.hpp"
#include "jsonevent.hpp"
#include "logcapture.hpp"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using varro2::test::EventMaker;
using varro2::test::LogCapture;
using varro2::test::OwnedOptions;
using varro2::test::render;
using varro2::test::text_of;

namespace {

EventMaker port_event() {
  EventMaker maker;
  maker.level(0, "Device", "tns1").level(1, "IO", "tns1").level(2, "Port", "tns1");
  maker.key("port", 1, {"onvif-source"}).flag("state", TRUE, {"onvif-data"});
  maker.at(1700000000, 123456);
  return maker;
}

std::string topic_of(const EventMaker &maker, const JsonOptions *options = nullptr) {
  const std::string document = render(maker, options);
  const std::string head = R"({"topic":")", tail = R"(","timestamp":0,)";
  EXPECT_TRUE(document.starts_with(head)) << document;
  return document.substr(head.size(), document.find(tail) - head.size());
}

class JsonTamlo : public testing::Test {
 protected:
  OwnedOptions owner{json_options_new()};
  JsonOptions *options = owner.get();

  std::string message_of(const EventMaker &maker) {
    const std::string document = render(maker, options);
    const std::string head = R"({"topic":"","timestamp":0,"message":)";
    EXPECT_TRUE(document.starts_with(head)) << document;
    return document.substr(head.size(), document.size() - head.size() - 1);
  }
};

TEST_F(JsonTamlo, WritesStringsByDefault) {
  const char *expected = R"({"topic":"tns1:Device/IO/Port","timestamp":1700000000123,)"
                         R"("message":{"source":{"port":"1"},"key":{},"data":{"state":"1"}}})";
  EXPECT_EQ(render(port_event(), options), expected);
  EXPECT_EQ(render(port_event(), nullptr), expected);
  EXPECT_EQ(text_of(event_get_tamlo_json(port_event().make().get(), options)), expected);
}

TEST_F(JsonTamlo, WritesTypedValuesWhenAsked) {
  json_options_use_only_strings_in_message(options, FALSE);
  EXPECT_EQ(render(port_event(), options),
            R"({"topic":"tns1:Device/IO/Port","timestamp":1700000000123,)"
            R"("message":{"source":{"port":1},"key":{},"data":{"state":true}}})");
}

TEST_F(JsonTamlo, WritesTheSerialNumberBehindTheTimestamp) {
  json_options_set_serialnumber(options, "ACCC8E");
  EXPECT_EQ(render(port_event(), options),
            R"({"topic":"tns1:Device/IO/Port","timestamp":1700000000123,"serial":"ACCC8E",)"
            R"("message":{"source":{"port":"1"},"key":{},"data":{"state":"1"}}})");
}

TEST_F(JsonTamlo, IndentsByFour) {
  json_options_set_pretty_printing(options, TRUE);
  EXPECT_EQ(render(port_event(), options), R"({
    "topic": "tns1:Device/IO/Port",
    "timestamp": 1700000000123,
    "message": {
        "source": {
            "port": "1"
        },
        "key": {},
        "data": {
            "state": "1"
        }
    }
})");
}

TEST_F(JsonTamlo, RendersAnEmptyEvent) {
  EXPECT_EQ(render(EventMaker{}),
            R"({"topic":"","timestamp":0,"message":{"source":{},"key":{},"data":{}}})");
}

TEST_F(JsonTamlo, AlwaysIsTheTamloFormatWhenAskedDirectly) {
  json_options_set_format(options, 1);
  EXPECT_EQ(text_of(event_get_tamlo_json(EventMaker{}.make().get(), options)),
            R"({"topic":"","timestamp":0,"message":{"source":{},"key":{},"data":{}}})");
}

// ---- Timestamp

TEST_F(JsonTamlo, TruncatesToMilliseconds) {
  EventMaker maker;
  EXPECT_NE(render(maker.at(12, 5999)).find(R"("timestamp":12005,)"), std::string::npos);
  EXPECT_NE(render(maker.at(12, 999999)).find(R"("timestamp":12999,)"), std::string::npos);
}

// ---- Topic

TEST_F(JsonTamlo, HasAnEmptyTopicWithoutTheFirstLevel) {
  EXPECT_EQ(topic_of(EventMaker{}.level(1, "B", "tns1")), "");
}

TEST_F(JsonTamlo, StopsAtTheFirstLevelThatIsAbsent) {
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "tns1").level(2, "C", "tns1")), "tns1:A");
}

TEST_F(JsonTamlo, WritesEachNameSpaceOnce) {
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "tns1").level(1, "B", "tnsquor")),
            "tns1:A/tnsquor:B");
}

TEST_F(JsonTamlo, RenamesNameSpaces) {
  const auto maker =
      EventMaker{}.level(0, "A", "tns1").level(1, "B", "tnsquor").level(2, "C", "tnsquor").make();
  json_options_set_onvif_namespace(options, "x");
  EXPECT_NE(text_of(event_get_json(maker.get(), options)).find(R"("topic":"x:A/tnsquor:B/C")"),
            std::string::npos);
  json_options_set_quor_namespace(options, "y");
  EXPECT_NE(text_of(event_get_json(maker.get(), options)).find(R"("topic":"x:A/y:B/C")"),
            std::string::npos);
}

TEST_F(JsonTamlo, KeepsRenamedNameSpacesApartThatReadTheSame) {
  json_options_set_onvif_namespace(options, "x");
  json_options_set_quor_namespace(options, "x");
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "tns1").level(1, "B", "tnsquor"), options),
            "x:A/x:B");
}

TEST_F(JsonTamlo, RepeatsEveryOtherNameSpace) {
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "ns").level(1, "B", "ns")), "ns:A/ns:B");
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "tns1").level(1, "B", "ns").level(2, "C", "tns1")),
            "tns1:A/ns:B/tns1:C");
}

TEST_F(JsonTamlo, LeavesOutALevelWithoutNameSpaceButNotItsSlash) {
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "tns1").level(1, "B", "").level(2, "D", "tns1")),
            "tns1:A//D");
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "").level(1, "B", "tns1")), "/tns1:B");
}

TEST_F(JsonTamlo, KeepsALevelWithAnEmptyText) {
  EXPECT_EQ(topic_of(EventMaker{}.level(0, "A", "tns1").level(1, "", "tns1").level(2, "C", "tns1")),
            "tns1:A//C");
}

TEST_F(JsonTamlo, ReadsAHundredLevels) {
  EventMaker maker;
  std::string expected = "tns1:0";
  for (int i = 0; i <= 100; ++i)
    maker.level(i, std::to_string(i).c_str(), "tns1");
  for (int i = 1; i < 100; ++i)
    expected += "/" + std::to_string(i);
  EXPECT_EQ(topic_of(maker), expected);
}

// ---- Message

TEST_F(JsonTamlo, PutsAKeyIntoEveryMemberThatItsTagsName) {
  EventMaker maker;
  maker.key("all", "1", {"onvif-data", "other", "onvif-source", "onvif-key"});
  maker.key("key", "2", {"onvif-key"}).key("none", "3").key("other", "4", {"onvif-element"});
  EXPECT_EQ(message_of(maker),
            R"({"source":{"all":"1"},"key":{"all":"1","key":"2"},"data":{"all":"1"}})");
}

TEST_F(JsonTamlo, WritesKeysInTheirOrder) {
  EventMaker maker;
  std::string expected;
  for (int i = 999; i >= 0; --i) {
    const std::string name = "k" + std::to_string(i);
    maker.key(name.c_str(), i, {"onvif-data"});
    expected += (expected.empty() ? "\"" : ",\"") + name + "\":\"" + std::to_string(i) + "\"";
  }
  EXPECT_EQ(message_of(maker), R"({"source":{},"key":{},"data":{)" + expected + "}}");
}

TEST_F(JsonTamlo, WritesEveryValueType) {
  EventMaker maker;
  maker.key("low", std::numeric_limits<gint32>::min(), {"onvif-data"});
  maker.key("high", std::numeric_limits<gint32>::max(), {"onvif-data"});
  maker.flag("off", FALSE, {"onvif-data"}).key("half", 0.5, {"onvif-data"});
  maker.key("text", "a \"quote\"", {"onvif-data"});
  json_options_use_only_strings_in_message(options, FALSE);
  EXPECT_EQ(message_of(maker),
            R"({"source":{},"key":{},"data":{"low":-2147483648,"high":2147483647,)"
            R"("off":false,"half":0.5,"text":"a \"quote\""}})");
  json_options_use_only_strings_in_message(options, TRUE);
  EXPECT_EQ(message_of(maker),
            R"({"source":{},"key":{},"data":{"low":"-2147483648","high":"2147483647",)"
            R"("off":"0","half":"0.500000","text":"a \"quote\""}})");
}

TEST_F(JsonTamlo, LeavesOutWhatJsonCannotHold) {
  EventMaker maker;
  maker.key("first", "1", {"onvif-data"}).key("bytes", "\xff\xfe", {"onvif-data"});
  maker.key("infinite", HUGE_VAL, {"onvif-data"}).key("\xff", "name", {"onvif-data"});
  maker.key("last", "2", {"onvif-data"});
  json_options_use_only_strings_in_message(options, FALSE);
  EXPECT_EQ(message_of(maker), R"({"source":{},"key":{},"data":{"first":"1","last":"2"}})");
}

TEST_F(JsonTamlo, LeavesOutATopicAndASerialNumberThatAreNoText) {
  json_options_set_serialnumber(options, "\xff");
  EXPECT_EQ(render(EventMaker{}.level(0, "\xff", "tns1"), options),
            R"({"timestamp":0,"message":{"source":{},"key":{},"data":{}}})");
}

TEST_F(JsonTamlo, LeavesOutAnUnsetFlag) {
  EventMaker maker;
  maker.open("flag", VALUE_TYPE_BOOL, {"onvif-data"}).key("last", 2, {"onvif-data"});
  json_options_use_only_strings_in_message(options, FALSE);
  EXPECT_EQ(message_of(maker), R"({"source":{},"key":{},"data":{"last":2}})");
}

TEST_F(JsonTamlo, WarnsAboutAKeyOfNoKnownType) {
  const auto event =
      EventMaker{}.key("odd", 1, {"onvif-data"}).key("even", 2, {"onvif-data"}).make();
  event->inspectable.find("odd")->value_type = 5;
  json_options_use_only_strings_in_message(options, FALSE);
  LogCapture log;
  EXPECT_EQ(text_of(event_get_json(event.get(), options)),
            R"({"topic":"","timestamp":0,"message":{"source":{},"key":{},"data":{"even":2}}})");
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "Invalid value type for key 'odd'"), 1u);
}

// ---- Refusals

TEST_F(JsonTamlo, RefusesUnknownFormats) {
  json_options_set_format(options, 2);
  const auto event = EventMaker{}.make();
  LogCapture log;
  EXPECT_EQ(event_get_json(event.get(), options), nullptr);
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.count(G_LOG_LEVEL_INFO, "Invalid JSON format specified"), 1u);
}

TEST_F(JsonTamlo, RefusesToRenderNothing) {
  const auto event = EventMaker{}.make();
  LogCapture log;
  EXPECT_EQ(event_get_json(nullptr, options), nullptr);
  EXPECT_EQ(event_get_json(nullptr, nullptr), nullptr);
  EXPECT_EQ(event_get_tamlo_json(nullptr, options), nullptr);
  EXPECT_EQ(event_get_tamlo_json(event.get(), nullptr), nullptr);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL),
            (std::vector<std::string>{"event_get_json: assertion 'event != NULL' failed",
                                      "event_get_json: assertion 'event != NULL' failed",
                                      "event_get_tamlo_json: assertion 'event != NULL' failed",
                                      "event_get_tamlo_json: assertion 'options != NULL' failed"}));
}

} // namespace
