// What was rendered is read back by two programs that had no part in writing it: jq, and Jansson's
// own parser in its strict ways.
#include "childprocess.hpp"
#include "json.hpp"
#include "jsonevent.hpp"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <vector>

namespace varro2::test {
namespace {

// Strict: one document and nothing behind it, no name twice.
JsonRef parsed(const std::string &document) {
  json_error_t error;
  auto value = JsonRef::adopt(json_loads(document.c_str(), JSON_REJECT_DUPLICATES, &error));
  EXPECT_TRUE(value) << error.text << " at " << error.position << " of " << document;
  return value;
}

json_t *at(const JsonRef &document, const std::vector<const char *> &path) {
  json_t *value = document.get();
  for (const char *name : path)
    value = json_object_get(value, name);
  return value;
}

std::string text_at(const JsonRef &document, const std::vector<const char *> &path) {
  const json_t *value = at(document, path);
  return json_is_string(value) ? std::string{json_string_value(value), json_string_length(value)}
                               : "(no text)";
}

// The filter's output for the document, without its line feed.
std::string jq(const std::string &document, const std::string &filter) {
  ChildProcess program{{"jq", "--raw-output", "--compact-output", filter}};
  program.write(document);
  program.close_input();
  EXPECT_EQ(program.wait(), 0) << program.errors();
  std::string output = program.output();
  if (output.ends_with('\n'))
    output.pop_back();
  return output;
}

class JsonReadBack : public ::testing::Test {
 protected:
  std::string typed(const EventMaker &maker) {
    json_options_use_only_strings_in_message(options.get(), FALSE);
    return render(maker, options.get());
  }
  std::string onvif(const EventMaker &maker) {
    json_options_set_format(options.get(), JSON_FORMAT_ONVIF);
    return render(maker, options.get());
  }

  OwnedOptions options{json_options_new()};
};

// All that JSON must escape, what it need not, and text beyond the first plane.
const std::string difficult = "\" \\ / \b \f \n \r \t \x01 \x1f \x7f <&>' "
                              "\xc3\xa9 \xe2\x82\xac \xe2\x80\xa8 \xf0\x9f\x98\x80";

TEST_F(JsonReadBack, DifficultTextIsUnchanged) {
  EventMaker maker;
  maker.level(0, difficult.c_str(), "tns1");
  maker.key("text", difficult.c_str(), {"onvif-data"});
  maker.key(difficult.c_str(), "a name", {"onvif-source"});
  json_options_set_serialnumber(options.get(), difficult.c_str());
  for (const bool pretty : {false, true}) {
    json_options_set_pretty_printing(options.get(), pretty);
    const std::string document = render(maker, options.get());
    const auto value = parsed(document);
    EXPECT_EQ(text_at(value, {"topic"}), "tns1:" + difficult);
    EXPECT_EQ(text_at(value, {"serial"}), difficult);
    EXPECT_EQ(text_at(value, {"message", "data", "text"}), difficult);
    EXPECT_EQ(text_at(value, {"message", "source", difficult.c_str()}), "a name");
    EXPECT_EQ(jq(document, ".message.data.text"), difficult);
    EXPECT_EQ(jq(document, ".message.source | keys[0]"), difficult);
    EXPECT_EQ(jq(document, "keys_unsorted"), R"(["topic","timestamp","serial","message"])");
  }
  const std::string document = onvif(maker);
  EXPECT_EQ(text_at(parsed(document), {"Data", "text"}), difficult);
  EXPECT_EQ(jq(document, ".Source[]"), "a name");
}

TEST_F(JsonReadBack, WhatIsNoUtf8LeavesAWholeDocument) {
  // A lone continuation byte, one missing, an overlong form, a surrogate, beyond the last plane.
  const std::vector<const char *> wrong{"\x80", "a\xe2\x82", "\xc0\xaf", "\xed\xa0\x80",
                                        "\xf4\x90\x80\x80"};
  EventMaker maker;
  maker.at(1'700'000'000, 0);
  for (std::size_t i = 0; i < wrong.size(); ++i) {
    const std::string name = "bad" + std::to_string(i);
    maker.key(name.c_str(), wrong[i], {"onvif-source", "onvif-key", "onvif-data"});
    maker.key(wrong[i], "text", {"onvif-source", "onvif-key", "onvif-data"});
  }
  maker.key("good", "text", {"onvif-data"});
  EXPECT_EQ(jq(typed(maker), ".message"), R"({"source":{},"key":{},"data":{"good":"text"}})");
  EXPECT_EQ(jq(render(maker), ".message"), R"({"source":{},"key":{},"data":{"good":"text"}})");
  EXPECT_EQ(jq(onvif(maker), "."),
            R"({"UtcTime":"2023-11-14T22:13:20Z","Source":{},"Data":{"good":"text"}})");
}

TEST_F(JsonReadBack, AThousandKeysOfEveryType) {
  EventMaker maker;
  maker.level(0, "Many", "tns1");
  for (int i = 0; i < 250; ++i) {
    const auto name = [i](const char *type) { return type + std::to_string(i); };
    maker.key(name("int").c_str(), i - 125, {"onvif-data"});
    maker.flag(name("bool").c_str(), i % 2, {"onvif-data"});
    maker.key(name("double").c_str(), i * 0.25, {"onvif-data"});
    maker.key(name("text").c_str(), std::to_string(i).c_str(), {"onvif-data", "onvif-source"});
  }
  const std::string document = typed(maker);
  const auto value = parsed(document);
  EXPECT_EQ(json_object_size(at(value, {"message", "data"})), 1000U);
  EXPECT_EQ(json_object_size(at(value, {"message", "source"})), 250U);
  EXPECT_EQ(json_object_size(at(value, {"message", "key"})), 0U);
  for (int i = 0; i < 250; ++i) {
    const auto data = [&](const char *type) {
      const std::string name = type + std::to_string(i);
      return at(value, {"message", "data", name.c_str()});
    };
    EXPECT_TRUE(json_is_integer(data("int")));
    EXPECT_EQ(json_integer_value(data("int")), i - 125);
    EXPECT_EQ(json_is_true(data("bool")), i % 2 == 1);
    EXPECT_EQ(json_is_false(data("bool")), i % 2 == 0);
    EXPECT_TRUE(json_is_real(data("double")));
    EXPECT_EQ(json_real_value(data("double")), i * 0.25);
    EXPECT_EQ(std::to_string(i), json_string_value(data("text")));
  }
  EXPECT_EQ(jq(document, "[.message.data[] | numbers] | add"),
            jq("null", "[range(250) | . - 125 + . * 0.25] | add"));
  EXPECT_EQ(jq(document, ".message.data | keys_unsorted | [.[0], .[3], .[999]]"),
            R"(["int0","text0","text249"])");
  EXPECT_EQ(jq(render(maker), "[.message.data[] | strings] | length"), "1000");
  EXPECT_EQ(jq(onvif(maker), "[.Data, .Source] | map(length)"), "[1000,250]");
}

TEST_F(JsonReadBack, AHundredLevels) {
  EventMaker maker;
  std::string expected;
  for (int i = 0; i < 102; ++i) {
    maker.level(i, std::to_string(i).c_str(), i % 2 == 0 ? "tns1" : "tnsquor");
    if (i < 100)
      expected +=
          (i > 0 ? "/" : "") + std::string{i % 2 == 0 ? "tns1:" : "tnsquor:"} + std::to_string(i);
  }
  const std::string document = render(maker);
  EXPECT_EQ(text_at(parsed(document), {"topic"}), expected);
  EXPECT_EQ(jq(document, ".topic | split(\"/\") | [length, .[99]]"), R"([100,"tnsquor:99"])");
}

TEST_F(JsonReadBack, LevelsPastAGapAreNotRead) {
  EventMaker maker;
  for (int i = 0; i < 102; ++i)
    if (i != 99)
      maker.level(i, std::to_string(i).c_str(), "tns1");
  EXPECT_EQ(jq(render(maker), ".topic | split(\"/\") | [length, .[98]]"), R"([99,"98"])");
}

TEST_F(JsonReadBack, TimesAtTheEdges) {
  EXPECT_EQ(jq(render(EventMaker{}.at(0, 0)), ".timestamp"), "0");
  EXPECT_EQ(jq(render(EventMaker{}.at(1'700'000'000, 999'999)), ".timestamp"), "1700000000999");
  // Past the 32 bits of seconds.
  EXPECT_EQ(jq(render(EventMaker{}.at(5'000'000'000, 1'000)), ".timestamp"), "5000000000001");
}

TEST_F(JsonReadBack, ElementsInsideADocument) {
  EventMaker maker;
  maker.key("Conf",
            R"(<tt:Cfg x="1" y="&quot;&#233;"><tt:Item>p</tt:Item><Item>q</Item><tt:Item z="2">r)"
            R"(</tt:Item><Empty/><Other>&lt;s&gt;</Other></tt:Cfg>)",
            {"onvif-data", "onvif-element"});
  const std::string document = onvif(maker);
  EXPECT_EQ(jq(document, ".Data.Conf.Cfg.Item"), R"(["p","q",{"@z":"2","#text":"r"}])");
  EXPECT_EQ(jq(document, ".Data.Conf.Cfg | keys_unsorted"), R"(["Item","Other","@x","@y"])");
  EXPECT_EQ(text_at(parsed(document), {"Data", "Conf", "Cfg", "@y"}), "\"\xc3\xa9");
  EXPECT_EQ(text_at(parsed(document), {"Data", "Conf", "Cfg", "Other"}), "<s>");
}

} // namespace
} // namespace varro2::test
