#include "propertystate.hpp"
#include "logcapture.hpp"
#include "recordtext.hpp"

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>

#include <gtest/gtest.h>

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

using OwnedState = Owned<PropertyState, property_state_free>;
using OwnedNode = Owned<XmlNode, xmlnode_free_tree>;

// port = 1, and state = true as the state key.
OwnedState make_port_state() {
  OwnedState state{property_state_new()};
  EXPECT_TRUE(property_state_add_key_value(state.get(), "port", "1", FALSE));
  EXPECT_TRUE(property_state_add_key_value(state.get(), "state", "true", TRUE));
  return state;
}

// The same by hand.
const std::string port_state_record =
    "\xf9"s                     // property state
    "\xf2\x01\0\x03\0"s         // container: 1 and-list, of a property state
    "\xf3\x02\0"s               // and-list of two keys
    "\xf4\x01\0"s               // bucket of one pair
    "\xf5\x04\0port\0"s         // pair: key, not any
    "\0\0\0\0\x01\0001\0"s      // name space, nice name, value, not any
    "\0\0\0\0\0\0\0\x04\0\0"s   // texts, not negated, a string, no tags
    "\xf4\x01\0"s               // bucket of one pair
    "\xf5\x05\0state\0"s        // pair: key, not any
    "\0\0\0\0\x04\0true\0"s     // name space, nice name, value, not any
    "\0\0\0\0\0\0\0\x04\x01\0"s // texts, not negated, a string, one tag
    "\x0e\0property-state"s     //
    "\0\0\0\0"s;                // no tests of any key, no tags

ExpressionOwner make_plain() {
  ExpressionOwner se{subscribe_expression_new()};
  subscribe_expression_add_key_value(se.get(), "port", "1");
  subscribe_expression_add_key_value(se.get(), "state", "true");
  return se;
}

ExpressionOwner make_inverted() {
  ExpressionOwner se{subscribe_expression_new()};
  subscribe_expression_add_key_value(se.get(), "port", "1");
  subscribe_expression_add_key(se.get(), "state");
  subscribe_expression_add_key_not_value(se.get(), "state", "true");
  return se;
}

bool refuses_more_keys(PropertyState *state) {
  LogCapture log;
  const gboolean added = property_state_add_key_value(state, "more", "1", FALSE);
  return !added && log.count(G_LOG_LEVEL_CRITICAL,
                             "property_state_add_key_value: assertion '!self->locked' failed") == 1;
}

// ---- Keys

TEST(PropertyState, HoldsItsKeys) {
  const auto state = make_port_state();
  const Inspectable *keys = property_state_get_inspectable(state.get());
  EXPECT_EQ(keys, &state->inspectable);
  ASSERT_EQ(inspectable_get_key_count(keys), 2u);
  EXPECT_STREQ(inspectable_get_value(keys, "port"), "1");
  EXPECT_STREQ(inspectable_get_value(keys, "state"), "true");
  EXPECT_FALSE(inspectable_has_tag_at(keys, 0, "property-state"));
  EXPECT_TRUE(inspectable_has_tag_at(keys, 1, "property-state"));
}

TEST(PropertyState, RefusesAKeyThatIsThereInSilence) {
  const auto state = make_port_state();
  LogCapture log;
  EXPECT_FALSE(property_state_add_key_value(state.get(), "port", "2", FALSE));
  EXPECT_FALSE(property_state_add_key_value(state.get(), "state", "2", FALSE));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_STREQ(inspectable_get_value(&state->inspectable, "port"), "1");
}

TEST(PropertyState, RefusesASecondStateKeyInSilence) {
  const auto state = make_port_state();
  LogCapture log;
  EXPECT_FALSE(property_state_add_key_value(state.get(), "other", "2", TRUE));
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(inspectable_get_key_count(&state->inspectable), 2u);
  EXPECT_TRUE(property_state_add_key_value(state.get(), "other", "2", FALSE));
}

TEST(PropertyState, TakesAThousandKeys) {
  const OwnedState state{property_state_new()};
  for (int i = 0; i < 1000; ++i)
    ASSERT_TRUE(property_state_add_key_value(state.get(), ("k" + std::to_string(i)).c_str(), "v",
                                             i == 500));
  const auto *inverted = property_state_get_inverted_subscribe_expression(state.get());
  const KeyValue *pair = inspectable_get_key_value(&inverted->inspectable, "k500");
  ASSERT_NE(pair, nullptr);
  EXPECT_TRUE(pair->value_wildcard);
}

// ---- Expressions

TEST(PropertyState, MakesBothExpressions) {
  const auto state = make_port_state();
  const auto *plain = property_state_get_subscribe_expression(state.get());
  const auto *inverted = property_state_get_inverted_subscribe_expression(state.get());
  EXPECT_EQ(record_of(plain), record_of(make_plain().get()));
  EXPECT_EQ(record_of(inverted), record_of(make_inverted().get()));
  EXPECT_EQ(property_state_get_subscribe_expression(state.get()), plain);
  EXPECT_EQ(property_state_get_inverted_subscribe_expression(state.get()), inverted);
}

TEST(PropertyState, FollowsTheProperty) {
  const auto state = make_port_state();
  const auto *plain = property_state_get_subscribe_expression(state.get());
  const auto *inverted = property_state_get_inverted_subscribe_expression(state.get());
  const auto event_with = [](const char *port, const char *value) {
    const DeclarationOwner declaration{event_declaration_new(FALSE)};
    event_declaration_add_key_value(declaration.get(), "port", port, VALUE_TYPE_STRING);
    if (value)
      event_declaration_add_key_value(declaration.get(), "state", value, VALUE_TYPE_STRING);
    return EventOwner{event_declaration_generate_event(declaration.get())};
  };
  EXPECT_TRUE(event_contains(event_with("1", "true").get(), plain));
  EXPECT_FALSE(event_contains(event_with("1", "true").get(), inverted));
  EXPECT_FALSE(event_contains(event_with("1", "false").get(), plain));
  EXPECT_TRUE(event_contains(event_with("1", "false").get(), inverted));
  EXPECT_FALSE(event_contains(event_with("2", "false").get(), inverted));
  EXPECT_FALSE(event_contains(event_with("1", nullptr).get(), inverted));
}

TEST(PropertyState, LocksWithEitherExpression) {
  const auto first = make_port_state();
  property_state_get_subscribe_expression(first.get());
  EXPECT_TRUE(refuses_more_keys(first.get()));
  const auto second = make_port_state();
  property_state_get_inverted_subscribe_expression(second.get());
  EXPECT_TRUE(refuses_more_keys(second.get()));
  EXPECT_EQ(inspectable_get_key_count(&second->inspectable), 2u);
}

TEST(PropertyState, MakesAnExpressionWithoutLocking) {
  const auto state = make_port_state();
  const ExpressionOwner plain{property_state_to_subscribe_expression(state.get(), FALSE)};
  const ExpressionOwner inverted{property_state_to_subscribe_expression(state.get(), TRUE)};
  EXPECT_EQ(record_of(plain.get()), record_of(make_plain().get()));
  EXPECT_EQ(record_of(inverted.get()), record_of(make_inverted().get()));
  EXPECT_TRUE(property_state_add_key_value(state.get(), "more", "1", FALSE));
}

TEST(PropertyState, CarriesNameSpacesIntoTheExpressions) {
  const auto state = make_port_state();
  EXPECT_TRUE(property_state_set_name_space(state.get(), "port", "p"));
  EXPECT_TRUE(property_state_set_name_space(state.get(), "state", "s"));
  EXPECT_FALSE(property_state_set_name_space(state.get(), "other", "s"));

  const auto plain = make_plain();
  subscribe_expression_set_name_space(plain.get(), "port", "p");
  subscribe_expression_set_name_space(plain.get(), "state", "s");
  EXPECT_EQ(record_of(property_state_get_subscribe_expression(state.get())),
            record_of(plain.get()));
  const auto inverted = make_inverted();
  subscribe_expression_set_name_space(inverted.get(), "port", "p");
  subscribe_expression_set_name_space(inverted.get(), "state", "s");
  EXPECT_EQ(record_of(property_state_get_inverted_subscribe_expression(state.get())),
            record_of(inverted.get()));
}

TEST(PropertyState, ChangesNameSpacesButNotTheExpressionsOnceLocked) {
  const auto state = make_port_state();
  const std::string before = record_of(property_state_get_subscribe_expression(state.get()));
  EXPECT_TRUE(property_state_set_name_space(state.get(), "port", "p"));
  EXPECT_STREQ(inspectable_get_name_space(&state->inspectable, "port"), "p");
  EXPECT_EQ(record_of(property_state_get_subscribe_expression(state.get())), before);
}

// ---- Binary form

TEST(PropertyState, WritesTheKeysAndNothingElse) {
  const auto state = make_port_state();
  const auto array = BytesRef::adopt(property_state_serialize(state.get()));
  EXPECT_EQ(as_text(array.get()), port_state_record);
  property_state_get_subscribe_expression(state.get());
  const auto behind = as_array("before");
  property_state_serialize_internal(state.get(), behind.get());
  EXPECT_EQ(as_text(behind.get()), "before" + port_state_record);
}

TEST(PropertyState, IsLockedWhenRead) {
  const OwnedState state{property_state_deserialize(as_array(port_state_record).get())};
  EXPECT_TRUE(refuses_more_keys(state.get()));
  EXPECT_EQ(record_of(property_state_get_subscribe_expression(state.get())),
            record_of(make_plain().get()));
  EXPECT_EQ(record_of(property_state_get_inverted_subscribe_expression(state.get())),
            record_of(make_inverted().get()));
  const auto again = BytesRef::adopt(property_state_serialize(state.get()));
  EXPECT_EQ(as_text(again.get()), port_state_record);
}

TEST(PropertyState, ReadsFromWhereTheIndexStands) {
  guint32 indx = 3;
  const OwnedState state{property_state_deserialize_internal(
      as_array("xxx" + port_state_record + "rest").get(), &indx)};
  EXPECT_STREQ(inspectable_get_value(&state->inspectable, "port"), "1");
  EXPECT_EQ(indx, 3 + port_state_record.size());
}

TEST(PropertyStateDeathTest, AbortsOnBrokenRecords) {
  const auto wrong = as_array("\xf6"s);
  EXPECT_DEATH(property_state_deserialize(wrong.get()),
               "property_state_deserialize_internal: .*"
               "\\(type == SERIALIZE_ID_PROPERTY_STATE\\)");
}

TEST(PropertyStateDeathTest, AbortsWithoutArguments) {
  const auto state = make_port_state();
  const auto array = varro2::new_bytes();
  guint32 indx = 0;
  EXPECT_DEATH(property_state_serialize_internal(nullptr, array.get()),
               "property_state_serialize_internal: .*\\(prop != NULL\\)");
  EXPECT_DEATH(property_state_serialize_internal(state.get(), nullptr),
               "property_state_serialize_internal: .*\\(array != NULL\\)");
  EXPECT_DEATH(property_state_deserialize_internal(nullptr, &indx),
               "property_state_deserialize_internal: .*\\(array != NULL\\)");
  EXPECT_DEATH(property_state_deserialize_internal(array.get(), nullptr),
               "property_state_deserialize_internal: .*\\(indx != NULL\\)");
}

// ---- XML form

TEST(PropertyState, WritesTheKeysAsAnElement) {
  const auto state = make_port_state();
  const OwnedNode node{property_state_serialize_xmlnode(state.get())};
  EXPECT_STREQ(node->name, "property");
  EXPECT_EQ(node->attributes, nullptr);
  ASSERT_EQ(g_list_length(node->children), 1u);
  const auto *list = static_cast<const XmlNode *>(node->children->data);
  EXPECT_STREQ(list->name, "expression");
  ASSERT_EQ(g_list_length(list->children), 2u);
  const auto *pair = static_cast<const XmlNode *>(list->children->next->data);
  EXPECT_STREQ(xmlnode_get_attribute_value(pair, "key"), "state");
  const auto *tag = static_cast<const XmlNode *>(pair->children->data);
  EXPECT_STREQ(tag->name, "tag");
  EXPECT_STREQ(xmlnode_get_attribute_value(tag, "tag"), "property-state");
}

TEST(PropertyState, ComesBackFromXmlLocked) {
  const auto state = make_port_state();
  const OwnedText xml{property_state_serialize_xml(state.get())};
  const OwnedState read{property_state_deserialize_xml(xml.get())};
  ASSERT_TRUE(read);
  const auto array = BytesRef::adopt(property_state_serialize(read.get()));
  EXPECT_EQ(as_text(array.get()), port_state_record);
  EXPECT_TRUE(refuses_more_keys(read.get()));
  EXPECT_EQ(record_of(property_state_get_inverted_subscribe_expression(read.get())),
            record_of(make_inverted().get()));
}

TEST(PropertyState, UsesThePlainXmlWriter) {
  const OwnedState state{property_state_new()};
  property_state_add_key_value(state.get(), "k", "a\nb", TRUE);
  const OwnedText xml{property_state_serialize_xml(state.get())};
  EXPECT_NE(std::string{xml.get()}.find("a\nb"), std::string::npos) << xml.get();
}

OwnedNode property_node(int state_keys) {
  std::string xml = "<property><expression><keyvalue key='plain' value='1'/>";
  for (int i = 0; i < state_keys; ++i)
    xml += "<keyvalue key='s" + std::to_string(i) +
           "' value='1'><tag tag='property-state'/>"
           "</keyvalue>";
  return OwnedNode{xmlnode_parse_string((xml + "</expression></property>").c_str())};
}

TEST(PropertyState, NeedsExactlyOneStateKeyInXml) {
  LogCapture log;
  EXPECT_EQ(property_state_deserialize_xmlnode(property_node(0).get()), nullptr);
  EXPECT_EQ(property_state_deserialize_xmlnode(property_node(2).get()), nullptr);
  EXPECT_EQ(log.texts(),
            (std::vector<std::string>{
                "Expected to find 1 keyvalue tagged with 'property-state' but found 0",
                "Expected to find 1 keyvalue tagged with 'property-state' but found 2"}));
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING).size(), 2u);
  const OwnedState state{property_state_deserialize_xmlnode(property_node(1).get())};
  EXPECT_TRUE(state);
}

TEST(PropertyState, RefusesAnElementOfAnotherName) {
  const OwnedNode node{xmlnode_parse_string("<property-state/>")};
  LogCapture log;
  EXPECT_EQ(property_state_deserialize_xmlnode(node.get()), nullptr);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING),
            std::vector{"Expected tag 'property' and got 'property-state'"s});
  EXPECT_EQ(log.lines().size(), 1u);
}

TEST(PropertyState, RefusesXmlWithoutKeys) {
  const OwnedNode node{xmlnode_parse_string("<property/>")};
  LogCapture log;
  EXPECT_EQ(property_state_deserialize_xmlnode(node.get()), nullptr);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_WARNING), std::vector{"There are no expressions in the xml"s});
}

// ---- Print and refusals

TEST(PropertyState, PrintsItself) {
  const auto state = make_port_state();
  property_state_set_name_space(state.get(), "port", "tns1");
  LogCapture log;
  property_state_print(state.get());
  EXPECT_EQ(log.texts(G_LOG_LEVEL_MESSAGE),
            (std::vector<std::string>{"----------- Property State ------------",
                                      "[tns1:port = '1']", "[state = 'true'] {property-state}",
                                      "---------------------------------------"}));
  for (const auto &line : log.lines())
    EXPECT_EQ(line.domain, "");
}

TEST(PropertyState, RefusesMissingArguments) {
  const OwnedState owner{property_state_new()};
  PropertyState *state = owner.get();
  struct Call {
    const char *name;
    const char *expression;
    std::function<bool()> is_neutral;
  };
#define CALL(expression, function, ...)                                                            \
  {                                                                                                \
#function, expression, [=] { return !function(__VA_ARGS__); }                                  \
  }
  const Call calls[]{
      CALL("self != NULL", property_state_add_key_value, nullptr, "k", "v", FALSE),
      CALL("key != NULL", property_state_add_key_value, state, nullptr, "v", FALSE),
      CALL("value != NULL", property_state_add_key_value, state, "k", nullptr, FALSE),
      CALL("self != NULL", property_state_set_name_space, nullptr, "k", "n"),
      CALL("key != NULL", property_state_set_name_space, state, nullptr, "n"),
      CALL("self != NULL", property_state_get_subscribe_expression, nullptr),
      CALL("self != NULL", property_state_get_inverted_subscribe_expression, nullptr),
      CALL("prop != NULL", property_state_to_subscribe_expression, nullptr, FALSE),
      CALL("prop != NULL", property_state_get_inspectable, nullptr),
      CALL("prop != NULL", property_state_serialize, nullptr),
      CALL("array != NULL", property_state_deserialize, nullptr),
      CALL("prop != NULL", property_state_serialize_xmlnode, nullptr),
      CALL("prop != NULL", property_state_serialize_xml, nullptr),
      CALL("xml != NULL", property_state_deserialize_xml, nullptr),
      CALL("node != NULL", property_state_deserialize_xmlnode, nullptr),
      {"property_state_print", "prop != NULL",
       [] {
         property_state_print(nullptr);
         return true;
       }},
  };
#undef CALL
  for (const Call &call : calls) {
    LogCapture log;
    EXPECT_TRUE(call.is_neutral()) << call.name;
    EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL), std::vector{refusal(call.name, call.expression)});
    EXPECT_EQ(log.lines().size(), 1u) << call.name;
  }
  EXPECT_EQ(inspectable_get_key_count(&state->inspectable), 0u);
}

TEST(PropertyState, FreesNull) {
  property_state_free(nullptr);
}

} // namespace
