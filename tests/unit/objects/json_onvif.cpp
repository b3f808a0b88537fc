#include "jsonevent.hpp"

#include <gtest/gtest.h>

using varro2::DateTimeRef;
using varro2::test::EventMaker;
using varro2::test::OwnedOptions;
using varro2::test::render;
using varro2::test::text_of;

namespace {

class JsonOnvif : public testing::Test {
 protected:
  OwnedOptions owner{json_options_new()};
  JsonOptions *options = owner.get();

  void SetUp() override { json_options_set_format(options, 1); }

  // What the member "Conf" becomes when it holds this document; empty when it is left out.
  std::string element(const char *xml) {
    const std::string document =
        render(EventMaker{}.key("Conf", xml, {"onvif-data", "onvif-element"}), options);
    const std::string head = R"({"Source":{},"Data":{)", member = R"("Conf":)";
    EXPECT_TRUE(document.starts_with(head) && document.ends_with("}}")) << document;
    const std::string data = document.substr(head.size(), document.size() - head.size() - 2);
    EXPECT_TRUE(data.empty() || data.starts_with(member)) << document;
    return data.empty() ? data : data.substr(member.size());
  }
};

TEST_F(JsonOnvif, WritesTimeSourceAndData) {
  EventMaker maker;
  maker.level(0, "Device", "tns1").level(1, "IO", "tns1").level(2, "Port", "tns1");
  maker.key("port", 1, {"onvif-source"}).flag("state", TRUE, {"onvif-data"});
  maker.at(1700000000, 123456);
  EXPECT_EQ(render(maker, options), R"({"UtcTime":"2023-11-14T22:13:20.123456Z",)"
                                    R"("Source":{"port":"1"},"Data":{"state":"1"}})");
}

TEST_F(JsonOnvif, IgnoresWhatIsForTheOtherFormat) {
  json_options_set_pretty_printing(options, TRUE);
  json_options_use_only_strings_in_message(options, FALSE);
  json_options_set_serialnumber(options, "1");
  EXPECT_EQ(render(EventMaker{}.key("k", 1, {"onvif-data"}), options),
            R"({"Source":{},"Data":{"k":"1"}})");
}

TEST_F(JsonOnvif, WritesNoFractionOfAWholeSecond) {
  EXPECT_EQ(render(EventMaker{}.at(1700000000, 0), options),
            R"({"UtcTime":"2023-11-14T22:13:20Z","Source":{},"Data":{}})");
}

TEST_F(JsonOnvif, WritesATimeOfAnotherZoneInUtc) {
  const auto event = EventMaker{}.make();
  GTimeZone *zone = g_time_zone_new_offset(2 * 60 * 60);
  const auto there = DateTimeRef::adopt(g_date_time_new(zone, 2023, 11, 15, 0, 13, 20));
  g_time_zone_unref(zone);
  event_set_timestamp2(event.get(), there.get());
  EXPECT_EQ(text_of(event_get_json(event.get(), options)),
            R"({"UtcTime":"2023-11-14T22:13:20Z","Source":{},"Data":{}})");
}

TEST_F(JsonOnvif, GoesByTheTags) {
  EventMaker maker;
  maker.key("both", "1", {"onvif-data", "onvif-source"}).key("key", "2", {"onvif-key"});
  maker.key("none", "3").key("element", "<a/>", {"onvif-element"});
  maker.key("source", "<a/>", {"onvif-source", "onvif-element"});
  EXPECT_EQ(render(maker, options),
            R"({"Source":{"both":"1","source":"<a/>"},"Data":{"both":"1"}})");
}

TEST_F(JsonOnvif, LeavesOutWhatJsonCannotHold) {
  EventMaker maker;
  maker.key("bytes", "\xff", {"onvif-data", "onvif-source"}).key("k", "1", {"onvif-data"});
  EXPECT_EQ(render(maker, options), R"({"Source":{},"Data":{"k":"1"}})");
}

// ---- Elements

TEST_F(JsonOnvif, ConvertsChildrenThenAttributes) {
  EXPECT_EQ(element(R"(<Cfg x="1"><Item>p</Item><Item>q</Item></Cfg>)"),
            R"({"Cfg":{"Item":["p","q"],"@x":"1"}})");
}

TEST_F(JsonOnvif, KeepsAnElementBesideThePlainText) {
  EventMaker maker;
  maker.key("Conf", "<a>1</a>", {"onvif-element", "onvif-data", "onvif-source"});
  EXPECT_EQ(render(maker, options), R"({"Source":{"Conf":"<a>1</a>"},"Data":{"Conf":{"a":"1"}}})");
}

TEST_F(JsonOnvif, AddsNothingForWhatIsNoDocument) {
  EXPECT_EQ(element("<a>"), "");
  EXPECT_EQ(element("plain"), "");
  EXPECT_EQ(element(""), "");
}

TEST_F(JsonOnvif, RemovesThePrefixOfElementsOnly) {
  EXPECT_EQ(element(R"(<t:Cfg n:x="1"><u:Item>p</u:Item><Item>q</Item></t:Cfg>)"),
            R"({"Cfg":{"Item":["p","q"],"@n:x":"1"}})");
  EXPECT_EQ(element("<a:b:c>1</a:b:c>"), R"({"b:c":"1"})");
}

TEST_F(JsonOnvif, KeepsNameSpaceDeclarationsAsAttributes) {
  EXPECT_EQ(element(R"(<t:a xmlns:t="urn:t">1</t:a>)"),
            R"({"a":{"@xmlns:t":"urn:t","#text":"1"}})");
}

TEST_F(JsonOnvif, ConvertsAnElementThatIsTextAlone) {
  EXPECT_EQ(element("<a>text</a>"), R"({"a":"text"})");
}

TEST_F(JsonOnvif, HasNoValueForAnElementWithNothing) {
  EXPECT_EQ(element("<a/>"), "{}");
  EXPECT_EQ(element("<a><b/><c>1</c><b/></a>"), R"({"a":{"c":"1"}})");
}

TEST_F(JsonOnvif, WritesTextBesideOthersLast) {
  EXPECT_EQ(element(R"(<a x="1">t<b>2</b></a>)"), R"({"a":{"b":"2","@x":"1","#text":"t"}})");
}

TEST_F(JsonOnvif, MakesOneArrayOfEqualNames) {
  EXPECT_EQ(element("<a><b>1</b><c>2</c><b><d>3</d></b><b>4</b></a>"),
            R"({"a":{"b":["1",{"d":"3"},"4"],"c":"2"}})");
}

TEST_F(JsonOnvif, GoesAsDeepAsADocumentCan) {
  constexpr int depth = 1000;
  std::string xml = "x", expected = "\"x\"";
  for (int i = 0; i < depth; ++i) {
    xml = "<a>" + xml + "</a>";
    expected = R"({"a":)" + expected + "}";
  }
  EXPECT_EQ(element(xml.c_str()), expected);
}

} // namespace
