// The container: making, adding, setting, reading by key and by position.
#include "commalocale.hpp"
#include "modeltest.hpp"

#include <varro2/eventutils.h>

#include <cmath>
#include <cstdlib>
#include <limits>

using namespace varro2::test;

namespace {

constexpr guint32 all_types[] = {IT_EVENT_DECLARATION, IT_EVENT, IT_SUBSCRIBE_EXPRESSION,
                                 IT_PROPERTY_STATE};

// One of any type with the keys A = "1" and B = "2".
OwnedInspectable two_keys(guint32 type) {
  auto inspect = new_inspectable(type);
  add(inspect, "A", "1");
  add(inspect, "B", "2");
  return inspect;
}

Texts keys_of(const OwnedInspectable &inspect) {
  Texts keys;
  for (guint32 at = 0; at < inspectable_get_key_count(inspect.get()); ++at)
    keys.emplace_back(inspectable_get_key_at(inspect.get(), at));
  return keys;
}

// An event cannot be given name spaces and types: it gets them from a declaration.
OwnedInspectable event_from(const OwnedInspectable &declaration) {
  return OwnedInspectable{inspectable_copy(declaration.get(), IT_EVENT)};
}

// ---- Making ----

TEST(Inspectable, TypesHaveTheirNumbers) {
  EXPECT_EQ(IT_EVENT_DECLARATION, 0);
  EXPECT_EQ(IT_EVENT, 1);
  EXPECT_EQ(IT_SUBSCRIBE_EXPRESSION, 2);
  EXPECT_EQ(IT_PROPERTY_STATE, 3);
}

TEST(Inspectable, StartsEmpty) {
  for (const guint32 type : all_types) {
    const auto inspect = new_inspectable(type);
    EXPECT_FALSE(inspectable_get_internal(inspect.get()));
    EXPECT_EQ(inspectable_get_tags(inspect.get()), nullptr);
    EXPECT_EQ(inspectable_get_key_value(inspect.get(), "A"), nullptr);
  }
  EXPECT_EQ(inspectable_get_key_count(new_inspectable(IT_EVENT).get()), 0u);
  EXPECT_EQ(inspectable_get_key_count(new_inspectable(IT_PROPERTY_STATE).get()), 0u);
  inspectable_free(nullptr);
}

TEST(Inspectable, RefusesAnUnknownType) {
  EXPECT_DEATH(inspectable_new(4), ":inspectable_new: assertion failed");
  const auto inspect = new_inspectable(IT_EVENT);
  EXPECT_DEATH(inspectable_copy(inspect.get(), 4), ":inspectable_copy: assertion failed");
}

TEST(Inspectable, OnlySubscribeExpressionsHaveOr) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT, IT_PROPERTY_STATE}) {
    const auto inspect = new_inspectable(type);
    const LogCapture log;
    EXPECT_FALSE(inspectable_or(inspect.get()));
    EXPECT_EQ(log.lines(),
              (std::vector<LogLine>{{G_LOG_LEVEL_WARNING, "",
                                     "Only subscribe expressions support the OR statement."}}));
  }
  const LogCapture log;
  EXPECT_TRUE(inspectable_or(new_inspectable(IT_SUBSCRIBE_EXPRESSION).get()));
  EXPECT_TRUE(log.lines().empty());
}

TEST(Inspectable, AfterOrTheKeysBeforeAreNotSeen) {
  const auto inspect = two_keys(IT_SUBSCRIBE_EXPRESSION);
  inspectable_or(inspect.get());
  EXPECT_EQ(inspectable_get_value(inspect.get(), "A"), nullptr);
  add(inspect, "A", "9");
  EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), "9");
  EXPECT_EQ(inspectable_get_value(inspect.get(), "B"), nullptr);
}

// ---- Adding ----

TEST(InspectableAdd, MakesAPairWithEmptyTexts) {
  const auto inspect = new_inspectable(IT_EVENT);
  EXPECT_TRUE(inspectable_add_key_value(inspect.get(), "A", FALSE, "1", FALSE, TRUE));
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
  ASSERT_NE(pair, nullptr);
  EXPECT_TRUE(key_value_is_equal(pair, new_pair({.key = "A", .negated = TRUE}).get()));
  EXPECT_STREQ(pair->name_space, "");
  EXPECT_STREQ(pair->key_nice_name, "");
  EXPECT_STREQ(pair->value_nice_name, "");
  EXPECT_STREQ(pair->value_user_string, "");
  EXPECT_STREQ(pair->complex_type_name, "");
  EXPECT_EQ(pair->tags, nullptr);
  EXPECT_EQ(pair->value_type, 4u);
  EXPECT_FALSE(pair->value_settable);
  EXPECT_FALSE(pair->evaluated);
  EXPECT_FALSE(pair->paired);
}

TEST(InspectableAdd, OpenKeyIsSettable) {
  const auto inspect = new_inspectable(IT_EVENT_DECLARATION);
  inspectable_add_key_value(inspect.get(), "A", FALSE, "ignored", TRUE, FALSE);
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
  EXPECT_STREQ(pair->value, "");
  EXPECT_TRUE(pair->value_wildcard);
  EXPECT_TRUE(pair->value_settable);
}

TEST(InspectableAdd, TheLaterDeclarationOfAKeyWinsInItsPlace) {
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  inspectable_set_nice_names(inspect.get(), "A", "key", "value");
  inspectable_set_name_space(inspect.get(), "A", "tns1");
  inspectable_set_complex_type_name(inspect.get(), "A", "ct");
  inspectable_set_value_user_string(inspect.get(), "A", "us");
  inspectable_set_value_type(inspect.get(), "A", VALUE_TYPE_INT);
  inspectable_add_key_tag(inspect.get(), "A", "a");
  add(inspect, "A", "3");
  // Nothing of the former pair is left.
  EXPECT_TRUE(key_value_is_equal(inspectable_get_key_value(inspect.get(), "A"),
                                 new_pair({.key = "A", .value = "3"}).get()));
  EXPECT_EQ(keys_of(event_from(inspect)), (Texts{"A", "B"}));
  add_open(inspect, "A");
  EXPECT_TRUE(inspectable_set_value_as_string(inspect.get(), "A", "a text longer than before"));
  add_negated(inspect, "A", "4");
  EXPECT_TRUE(key_value_is_equal(inspectable_get_key_value(inspect.get(), "A"),
                                 new_pair({.key = "A", .value = "4", .negated = TRUE}).get()));
  EXPECT_FALSE(inspectable_set_value_as_string(inspect.get(), "A", "5"));
}

TEST(InspectableAdd, RedeclaringTakesAllPairsOfTheKeyAway) {
  const auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(expression, "A", "1");
  add(expression, "A", "2");
  const OwnedInspectable declaration{inspectable_copy(expression.get(), IT_EVENT_DECLARATION)};
  add(declaration, "A", "3");
  const auto expected = new_inspectable(IT_EVENT_DECLARATION);
  add(expected, "A", "3");
  EXPECT_EQ(record_of(declaration), record_of(expected));
  EXPECT_TRUE(inspectable_is_equal(declaration.get(), expected.get()));
}

TEST(InspectableAdd, RedeclaringSurvivesTheKeysOwnTexts) {
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  for (const char *text : {"short", "a text that needs memory of its own, being long"}) {
    add(declaration, "A", text);
    inspectable_add_key_value(declaration.get(), "A", FALSE,
                              inspectable_get_value(declaration.get(), "A"), FALSE, FALSE);
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "A"), text);
    inspectable_set_name_space(declaration.get(), "A", text);
    inspectable_add_key_value(declaration.get(), "A", FALSE,
                              inspectable_get_name_space(declaration.get(), "A") + 2, FALSE, FALSE);
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "A"), text + 2);
    EXPECT_STREQ(inspectable_get_name_space(declaration.get(), "A"), "");
    inspectable_add_key_tag(declaration.get(), "A", text);
    const auto *tags = inspectable_get_key_value(declaration.get(), "A")->tags;
    add(declaration, "A", static_cast<const char *>(tags->data));
    EXPECT_STREQ(inspectable_get_value(declaration.get(), "A"), text);
  }
}

TEST(InspectableAdd, TestsOfAKeyAddUpInASubscribeExpression) {
  const auto inspect = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(inspect, "A", "1");
  add(inspect, "A", "2");
  EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), "1");
  const Bytes record = record_of(inspect);
  // One and-list with one bucket of two pairs.
  EXPECT_EQ((Bytes{record.begin() + 5, record.begin() + 11}), (Bytes{0xF3, 1, 0, 0xF4, 2, 0}));
}

TEST(InspectableAdd, AKeyIsAddedOnceToAnEventOrPropertyState) {
  for (const guint32 type : {IT_EVENT, IT_PROPERTY_STATE}) {
    const auto inspect = new_inspectable(type);
    add(inspect, "A", "1");
    EXPECT_ABORT(add(inspect, "A", "1"), "inspectable_add_key_value",
                 "inspectable_get_value(inspect, key) == NULL");
  }
}

TEST(InspectableAdd, ChecksItsArgumentsInOrder) {
  const auto add_to = [](Inspectable *inspect, const char *key, gboolean key_wildcard,
                         const char *value, gboolean value_wildcard) {
    inspectable_add_key_value(inspect, key, key_wildcard, value, value_wildcard, FALSE);
  };
  const auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  const char *function = "inspectable_add_key_value";
  EXPECT_ABORT(add_to(nullptr, nullptr, FALSE, nullptr, FALSE), function, "inspect != NULL");
  EXPECT_ABORT(add_to(expression.get(), nullptr, FALSE, nullptr, FALSE), function,
               "key != NULL || key_wildcard == TRUE");
  EXPECT_ABORT(add_to(expression.get(), nullptr, 2, "1", FALSE), function,
               "key != NULL || key_wildcard == TRUE");
  EXPECT_ABORT(add_to(expression.get(), "A", FALSE, nullptr, FALSE), function,
               "value != NULL || value_wildcard == TRUE");
  EXPECT_ABORT(add_to(expression.get(), nullptr, TRUE, nullptr, FALSE), function,
               "value != NULL || value_wildcard == TRUE");
  EXPECT_ABORT(add_to(expression.get(), nullptr, TRUE, nullptr, TRUE), function,
               "key_wildcard == FALSE || value_wildcard == FALSE");
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT, IT_PROPERTY_STATE}) {
    const auto inspect = new_inspectable(type);
    EXPECT_ABORT(add_to(inspect.get(), nullptr, TRUE, "1", FALSE), function,
                 "key_wildcard == FALSE");
  }
}

TEST(InspectableAdd, ATestForAnyKeyIsNotFoundByKey) {
  const auto inspect = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add_for_any_key(inspect, "5");
  EXPECT_EQ(inspectable_get_key_value(inspect.get(), ""), nullptr);
  add(inspect, "", "6");
  EXPECT_STREQ(inspectable_get_value(inspect.get(), ""), "6");
}

// ---- By key ----

TEST(InspectableByKey, UnknownKeysGiveNothing) {
  for (const guint32 type : all_types) {
    const auto inspect = two_keys(type);
    for (const char *key : {"C", "", "a", "a key that nobody ever asked for"}) {
      EXPECT_EQ(inspectable_get_key_value(inspect.get(), key), nullptr);
      EXPECT_EQ(inspectable_get_value(inspect.get(), key), nullptr);
      EXPECT_EQ(inspectable_get_name_space(inspect.get(), key), nullptr);
      EXPECT_EQ(inspectable_get_complex_type_name(inspect.get(), key), nullptr);
      EXPECT_EQ(inspectable_get_value_user_string(inspect.get(), key), nullptr);
    }
  }
  const auto event = two_keys(IT_EVENT);
  EXPECT_EQ(inspectable_get_key_nice_name(event.get(), "C"), nullptr);
  EXPECT_EQ(inspectable_get_value_nice_name(event.get(), "C"), nullptr);
}

TEST(InspectableByKey, AskingForAKeyDoesNotKeepIt) {
  const auto event = two_keys(IT_EVENT);
  const char *key = "asked for, never added";
  inspectable_get_value(event.get(), key);
  inspectable_get_index(event.get(), key);
  EXPECT_EQ(g_quark_try_string(key), 0u);
}

TEST(InspectableByKey, GivesWhatTheDeclarationSet) {
  const auto declaration = two_keys(IT_EVENT_DECLARATION);
  EXPECT_TRUE(inspectable_set_nice_names(declaration.get(), "A", "key name", "value name"));
  EXPECT_TRUE(inspectable_set_name_space(declaration.get(), "A", "tns1"));
  EXPECT_TRUE(inspectable_set_complex_type_name(declaration.get(), "A", "ct"));
  EXPECT_TRUE(inspectable_set_value_user_string(declaration.get(), "A", "user"));
  const auto event = event_from(declaration);
  EXPECT_STREQ(inspectable_get_value(event.get(), "A"), "1");
  EXPECT_STREQ(inspectable_get_name_space(event.get(), "A"), "tns1");
  EXPECT_STREQ(inspectable_get_complex_type_name(event.get(), "A"), "ct");
  EXPECT_STREQ(inspectable_get_value_user_string(event.get(), "A"), "user");
  EXPECT_STREQ(inspectable_get_key_nice_name(event.get(), "A"), "key name");
  EXPECT_STREQ(inspectable_get_value_nice_name(event.get(), "A"), "value name");
  EXPECT_STREQ(inspectable_get_name_space(event.get(), "B"), "");
}

TEST(InspectableByKey, NiceNamesAreForEvents) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    EXPECT_DEATH(inspectable_get_key_nice_name(inspect.get(), "A"),
                 ":inspectable_get_key_nice_name: assertion failed");
    EXPECT_DEATH(inspectable_get_value_nice_name(inspect.get(), "A"),
                 ":inspectable_get_value_nice_name: assertion failed");
  }
}

TEST(InspectableByKey, AbortsWithoutItsArguments) {
  using Getter = const char *(*)(const Inspectable *, const char *);
  const std::pair<const char *, Getter> getters[] = {
      {"inspectable_get_value", inspectable_get_value},
      {"inspectable_get_name_space", inspectable_get_name_space},
      {"inspectable_get_complex_type_name", inspectable_get_complex_type_name},
      {"inspectable_get_value_user_string", inspectable_get_value_user_string},
      {"inspectable_get_key_nice_name", inspectable_get_key_nice_name},
      {"inspectable_get_value_nice_name", inspectable_get_value_nice_name},
  };
  const auto event = two_keys(IT_EVENT);
  for (const auto &[name, getter] : getters) {
    EXPECT_ABORT(getter(nullptr, "A"), name, "inspect != NULL");
    EXPECT_ABORT(getter(event.get(), nullptr), name, "key != NULL");
  }
  EXPECT_ABORT(inspectable_get_key_value(nullptr, "A"), "inspectable_get_key_value",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_get_key_value(event.get(), nullptr), "inspectable_get_key_value",
               "key != NULL");
}

// ---- Values ----

TEST(InspectableSetValue, FillsAnOpenKeyAgainAndAgain) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT}) {
    const auto inspect = new_inspectable(type);
    add_open(inspect, "A");
    for (const char *value : {"1", "", "a text that is longer than what is usual", "2"}) {
      EXPECT_TRUE(inspectable_set_value_as_string(inspect.get(), "A", value));
      EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), value);
      const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
      EXPECT_FALSE(pair->value_wildcard);
      EXPECT_TRUE(pair->value_settable);
    }
  }
}

TEST(InspectableSetValue, LeavesAFixedKeyAlone) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT}) {
    const auto inspect = two_keys(type);
    EXPECT_FALSE(inspectable_set_value_as_string(inspect.get(), "A", "9"));
    EXPECT_FALSE(inspectable_set_value(inspect.get(), "A", "9"));
    EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), "1");
    EXPECT_FALSE(inspectable_set_value_as_string(inspect.get(), "C", "9"));
    EXPECT_FALSE(inspectable_set_value(inspect.get(), "C", "9"));
  }
}

TEST(InspectableSetValue, ReadsTheValueByItsType) {
  const auto inspect = new_inspectable(IT_EVENT_DECLARATION);
  for (const char *key : {"int", "bool", "double", "string"})
    add_open(inspect, key);
  inspectable_set_value_type(inspect.get(), "int", VALUE_TYPE_INT);
  inspectable_set_value_type(inspect.get(), "bool", VALUE_TYPE_BOOL);
  inspectable_set_value_type(inspect.get(), "double", VALUE_TYPE_DOUBLE);
  const gint32 integer = -17;
  const gboolean boolean = TRUE;
  const double number = 0.5;
  EXPECT_TRUE(inspectable_set_value(inspect.get(), "int", &integer));
  EXPECT_TRUE(inspectable_set_value(inspect.get(), "bool", &boolean));
  EXPECT_TRUE(inspectable_set_value(inspect.get(), "double", &number));
  EXPECT_TRUE(inspectable_set_value(inspect.get(), "string", "text"));
  EXPECT_STREQ(inspectable_get_value(inspect.get(), "int"), "-17");
  EXPECT_STREQ(inspectable_get_value(inspect.get(), "bool"), "1");
  EXPECT_STREQ(inspectable_get_value(inspect.get(), "double"), "0.500000");
  EXPECT_STREQ(inspectable_get_value(inspect.get(), "string"), "text");
}

TEST(InspectableSetValue, SurvivesItsOwnText) {
  const auto inspect = new_inspectable(IT_EVENT);
  add_open(inspect, "A");
  for (const char *text : {"short", "a text that needs memory of its own, being long"}) {
    inspectable_set_value_as_string(inspect.get(), "A", text);
    inspectable_set_value_as_string(inspect.get(), "A", inspectable_get_value(inspect.get(), "A"));
    EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), text);
    inspectable_set_value(inspect.get(), "A", inspectable_get_value(inspect.get(), "A") + 1);
    EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), text + 1);
  }
}

// Of whatever length: where a value ends and other texts begin is the container's own business.
TEST(InspectableSetValue, LeavesOtherTextsAlone) {
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  for (const char *key : {"A", "B"}) {
    add_open(declaration, key);
    inspectable_set_value_user_string(declaration.get(), key, "user string");
    inspectable_set_name_space(declaration.get(), key, "space");
    inspectable_add_key_tag(declaration.get(), key, "tag");
  }
  for (std::size_t length = 1; length < 200; ++length) {
    const OwnedInspectable event{inspectable_copy(declaration.get(), IT_EVENT)};
    const std::string value(length, 'x');
    for (const char *key : {"A", "B"})
      inspectable_set_value_as_string(event.get(), key, value.c_str());
    for (const char *key : {"A", "B"}) {
      EXPECT_EQ(inspectable_get_value(event.get(), key), value);
      EXPECT_STREQ(inspectable_get_value_user_string(event.get(), key), "user string") << length;
      EXPECT_STREQ(inspectable_get_name_space(event.get(), key), "space") << length;
    }
    EXPECT_EQ(take_texts(inspectable_get_tags_at(event.get(), 0)), Texts{"tag"}) << length;
  }
}

TEST(InspectableSetValue, IsForEventsAndDeclarations) {
  const char *expression = "inspect->type == IT_EVENT || inspect->type == IT_EVENT_DECLARATION";
  for (const guint32 type : {IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    EXPECT_ABORT(inspectable_set_value(inspect.get(), "A", "9"), "inspectable_set_value",
                 expression);
    EXPECT_ABORT(inspectable_set_value_as_string(inspect.get(), "A", "9"),
                 "inspectable_set_value_as_string", expression);
    EXPECT_ABORT(inspectable_set_value(inspect.get(), nullptr, "9"), "inspectable_set_value",
                 "key != NULL");
    EXPECT_ABORT(inspectable_set_value_as_string(inspect.get(), nullptr, "9"),
                 "inspectable_set_value_as_string", "key != NULL");
  }
}

// ---- Other setters ----

TEST(InspectableSet, UnknownKeysAreFalse) {
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  EXPECT_FALSE(inspectable_set_value_user_string(inspect.get(), "C", "x"));
  EXPECT_FALSE(inspectable_set_nice_names(inspect.get(), "C", "x", "y"));
  EXPECT_FALSE(inspectable_set_name_space(inspect.get(), "C", "x"));
  EXPECT_FALSE(inspectable_set_complex_type_name(inspect.get(), "C", "x"));
  EXPECT_FALSE(inspectable_add_key_tag(inspect.get(), "C", "x"));
}

TEST(InspectableSet, NiceNamesThatAreNullStay) {
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
  EXPECT_TRUE(inspectable_set_nice_names(inspect.get(), "A", "k", nullptr));
  EXPECT_TRUE(inspectable_set_nice_names(inspect.get(), "A", nullptr, "v"));
  EXPECT_TRUE(inspectable_set_nice_names(inspect.get(), "A", nullptr, nullptr));
  EXPECT_STREQ(pair->key_nice_name, "k");
  EXPECT_STREQ(pair->value_nice_name, "v");
}

TEST(InspectableSet, NiceNamesCanChangePlaces) {
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
  inspectable_set_nice_names(inspect.get(), "A", "name of the key", "name of the value");
  inspectable_set_nice_names(inspect.get(), "A", pair->value_nice_name, pair->key_nice_name);
  EXPECT_STREQ(pair->key_nice_name, "name of the value");
  EXPECT_STREQ(pair->value_nice_name, "name of the key");
  inspectable_set_nice_names(inspect.get(), "A", "", pair->key_nice_name);
  EXPECT_STREQ(pair->key_nice_name, "");
  EXPECT_STREQ(pair->value_nice_name, "name of the value");
  inspectable_set_nice_names(inspect.get(), "A", pair->value_nice_name, "");
  EXPECT_STREQ(pair->key_nice_name, "name of the value");
  EXPECT_STREQ(pair->value_nice_name, "");
}

TEST(InspectableSet, TextsSurviveThemselves) {
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
  inspectable_set_name_space(inspect.get(), "A", "the name space");
  inspectable_set_name_space(inspect.get(), "A", pair->name_space + 4);
  EXPECT_STREQ(pair->name_space, "name space");
  inspectable_set_value_user_string(inspect.get(), "A", "user string");
  inspectable_set_value_user_string(inspect.get(), "A", pair->value_user_string);
  EXPECT_STREQ(pair->value_user_string, "user string");
}

TEST(InspectableSet, NullNameSpaceAndTypeNameAreNone) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    EXPECT_TRUE(inspectable_set_name_space(inspect.get(), "A", "n"));
    EXPECT_TRUE(inspectable_set_complex_type_name(inspect.get(), "A", "ct"));
    EXPECT_STREQ(inspectable_get_name_space(inspect.get(), "A"), "n");
    EXPECT_STREQ(inspectable_get_complex_type_name(inspect.get(), "A"), "ct");
    EXPECT_TRUE(inspectable_set_name_space(inspect.get(), "A", nullptr));
    EXPECT_TRUE(inspectable_set_complex_type_name(inspect.get(), "A", nullptr));
    EXPECT_STREQ(inspectable_get_name_space(inspect.get(), "A"), "");
    EXPECT_STREQ(inspectable_get_complex_type_name(inspect.get(), "A"), "");
  }
}

TEST(InspectableSet, SeesTheFirstPairOfTheCurrentAndList) {
  const auto inspect = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(inspect, "A", "1");
  const KeyValue *before = inspectable_get_key_value(inspect.get(), "A");
  inspectable_or(inspect.get());
  add(inspect, "A", "2");
  add(inspect, "A", "3");
  inspectable_set_name_space(inspect.get(), "A", "n");
  EXPECT_STREQ(before->name_space, "");
  EXPECT_STREQ(inspectable_get_key_value(inspect.get(), "A")->name_space, "n");
  EXPECT_STREQ(inspectable_get_key_value(inspect.get(), "A")->value, "2");
}

TEST(InspectableSet, InternalIsForAll) {
  for (const guint32 type : all_types) {
    const auto inspect = new_inspectable(type);
    EXPECT_TRUE(inspectable_set_internal(inspect.get(), TRUE));
    EXPECT_TRUE(inspectable_get_internal(inspect.get()));
    EXPECT_TRUE(inspectable_set_internal(inspect.get(), FALSE));
    EXPECT_FALSE(inspectable_get_internal(inspect.get()));
  }
}

TEST(InspectableSet, ValueTypeNeedsAValidTypeAndAKey) {
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  for (const guint32 type : {0u, 5u})
    EXPECT_DEATH(inspectable_set_value_type(inspect.get(), "A", type),
                 ":inspectable_set_value_type: assertion failed");
  EXPECT_ABORT(inspectable_set_value_type(inspect.get(), "C", VALUE_TYPE_INT),
               "inspectable_set_value_type", "key_value != NULL");
  for (guint32 type = VALUE_TYPE_INT; type <= VALUE_TYPE_STRING; ++type) {
    EXPECT_TRUE(inspectable_set_value_type(inspect.get(), "A", type));
    EXPECT_EQ(inspectable_get_key_value(inspect.get(), "A")->value_type, type);
  }
}

TEST(InspectableSet, IsForSomeTypesOnly) {
  for (const guint32 type : {IT_EVENT, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    EXPECT_DEATH(inspectable_set_value_user_string(inspect.get(), "A", "x"),
                 ":inspectable_set_value_user_string: assertion failed");
    EXPECT_DEATH(inspectable_set_nice_names(inspect.get(), "A", "x", "x"),
                 ":inspectable_set_nice_names: assertion failed");
    EXPECT_DEATH(inspectable_set_value_type(inspect.get(), "A", VALUE_TYPE_INT),
                 ":inspectable_set_value_type: assertion failed");
  }
  const auto event = two_keys(IT_EVENT);
  EXPECT_DEATH(inspectable_set_name_space(event.get(), "A", "x"),
               ":inspectable_set_name_space: assertion failed");
  EXPECT_DEATH(inspectable_set_complex_type_name(event.get(), "A", "x"),
               ":inspectable_set_complex_type_name: assertion failed");
  const auto expression = two_keys(IT_SUBSCRIBE_EXPRESSION);
  EXPECT_DEATH(inspectable_add_key_tag(expression.get(), "A", "x"),
               ":inspectable_add_key_tag: assertion failed");
  for (const guint32 type : {IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    EXPECT_DEATH(inspectable_add_tag(inspect.get(), "x"), ":inspectable_add_tag: assertion failed");
  }
}

TEST(InspectableSet, AbortsWithoutAContainer) {
  EXPECT_ABORT(inspectable_copy(nullptr, IT_EVENT), "inspectable_copy", "source != NULL");
  EXPECT_ABORT(inspectable_or(nullptr), "inspectable_or", "inspect != NULL");
  EXPECT_ABORT(inspectable_set_value(nullptr, "A", "1"), "inspectable_set_value",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_set_value_as_string(nullptr, "A", "1"),
               "inspectable_set_value_as_string", "inspect != NULL");
  EXPECT_ABORT(inspectable_set_value_user_string(nullptr, "A", "1"),
               "inspectable_set_value_user_string", "inspect != NULL");
  EXPECT_ABORT(inspectable_set_nice_names(nullptr, "A", "1", "2"), "inspectable_set_nice_names",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_set_name_space(nullptr, "A", "1"), "inspectable_set_name_space",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_set_complex_type_name(nullptr, "A", "1"),
               "inspectable_set_complex_type_name", "inspect != NULL");
  EXPECT_ABORT(inspectable_set_value_type(nullptr, "A", 1), "inspectable_set_value_type",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_set_internal(nullptr, TRUE), "inspectable_set_internal",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_get_internal(nullptr), "inspectable_get_internal", "inspect != NULL");
  EXPECT_ABORT(inspectable_add_key_tag(nullptr, "A", "t"), "inspectable_add_key_tag",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_add_tag(nullptr, "t"), "inspectable_add_tag", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_tags(nullptr), "inspectable_get_tags", "inspect != NULL");
  EXPECT_ABORT(inspectable_has_tag(nullptr, "t"), "inspectable_has_tag", "inspect != NULL");
  const auto inspect = two_keys(IT_EVENT_DECLARATION);
  EXPECT_ABORT(inspectable_set_name_space(inspect.get(), nullptr, "1"),
               "inspectable_set_name_space", "key != NULL");
  EXPECT_ABORT(inspectable_add_key_tag(inspect.get(), nullptr, "t"), "inspectable_add_key_tag",
               "key != NULL");
}

// ---- Tags ----

TEST(InspectableTags, OfTheObjectKeepDuplicatesAndComeBackwards) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT}) {
    const auto inspect = new_inspectable(type);
    for (const char *tag : {"a", "b", "a"})
      EXPECT_TRUE(inspectable_add_tag(inspect.get(), tag));
    EXPECT_EQ(take_texts(inspectable_get_tags(inspect.get())), (Texts{"a", "b", "a"}));
    inspectable_add_tag(inspect.get(), "c");
    EXPECT_EQ(take_texts(inspectable_get_tags(inspect.get())), (Texts{"c", "a", "b", "a"}));
    EXPECT_TRUE(inspectable_has_tag(inspect.get(), "b"));
    EXPECT_FALSE(inspectable_has_tag(inspect.get(), "B"));
    EXPECT_FALSE(inspectable_has_tag(inspect.get(), ""));
  }
}

TEST(InspectableTags, OfAKeyAreAddedOnce) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    for (const char *tag : {"x", "y", "x"})
      EXPECT_TRUE(inspectable_add_key_tag(inspect.get(), "A", tag));
    EXPECT_EQ(texts_of(inspectable_get_key_value(inspect.get(), "A")->tags), (Texts{"x", "y"}));
    EXPECT_EQ(inspectable_get_key_value(inspect.get(), "B")->tags, nullptr);
  }
}

TEST(InspectableTags, OfALentPairCanBeAddedByThePairsOwnFunctions) {
  const auto declaration = two_keys(IT_EVENT_DECLARATION);
  auto *pair = inspectable_get_key_value(declaration.get(), "A");
  key_value_add_tag(pair, "one");
  inspectable_add_key_tag(declaration.get(), "A", "two");
  key_value_give_tag(pair, g_strdup("three"));
  EXPECT_EQ(texts_of(pair->tags), (Texts{"one", "two", "three"}));
  // Also behind tags that the container copied or read itself.
  const auto event = event_from(declaration);
  auto *copied = inspectable_get_key_value(event.get(), "A");
  key_value_add_tag(copied, "four");
  inspectable_add_key_tag(event.get(), "A", "five");
  const Texts expected{"one", "two", "three", "four", "five"};
  EXPECT_EQ(texts_of(copied->tags), expected);
  EXPECT_EQ(texts_of(inspectable_get_key_value(event_from(event).get(), "A")->tags), expected);
  const auto read = read_inspectable(record_of(event));
  key_value_add_tag(inspectable_get_key_value(read.get(), "A"), "six");
  EXPECT_EQ(texts_of(inspectable_get_key_value(read.get(), "A")->tags).back(), "six");
  add(declaration, "A", "again");
  EXPECT_EQ(inspectable_get_key_value(declaration.get(), "A")->tags, nullptr);
}

// ---- Copies ----

TEST(InspectableCopy, IsDeep) {
  auto source = two_keys(IT_EVENT_DECLARATION);
  add_open(source, "C");
  inspectable_add_tag(source.get(), "a");
  inspectable_add_tag(source.get(), "b");
  inspectable_set_internal(source.get(), TRUE);
  const Bytes record = record_of(source);
  const OwnedInspectable copy{inspectable_copy(source.get(), IT_EVENT_DECLARATION)};
  inspectable_set_value_as_string(source.get(), "C", "changed");
  EXPECT_EQ(record_of(copy), record);
  source.reset();
  EXPECT_EQ(record_of(copy), record);
}

TEST(InspectableCopy, UnderAnotherTypeHasTheSameContent) {
  auto source = two_keys(IT_EVENT_DECLARATION);
  inspectable_set_internal(source.get(), TRUE);
  inspectable_add_tag(source.get(), "t");
  inspectable_set_nice_names(source.get(), "A", "k", "a rather long display name of the value");
  for (const guint32 type : all_types) {
    const OwnedInspectable copy{inspectable_copy(source.get(), type)};
    Bytes expected = record_of(source);
    expected[3] = static_cast<guint8>(type);
    EXPECT_EQ(record_of(copy), expected);
  }
}

TEST(InspectableCopy, OfASubscribeExpressionKeepsAndListsBucketsAndTestsForAnyKey) {
  const auto source = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(source, "A", "1");
  add_negated(source, "A", "2");
  add_for_any_key(source, "5");
  inspectable_or(source.get());
  add(source, "B", "3");
  const OwnedInspectable copy{inspectable_copy(source.get(), IT_SUBSCRIBE_EXPRESSION)};
  EXPECT_EQ(record_of(copy), record_of(source));
  // The last and-list is the current one, and new pairs join it.
  EXPECT_STREQ(inspectable_get_value(copy.get(), "B"), "3");
  EXPECT_EQ(inspectable_get_value(copy.get(), "A"), nullptr);
  add(copy, "B", "4");
  add(source, "B", "4");
  EXPECT_EQ(record_of(copy), record_of(source));
}

TEST(InspectableCopy, UnderAnEventsTypeFollowsTheRulesOfEvents) {
  const auto source = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(source, "A", "1");
  add(source, "A", "2");
  const OwnedInspectable copy{inspectable_copy(source.get(), IT_EVENT)};
  EXPECT_EQ(inspectable_get_key_count(copy.get()), 1u);
  EXPECT_STREQ(inspectable_get_value_at(copy.get(), 0), "1");
  EXPECT_ABORT(add(copy, "A", "3"), "inspectable_add_key_value",
               "inspectable_get_value(inspect, key) == NULL");
}

TEST(InspectableCopy, HasEachTagOfAKeyOnce) {
  const auto source = two_keys(IT_EVENT);
  auto *pair = inspectable_get_key_value(source.get(), "A");
  for (const char *tag : {"a", "b", "a"})
    key_value_give_tag(pair, g_strdup(tag));
  EXPECT_EQ(texts_of(inspectable_get_key_value(event_from(source).get(), "A")->tags),
            (Texts{"a", "b"}));
  // The same when the source has its tags from a record.
  const auto read = read_inspectable(record_of(source));
  EXPECT_EQ(texts_of(inspectable_get_key_value(read.get(), "A")->tags), (Texts{"a", "b", "a"}));
  EXPECT_EQ(texts_of(inspectable_get_key_value(event_from(read).get(), "A")->tags),
            (Texts{"a", "b"}));
}

TEST(InspectableCopy, CanBeFilledAndAddedTo) {
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  for (const char *key : {"A", "B", "C"})
    add_open(declaration, key);
  const auto event = event_from(declaration);
  EXPECT_TRUE(inspectable_set_value_as_string(event.get(), "B", "a text longer than any before"));
  add(event, "D", "4");
  const OwnedInspectable again{inspectable_copy(event.get(), IT_EVENT)};
  EXPECT_EQ(keys_of(again), (Texts{"A", "B", "C", "D"}));
  EXPECT_EQ(record_of(again), record_of(event));
  EXPECT_TRUE(inspectable_set_value_as_string(again.get(), "B", "x"));
  EXPECT_STREQ(inspectable_get_value(event.get(), "B"), "a text longer than any before");
}

TEST(InspectableCopy, OfACopyOfACopyIsTheSame) {
  auto current = two_keys(IT_EVENT_DECLARATION);
  add_open(current, "C");
  inspectable_add_key_tag(current.get(), "A", "t");
  for (int generation = 0; generation < 5; ++generation) {
    inspectable_set_value_as_string(
        current.get(), "C", std::string(static_cast<std::size_t>(generation) * 20, 'x').c_str());
    OwnedInspectable copy{inspectable_copy(current.get(), IT_EVENT_DECLARATION)};
    EXPECT_EQ(record_of(copy), record_of(current));
    EXPECT_TRUE(inspectable_is_equal(copy.get(), current.get()));
    current = std::move(copy);
  }
}

// ---- By position ----

TEST(InspectableByPosition, IsTheOrderOfInsertion) {
  for (const guint32 type : {IT_EVENT, IT_PROPERTY_STATE}) {
    const auto inspect = new_inspectable(type);
    Texts keys;
    for (int number = 0; number < 40; ++number) {
      keys.push_back("key" + std::to_string(number * 7 % 40));
      add(inspect, keys.back().c_str(), "v");
    }
    EXPECT_EQ(keys_of(inspect), keys);
  }
}

TEST(InspectableByPosition, GivesWhatTheKeyHas) {
  const auto declaration = two_keys(IT_EVENT_DECLARATION);
  inspectable_set_name_space(declaration.get(), "B", "tns1");
  inspectable_set_complex_type_name(declaration.get(), "B", "ct");
  inspectable_set_value_type(declaration.get(), "B", VALUE_TYPE_INT);
  inspectable_add_key_tag(declaration.get(), "B", "x");
  inspectable_add_key_tag(declaration.get(), "B", "y");
  const auto event = event_from(declaration);
  const guint32 b = inspectable_get_index(event.get(), "B");
  EXPECT_STREQ(inspectable_get_key_at(event.get(), b), "B");
  EXPECT_STREQ(inspectable_get_value_at(event.get(), b), "2");
  EXPECT_STREQ(inspectable_get_name_space_at(event.get(), b), "tns1");
  EXPECT_STREQ(inspectable_get_complex_type_name_at(event.get(), b), "ct");
  EXPECT_EQ(take_texts(inspectable_get_tags_at(event.get(), b)), (Texts{"y", "x"}));
  EXPECT_TRUE(inspectable_has_tag_at(event.get(), b, "x"));
  EXPECT_FALSE(inspectable_has_tag_at(event.get(), b, "z"));
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(event.get(), "y"));
  EXPECT_FALSE(inspectable_has_keyvalue_with_tag(event.get(), "z"));
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(declaration.get(), "y"));
  EXPECT_EQ(inspectable_get_type_at(event.get(), b), 1u);
  EXPECT_EQ(inspectable_get_index(event.get(), "C"), 0xFFFFFFFFu);
  EXPECT_EQ(inspectable_get_index(event.get(), "b"), 0xFFFFFFFFu);
}

TEST(InspectableByPosition, AtTheEndThereIsNothing) {
  const auto event = two_keys(IT_EVENT);
  for (const guint32 position : {2u, 3u, 0xFFFFFFFFu}) {
    EXPECT_EQ(inspectable_get_key_at(event.get(), position), nullptr);
    EXPECT_EQ(inspectable_get_value_at(event.get(), position), nullptr);
    EXPECT_EQ(inspectable_get_name_space_at(event.get(), position), nullptr);
    EXPECT_EQ(inspectable_get_complex_type_name_at(event.get(), position), nullptr);
    EXPECT_EQ(inspectable_get_tags_at(event.get(), position), nullptr);
    EXPECT_FALSE(inspectable_has_tag_at(event.get(), position, "x"));
    EXPECT_FALSE(inspectable_has_value_at(event.get(), position));
    EXPECT_EQ(inspectable_get_type_at(event.get(), position), 0u);
    int out = 77;
    EXPECT_FALSE(inspectable_get_typed_value_at(event.get(), position, &out));
    EXPECT_EQ(out, 77);
  }
}

TEST(InspectableByPosition, TestsForAnyKeyHaveNone) {
  const auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add_for_any_key(expression, "5");
  add(expression, "A", "1");
  const OwnedInspectable state{inspectable_copy(expression.get(), IT_PROPERTY_STATE)};
  EXPECT_EQ(keys_of(state), (Texts{"A"}));
}

TEST(InspectableByPosition, SeesTheCurrentAndListOnly) {
  const auto expression = two_keys(IT_SUBSCRIBE_EXPRESSION);
  inspectable_or(expression.get());
  add(expression, "C", "3");
  const OwnedInspectable event{inspectable_copy(expression.get(), IT_EVENT)};
  EXPECT_EQ(keys_of(event), (Texts{"C"}));
  EXPECT_EQ(inspectable_get_index(event.get(), "A"), 0xFFFFFFFFu);
}

TEST(InspectableByPosition, HasAValueUnlessOpen) {
  const auto event = new_inspectable(IT_EVENT);
  add(event, "fixed", "");
  add_open(event, "open");
  EXPECT_TRUE(inspectable_has_value_at(event.get(), 0));
  EXPECT_FALSE(inspectable_has_value_at(event.get(), 1));
  inspectable_set_value_as_string(event.get(), "open", "");
  EXPECT_TRUE(inspectable_has_value_at(event.get(), 1));
}

OwnedInspectable typed_event(guint32 type, const char *text) {
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  add(declaration, "A", text);
  inspectable_set_value_type(declaration.get(), "A", type);
  return event_from(declaration);
}
gint32 integer_of(const char *text) {
  const auto event = typed_event(VALUE_TYPE_INT, text);
  gint32 out = 0;
  EXPECT_TRUE(inspectable_get_typed_value_at(event.get(), 0, &out));
  return out;
}

TEST(InspectableTypedValue, IntegersAreTruncatedNumbers) {
  EXPECT_EQ(integer_of("12"), 12);
  EXPECT_EQ(integer_of("12.9"), 12);
  EXPECT_EQ(integer_of("-12.9"), -12);
  EXPECT_EQ(integer_of("1e3"), 1000);
  EXPECT_EQ(integer_of(""), 0);
  EXPECT_EQ(integer_of("text"), 0);
  EXPECT_EQ(integer_of("2147483647"), std::numeric_limits<gint32>::max());
  EXPECT_EQ(integer_of("-2147483648"), std::numeric_limits<gint32>::min());
  // What does not fit has no meaning, but must not be undefined.
  EXPECT_EQ(integer_of("1e300"), std::numeric_limits<gint32>::max());
  EXPECT_EQ(integer_of("-1e300"), std::numeric_limits<gint32>::min());
  EXPECT_EQ(integer_of("nan"), 0);
}

TEST(InspectableTypedValue, NumbersHaveAPointInEveryLocale) {
  const CommaLocale locale;
  ASSERT_TRUE(locale.is_set());
  ASSERT_EQ(std::strtod("0,5", nullptr), 0.5);
  double out = 0;
  const auto event = typed_event(VALUE_TYPE_DOUBLE, "0.5");
  EXPECT_TRUE(inspectable_get_typed_value_at(event.get(), 0, &out));
  EXPECT_EQ(out, 0.5);
  EXPECT_EQ(integer_of("0.5e1"), 5);
}

TEST(InspectableTypedValue, BooleansAreOneOrZero) {
  gboolean out = 77;
  EXPECT_TRUE(inspectable_get_typed_value_at(typed_event(VALUE_TYPE_BOOL, "1").get(), 0, &out));
  EXPECT_EQ(out, TRUE);
  EXPECT_TRUE(inspectable_get_typed_value_at(typed_event(VALUE_TYPE_BOOL, "0").get(), 0, &out));
  EXPECT_EQ(out, FALSE);
  for (const char *text : {"", "2", "true", "01", "10"}) {
    const auto event = typed_event(VALUE_TYPE_BOOL, text);
    EXPECT_ABORT(inspectable_get_typed_value_at(event.get(), 0, &out),
                 "inspectable_get_typed_value_at", "FALSE");
  }
}

TEST(InspectableTypedValue, StringsAreLent) {
  const auto event = typed_event(VALUE_TYPE_STRING, "text");
  const char *out = nullptr;
  EXPECT_TRUE(inspectable_get_typed_value_at(event.get(), 0, &out));
  EXPECT_EQ(out, inspectable_get_value(event.get(), "A"));
}

TEST(InspectableByPosition, IsForSomeTypesOnly) {
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION}) {
    const auto inspect = two_keys(type);
    EXPECT_DEATH(inspectable_get_key_count(inspect.get()),
                 ":inspectable_get_key_count: assertion failed");
    EXPECT_DEATH(inspectable_get_key_at(inspect.get(), 0),
                 ":inspectable_get_key_at: assertion failed");
    EXPECT_DEATH(inspectable_get_value_at(inspect.get(), 0),
                 ":inspectable_get_value_at: assertion failed");
    EXPECT_DEATH(inspectable_get_name_space_at(inspect.get(), 0),
                 ":inspectable_get_name_space_at: assertion failed");
    EXPECT_DEATH(inspectable_get_complex_type_name_at(inspect.get(), 0),
                 ":inspectable_get_complex_type_name_at: assertion failed");
    EXPECT_DEATH(inspectable_get_tags_at(inspect.get(), 0),
                 ":inspectable_get_tags_at: assertion failed");
    EXPECT_DEATH(inspectable_has_tag_at(inspect.get(), 0, "x"),
                 ":inspectable_has_tag_at: assertion failed");
  }
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto inspect = two_keys(type);
    gpointer out = nullptr;
    EXPECT_DEATH(inspectable_get_index(inspect.get(), "A"),
                 ":inspectable_get_index: assertion failed");
    EXPECT_DEATH(inspectable_has_value_at(inspect.get(), 0),
                 ":inspectable_has_value_at: assertion failed");
    EXPECT_DEATH(inspectable_get_type_at(inspect.get(), 0),
                 ":inspectable_get_type_at: assertion failed");
    EXPECT_DEATH(inspectable_get_typed_value_at(inspect.get(), 0, &out),
                 ":inspectable_get_typed_value_at: assertion failed");
  }
  const auto expression = two_keys(IT_SUBSCRIBE_EXPRESSION);
  EXPECT_DEATH(inspectable_has_keyvalue_with_tag(expression.get(), "x"),
               ":inspectable_has_keyvalue_with_tag: assertion failed");
}

TEST(InspectableByPosition, AbortsWithoutAContainer) {
  gpointer out = nullptr;
  EXPECT_ABORT(inspectable_get_key_count(nullptr), "inspectable_get_key_count", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_key_at(nullptr, 0), "inspectable_get_key_at", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_value_at(nullptr, 0), "inspectable_get_value_at", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_name_space_at(nullptr, 0), "inspectable_get_name_space_at",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_get_complex_type_name_at(nullptr, 0),
               "inspectable_get_complex_type_name_at", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_tags_at(nullptr, 0), "inspectable_get_tags_at", "inspect != NULL");
  EXPECT_ABORT(inspectable_has_tag_at(nullptr, 0, "x"), "inspectable_has_tag_at",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_has_keyvalue_with_tag(nullptr, "x"), "inspectable_has_keyvalue_with_tag",
               "inspect != NULL");
  EXPECT_ABORT(inspectable_get_index(nullptr, "A"), "inspectable_get_index", "inspect != NULL");
  EXPECT_ABORT(inspectable_has_value_at(nullptr, 0), "inspectable_has_value_at", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_type_at(nullptr, 0), "inspectable_get_type_at", "inspect != NULL");
  EXPECT_ABORT(inspectable_get_typed_value_at(nullptr, 0, &out), "inspectable_get_typed_value_at",
               "inspect != NULL");
}

// ---- What is lent ----

TEST(InspectableLending, TextsStayWhileOthersComeAndChange) {
  const auto inspect = new_inspectable(IT_EVENT_DECLARATION);
  add_open(inspect, "open");
  inspectable_set_value_as_string(inspect.get(), "open", "kept");
  add(inspect, "fixed", "also kept");
  inspectable_set_name_space(inspect.get(), "fixed", "space");
  const char *open = inspectable_get_value(inspect.get(), "open");
  const char *fixed = inspectable_get_value(inspect.get(), "fixed");
  const char *space = inspectable_get_name_space(inspect.get(), "fixed");
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "fixed");
  for (int number = 0; number < 500; ++number) {
    const std::string key = "key" + std::to_string(number);
    add_open(inspect, key.c_str());
    inspectable_set_value_as_string(inspect.get(), key.c_str(), std::string(100, 'x').c_str());
    inspectable_add_key_tag(inspect.get(), key.c_str(), "tag");
    inspectable_add_tag(inspect.get(), "tag");
    if (number % 7 == 0)
      add(inspect, key.c_str(), "declared again");
  }
  EXPECT_EQ(inspectable_get_value(inspect.get(), "open"), open);
  EXPECT_EQ(inspectable_get_value(inspect.get(), "fixed"), fixed);
  EXPECT_EQ(inspectable_get_key_value(inspect.get(), "fixed"), pair);
  EXPECT_STREQ(open, "kept");
  EXPECT_STREQ(fixed, "also kept");
  EXPECT_STREQ(space, "space");
}

TEST(InspectableLending, TextsOfACopyStayToo) {
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  add_open(declaration, "open");
  add(declaration, "fixed", "kept");
  const auto event = event_from(declaration);
  const char *fixed = inspectable_get_value(event.get(), "fixed");
  for (int number = 0; number < 100; ++number)
    add(event, ("key" + std::to_string(number)).c_str(), "value");
  inspectable_set_value_as_string(event.get(), "open", std::string(1000, 'x').c_str());
  EXPECT_EQ(inspectable_get_value(event.get(), "fixed"), fixed);
  EXPECT_STREQ(fixed, "kept");
}

} // namespace
