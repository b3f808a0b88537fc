#include "eventdeclaration.hpp"

#include "logcapture.hpp"
#include "records.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <functional>

using varro2::DateTimeRef;
using namespace varro2::test;

namespace {

DeclarationOwner make_declaration(gboolean internal = FALSE) {
  return DeclarationOwner{event_declaration_new(internal)};
}

// What an application's hook does here: a value for "n", and its own time when it is given one.
Event *fill_in(Event *event, gpointer time) {
  const gint32 value = 5;
  event_set_value(event, "n", &value);
  if (time)
    event_set_timestamp2(event, static_cast<GDateTime *>(time));
  return event;
}

Event *leave_alone(Event *event, gpointer) {
  return event;
}

// Hands over something else: what is returned is not looked at.
Event *fill_in_and_return_nothing(Event *event, gpointer) {
  fill_in(event, nullptr);
  return nullptr;
}

Event *fill_in_and_free(Event *event, gpointer declaration) {
  fill_in(event, nullptr);
  event_declaration_free(static_cast<EventDeclaration *>(declaration));
  return event;
}

Bytes pointer_bytes(const void *pointer) {
  return Record{}.u64(reinterpret_cast<guintptr>(pointer)).bytes();
}

Bytes record_of_ids(const void *callback, const void *user_data, guint8 property) {
  return Record{}
      .u8(0xF0)
      .u32(0x21222324)
      .u32(0x11121314)
      .u32(0x01020304)
      .u8(property)
      .raw(pointer_bytes(callback))
      .raw(pointer_bytes(user_data))
      .raw(empty_container(0))
      .bytes();
}

DeclarationOwner read_declaration(const Bytes &bytes) {
  return DeclarationOwner{event_declaration_deserialize(array_of(bytes).get())};
}

} // namespace

TEST(EventDeclaration, StartsWithNothing) {
  const auto plain = make_declaration();
  EXPECT_EQ(event_declaration_get_local_id(plain.get()), 0u);
  EXPECT_EQ(event_declaration_get_global_id(plain.get()), 0u);
  EXPECT_EQ(event_declaration_get_producer_id(plain.get()), 0u);
  EXPECT_FALSE(event_declaration_is_property(plain.get()));
  EXPECT_FALSE(event_declaration_is_internal(plain.get()));
  EXPECT_TRUE(event_declaration_is_internal(make_declaration(TRUE).get()));
}

TEST(EventDeclaration, FreeAcceptsNull) {
  const LogCapture log;
  event_declaration_free(nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventDeclaration, CopyHasEverything) {
  auto declaration = make_declaration(TRUE);
  int anything = 0;
  event_declaration_add_key_value(declaration.get(), "k", "v", VALUE_TYPE_STRING);
  event_declaration_set_local_id(declaration.get(), 1);
  event_declaration_set_global_id(declaration.get(), 2);
  event_declaration_set_producer_id(declaration.get(), 3);
  event_declaration_set_property(declaration.get(), "k", leave_alone, &anything);
  declaration->timestamp = DateTimeRef::adopt(g_date_time_new_from_unix_utc(1));
  const auto time = declaration->timestamp;

  const DeclarationOwner copy{event_declaration_copy(declaration.get())};
  declaration.reset();
  EXPECT_TRUE(event_declaration_is_internal(copy.get()));
  EXPECT_STREQ(inspectable_get_value(event_declaration_get_inspectable(copy.get()), "k"), "v");
  EXPECT_EQ(event_declaration_get_local_id(copy.get()), 1u);
  EXPECT_EQ(event_declaration_get_global_id(copy.get()), 2u);
  EXPECT_EQ(event_declaration_get_producer_id(copy.get()), 3u);
  EXPECT_TRUE(event_declaration_is_property(copy.get()));
  EXPECT_EQ(copy->property_callback, leave_alone);
  EXPECT_EQ(copy->property_user_data, &anything);
  EXPECT_EQ(copy->timestamp.get(), time.get());
}

TEST(EventDeclaration, KeysAreOpenUntilAnEventFillsThem) {
  const auto declaration = make_declaration();
  const Inspectable *content = event_declaration_get_inspectable(declaration.get());
  for (const guint32 type :
       {VALUE_TYPE_INT, VALUE_TYPE_BOOL, VALUE_TYPE_DOUBLE, VALUE_TYPE_STRING}) {
    EXPECT_TRUE(event_declaration_add_key(declaration.get(), "k", type));
    const KeyValue *pair = inspectable_get_key_value(content, "k");
    EXPECT_EQ(pair->value_type, type);
    EXPECT_TRUE(pair->value_wildcard);
    EXPECT_TRUE(pair->value_settable);
  }
}

TEST(EventDeclaration, ValuesAreStoredByTheirType) {
  const auto declaration = make_declaration();
  EventDeclaration *d = declaration.get();
  const gint32 number = -7;
  const gboolean truth = TRUE;
  const double real = 0.5;
  EXPECT_TRUE(event_declaration_add_key_value(d, "i", &number, VALUE_TYPE_INT));
  EXPECT_TRUE(event_declaration_add_key_value(d, "b", &truth, VALUE_TYPE_BOOL));
  EXPECT_TRUE(event_declaration_add_key_value(d, "d", &real, VALUE_TYPE_DOUBLE));
  EXPECT_TRUE(event_declaration_add_key_value(d, "s", "text", VALUE_TYPE_STRING));
  const Inspectable *content = event_declaration_get_inspectable(d);
  EXPECT_STREQ(inspectable_get_value(content, "i"), "-7");
  EXPECT_STREQ(inspectable_get_value(content, "b"), "1");
  EXPECT_STREQ(inspectable_get_value(content, "d"), "0.500000");
  EXPECT_STREQ(inspectable_get_value(content, "s"), "text");
}

TEST(EventDeclaration, AKeyIsDeclaredAgainWithItsOwnValue) {
  const auto declaration = make_declaration();
  const Inspectable *inspect = event_declaration_get_inspectable(declaration.get());
  for (const char *text : {"short", "a text that needs memory of its own, being long"}) {
    event_declaration_add_key_value(declaration.get(), "key", text, VALUE_TYPE_STRING);
    EXPECT_TRUE(event_declaration_add_key_value(
        declaration.get(), "key", inspectable_get_value(inspect, "key"), VALUE_TYPE_STRING));
    EXPECT_STREQ(inspectable_get_value(inspect, "key"), text);
  }
}

TEST(EventDeclaration, RefusesValueTypesThatThereAreNot) {
  for (const guint32 type : {0u, 5u, 0xFFFFFFFFu}) {
    const auto declaration = make_declaration();
    const LogCapture log;
    EXPECT_FALSE(event_declaration_add_key(declaration.get(), "k", type));
    EXPECT_FALSE(event_declaration_add_key_value(declaration.get(), "k", "v", type));
    const std::string text = "Invalid ValueType: " + std::to_string(static_cast<gint>(type));
    EXPECT_EQ(log.lines(), (std::vector{LogLine{G_LOG_LEVEL_CRITICAL, "", text},
                                        LogLine{G_LOG_LEVEL_CRITICAL, "", text}}));
    EXPECT_EQ(inspectable_get_key_value(event_declaration_get_inspectable(declaration.get()), "k"),
              nullptr);
  }
}

TEST(EventDeclaration, KeysHaveNamesAndTags) {
  const auto declaration = make_declaration();
  EventDeclaration *d = declaration.get();
  event_declaration_add_key(d, "k", VALUE_TYPE_INT);
  EXPECT_TRUE(event_declaration_set_value_user_string(d, "k", "us"));
  EXPECT_TRUE(event_declaration_set_nice_names(d, "k", "kn", nullptr));
  EXPECT_TRUE(event_declaration_set_nice_names(d, "k", nullptr, "vn"));
  EXPECT_TRUE(event_declaration_set_name_space(d, "k", "ns"));
  EXPECT_TRUE(event_declaration_set_complex_type_name(d, "k", "ct"));
  EXPECT_TRUE(event_declaration_add_key_tag(d, "k", "kt"));
  EXPECT_TRUE(event_declaration_add_tag(d, "dt"));
  const Inspectable *content = event_declaration_get_inspectable(d);
  const KeyValue *pair = inspectable_get_key_value(content, "k");
  EXPECT_STREQ(pair->value_user_string, "us");
  EXPECT_STREQ(pair->key_nice_name, "kn");
  EXPECT_STREQ(pair->value_nice_name, "vn");
  EXPECT_STREQ(pair->name_space, "ns");
  EXPECT_STREQ(pair->complex_type_name, "ct");
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(content, "kt"));
  EXPECT_TRUE(inspectable_has_tag(content, "dt"));

  EXPECT_TRUE(event_declaration_set_name_space(d, "k", nullptr));
  EXPECT_TRUE(event_declaration_set_complex_type_name(d, "k", nullptr));
  pair = inspectable_get_key_value(content, "k");
  EXPECT_STREQ(inspectable_get_name_space(content, "k"), "");
  EXPECT_STREQ(inspectable_get_complex_type_name(content, "k"), "");
}

TEST(EventDeclaration, UnknownKeysAreNoMistake) {
  const auto declaration = make_declaration();
  EventDeclaration *d = declaration.get();
  const LogCapture log;
  EXPECT_FALSE(event_declaration_set_value_user_string(d, "x", "us"));
  EXPECT_FALSE(event_declaration_set_nice_names(d, "x", "kn", "vn"));
  EXPECT_FALSE(event_declaration_set_name_space(d, "x", "ns"));
  EXPECT_FALSE(event_declaration_set_complex_type_name(d, "x", "ct"));
  EXPECT_FALSE(event_declaration_add_key_tag(d, "x", "kt"));
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventDeclaration, FitsWhatItsEventsCanFit) {
  const auto declaration = make_declaration();
  event_declaration_add_key(declaration.get(), "open", VALUE_TYPE_STRING);
  event_declaration_add_key_value(declaration.get(), "fixed", "v", VALUE_TYPE_STRING);
  const ExpressionOwner fitting{subscribe_expression_new()};
  subscribe_expression_add_key_value(fitting.get(), "open", "anything");
  subscribe_expression_add_key_value(fitting.get(), "fixed", "v");
  EXPECT_TRUE(event_declaration_contains(declaration.get(), fitting.get()));
  subscribe_expression_add_key_value(fitting.get(), "fixed", "w");
  EXPECT_FALSE(event_declaration_contains(declaration.get(), fitting.get()));
}

TEST(EventDeclaration, GeneratesItsEvents) {
  const auto declaration = make_declaration(TRUE);
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_add_key_value(declaration.get(), "s", "v", VALUE_TYPE_STRING);
  event_declaration_set_local_id(declaration.get(), 1);
  event_declaration_set_global_id(declaration.get(), 2);
  event_declaration_set_producer_id(declaration.get(), 3);
  event_declaration_set_property(declaration.get(), nullptr, leave_alone, nullptr);
  declaration->timestamp = DateTimeRef::adopt(g_date_time_new_from_unix_utc(1));

  const EventOwner event{event_declaration_generate_event(declaration.get())};
  EXPECT_EQ(event_get_key_count(event.get()), 2u);
  EXPECT_STREQ(event_get_value(event.get(), "s"), "v");
  EXPECT_FALSE(event_has_value_at(event.get(), event_get_index(event.get(), "n")));
  EXPECT_EQ(event_get_local_id(event.get()), 1u);
  EXPECT_EQ(event_get_global_id(event.get()), 2u);
  EXPECT_EQ(event_get_producer_id(event.get()), 3u);
  EXPECT_TRUE(event_is_property(event.get()));
  EXPECT_TRUE(event_is_internal(event.get()));
  EXPECT_EQ(event_get_timestamp2(event.get()), nullptr);
}

/* ---- Properties ---- */

TEST(PropertyDeclaration, TagsItsKey) {
  const auto declaration = make_declaration();
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  EXPECT_TRUE(event_declaration_set_property(declaration.get(), "n", leave_alone, nullptr));
  EXPECT_TRUE(event_declaration_is_property(declaration.get()));
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(
      event_declaration_get_inspectable(declaration.get()), "property-state"));
}

TEST(PropertyDeclaration, NeedsNoKeyAndNoHook) {
  const auto without_key = make_declaration();
  event_declaration_add_key(without_key.get(), "n", VALUE_TYPE_INT);
  EXPECT_TRUE(event_declaration_set_property(without_key.get(), nullptr, leave_alone, nullptr));
  EXPECT_TRUE(event_declaration_is_property(without_key.get()));
  EXPECT_FALSE(inspectable_has_keyvalue_with_tag(
      event_declaration_get_inspectable(without_key.get()), "property-state"));

  const auto without_hook = make_declaration();
  event_declaration_add_key(without_hook.get(), "n", VALUE_TYPE_INT);
  EXPECT_TRUE(event_declaration_set_property(without_hook.get(), "n", nullptr, nullptr));
  EXPECT_TRUE(event_declaration_is_property(without_hook.get()));
}

TEST(PropertyDeclaration, OfAnUnknownKeyIsReported) {
  const auto declaration = make_declaration();
  EXPECT_FALSE(event_declaration_set_property(declaration.get(), "x", leave_alone, nullptr));
}

TEST(PropertyDeclaration, StaysOneWithoutItsHook) {
  const auto property = make_declaration();
  event_declaration_set_property(property.get(), nullptr, leave_alone, property.get());
  EXPECT_TRUE(event_declaration_set_property(property.get(), nullptr, nullptr, nullptr));
  EXPECT_TRUE(event_declaration_is_property(property.get()));
  EXPECT_EQ(property->property_callback, nullptr);
  EXPECT_EQ(property->property_user_data, nullptr);
}

TEST(PropertyDeclaration, NeedsNothingButToBeSaidSo) {
  const auto declaration = make_declaration();
  EXPECT_TRUE(event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr));
  EXPECT_TRUE(event_declaration_is_property(declaration.get()));
  const EventOwner event{event_declaration_get_property_event(declaration.get())};
  EXPECT_TRUE(event);
}

TEST(PropertyEvent, IsNoneForAPlainDeclaration) {
  const auto declaration = make_declaration();
  EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
}

TEST(PropertyEvent, HasTheValuesOfTheHookAndTheTime) {
  const auto declaration = make_declaration();
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_set_property(declaration.get(), "n", fill_in, nullptr);
  const auto before = DateTimeRef::adopt(g_date_time_new_now_utc());
  const EventOwner event{event_declaration_get_property_event(declaration.get())};
  ASSERT_TRUE(event);
  EXPECT_STREQ(event_get_value(event.get(), "n"), "5");
  EXPECT_TRUE(event_is_property(event.get()));
  ASSERT_NE(event_get_timestamp2(event.get()), nullptr);
  EXPECT_LE(g_date_time_compare(before.get(), event_get_timestamp2(event.get())), 0);
}

TEST(PropertyEvent, KeepsTheTimeOfTheHook) {
  const auto declaration = make_declaration();
  const auto time = DateTimeRef::adopt(g_date_time_new_from_unix_utc(1));
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_set_property(declaration.get(), "n", fill_in, time.get());
  const EventOwner event{event_declaration_get_property_event(declaration.get())};
  ASSERT_TRUE(event);
  EXPECT_EQ(event_get_timestamp2(event.get()), time.get());
}

TEST(PropertyEvent, IsNoneWhileAValueIsMissing) {
  const auto declaration = make_declaration();
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_set_property(declaration.get(), "n", leave_alone, nullptr);
  EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
  event_declaration_set_property(declaration.get(), "n", nullptr, nullptr);
  EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
}

TEST(PropertyEvent, NeedsNoHookWhereAllValuesAreFixed) {
  const auto declaration = make_declaration();
  event_declaration_add_key_value(declaration.get(), "s", "v", VALUE_TYPE_STRING);
  event_declaration_set_property(declaration.get(), "s", nullptr, nullptr);
  const EventOwner event{event_declaration_get_property_event(declaration.get())};
  ASSERT_TRUE(event);
  EXPECT_NE(event_get_timestamp2(event.get()), nullptr);
}

TEST(PropertyEvent, DoesNotDependOnWhatTheHookReturns) {
  const auto declaration = make_declaration();
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_set_property(declaration.get(), "n", fill_in_and_return_nothing, nullptr);
  const EventOwner event{event_declaration_get_property_event(declaration.get())};
  ASSERT_TRUE(event);
  EXPECT_STREQ(event_get_value(event.get(), "n"), "5");
}

TEST(PropertyEvent, OutlivesADeclarationThatItsHookFrees) {
  auto declaration = make_declaration();
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_set_property(declaration.get(), "n", fill_in_and_free, declaration.get());
  const EventOwner event{event_declaration_get_property_event(declaration.release())};
  ASSERT_TRUE(event);
  EXPECT_STREQ(event_get_value(event.get(), "n"), "5");
}

/* ---- Record ---- */

TEST(EventDeclarationRecord, OfIdsFlagAndPointers) {
  int anything = 0;
  const auto declaration = make_declaration();
  event_declaration_set_producer_id(declaration.get(), 0x21222324);
  event_declaration_set_local_id(declaration.get(), 0x11121314);
  event_declaration_set_global_id(declaration.get(), 0x01020304);
  event_declaration_set_property(declaration.get(), nullptr, leave_alone, &anything);
  declaration->timestamp = DateTimeRef::adopt(g_date_time_new_from_unix_utc(1));

  const Bytes expected = record_of_ids(reinterpret_cast<const void *>(leave_alone), &anything, 1);
  EXPECT_EQ(taken(event_declaration_serialize(declaration.get())), expected);
  const auto read = read_declaration(expected);
  EXPECT_EQ(event_declaration_get_producer_id(read.get()), 0x21222324u);
  EXPECT_EQ(event_declaration_get_local_id(read.get()), 0x11121314u);
  EXPECT_EQ(event_declaration_get_global_id(read.get()), 0x01020304u);
  EXPECT_TRUE(event_declaration_is_property(read.get()));
  EXPECT_EQ(read->property_callback, leave_alone);
  EXPECT_EQ(read->property_user_data, &anything);
  EXPECT_FALSE(read->timestamp);
  EXPECT_EQ(taken(event_declaration_serialize(read.get())), expected);
}

TEST(EventDeclarationRecord, OfAnInternalOneWithAnOpenKey) {
  const auto declaration = make_declaration(TRUE);
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  const Bytes expected = Record{}
                             .u8(0xF0)
                             .u32(0)
                             .u32(0)
                             .u32(0)
                             .u8(0)
                             .u64(0)
                             .u64(0)
                             .u8(0xF2)
                             .u16(1)
                             .u8(0)
                             .u8(1)
                             .u8(0xF3)
                             .u16(1)
                             .u8(0xF4)
                             .u16(1)
                             .u8(0xF5)
                             .text("n")
                             .u8(0)
                             .text("")
                             .text("")
                             .text("")
                             .u8(1)
                             .text("")
                             .text("")
                             .text("")
                             .u8(0)
                             .u8(1)
                             .u16(0)
                             .u16(0)
                             .u16(0)
                             .bytes();
  EXPECT_EQ(taken(event_declaration_serialize(declaration.get())), expected);
  const auto read = read_declaration(expected);
  EXPECT_TRUE(event_declaration_is_internal(read.get()));
  EXPECT_TRUE(
      inspectable_set_value_as_string(event_declaration_get_inspectable(read.get()), "n", "1"));
}

// Positions in a declaration that was read are a rule of their own; copies and events have them.
TEST(EventDeclarationRecord, ReadBackHasItsKeysButNoPositions) {
  const auto declaration = make_declaration();
  event_declaration_add_key_value(declaration.get(), "s", "v", VALUE_TYPE_STRING);
  event_declaration_add_key_tag(declaration.get(), "s", "t");
  const auto read = read_declaration(taken(event_declaration_serialize(declaration.get())));
  const Inspectable *content = event_declaration_get_inspectable(read.get());
  EXPECT_FALSE(inspectable_has_keyvalue_with_tag(content, "t"));
  EXPECT_STREQ(inspectable_get_value(content, "s"), "v");

  const DeclarationOwner copy{event_declaration_copy(read.get())};
  EXPECT_TRUE(
      inspectable_has_keyvalue_with_tag(event_declaration_get_inspectable(copy.get()), "t"));
  const EventOwner event{event_declaration_generate_event(read.get())};
  EXPECT_EQ(event_get_key_count(event.get()), 1u);
}

TEST(EventDeclarationRecord, IsAppendedAndReadAtARunningIndex) {
  const auto declaration = make_declaration();
  const auto array = array_of({0xEE});
  event_declaration_serialize_internal(declaration.get(), array.get());
  guint32 indx = 1;
  const DeclarationOwner read{event_declaration_deserialize_internal(array.get(), &indx)};
  EXPECT_EQ(indx, 1u + 1 + 3 * 4 + 1 + 2 * 8 + 12);
  EXPECT_EQ(indx, array->len);
}

TEST(EventDeclarationRecordDeathTest, OfAnotherObject) {
  Bytes bytes = record_of_ids(nullptr, nullptr, 0);
  bytes[0] = 0xF1;
  EXPECT_DEATH(read_declaration(bytes), "event_declaration_deserialize_internal.*type == "
                                        "SERIALIZE_ID_EVENT_DECLARATION\\)");
}

TEST(EventDeclarationRecordDeathTest, MissingArguments) {
  const auto declaration = make_declaration();
  const auto array = varro2::new_bytes();
  guint32 indx = 0;
  EXPECT_DEATH(event_declaration_serialize_internal(nullptr, array.get()),
               "event_declaration_serialize_internal.*declaration != NULL");
  EXPECT_DEATH(event_declaration_serialize_internal(declaration.get(), nullptr),
               "event_declaration_serialize_internal.*array != NULL");
  EXPECT_DEATH(event_declaration_deserialize_internal(nullptr, &indx), "array != NULL");
  EXPECT_DEATH(event_declaration_deserialize_internal(array.get(), nullptr), "indx != NULL");
}

/* ---- Log ---- */

TEST(EventDeclarationPrint, NamesWhatItIs) {
  struct Case {
    bool property;
    bool internal;
    std::vector<std::string> flags;
  };
  for (const Case &one :
       {Case{false, false, {}}, Case{true, false, {"< Property >"}},
        Case{false, true, {"< Internal >"}}, Case{true, true, {"< Property >", "< Internal >"}}}) {
    const auto declaration = make_declaration(one.internal);
    if (one.property)
      event_declaration_set_property(declaration.get(), nullptr, leave_alone, nullptr);
    event_declaration_set_global_id(declaration.get(), 1);
    event_declaration_set_local_id(declaration.get(), 2);
    event_declaration_set_producer_id(declaration.get(), 0xFFFFFFFE);
    event_declaration_add_tag(declaration.get(), "tag");
    std::vector<std::string> expected{"--- Event Declaration -----------------"};
    expected.insert(expected.end(), one.flags.begin(), one.flags.end());
    for (const char *line : {"Global Declaration Id: 1", "Local Declaration Id: 2",
                             "Producer Id: -2", "{tag}", "---------------------------------------"})
      expected.emplace_back(line);
    const LogCapture log;
    event_declaration_print(declaration.get());
    EXPECT_EQ(log.texts(), expected);
    EXPECT_EQ(log.texts(G_LOG_LEVEL_MESSAGE), expected);
  }
}

/* ---- Missing arguments ---- */

TEST(EventDeclaration, RefusesMissingArguments) {
  struct Case {
    const char *function;
    const char *expression;
    std::function<bool(EventDeclaration *)> is_neutral;
  };
  EventDeclaration *const none = nullptr;
  using D = EventDeclaration;
  const Case cases[] = {
      {"event_declaration_copy", "declaration_src != NULL",
       [&](D *) { return !event_declaration_copy(none); }},
      {"event_declaration_get_inspectable", "declaration != NULL",
       [&](D *) { return !event_declaration_get_inspectable(none); }},
      {"event_declaration_add_key", "declaration != NULL",
       [&](D *) { return !event_declaration_add_key(none, "k", VALUE_TYPE_INT); }},
      {"event_declaration_add_key", "key != NULL",
       [&](D *d) { return !event_declaration_add_key(d, nullptr, VALUE_TYPE_INT); }},
      {"event_declaration_add_key_value", "declaration != NULL",
       [&](D *) { return !event_declaration_add_key_value(none, "k", "v", VALUE_TYPE_STRING); }},
      {"event_declaration_add_key_value", "key != NULL",
       [&](D *d) { return !event_declaration_add_key_value(d, nullptr, "v", VALUE_TYPE_STRING); }},
      {"event_declaration_add_key_value", "value != NULL",
       [&](D *d) { return !event_declaration_add_key_value(d, "k", nullptr, VALUE_TYPE_STRING); }},
      {"event_declaration_set_value_user_string", "declaration != NULL",
       [&](D *) { return !event_declaration_set_value_user_string(none, "k", "s"); }},
      {"event_declaration_set_value_user_string", "key != NULL",
       [&](D *d) { return !event_declaration_set_value_user_string(d, nullptr, "s"); }},
      {"event_declaration_set_value_user_string", "string != NULL",
       [&](D *d) { return !event_declaration_set_value_user_string(d, "k", nullptr); }},
      {"event_declaration_set_nice_names", "declaration != NULL",
       [&](D *) { return !event_declaration_set_nice_names(none, "k", "a", "b"); }},
      {"event_declaration_set_nice_names", "key != NULL",
       [&](D *d) { return !event_declaration_set_nice_names(d, nullptr, "a", "b"); }},
      {"event_declaration_set_name_space", "declaration != NULL",
       [&](D *) { return !event_declaration_set_name_space(none, "k", "n"); }},
      {"event_declaration_set_name_space", "key != NULL",
       [&](D *d) { return !event_declaration_set_name_space(d, nullptr, "n"); }},
      {"event_declaration_set_complex_type_name", "declaration != NULL",
       [&](D *) { return !event_declaration_set_complex_type_name(none, "k", "n"); }},
      {"event_declaration_set_complex_type_name", "key != NULL",
       [&](D *d) { return !event_declaration_set_complex_type_name(d, nullptr, "n"); }},
      {"event_declaration_add_key_tag", "declaration != NULL",
       [&](D *) { return !event_declaration_add_key_tag(none, "k", "t"); }},
      {"event_declaration_add_key_tag", "key != NULL",
       [&](D *d) { return !event_declaration_add_key_tag(d, nullptr, "t"); }},
      {"event_declaration_add_key_tag", "tag != NULL",
       [&](D *d) { return !event_declaration_add_key_tag(d, "k", nullptr); }},
      {"event_declaration_add_tag", "declaration != NULL",
       [&](D *) { return !event_declaration_add_tag(none, "t"); }},
      {"event_declaration_add_tag", "tag != NULL",
       [&](D *d) { return !event_declaration_add_tag(d, nullptr); }},
      {"event_declaration_set_local_id", "declaration != NULL",
       [&](D *) { return event_declaration_set_local_id(none, 1), true; }},
      {"event_declaration_get_local_id", "declaration != NULL",
       [&](D *) { return event_declaration_get_local_id(none) == 0; }},
      {"event_declaration_set_global_id", "declaration != NULL",
       [&](D *) { return event_declaration_set_global_id(none, 1), true; }},
      {"event_declaration_get_global_id", "declaration != NULL",
       [&](D *) { return event_declaration_get_global_id(none) == 0; }},
      {"event_declaration_set_producer_id", "declaration != NULL",
       [&](D *) { return event_declaration_set_producer_id(none, 1), true; }},
      {"event_declaration_get_producer_id", "declaration != NULL",
       [&](D *) { return event_declaration_get_producer_id(none) == 0; }},
      {"event_declaration_is_internal", "declaration != NULL",
       [&](D *) { return !event_declaration_is_internal(none); }},
      {"event_declaration_set_property", "declaration != NULL",
       [&](D *) { return !event_declaration_set_property(none, "k", leave_alone, nullptr); }},
      {"event_declaration_is_property", "declaration != NULL",
       [&](D *) { return !event_declaration_is_property(none); }},
      {"event_declaration_get_property_event", "declaration != NULL",
       [&](D *) { return !event_declaration_get_property_event(none); }},
      {"event_declaration_generate_event", "declaration != NULL",
       [&](D *) { return !event_declaration_generate_event(none); }},
      {"event_declaration_contains", "declaration != NULL",
       [&](D *) {
         const ExpressionOwner se{subscribe_expression_new()};
         return !event_declaration_contains(none, se.get());
       }},
      {"event_declaration_contains", "subscribe_expression != NULL",
       [&](D *d) { return !event_declaration_contains(d, nullptr); }},
      {"event_declaration_serialize", "declaration != NULL",
       [&](D *) { return !event_declaration_serialize(none); }},
      {"event_declaration_deserialize", "array != NULL",
       [&](D *) { return !event_declaration_deserialize(nullptr); }},
      {"event_declaration_serialize_xmlnode", "declaration != NULL",
       [&](D *) { return !event_declaration_serialize_xmlnode(none); }},
      {"event_declaration_serialize_xml", "declaration != NULL",
       [&](D *) { return !event_declaration_serialize_xml(none); }},
      {"event_declaration_deserialize_xml", "xml != NULL",
       [&](D *) { return !event_declaration_deserialize_xml(nullptr); }},
      {"event_declaration_deserialize_xmlnode", "node != NULL",
       [&](D *) { return !event_declaration_deserialize_xmlnode(nullptr); }},
      {"event_declaration_deserialize_xml_file", "path != NULL",
       [&](D *) { return !event_declaration_deserialize_xml_file(nullptr); }},
      {"event_declaration_new_from_type", "type != NULL",
       [&](D *) { return !event_declaration_new_from_type(nullptr); }},
      {"event_declaration_print", "declaration != NULL",
       [&](D *) { return event_declaration_print(none), true; }},
  };
  for (const Case &one : cases) {
    SCOPED_TRACE(refusal(one.function, one.expression));
    const auto declaration = make_declaration();
    const LogCapture log;
    EXPECT_TRUE(one.is_neutral(declaration.get()));
    EXPECT_EQ(log.lines(), (std::vector{LogLine{G_LOG_LEVEL_CRITICAL, "",
                                                refusal(one.function, one.expression)}}));
    // Nothing was added in passing.
    EXPECT_EQ(inspectable_get_key_value(event_declaration_get_inspectable(declaration.get()), "k"),
              nullptr);
  }
}
