// What an event passes on to its container, and what it refuses itself.
#include "logcapture.hpp"
#include "records.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <functional>

using namespace varro2::test;

namespace {

// An integer "n" that is open, a text "s" with everything that a declaration can say.
EventOwner make_event() {
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  EventDeclaration *d = declaration.get();
  event_declaration_add_key(d, "n", VALUE_TYPE_INT);
  event_declaration_add_key_value(d, "s", "text", VALUE_TYPE_STRING);
  event_declaration_set_name_space(d, "s", "ns");
  event_declaration_set_complex_type_name(d, "s", "ct");
  event_declaration_set_value_user_string(d, "s", "us");
  event_declaration_set_nice_names(d, "s", "key name", "value name");
  event_declaration_add_key_tag(d, "s", "t1");
  event_declaration_add_key_tag(d, "s", "t2");
  return EventOwner{event_declaration_generate_event(d)};
}

} // namespace

TEST(EventKeys, ByKey) {
  const auto event = make_event();
  EXPECT_STREQ(event_get_value(event.get(), "s"), "text");
  EXPECT_STREQ(event_get_name_space(event.get(), "s"), "ns");
  EXPECT_STREQ(event_get_complex_type_name(event.get(), "s"), "ct");
  EXPECT_STREQ(event_get_value_user_string(event.get(), "s"), "us");
  EXPECT_STREQ(event_get_key_nice_name(event.get(), "s"), "key name");
  EXPECT_STREQ(event_get_value_nice_name(event.get(), "s"), "value name");
  EXPECT_EQ(event_get_index(event.get(), "n"), 0u);
  EXPECT_EQ(event_get_index(event.get(), "s"), 1u);
}

TEST(EventKeys, ByPosition) {
  const auto event = make_event();
  ASSERT_EQ(event_get_key_count(event.get()), 2u);
  EXPECT_STREQ(event_get_key_at(event.get(), 1), "s");
  EXPECT_STREQ(event_get_value_at(event.get(), 1), "text");
  EXPECT_STREQ(event_get_name_space_at(event.get(), 1), "ns");
  EXPECT_STREQ(event_get_complex_type_name_at(event.get(), 1), "ct");
  EXPECT_EQ(event_get_type_at(event.get(), 0), guint32{VALUE_TYPE_INT});
  EXPECT_EQ(event_get_type_at(event.get(), 1), guint32{VALUE_TYPE_STRING});
  EXPECT_FALSE(event_has_value_at(event.get(), 0));
  EXPECT_TRUE(event_has_value_at(event.get(), 1));
  EXPECT_EQ(taken(event_get_tags_at(event.get(), 1)), (std::vector<std::string>{"t2", "t1"}));
  EXPECT_TRUE(event_has_tag_at(event.get(), 1, "t2"));
  EXPECT_FALSE(event_has_tag_at(event.get(), 0, "t2"));
}

TEST(EventKeys, ThatAreNotThere) {
  const LogCapture log;
  const auto event = make_event();
  EXPECT_EQ(event_get_value(event.get(), "x"), nullptr);
  EXPECT_EQ(event_get_key_nice_name(event.get(), "x"), nullptr);
  EXPECT_EQ(event_get_index(event.get(), "x"), 0xFFFFFFFFu);
  EXPECT_FALSE(event_set_value(event.get(), "x", "v"));
  EXPECT_FALSE(event_add_key_tag(event.get(), "x", "t"));
  EXPECT_EQ(event_get_key_at(event.get(), 2), nullptr);
  EXPECT_EQ(event_get_value_at(event.get(), 2), nullptr);
  EXPECT_EQ(event_get_type_at(event.get(), 2), 0u);
  EXPECT_EQ(event_get_tags_at(event.get(), 2), nullptr);
  EXPECT_FALSE(event_has_value_at(event.get(), 2));
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventKeys, ValuesAreSetByTheirType) {
  const auto event = make_event();
  const gint32 value = -42;
  EXPECT_TRUE(event_set_value(event.get(), "n", &value));
  EXPECT_STREQ(event_get_value(event.get(), "n"), "-42");
  EXPECT_TRUE(event_has_value_at(event.get(), 0));
  // The declaration's own value came after its key, and may come again.
  EXPECT_TRUE(event_set_value(event.get(), "s", "other"));
  inspectable_add_key_value(event_get_inspectable(event.get()), "fixed", FALSE, "v", FALSE, FALSE);
  EXPECT_FALSE(event_set_value(event.get(), "fixed", "other"));
  EXPECT_STREQ(event_get_value(event.get(), "fixed"), "v");
}

TEST(EventKeys, ValuesAreReadByTheirType) {
  const auto event = make_event();
  const gint32 value = -42;
  event_set_value(event.get(), "n", &value);
  gint32 number = 0;
  EXPECT_TRUE(event_get_typed_value(event.get(), "n", &number));
  EXPECT_EQ(number, -42);
  const char *text = nullptr;
  EXPECT_TRUE(event_get_typed_value_at(event.get(), 1, &text));
  EXPECT_STREQ(text, "text");

  number = 99;
  EXPECT_FALSE(event_get_typed_value(event.get(), "absent", &number));
  EXPECT_FALSE(event_get_typed_value_at(event.get(), 2, &number));
  EXPECT_EQ(number, 99);
}

TEST(EventKeys, TagsOfTheEventAndOfAKey) {
  const auto event = make_event();
  EXPECT_TRUE(event_add_tag(event.get(), "a"));
  EXPECT_TRUE(event_add_tag(event.get(), "b"));
  EXPECT_EQ(taken(event_get_tags(event.get())), (std::vector<std::string>{"b", "a"}));
  EXPECT_TRUE(event_has_tag(event.get(), "a"));
  EXPECT_FALSE(event_has_tag(event.get(), "t1"));
  EXPECT_TRUE(event_add_key_tag(event.get(), "n", "c"));
  EXPECT_TRUE(event_has_tag_at(event.get(), 0, "c"));
}

TEST(EventKeys, RefusesMissingArguments) {
  struct Case {
    const char *function;
    const char *expression;
    std::function<bool(Event *)> is_neutral;
  };
  gint32 out = 99;
  Event *const none = nullptr;
  const Case cases[] = {
      {"event_copy", "event_src != NULL", [&](Event *) { return !event_copy(none); }},
      {"event_set_inspectable", "event != NULL",
       [&](Event *e) { return event_set_inspectable(none, event_get_inspectable(e)), true; }},
      {"event_set_inspectable", "inspect != NULL",
       [&](Event *e) { return event_set_inspectable(e, nullptr), event_get_key_count(e) == 2; }},
      {"event_get_inspectable", "event != NULL",
       [&](Event *) { return !event_get_inspectable(none); }},
      {"event_set_property", "event != NULL",
       [&](Event *) { return event_set_property(none, TRUE), true; }},
      {"event_is_property", "event != NULL", [&](Event *) { return !event_is_property(none); }},
      {"event_set_producer_id", "event != NULL",
       [&](Event *) { return event_set_producer_id(none, 1), true; }},
      {"event_get_producer_id", "event != NULL",
       [&](Event *) { return event_get_producer_id(none) == 0; }},
      {"event_set_global_id", "event != NULL",
       [&](Event *) { return event_set_global_id(none, 1), true; }},
      {"event_get_global_id", "event != NULL",
       [&](Event *) { return event_get_global_id(none) == 0; }},
      {"event_set_local_id", "event != NULL",
       [&](Event *) { return event_set_local_id(none, 1), true; }},
      {"event_get_local_id", "event != NULL",
       [&](Event *) { return event_get_local_id(none) == 0; }},
      {"event_is_internal", "event != NULL", [&](Event *) { return !event_is_internal(none); }},
      {"event_contains", "container != NULL",
       [&](Event *) {
         const ExpressionOwner se{subscribe_expression_new()};
         return !event_contains(none, se.get());
       }},
      {"event_contains", "containee != NULL",
       [&](Event *e) { return !event_contains(e, nullptr); }},
      {"event_is_complete", "event != NULL", [&](Event *) { return !event_is_complete(none); }},
      {"event_get_timestamp2", "event != NULL",
       [&](Event *) { return !event_get_timestamp2(none); }},
      {"event_set_timestamp2", "event != NULL",
       [&](Event *) { return event_set_timestamp2(none, nullptr), true; }},
      {"event_set_user_data", "event != NULL",
       [&](Event *) { return event_set_user_data(none, "x", 1), true; }},
      {"event_get_user_data", "event != NULL", [&](Event *) { return !event_get_user_data(none); }},
      {"event_set_user_data_string", "event != NULL",
       [&](Event *) { return event_set_user_data_string(none, "x"), true; }},
      {"event_get_user_data_string", "event != NULL",
       [&](Event *) { return !event_get_user_data_string(none); }},
      {"event_serialize", "event != NULL", [&](Event *) { return !event_serialize(none); }},
      {"event_deserialize", "array != NULL", [&](Event *) { return !event_deserialize(nullptr); }},
      {"event_print", "event != NULL", [&](Event *) { return event_print(none), true; }},
      {"event_set_value", "event != NULL",
       [&](Event *) { return !event_set_value(none, "n", &out); }},
      {"event_set_value", "key != NULL",
       [&](Event *e) { return !event_set_value(e, nullptr, &out); }},
      {"event_set_value", "value != NULL",
       [&](Event *e) { return !event_set_value(e, "n", nullptr); }},
      {"event_get_value", "event != NULL", [&](Event *) { return !event_get_value(none, "s"); }},
      {"event_get_value", "key != NULL", [&](Event *e) { return !event_get_value(e, nullptr); }},
      {"event_get_typed_value", "event != NULL",
       [&](Event *) { return !event_get_typed_value(none, "n", &out); }},
      {"event_get_typed_value", "key != NULL",
       [&](Event *e) { return !event_get_typed_value(e, nullptr, &out); }},
      {"event_get_typed_value", "data != NULL",
       [&](Event *e) { return !event_get_typed_value(e, "n", nullptr); }},
      {"event_get_name_space", "event != NULL",
       [&](Event *) { return !event_get_name_space(none, "s"); }},
      {"event_get_name_space", "key != NULL",
       [&](Event *e) { return !event_get_name_space(e, nullptr); }},
      {"event_get_complex_type_name", "event != NULL",
       [&](Event *) { return !event_get_complex_type_name(none, "s"); }},
      {"event_get_complex_type_name", "key != NULL",
       [&](Event *e) { return !event_get_complex_type_name(e, nullptr); }},
      {"event_get_value_user_string", "event != NULL",
       [&](Event *) { return !event_get_value_user_string(none, "s"); }},
      {"event_get_value_user_string", "key != NULL",
       [&](Event *e) { return !event_get_value_user_string(e, nullptr); }},
      {"event_get_key_nice_name", "event != NULL",
       [&](Event *) { return !event_get_key_nice_name(none, "s"); }},
      {"event_get_key_nice_name", "key != NULL",
       [&](Event *e) { return !event_get_key_nice_name(e, nullptr); }},
      {"event_get_value_nice_name", "event != NULL",
       [&](Event *) { return !event_get_value_nice_name(none, "s"); }},
      {"event_get_value_nice_name", "key != NULL",
       [&](Event *e) { return !event_get_value_nice_name(e, nullptr); }},
      {"event_get_index", "event != NULL",
       [&](Event *) { return event_get_index(none, "s") == 0xFFFFFFFFu; }},
      {"event_get_index", "key != NULL",
       [&](Event *e) { return event_get_index(e, nullptr) == 0xFFFFFFFFu; }},
      {"event_get_key_count", "event != NULL",
       [&](Event *) { return event_get_key_count(none) == 0; }},
      {"event_get_key_at", "event != NULL", [&](Event *) { return !event_get_key_at(none, 0); }},
      {"event_get_name_space_at", "event != NULL",
       [&](Event *) { return !event_get_name_space_at(none, 0); }},
      {"event_get_complex_type_name_at", "event != NULL",
       [&](Event *) { return !event_get_complex_type_name_at(none, 0); }},
      {"event_get_value_at", "event != NULL",
       [&](Event *) { return !event_get_value_at(none, 0); }},
      {"event_get_type_at", "event != NULL",
       [&](Event *) { return event_get_type_at(none, 0) == 0; }},
      {"event_get_typed_value_at", "event != NULL",
       [&](Event *) { return !event_get_typed_value_at(none, 0, &out); }},
      {"event_get_typed_value_at", "data != NULL",
       [&](Event *e) { return !event_get_typed_value_at(e, 0, nullptr); }},
      {"event_has_value_at", "event != NULL",
       [&](Event *) { return !event_has_value_at(none, 0); }},
      {"event_get_tags", "event != NULL", [&](Event *) { return !event_get_tags(none); }},
      {"event_get_tags_at", "event != NULL", [&](Event *) { return !event_get_tags_at(none, 0); }},
      {"event_has_tag", "event != NULL", [&](Event *) { return !event_has_tag(none, "t"); }},
      {"event_has_tag", "tag != NULL", [&](Event *e) { return !event_has_tag(e, nullptr); }},
      {"event_has_tag_at", "event != NULL",
       [&](Event *) { return !event_has_tag_at(none, 0, "t"); }},
      {"event_has_tag_at", "tag != NULL",
       [&](Event *e) { return !event_has_tag_at(e, 0, nullptr); }},
      {"event_add_tag", "event != NULL", [&](Event *) { return !event_add_tag(none, "t"); }},
      {"event_add_tag", "tag != NULL", [&](Event *e) { return !event_add_tag(e, nullptr); }},
      {"event_add_key_tag", "event != NULL",
       [&](Event *) { return !event_add_key_tag(none, "s", "t"); }},
      {"event_add_key_tag", "key != NULL",
       [&](Event *e) { return !event_add_key_tag(e, nullptr, "t"); }},
      {"event_add_key_tag", "tag != NULL",
       [&](Event *e) { return !event_add_key_tag(e, "s", nullptr); }},
  };
  for (const Case &one : cases) {
    SCOPED_TRACE(refusal(one.function, one.expression));
    const auto event = make_event();
    const LogCapture log;
    EXPECT_TRUE(one.is_neutral(event.get()));
    EXPECT_EQ(log.lines(), (std::vector{LogLine{G_LOG_LEVEL_CRITICAL, "",
                                                refusal(one.function, one.expression)}}));
    EXPECT_EQ(out, 99);
  }
}
