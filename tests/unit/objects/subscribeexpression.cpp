#include "subscribeexpression.hpp"
#include "logcapture.hpp"
#include "recordtext.hpp"

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>

using namespace std::string_literals;
using varro2::BytesRef;
using varro2::Owned;
using varro2::OwnedText;
using varro2::test::as_array;
using varro2::test::as_text;
using varro2::test::DeclarationOwner;
using varro2::test::EventOwner;
using varro2::test::ExpressionOwner;
using varro2::test::LogCapture;
using varro2::test::record_of;
using varro2::test::refusal;

namespace {

using OwnedNode = Owned<XmlNode, xmlnode_free_tree>;

ExpressionOwner make_expression() {
  return ExpressionOwner{subscribe_expression_new()};
}

// A pair as it lies in the record. One of key and value may be NULL: any.
std::string pair_record(const char *key, const char *value, bool negated) {
  const auto text = [](const char *chars) {
    return std::string{static_cast<char>(chars ? std::strlen(chars) : 0), '\0'} +
           (chars ? chars : "");
  };
  return "\xf4\x01\0"s             // bucket of one pair
         "\xf5"s +                 // pair
         text(key) +               //
         (key ? "\0"s : "\1"s) +   // any key
         "\0\0"s                   // name space
         "\0\0"s +                 // key nice name
         text(value) +             //
         (value ? "\0"s : "\1"s) + // any value
         "\0\0"s                   // value nice name
         "\0\0"s                   // value user string
         "\0\0"s +                 // complex type name
         (negated ? "\1"s : "\0"s) +
         "\x04"s  // a string
         "\0\0"s; // no tags
}

// The record of a clandestine expression with everything set and these and-lists.
std::string record(int and_lists, const std::string &content) {
  return "\xf6"s             // expression
         "\x04\x03\x02\x01"s // id
         "\x04\0:1.5"s       // service
         "\x02\0/a"s         // object
         "\x07\0\0\0"s       // token
         "\x01"s             // clandestine
         "\xf2"s +           // container
         std::string{static_cast<char>(and_lists), '\0'} +
         "\x02"s // of an expression
         "\0"s + // not internal
         content +
         "\0\0"s; // no tags
}

ExpressionOwner make_full() {
  ExpressionOwner se{subscribe_expression_new_full(TRUE)};
  subscribe_expression_set_id(se.get(), 0x01020304);
  subscribe_expression_set_dbus_service(se.get(), ":1.5");
  subscribe_expression_set_dbus_object(se.get(), "/a");
  subscribe_expression_set_consumer_token(se.get(), 7);
  return se;
}

// An event with these keys, all texts in no name space.
EventOwner make_event(std::initializer_list<std::pair<const char *, const char *>> pairs) {
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  for (const auto &[key, value] : pairs)
    event_declaration_add_key_value(declaration.get(), key, value, VALUE_TYPE_STRING);
  return EventOwner{event_declaration_generate_event(declaration.get())};
}

// ---- Fields

TEST(SubscribeExpression, StartsEmpty) {
  const auto se = make_expression();
  EXPECT_EQ(subscribe_expression_get_id(se.get()), 0u);
  EXPECT_EQ(subscribe_expression_get_consumer_token(se.get()), 0u);
  EXPECT_STREQ(subscribe_expression_get_dbus_service(se.get()), "");
  EXPECT_STREQ(subscribe_expression_get_dbus_object(se.get()), "");
  EXPECT_FALSE(subscribe_expression_get_clandestine(se.get()));
  EXPECT_EQ(se->inspectable.type, static_cast<guint32>(IT_SUBSCRIBE_EXPRESSION));
}

TEST(SubscribeExpression, IsClandestineFromTheStart) {
  const ExpressionOwner se{subscribe_expression_new_full(TRUE)};
  EXPECT_TRUE(subscribe_expression_get_clandestine(se.get()));
  const ExpressionOwner plain{subscribe_expression_new_full(FALSE)};
  EXPECT_FALSE(subscribe_expression_get_clandestine(plain.get()));
}

TEST(SubscribeExpression, KeepsWhatIsSet) {
  const auto se = make_full();
  EXPECT_EQ(subscribe_expression_get_id(se.get()), 0x01020304u);
  EXPECT_EQ(subscribe_expression_get_consumer_token(se.get()), 7u);
  EXPECT_STREQ(subscribe_expression_get_dbus_service(se.get()), ":1.5");
  EXPECT_STREQ(subscribe_expression_get_dbus_object(se.get()), "/a");
}

TEST(SubscribeExpression, SurvivesBeingGivenItsOwnAddress) {
  const auto se = make_expression();
  subscribe_expression_set_dbus_object(se.get(), "/com/quor/Event/Consumer/0x55d0c0ffee00");
  subscribe_expression_set_dbus_object(se.get(), subscribe_expression_get_dbus_object(se.get()));
  EXPECT_STREQ(subscribe_expression_get_dbus_object(se.get()),
               "/com/quor/Event/Consumer/0x55d0c0ffee00");
}

TEST(SubscribeExpression, CopiesEverything) {
  auto se = make_full();
  subscribe_expression_add_key_value(se.get(), "k", "v");
  const ExpressionOwner copy{subscribe_expression_copy(se.get())};
  const auto before = BytesRef::adopt(subscribe_expression_serialize(se.get()));
  se.reset();
  const auto after = BytesRef::adopt(subscribe_expression_serialize(copy.get()));
  EXPECT_EQ(as_text(after.get()), as_text(before.get()));
}

// ---- Tests

TEST(SubscribeExpression, AddsEveryKindOfTest) {
  using Add = std::function<gboolean(SubscribeExpression *)>;
  const std::pair<Add, std::string> kinds[]{
      {[](auto *se) { return subscribe_expression_add_key_value(se, "k", "v"); },
       pair_record("k", "v", false)},
      {[](auto *se) { return subscribe_expression_add_key_not_value(se, "k", "v"); },
       pair_record("k", "v", true)},
      {[](auto *se) { return subscribe_expression_add_key(se, "k"); },
       pair_record("k", nullptr, false)},
      {[](auto *se) { return subscribe_expression_add_not_key(se, "k"); },
       pair_record("k", nullptr, true)},
  };
  for (const auto &[add, pair] : kinds) {
    const auto se = make_full();
    EXPECT_TRUE(add(se.get()));
    const auto array = BytesRef::adopt(subscribe_expression_serialize(se.get()));
    EXPECT_EQ(as_text(array.get()), record(1, "\xf3\x01\0"s + pair + "\0\0"s));
  }
}

TEST(SubscribeExpression, AddsTestsOfAnyKey) {
  for (const bool negated : {false, true}) {
    const auto se = make_full();
    EXPECT_TRUE(negated ? subscribe_expression_add_not_value(se.get(), "v")
                        : subscribe_expression_add_value(se.get(), "v"));
    const auto array = BytesRef::adopt(subscribe_expression_serialize(se.get()));
    EXPECT_EQ(as_text(array.get()),
              record(1, "\xf3\0\0\x01\0"s + pair_record(nullptr, "v", negated)));
  }
}

TEST(SubscribeExpression, MatchesAnyKeyWithTheValue) {
  const auto se = make_expression();
  subscribe_expression_add_value(se.get(), "x");
  EXPECT_TRUE(event_contains(make_event({{"a", "y"}, {"b", "x"}}).get(), se.get()));
  EXPECT_FALSE(event_contains(make_event({{"a", "y"}}).get(), se.get()));
}

TEST(SubscribeExpression, MatchesNoKeyWithTheValue) {
  const auto se = make_expression();
  subscribe_expression_add_not_value(se.get(), "x");
  EXPECT_FALSE(event_contains(make_event({{"a", "y"}, {"b", "x"}}).get(), se.get()));
  EXPECT_TRUE(event_contains(make_event({{"a", "y"}}).get(), se.get()));
}

TEST(SubscribeExpression, MatchesAnAbsentKey) {
  const auto se = make_expression();
  subscribe_expression_add_not_key(se.get(), "k");
  EXPECT_TRUE(event_contains(make_event({{"a", "1"}}).get(), se.get()));
  EXPECT_FALSE(event_contains(make_event({{"k", "1"}}).get(), se.get()));
}

TEST(SubscribeExpression, MatchesEitherSideOfAnOr) {
  const auto se = make_expression();
  subscribe_expression_add_key_value(se.get(), "a", "1");
  subscribe_expression_or(se.get());
  subscribe_expression_add_key_value(se.get(), "b", "2");
  subscribe_expression_add_key_not_value(se.get(), "c", "3");
  EXPECT_TRUE(event_contains(make_event({{"a", "1"}, {"c", "3"}}).get(), se.get()));
  EXPECT_TRUE(event_contains(make_event({{"b", "2"}}).get(), se.get()));
  EXPECT_FALSE(event_contains(make_event({{"b", "2"}, {"c", "3"}}).get(), se.get()));
}

TEST(SubscribeExpression, SetsTheNameSpaceOfAKeyInTheCurrentList) {
  const auto se = make_expression();
  subscribe_expression_add_key(se.get(), "a");
  EXPECT_TRUE(subscribe_expression_set_name_space(se.get(), "a", "tns1"));
  EXPECT_STREQ(inspectable_get_name_space(&se->inspectable, "a"), "tns1");
  EXPECT_FALSE(event_contains(make_event({{"a", "1"}}).get(), se.get()));
  EXPECT_TRUE(subscribe_expression_set_name_space(se.get(), "a", nullptr));
  EXPECT_TRUE(event_contains(make_event({{"a", "1"}}).get(), se.get()));
  EXPECT_FALSE(subscribe_expression_set_name_space(se.get(), "b", "tns1"));
  subscribe_expression_or(se.get());
  EXPECT_FALSE(subscribe_expression_set_name_space(se.get(), "a", "tns1"));
}

TEST(SubscribeExpression, LendsItsOwnContainer) {
  const auto se = make_expression();
  EXPECT_EQ(subscribe_expression_get_inspectable(se.get()), &se->inspectable);
}

TEST(SubscribeExpression, GivesTheTestsAsPlainRecords) {
  const auto se = make_expression();
  subscribe_expression_add_key_value(se.get(), "a", "1");
  subscribe_expression_or(se.get());
  subscribe_expression_add_not_value(se.get(), "2");
  GList *raw = subscribe_expression_get_raw(se.get());
  ASSERT_EQ(g_list_length(raw), 2u);
  const auto *last = static_cast<const GList *>(raw->data);
  const auto *first = static_cast<const GList *>(raw->next->data);
  const auto *any_key = static_cast<const KeyValueRaw *>(last->data);
  EXPECT_EQ(any_key->key, nullptr);
  EXPECT_STREQ(any_key->value, "2");
  EXPECT_TRUE(any_key->negated);
  const auto *plain = static_cast<const KeyValueRaw *>(first->data);
  EXPECT_STREQ(plain->key, "a");
  EXPECT_STREQ(plain->value, "1");
  EXPECT_FALSE(plain->negated);
  subscribe_expression_free_raw(raw);
  subscribe_expression_free_raw(nullptr);
}

// ---- Binary form

TEST(SubscribeExpression, WritesEveryField) {
  const auto se = make_full();
  subscribe_expression_add_key_value(se.get(), "k", "v");
  subscribe_expression_or(se.get());
  subscribe_expression_add_value(se.get(), "w");
  const std::string expected =
      record(2, "\xf3\x01\0"s + pair_record("k", "v", false) + "\0\0"s //
                    + "\xf3\0\0\x01\0"s + pair_record(nullptr, "w", false));
  const auto array = BytesRef::adopt(subscribe_expression_serialize(se.get()));
  EXPECT_EQ(as_text(array.get()), expected);

  auto behind = as_array("before");
  subscribe_expression_serialize_internal(se.get(), behind.get());
  EXPECT_EQ(as_text(behind.get()), "before" + expected);
}

TEST(SubscribeExpression, ReadsEveryField) {
  const std::string written = record(1, "\xf3\x01\0"s + pair_record("k", "v", true) + "\0\0"s);
  const ExpressionOwner se{subscribe_expression_deserialize(as_array(written).get())};
  EXPECT_EQ(subscribe_expression_get_id(se.get()), 0x01020304u);
  EXPECT_STREQ(subscribe_expression_get_dbus_service(se.get()), ":1.5");
  EXPECT_STREQ(subscribe_expression_get_dbus_object(se.get()), "/a");
  EXPECT_EQ(subscribe_expression_get_consumer_token(se.get()), 7u);
  EXPECT_TRUE(subscribe_expression_get_clandestine(se.get()));
  const KeyValue *pair = inspectable_get_key_value(&se->inspectable, "k");
  ASSERT_NE(pair, nullptr);
  EXPECT_STREQ(pair->value, "v");
  EXPECT_TRUE(pair->negated);
}

// For whoever reads it next as for whoever is lent it.
TEST(SubscribeExpression, ATextThatIsReadEndsAtItsFirstNul) {
  std::string written = record(1, "\xf3\0\0\0\0"s);
  const std::size_t service = written.find(":1.5");
  written[service + 2] = '\0';
  const ExpressionOwner se{subscribe_expression_deserialize(as_array(written).get())};
  EXPECT_STREQ(subscribe_expression_get_dbus_service(se.get()), ":1");
  const auto again = BytesRef::adopt(subscribe_expression_serialize(se.get()));
  written.replace(service - 2, 6, "\x02\0:1"s);
  EXPECT_EQ(as_text(again.get()), written);
}

TEST(SubscribeExpression, ReadsFromWhereTheIndexStands) {
  const std::string written = record(1, "\xf3\0\0\0\0"s);
  guint32 indx = 2;
  const ExpressionOwner se{
      subscribe_expression_deserialize_internal(as_array("xx" + written + "rest").get(), &indx)};
  EXPECT_EQ(subscribe_expression_get_id(se.get()), 0x01020304u);
  EXPECT_EQ(indx, 2 + written.size());
}

TEST(SubscribeExpression, KeepsListsAndTheirOrderOnTheWay) {
  const auto se = make_full();
  for (const char *key : {"c", "a", "b"}) {
    subscribe_expression_add_key(se.get(), key);
    subscribe_expression_or(se.get());
  }
  const auto written = BytesRef::adopt(subscribe_expression_serialize(se.get()));
  const ExpressionOwner read{subscribe_expression_deserialize(written.get())};
  const auto again = BytesRef::adopt(subscribe_expression_serialize(read.get()));
  EXPECT_EQ(as_text(again.get()), as_text(written.get()));
}

TEST(SubscribeExpressionDeathTest, AbortsOnBrokenRecords) {
  const auto wrong = as_array("\xf1"s);
  const auto empty = as_array("");
  const std::string whole = record(1, "\xf3\0\0\0\0"s);
  const auto cut = as_array(whole.substr(0, 7));
  EXPECT_DEATH(subscribe_expression_deserialize(wrong.get()),
               "subscribe_expression_deserialize_internal: .*"
               "\\(type == SERIALIZE_ID_SUBSCRIBE_EXPRESSION\\)");
  EXPECT_DEATH(subscribe_expression_deserialize(empty.get()),
               "deserialize_size: .*\\(array->len >= \\*indx \\+ size\\)");
  EXPECT_DEATH(subscribe_expression_deserialize(cut.get()),
               "deserialize_string: .*\\(array->len >= \\*indx \\+ length\\)");
}

TEST(SubscribeExpressionDeathTest, AbortsWithoutArguments) {
  const auto se = make_expression();
  const auto array = varro2::new_bytes();
  guint32 indx = 0;
  EXPECT_DEATH(subscribe_expression_serialize_internal(nullptr, array.get()),
               "subscribe_expression_serialize_internal: .*\\(se != NULL\\)");
  EXPECT_DEATH(subscribe_expression_serialize_internal(se.get(), nullptr),
               "subscribe_expression_serialize_internal: .*\\(array != NULL\\)");
  EXPECT_DEATH(subscribe_expression_deserialize_internal(nullptr, &indx),
               "subscribe_expression_deserialize_internal: .*\\(array != NULL\\)");
  EXPECT_DEATH(subscribe_expression_deserialize_internal(array.get(), nullptr),
               "subscribe_expression_deserialize_internal: .*\\(indx != NULL\\)");
}

// ---- XML form

TEST(SubscribeExpression, WritesTheTestsAsAnElement) {
  const auto se = make_full();
  subscribe_expression_add_key_not_value(se.get(), "k", "v");
  subscribe_expression_or(se.get());
  subscribe_expression_add_value(se.get(), "w");
  const OwnedNode node{subscribe_expression_serialize_xmlnode(se.get())};
  EXPECT_STREQ(node->name, "subscribe");
  EXPECT_EQ(node->attributes, nullptr);
  ASSERT_EQ(g_list_length(node->children), 2u);
  const auto *list = static_cast<const XmlNode *>(node->children->data);
  EXPECT_STREQ(list->name, "expression");
  const auto *pair = static_cast<const XmlNode *>(list->children->data);
  EXPECT_STREQ(pair->name, "keyvalue");
  EXPECT_STREQ(xmlnode_get_attribute_value(pair, "key"), "k");
  EXPECT_STREQ(xmlnode_get_attribute_value(pair, "value"), "v");
  EXPECT_STREQ(xmlnode_get_attribute_value(pair, "not"), "true");
}

TEST(SubscribeExpression, KeepsOnlyTheTestsInXml) {
  const auto se = make_full();
  subscribe_expression_add_key_value(se.get(), "k", "a\nb");
  const OwnedText xml{subscribe_expression_serialize_xml(se.get())};
  EXPECT_EQ(std::string{xml.get()}.find('\n'), std::string::npos) << xml.get();
  const ExpressionOwner read{subscribe_expression_deserialize_xml(xml.get())};
  ASSERT_TRUE(read);
  EXPECT_STREQ(inspectable_get_value(&read->inspectable, "k"), "a\nb");
  EXPECT_EQ(subscribe_expression_get_id(read.get()), 0u);
  EXPECT_STREQ(subscribe_expression_get_dbus_service(read.get()), "");
  EXPECT_STREQ(subscribe_expression_get_dbus_object(read.get()), "");
  EXPECT_EQ(subscribe_expression_get_consumer_token(read.get()), 0u);
  EXPECT_FALSE(subscribe_expression_get_clandestine(read.get()));
}

TEST(SubscribeExpression, ReadsHandwrittenXml) {
  const ExpressionOwner se{subscribe_expression_deserialize_xml(
      "<subscribe><expression><keyvalue key='a' value='1'/></expression>"
      "<expression><keyvalue key-wildcard='true' value='2' not='true'/></expression></subscribe>")};
  ASSERT_TRUE(se);
  EXPECT_TRUE(event_contains(make_event({{"a", "1"}, {"b", "2"}}).get(), se.get()));
  EXPECT_TRUE(event_contains(make_event({{"a", "3"}}).get(), se.get()));
  EXPECT_FALSE(event_contains(make_event({{"a", "2"}}).get(), se.get()));
}

TEST(SubscribeExpression, RefusesAnElementOfAnotherName) {
  const OwnedNode node{xmlnode_parse_string("<property/>")};
  LogCapture log;
  EXPECT_EQ(subscribe_expression_deserialize_xmlnode(node.get()), nullptr);
  EXPECT_EQ(log.texts(), std::vector{"Expected tag 'subscribe' and got 'property'"s});
  EXPECT_EQ(log.lines().front().level, G_LOG_LEVEL_WARNING);
}

TEST(SubscribeExpression, RefusesXmlWithoutTests) {
  LogCapture log;
  EXPECT_EQ(subscribe_expression_deserialize_xml("<subscribe></subscribe>"), nullptr);
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(log.texts()[0], "There are no expressions in the xml");
  EXPECT_TRUE(log.texts()[1].starts_with("Failed when deserializing '<subscribe"));
}

TEST(SubscribeExpression, RefusesWhatIsNoXml) {
  LogCapture log;
  EXPECT_EQ(subscribe_expression_deserialize_xml("<subscribe>"), nullptr);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING), std::vector{"Could not parse XML '<subscribe>'"s});
}

// ---- Print

TEST(SubscribeExpression, PrintsItself) {
  const auto se = make_full();
  subscribe_expression_set_id(se.get(), 7);
  subscribe_expression_add_key_value(se.get(), "k", "v");
  subscribe_expression_or(se.get());
  subscribe_expression_add_not_value(se.get(), "w");
  LogCapture log;
  subscribe_expression_print(se.get());
  const std::vector<std::string> expected{"---- Subscribe Expression (id:  7) ----",
                                          "[k = 'v']",
                                          "OR",
                                          "[* != 'w']",
                                          "DBus Service: :1.5",
                                          "DBus Object: /a",
                                          "Consumer Token: 7",
                                          "Clandestine: true",
                                          "---------------------------------------"};
  EXPECT_EQ(log.texts(), expected);
  for (const auto &line : log.lines()) {
    EXPECT_EQ(line.level, G_LOG_LEVEL_MESSAGE);
    EXPECT_EQ(line.domain, "");
  }
}

TEST(SubscribeExpression, PrintsEmptyTextsWhenNew) {
  const auto se = make_expression();
  LogCapture log;
  subscribe_expression_print(se.get());
  const std::vector<std::string> expected{"---- Subscribe Expression (id:  0) ----",
                                          "DBus Service: ",
                                          "DBus Object: ",
                                          "Consumer Token: 0",
                                          "Clandestine: false",
                                          "---------------------------------------"};
  EXPECT_EQ(log.texts(), expected);
}

// ---- Refusals

TEST(SubscribeExpression, RefusesMissingArguments) {
  const auto owner = make_expression();
  SubscribeExpression *se = owner.get();
  struct Call {
    const char *name;
    const char *expression;
    std::function<bool()> is_neutral;
  };
  const auto done = [](auto call) {
    return [call] {
      call();
      return true;
    };
  };
#define CALL(expression, function, ...)                                                            \
  {                                                                                                \
#function, expression, [=] { return !function(__VA_ARGS__); }                                  \
  }
#define VOID_CALL(expression, function, ...)                                                       \
  {                                                                                                \
#function, expression, done([=] { function(__VA_ARGS__); })                                    \
  }
  const Call calls[]{
      CALL("se != NULL", subscribe_expression_copy, nullptr),
      VOID_CALL("se != NULL", subscribe_expression_set_id, nullptr, 1),
      CALL("se != NULL", subscribe_expression_get_id, nullptr),
      VOID_CALL("se != NULL", subscribe_expression_set_consumer_token, nullptr, 1),
      CALL("se != NULL", subscribe_expression_get_consumer_token, nullptr),
      VOID_CALL("se != NULL", subscribe_expression_set_dbus_service, nullptr, "a"),
      VOID_CALL("dbus_service != NULL", subscribe_expression_set_dbus_service, se, nullptr),
      CALL("se != NULL", subscribe_expression_get_dbus_service, nullptr),
      VOID_CALL("se != NULL", subscribe_expression_set_dbus_object, nullptr, "/a"),
      VOID_CALL("dbus_object != NULL", subscribe_expression_set_dbus_object, se, nullptr),
      CALL("se != NULL", subscribe_expression_get_dbus_object, nullptr),
      CALL("se != NULL", subscribe_expression_get_clandestine, nullptr),
      CALL("se != NULL", subscribe_expression_get_inspectable, nullptr),
      CALL("se != NULL", subscribe_expression_get_raw, nullptr),
      CALL("se != NULL", subscribe_expression_add_key_value, nullptr, "k", "v"),
      CALL("key != NULL", subscribe_expression_add_key_value, se, nullptr, "v"),
      CALL("value != NULL", subscribe_expression_add_key_value, se, "k", nullptr),
      CALL("se != NULL", subscribe_expression_add_key_not_value, nullptr, "k", "v"),
      CALL("key != NULL", subscribe_expression_add_key_not_value, se, nullptr, "v"),
      CALL("value != NULL", subscribe_expression_add_key_not_value, se, "k", nullptr),
      CALL("se != NULL", subscribe_expression_add_key, nullptr, "k"),
      CALL("key != NULL", subscribe_expression_add_key, se, nullptr),
      CALL("se != NULL", subscribe_expression_add_not_key, nullptr, "k"),
      CALL("key != NULL", subscribe_expression_add_not_key, se, nullptr),
      CALL("se != NULL", subscribe_expression_add_value, nullptr, "v"),
      CALL("value != NULL", subscribe_expression_add_value, se, nullptr),
      CALL("se != NULL", subscribe_expression_add_not_value, nullptr, "v"),
      CALL("value != NULL", subscribe_expression_add_not_value, se, nullptr),
      CALL("se != NULL", subscribe_expression_set_name_space, nullptr, "k", "n"),
      CALL("key != NULL", subscribe_expression_set_name_space, se, nullptr, "n"),
      VOID_CALL("se != NULL", subscribe_expression_or, nullptr),
      CALL("se != NULL", subscribe_expression_serialize, nullptr),
      CALL("array != NULL", subscribe_expression_deserialize, nullptr),
      CALL("se != NULL", subscribe_expression_serialize_xmlnode, nullptr),
      CALL("se != NULL", subscribe_expression_serialize_xml, nullptr),
      CALL("xml != NULL", subscribe_expression_deserialize_xml, nullptr),
      CALL("node != NULL", subscribe_expression_deserialize_xmlnode, nullptr),
      VOID_CALL("se != NULL", subscribe_expression_print, nullptr),
  };
#undef CALL
#undef VOID_CALL
  for (const Call &call : calls) {
    LogCapture log;
    EXPECT_TRUE(call.is_neutral()) << call.name;
    EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL), std::vector{refusal(call.name, call.expression)});
    EXPECT_EQ(log.lines().size(), 1u) << call.name;
  }
  const auto array = BytesRef::adopt(subscribe_expression_serialize(se));
  const auto untouched = BytesRef::adopt(subscribe_expression_serialize(make_expression().get()));
  EXPECT_EQ(as_text(array.get()), as_text(untouched.get()));
}

TEST(SubscribeExpression, FreesNull) {
  subscribe_expression_free(nullptr);
}

} // namespace
