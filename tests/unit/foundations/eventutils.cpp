// Value types, XML attributes and tag lists.
#include "eventutils.hpp"

#include "commalocale.hpp"
#include "owning.hpp"
#include "xmlnode.hpp"

#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace {

using varro2::OwnedList;
using varro2::OwnedText;
using varro2::ValueText;
using varro2::XmlTree;
using varro2::test::CommaLocale;

std::optional<std::string> text_of(gconstpointer value, guint32 type) {
  const OwnedText text{event_utils_value_type_to_string(value, type)};
  return text ? std::optional<std::string>{text.get()} : std::nullopt;
}

std::optional<std::string> int_text(gint32 value) {
  return text_of(&value, VALUE_TYPE_INT);
}
std::optional<std::string> bool_text(gboolean value) {
  return text_of(&value, VALUE_TYPE_BOOL);
}
std::optional<std::string> double_text(double value) {
  return text_of(&value, VALUE_TYPE_DOUBLE);
}

TEST(ValueTypes, HaveTheirNumbers) {
  EXPECT_EQ(VALUE_TYPE_INT, 1u);
  EXPECT_EQ(VALUE_TYPE_BOOL, 2u);
  EXPECT_EQ(VALUE_TYPE_DOUBLE, 3u);
  EXPECT_EQ(VALUE_TYPE_STRING, 4u);
}

TEST(ValueTypes, PrintIntegersInDecimal) {
  EXPECT_EQ(int_text(0), "0");
  EXPECT_EQ(int_text(-17), "-17");
  EXPECT_EQ(int_text(std::numeric_limits<gint32>::max()), "2147483647");
  EXPECT_EQ(int_text(std::numeric_limits<gint32>::min()), "-2147483648");
}

TEST(ValueTypes, PrintBooleansAsDigits) {
  EXPECT_EQ(bool_text(TRUE), "1");
  EXPECT_EQ(bool_text(FALSE), "0");
  EXPECT_EQ(bool_text(17), "1");
}

TEST(ValueTypes, PrintDoublesWithSixDecimals) {
  EXPECT_EQ(double_text(0.5), "0.500000");
  EXPECT_EQ(double_text(0), "0.000000");
  EXPECT_EQ(double_text(-0.0), "-0.000000");
  EXPECT_EQ(double_text(-1.25), "-1.250000");
  // Exact halves go to the even digit.
  EXPECT_EQ(double_text(0.0078125), "0.007812");
  EXPECT_EQ(double_text(0.0234375), "0.023438");
  EXPECT_EQ(double_text(1e21), "1000000000000000000000.000000");
}

TEST(ValueTypes, PrintDoublesAsPrintfDoes) {
  const double values[] = {DBL_MAX,
                           -DBL_MAX,
                           DBL_MIN,
                           1e300 / 3,
                           0.1,
                           1234567.891,
                           std::numeric_limits<double>::infinity(),
                           -std::numeric_limits<double>::infinity(),
                           std::numeric_limits<double>::quiet_NaN(),
                           -std::numeric_limits<double>::quiet_NaN()};
  for (const double value : values) {
    char expected[400];
    g_snprintf(expected, sizeof expected, "%f", value);
    EXPECT_EQ(double_text(value), expected);
  }
}

TEST(ValueTypes, PrintAPointInEveryLocale) {
  const CommaLocale locale;
  ASSERT_TRUE(locale.is_set());
  char printed[32];
  g_snprintf(printed, sizeof printed, "%f", 1234.5);
  ASSERT_STREQ(printed, "1234,500000");
  EXPECT_EQ(double_text(1234.5), "1234.500000");
}

TEST(ValueTypes, CopyStrings) {
  const char text[] = "text";
  OwnedText copy{event_utils_value_type_to_string(text, VALUE_TYPE_STRING)};
  EXPECT_STREQ(copy.get(), "text");
  EXPECT_NE(copy.get(), text);
  EXPECT_EQ(text_of("", VALUE_TYPE_STRING), "");
  EXPECT_EQ(text_of(nullptr, VALUE_TYPE_STRING), std::nullopt);
}

TEST(ValueTypes, GiveNothingForAnyOtherType) {
  const gint32 value = 1;
  for (const guint32 type : {0u, 5u, 255u, 0xFFFFFFFFu}) {
    EXPECT_EQ(text_of(&value, type), std::nullopt) << type;
    EXPECT_EQ(text_of(nullptr, type), std::nullopt) << type;
  }
}

TEST(ValueTypes, AcceptAnyAlignment) {
  alignas(8) char memory[16] = {};
  const gint32 number = -5;
  const double real = 0.25;
  std::memcpy(memory + 1, &number, sizeof number);
  EXPECT_EQ(text_of(memory + 1, VALUE_TYPE_INT), "-5");
  std::memcpy(memory + 1, &real, sizeof real);
  EXPECT_EQ(text_of(memory + 1, VALUE_TYPE_DOUBLE), "0.250000");
}

TEST(ValueTypesDeathTest, NumbersNeedAnAddress) {
  for (const guint32 type : {VALUE_TYPE_INT, VALUE_TYPE_BOOL, VALUE_TYPE_DOUBLE})
    EXPECT_DEATH(event_utils_value_type_to_string(nullptr, type),
                 "event_utils_value_type_to_string.*value != NULL");
}

TEST(ValueTextTest, BorrowsStringsAndHoldsNumbers) {
  const char *text = "text";
  EXPECT_EQ(ValueText(text, VALUE_TYPE_STRING).c_str(), text);
  EXPECT_EQ(ValueText(nullptr, VALUE_TYPE_STRING).c_str(), nullptr);
  const gint32 number = 42;
  EXPECT_STREQ(ValueText(&number, VALUE_TYPE_INT).c_str(), "42");
  EXPECT_EQ(ValueText(&number, 0).c_str(), nullptr);
  EXPECT_EQ(ValueText(&number, 5).c_str(), nullptr);
  const double longest = -DBL_MAX;
  EXPECT_EQ(std::string{ValueText(&longest, VALUE_TYPE_DOUBLE).c_str()}.size(), 1u + 309 + 7);
}

class XmlAttributes : public ::testing::Test {
 protected:
  XmlAttributes() : node_{xmlnode_create_node()} { node_->name = g_strdup("n"); }

  std::string written() const { return OwnedText{xmlnode_get_xml(node_.get())}.get(); }
  void set(const char *value) { xmlnode_add_attribute(node_.get(), "a", value); }

  XmlTree node_;
};

TEST_F(XmlAttributes, AreEmptyWhenAbsent) {
  EXPECT_STREQ(xml_get_attribute(node_.get(), "a"), "");
  set("x");
  EXPECT_STREQ(xml_get_attribute(node_.get(), "a"), "x");
  EXPECT_EQ(xml_get_attribute(node_.get(), "a"), xmlnode_get_attribute_value(node_.get(), "a"));
}

TEST_F(XmlAttributes, AreNotWrittenWhenEmpty) {
  xml_set_attribute(node_.get(), "a", "");
  xml_set_attribute(node_.get(), "b", nullptr);
  xml_set_attribute(node_.get(), "c", "d");
  EXPECT_EQ(written(), R"(<n c="d"/>)");
}

TEST_F(XmlAttributes, ReadAsTrueOnlyWhenTheySaySo) {
  EXPECT_EQ(xml_get_boolean(node_.get(), "a"), FALSE);
  for (const char *text : {"true", "TRUE", "True", "tRuE"}) {
    set(text);
    EXPECT_EQ(xml_get_boolean(node_.get(), "a"), TRUE) << text;
  }
  for (const char *text : {"", "1", "yes", "false", "true ", " true", "tru"}) {
    set(text);
    EXPECT_EQ(xml_get_boolean(node_.get(), "a"), FALSE) << text;
  }
}

TEST_F(XmlAttributes, AreWrittenAsTrueOnlyForOne) {
  xml_set_boolean(node_.get(), "a", FALSE);
  xml_set_boolean(node_.get(), "b", 2);
  xml_set_boolean(node_.get(), "c", -1);
  EXPECT_EQ(written(), "<n/>");
  xml_set_boolean(node_.get(), "d", TRUE);
  EXPECT_EQ(written(), R"(<n d="true"/>)");
}

TEST_F(XmlAttributes, ReadAsValueTypes) {
  struct Case {
    const char *text;
    guint32 type;
  };
  const Case cases[] = {
      {"int", 1},     {"integer", 1}, {"INTEGER", 1},  {"Int", 1},   {"bool", 2},
      {"boolean", 2}, {"Boolean", 2}, {"double", 3},   {"float", 3}, {"Float", 3},
      {"string", 4},  {"", 4},        {"integers", 4}, {" int", 4},  {"1", 4},
  };
  EXPECT_EQ(xml_get_value_type(node_.get(), "a"), 4u);
  for (const Case &one : cases) {
    set(one.text);
    EXPECT_EQ(xml_get_value_type(node_.get(), "a"), one.type) << one.text;
  }
}

TEST_F(XmlAttributes, AreWrittenForAllTypesButStrings) {
  xml_set_value_type(node_.get(), "s", VALUE_TYPE_STRING);
  xml_set_value_type(node_.get(), "z", 0);
  xml_set_value_type(node_.get(), "f", 5);
  EXPECT_EQ(written(), "<n/>");
  xml_set_value_type(node_.get(), "i", VALUE_TYPE_INT);
  xml_set_value_type(node_.get(), "b", VALUE_TYPE_BOOL);
  xml_set_value_type(node_.get(), "d", VALUE_TYPE_DOUBLE);
  EXPECT_EQ(written(), R"(<n i="int" b="bool" d="double"/>)");
}

using XmlAttributesDeathTest = XmlAttributes;

TEST_F(XmlAttributesDeathTest, NeedANodeAndAName) {
  XmlNode *node = node_.get();
  EXPECT_DEATH(xml_get_attribute(nullptr, "a"), "xml_get_attribute.*node != NULL");
  EXPECT_DEATH(xml_get_attribute(node, nullptr), "xml_get_attribute.*name != NULL");
  EXPECT_DEATH(xml_set_attribute(nullptr, "a", "b"), "xml_set_attribute.*node != NULL");
  EXPECT_DEATH(xml_set_attribute(node, nullptr, "b"), "xml_set_attribute.*name != NULL");
  EXPECT_DEATH(xml_get_boolean(nullptr, "a"), "xml_get_boolean.*node != NULL");
  EXPECT_DEATH(xml_get_boolean(node, nullptr), "xml_get_boolean.*name != NULL");
  EXPECT_DEATH(xml_set_boolean(nullptr, "a", TRUE), "xml_set_boolean.*node != NULL");
  EXPECT_DEATH(xml_set_boolean(node, nullptr, TRUE), "xml_set_boolean.*name != NULL");
  EXPECT_DEATH(xml_get_value_type(nullptr, "a"), "xml_get_value_type.*node != NULL");
  EXPECT_DEATH(xml_get_value_type(node, nullptr), "xml_get_value_type.*name != NULL");
  EXPECT_DEATH(xml_set_value_type(nullptr, "a", 1), "xml_set_value_type.*node != NULL");
  EXPECT_DEATH(xml_set_value_type(node, nullptr, 1), "xml_set_value_type.*name != NULL");
}

gboolean equal(std::vector<const char *> first, std::vector<const char *> second) {
  OwnedList lists[2];
  int next = 0;
  for (const auto &texts : {first, second}) {
    GList *list = nullptr;
    for (const char *text : texts)
      list = g_list_append(list, g_strdup(text));
    lists[next++].reset(list);
  }
  const gboolean forward = event_utils_tag_list_is_equal(lists[0].get(), lists[1].get());
  EXPECT_EQ(forward, event_utils_tag_list_is_equal(lists[1].get(), lists[0].get()));
  for (const OwnedList &list : lists)
    g_list_foreach(
        list.get(), [](gpointer text, gpointer) { g_free(text); }, nullptr);
  return forward;
}

TEST(TagLists, AreEqualInAnyOrder) {
  EXPECT_EQ(equal({}, {}), TRUE);
  EXPECT_EQ(equal({"a"}, {"a"}), TRUE);
  EXPECT_EQ(equal({"a", "b", "a"}, {"a", "a", "b"}), TRUE);
  EXPECT_EQ(equal({"a", "b", "c", "d"}, {"d", "c", "b", "a"}), TRUE);
  EXPECT_EQ(equal({"x", "a", "b"}, {"x", "b", "a"}), TRUE);
}

TEST(TagLists, CountTheirTexts) {
  EXPECT_EQ(equal({"a", "b"}, {"a", "a"}), FALSE);
  EXPECT_EQ(equal({"a", "b", "b"}, {"b", "a", "a"}), FALSE);
  EXPECT_EQ(equal({"a"}, {}), FALSE);
  EXPECT_EQ(equal({"a", "b"}, {"a"}), FALSE);
  EXPECT_EQ(equal({"a", "b"}, {"b", "a", "a"}), FALSE);
  EXPECT_EQ(equal({"a"}, {"A"}), FALSE);
}

TEST(TagLists, MayHoldNothingAsAText) {
  EXPECT_EQ(equal({nullptr}, {nullptr}), TRUE);
  EXPECT_EQ(equal({nullptr, "a"}, {"a", nullptr}), TRUE);
  EXPECT_EQ(equal({nullptr}, {""}), FALSE);
  EXPECT_EQ(equal({"", nullptr}, {nullptr, nullptr}), FALSE);
}

TEST(TagLists, MayBeTheSameList) {
  const OwnedList list{g_list_append(nullptr, const_cast<char *>("a"))};
  EXPECT_EQ(event_utils_tag_list_is_equal(list.get(), list.get()), TRUE);
}

TEST(TagLists, MayBeLong) {
  OwnedList lists[2];
  std::vector<std::string> texts;
  for (int i = 0; i < 100'000; ++i)
    texts.push_back(std::to_string(i));
  for (const std::string &text : texts) {
    lists[0].reset(g_list_prepend(lists[0].release(), const_cast<char *>(text.c_str())));
  }
  lists[1].reset(g_list_reverse(g_list_copy(lists[0].get())));
  EXPECT_EQ(event_utils_tag_list_is_equal(lists[0].get(), lists[1].get()), TRUE);
}

} // namespace
