#include "logcapture.hpp"

#include <varro2/jsonoptions.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>

using varro2::test::LogCapture;

namespace {

class JsonOptionsTest : public testing::Test {
 protected:
  std::unique_ptr<JsonOptions, decltype(&json_options_free)> owner{json_options_new(),
                                                                   json_options_free};
  JsonOptions *options = owner.get();
};

TEST_F(JsonOptionsTest, StartsWithTheDefaults) {
  EXPECT_EQ(json_options_get_pretty_printing(options), FALSE);
  EXPECT_EQ(json_options_get_if_only_strings_in_message(options), TRUE);
  EXPECT_EQ(json_options_get_serialnumber(options), nullptr);
  EXPECT_STREQ(json_options_get_onvif_namespace(options), "tns1");
  EXPECT_STREQ(json_options_get_quor_namespace(options), "tnsquor");
  EXPECT_EQ(json_options_get_format(options), 0u);
}

TEST_F(JsonOptionsTest, KeepsWhatIsSet) {
  json_options_set_pretty_printing(options, TRUE);
  json_options_use_only_strings_in_message(options, FALSE);
  json_options_set_serialnumber(options, "ACCC8E000001");
  json_options_set_onvif_namespace(options, "one");
  json_options_set_quor_namespace(options, "two");
  json_options_set_format(options, 4294967295u);
  EXPECT_EQ(json_options_get_pretty_printing(options), TRUE);
  EXPECT_EQ(json_options_get_if_only_strings_in_message(options), FALSE);
  EXPECT_STREQ(json_options_get_serialnumber(options), "ACCC8E000001");
  EXPECT_STREQ(json_options_get_onvif_namespace(options), "one");
  EXPECT_STREQ(json_options_get_quor_namespace(options), "two");
  EXPECT_EQ(json_options_get_format(options), 4294967295u);
}

TEST_F(JsonOptionsTest, CopiesTheTexts) {
  char text[] = "serial";
  json_options_set_serialnumber(options, text);
  json_options_set_onvif_namespace(options, text);
  json_options_set_quor_namespace(options, text);
  text[0] = 'X';
  EXPECT_STREQ(json_options_get_serialnumber(options), "serial");
  EXPECT_STREQ(json_options_get_onvif_namespace(options), "serial");
  EXPECT_STREQ(json_options_get_quor_namespace(options), "serial");
}

TEST_F(JsonOptionsTest, TakesTheSerialNumberAway) {
  json_options_set_serialnumber(options, "1");
  json_options_set_serialnumber(options, nullptr);
  EXPECT_EQ(json_options_get_serialnumber(options), nullptr);
}

TEST_F(JsonOptionsTest, KeepsAnEmptySerialNumber) {
  json_options_set_serialnumber(options, "");
  EXPECT_STREQ(json_options_get_serialnumber(options), "");
}

TEST_F(JsonOptionsTest, SurvivesBeingGivenItsOwnTexts) {
  json_options_set_serialnumber(options, "a serial number beyond any small buffer");
  json_options_set_serialnumber(options, json_options_get_serialnumber(options) + 2);
  json_options_set_onvif_namespace(options, json_options_get_onvif_namespace(options));
  EXPECT_STREQ(json_options_get_serialnumber(options), "serial number beyond any small buffer");
  EXPECT_STREQ(json_options_get_onvif_namespace(options), "tns1");
}

TEST_F(JsonOptionsTest, KeepsTheOldNameSpaceWhenGivenNone) {
  LogCapture log;
  json_options_set_onvif_namespace(options, nullptr);
  json_options_set_quor_namespace(options, nullptr);
  EXPECT_STREQ(json_options_get_onvif_namespace(options), "tns1");
  EXPECT_STREQ(json_options_get_quor_namespace(options), "tnsquor");
  EXPECT_EQ(
      log.texts(G_LOG_LEVEL_CRITICAL),
      (std::vector<std::string>{"json_options_set_onvif_namespace: assertion 'ns != NULL' failed",
                                "json_options_set_quor_namespace: assertion 'ns != NULL' failed"}));
}

TEST(JsonOptions, RefusesToWorkOnNothing) {
  const std::pair<const char *, std::function<void()>> calls[]{
      {"json_options_set_pretty_printing", [] { json_options_set_pretty_printing(nullptr, TRUE); }},
      {"json_options_use_only_strings_in_message",
       [] { json_options_use_only_strings_in_message(nullptr, TRUE); }},
      {"json_options_set_serialnumber", [] { json_options_set_serialnumber(nullptr, "1"); }},
      {"json_options_get_serialnumber",
       [] { EXPECT_EQ(json_options_get_serialnumber(nullptr), nullptr); }},
      {"json_options_set_onvif_namespace", [] { json_options_set_onvif_namespace(nullptr, "n"); }},
      {"json_options_get_onvif_namespace",
       [] { EXPECT_EQ(json_options_get_onvif_namespace(nullptr), nullptr); }},
      {"json_options_set_quor_namespace", [] { json_options_set_quor_namespace(nullptr, "n"); }},
      {"json_options_get_quor_namespace",
       [] { EXPECT_EQ(json_options_get_quor_namespace(nullptr), nullptr); }},
  };
  for (const auto &[name, call] : calls) {
    LogCapture log;
    call();
    EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL),
              std::vector{std::string{name} + ": assertion 'options != NULL' failed"});
  }
}

TEST(JsonOptions, FreesNull) {
  json_options_free(nullptr);
}

} // namespace
