#include "owning.hpp"
#include "untrusted.hpp"

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>

#include <gtest/gtest.h>

namespace varro2::test {
namespace {

TEST(DeclarationList, MayBeEmptyInTwoWays) {
  EXPECT_TRUE(is_declaration_list(nullptr, 0));
  const guint8 count_of_none[] = {0, 0, 0, 0};
  EXPECT_TRUE(is_declaration_list(count_of_none, sizeof count_of_none));
}

TEST(DeclarationList, MustHoldWhatItCounts) {
  const guint8 count_of_one[] = {1, 0, 0, 0};
  EXPECT_FALSE(is_declaration_list(count_of_one, sizeof count_of_one));
  EXPECT_FALSE(is_declaration_list(count_of_one, 3));
}

// The record of an event with one key, which is open where there is no text.
BytesRef event_record(guint32 value_type, const char *text) {
  const Owned<EventDeclaration, event_declaration_free> declaration{event_declaration_new(FALSE)};
  event_declaration_add_key(declaration.get(), "key", value_type);
  const Owned<Event, event_free> event{event_declaration_generate_event(declaration.get())};
  if (text != nullptr)
    inspectable_set_value_as_string(event_get_inspectable(event.get()), "key", text);
  return BytesRef::adopt(event_serialize(event.get()));
}

bool is_taken(const BytesRef &record) {
  return is_event(record->data, record->len);
}

TEST(ReceivedEvent, HasTruthValuesThatCanBeRead) {
  for (const char *text : {"0", "1"})
    EXPECT_TRUE(is_taken(event_record(VALUE_TYPE_BOOL, text))) << text;
  for (const char *text : {"", "2", "01", "true", static_cast<const char *>(nullptr)}) {
    const BytesRef record = event_record(VALUE_TYPE_BOOL, text);
    EXPECT_FALSE(is_taken(record)) << (text ? text : "open");
    EXPECT_TRUE(serialize_is_valid_record(record.get(), 0, SERIALIZE_ID_EVENT));
  }
  // An open value has no text, whatever the record says.
  const BytesRef open = event_record(VALUE_TYPE_BOOL, "1");
  constexpr std::size_t at_value_wildcard = 26;
  ASSERT_EQ(open->data[at_value_wildcard - 1], '1');
  open->data[at_value_wildcard] = TRUE;
  EXPECT_FALSE(is_taken(open));
}

TEST(ReceivedEvent, MayHaveAnyTextForOtherTypes) {
  for (const guint32 type : {VALUE_TYPE_INT, VALUE_TYPE_DOUBLE, VALUE_TYPE_STRING})
    for (const char *text : {"", "true", static_cast<const char *>(nullptr)})
      EXPECT_TRUE(is_taken(event_record(type, text)));
}

TEST(ReceivedEvent, IsAWholeEvent) {
  const BytesRef record = event_record(VALUE_TYPE_BOOL, "1");
  EXPECT_FALSE(is_event(record->data, record->len - 1));
  EXPECT_FALSE(is_event(record->data + 1, record->len - 1));
  EXPECT_FALSE(is_event(nullptr, 0));
}

} // namespace
} // namespace varro2::test
