// An event and what it holds lie in one piece of memory, until it grows.
#include "owning.hpp"
#include "serialize.hpp"

#include <varro2/varro2.h>

#include <gtest/gtest.h>

#include <array>
#include <string>

namespace varro2::test {
namespace {

using OwnedEvent = Owned<Event, event_free>;
using OwnedDeclaration = Owned<EventDeclaration, event_declaration_free>;
using OwnedInspectable = Owned<Inspectable, inspectable_free>;

std::string key_name(int number) {
  return "key" + std::to_string(number);
}

// Every other key is open.
OwnedEvent prepared_event(int keys) {
  const OwnedDeclaration declaration{event_declaration_new(FALSE)};
  for (int number = 0; number < keys; ++number) {
    const std::string key = key_name(number);
    if (number % 2 == 0)
      event_declaration_add_key_value(declaration.get(), key.c_str(), "fixed", VALUE_TYPE_STRING);
    else
      event_declaration_add_key(declaration.get(), key.c_str(), VALUE_TYPE_STRING);
    event_declaration_set_name_space(declaration.get(), key.c_str(), "space");
  }
  event_declaration_add_key_tag(declaration.get(), "key0", "key tag");
  event_declaration_add_tag(declaration.get(), "tag");
  return OwnedEvent{event_declaration_generate_event(declaration.get())};
}

OwnedEvent copy_of(const OwnedEvent &event) {
  return OwnedEvent{event_copy(event.get())};
}

std::string record_of(const Event *event) {
  const auto bytes = BytesRef::adopt(event_serialize(event));
  return {reinterpret_cast<const char *>(bytes->data), bytes->len};
}

OwnedEvent read_back(const Event *event) {
  const auto bytes = BytesRef::adopt(event_serialize(event));
  return OwnedEvent{event_deserialize(bytes.get())};
}

void expect_every_key(const Event *event, int keys, const char *open_value) {
  EXPECT_EQ(event_get_key_count(event), static_cast<guint32>(keys));
  for (int number = 0; number < keys; ++number) {
    const std::string key = key_name(number);
    EXPECT_STREQ(event_get_value(event, key.c_str()), number % 2 == 0 ? "fixed" : open_value);
    EXPECT_STREQ(event_get_name_space(event, key.c_str()), "space");
    EXPECT_EQ(event_get_index(event, key.c_str()), static_cast<guint32>(number));
  }
  EXPECT_TRUE(event_has_tag(event, "tag"));
  EXPECT_TRUE(event_has_tag_at(event, 0, "key tag"));
}

class EventMemory : public ::testing::TestWithParam<int> {};

TEST_P(EventMemory, CopiesOfCopiesOutliveTheirSources) {
  const int keys = GetParam();
  OwnedEvent event = prepared_event(keys);
  for (int copies = 0; copies < 3; ++copies) {
    event = copy_of(event);
    expect_every_key(event.get(), keys, "");
  }
  event = read_back(event.get());
  event = copy_of(event);
  expect_every_key(event.get(), keys, "");
}

TEST_P(EventMemory, ALentTextStaysWhileTheEventGrows) {
  const int keys = GetParam();
  for (OwnedEvent &event :
       std::array{copy_of(prepared_event(keys)), read_back(prepared_event(keys).get())}) {
    const char *lent = event_get_value(event.get(), "key0");
    for (int number = keys; number < keys + 60; ++number) {
      inspectable_add_key_value(event_get_inspectable(event.get()), key_name(number).c_str(), FALSE,
                                "fixed", FALSE, FALSE);
      event_add_tag(event.get(), "another tag");
    }
    for (int number = 1; number < keys; number += 2)
      event_set_value(event.get(), key_name(number).c_str(), std::string(300, 'x').c_str());
    EXPECT_STREQ(lent, "fixed");
    EXPECT_EQ(lent, event_get_value(event.get(), "key0"));

    const OwnedEvent copy = copy_of(event);
    event.reset();
    EXPECT_EQ(event_get_key_count(copy.get()), static_cast<guint32>(keys + 60));
    EXPECT_STREQ(event_get_value(copy.get(), key_name(keys + 59).c_str()), "fixed");
  }
}

TEST_P(EventMemory, TakesItsOwnContentAgain) {
  const int keys = GetParam();
  const OwnedEvent event = copy_of(prepared_event(keys));
  for (int times = 0; times < 3; ++times) {
    event_set_inspectable(event.get(), event_get_inspectable(event.get()));
    expect_every_key(event.get(), keys, "");
  }
  expect_every_key(copy_of(event).get(), keys, "");
}

TEST_P(EventMemory, ContentMovesBetweenTypes) {
  const int keys = GetParam();
  OwnedEvent event = copy_of(prepared_event(keys));
  OwnedInspectable declared{
      inspectable_copy(event_get_inspectable(event.get()), IT_EVENT_DECLARATION)};
  event.reset();
  inspectable_set_complex_type_name(declared.get(), "key0", "complex");
  inspectable_add_key_value(declared.get(), "key1", FALSE, "declared again", FALSE, FALSE);
  inspectable_set_name_space(declared.get(), "key1", "space");
  event.reset(event_new());
  event_set_inspectable(event.get(), declared.get());
  declared.reset();
  EXPECT_STREQ(event_get_complex_type_name(event.get(), "key0"), "complex");
  EXPECT_STREQ(event_get_value(event.get(), "key1"), "declared again");
  EXPECT_EQ(event_get_key_count(event.get()), static_cast<guint32>(keys));
  EXPECT_EQ(record_of(copy_of(event).get()), record_of(event.get()));
}

TEST_P(EventMemory, CopiesWhatLiesElsewhere) {
  const int keys = GetParam();
  const OwnedEvent event = copy_of(prepared_event(keys));
  const std::string long_text(2000, 'y');
  for (int number = 1; number < keys; number += 2)
    event_set_value(event.get(), key_name(number).c_str(), long_text.c_str());
  event_set_value(event.get(), "key1", ""); // had a long one
  event_add_key_tag(event.get(), "key0", "later");
  // By the pair's own functions, behind the container's back.
  auto *pair = inspectable_get_key_value(event_get_inspectable(event.get()), "key1");
  key_value_add_tag(pair, "by the pair");
  key_value_give_tag(pair, g_strdup("given"));

  OwnedEvent copy = copy_of(event);
  EXPECT_EQ(record_of(copy.get()), record_of(event.get()));
  EXPECT_STREQ(event_get_value(copy.get(), "key1"), "");
  EXPECT_TRUE(event_has_tag_at(copy.get(), 0, "later"));
  EXPECT_TRUE(event_has_tag_at(copy.get(), 1, "given"));
  // The two have nothing in common.
  event_set_value(copy.get(), "key1", "of the copy");
  event_set_value(event.get(), "key1", std::string(3000, 'z').c_str());
  EXPECT_STREQ(event_get_value(copy.get(), "key1"), "of the copy");
  copy = copy_of(copy);
  EXPECT_STREQ(event_get_value(copy.get(), "key1"), "of the copy");
}

INSTANTIATE_TEST_SUITE_P(Keys, EventMemory, ::testing::Values(2, 8, 17, 33, 100));

TEST(EventMemoryWithoutKeys, CopiesNothing) {
  OwnedEvent event{event_new()};
  event = copy_of(event);
  event = read_back(event.get());
  event = copy_of(event);
  EXPECT_EQ(event_get_key_count(event.get()), 0u);
  inspectable_add_key_value(event_get_inspectable(event.get()), "key", FALSE, "value", FALSE,
                            FALSE);
  EXPECT_STREQ(event_get_value(event.get(), "key"), "value");
}

TEST(EventMemoryWithoutKeys, TakesAContainerWithoutAndLists) {
  const auto bytes = new_bytes();
  const guint8 record[] = {242, 0, 0, 1, 0, 0, 0};
  g_byte_array_append(bytes.get(), record, sizeof record);
  guint32 at = 0;
  const OwnedInspectable nothing{inspectable_deserialize_internal(bytes.get(), &at)};
  OwnedEvent event{event_new()};
  event_set_inspectable(event.get(), nothing.get());
  event = copy_of(event);
  event_set_inspectable(event.get(), event_get_inspectable(event.get()));
  EXPECT_EQ(event_get_key_count(event.get()), 0u);
  event_add_tag(event.get(), "tag");
  EXPECT_TRUE(event_has_tag(copy_of(event).get(), "tag"));
}

TEST(EventMemoryOfTags, ATagThatARecordBringsTwiceIsCopiedOnce) {
  const OwnedEvent event = copy_of(prepared_event(2));
  auto *pair = inspectable_get_key_value(event_get_inspectable(event.get()), "key0");
  key_value_give_tag(pair, g_strdup("key tag"));
  const OwnedEvent received = read_back(event.get());
  const auto count = [](const Event *of) {
    GList *tags = event_get_tags_at(of, 0);
    const guint length = g_list_length(tags);
    g_list_free_full(tags, g_free);
    return length;
  };
  EXPECT_EQ(count(received.get()), 2u);
  EXPECT_EQ(count(copy_of(received).get()), 1u);
  EXPECT_EQ(count(copy_of(copy_of(received)).get()), 1u);
}

TEST(EventMemoryOfTags, OneThatIsAddedToACopyIsTheCopysAlone) {
  const OwnedEvent event = copy_of(prepared_event(2));
  const std::string before = record_of(event.get());
  const OwnedEvent copy = copy_of(event);
  event_add_tag(copy.get(), "of the copy");
  EXPECT_TRUE(event_has_tag(copy.get(), "tag"));
  EXPECT_TRUE(event_has_tag(copy.get(), "of the copy"));
  EXPECT_FALSE(event_has_tag(event.get(), "of the copy"));
  EXPECT_EQ(record_of(event.get()), before);
}

// However a key got its tags, and however many they are.
class EventMemoryOfManyTags : public ::testing::TestWithParam<int> {
 protected:
  static std::string tag_name(int number) { return "tag" + std::to_string(number); }

  static void expect_every_tag(const Event *event) {
    GList *tags = event_get_tags_at(event, 0);
    EXPECT_EQ(g_list_length(tags), static_cast<guint>(GetParam()));
    g_list_free_full(tags, g_free);
    for (int number = 0; number < GetParam(); ++number)
      EXPECT_TRUE(event_has_tag_at(event, 0, tag_name(number).c_str())) << number;
  }

  // Each copy outlives what it was made of.
  static void expect_in_copies_of_copies(const EventDeclaration *declaration) {
    OwnedEvent event{event_declaration_generate_event(declaration)};
    for (int copies = 0; copies < 3; ++copies) {
      event = copy_of(event);
      expect_every_tag(event.get());
    }
    event = read_back(event.get());
    for (int copies = 0; copies < 3; ++copies) {
      event = copy_of(event);
      expect_every_tag(event.get());
    }
  }
};

TEST_P(EventMemoryOfManyTags, AddedOneByOne) {
  const OwnedDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key(declaration.get(), "key", VALUE_TYPE_STRING);
  for (int number = 0; number < GetParam(); ++number)
    event_declaration_add_key_tag(declaration.get(), "key", tag_name(number).c_str());
  expect_in_copies_of_copies(declaration.get());
}

TEST_P(EventMemoryOfManyTags, OfADocument) {
  std::string xml = "<declare><expression><keyvalue key='key' value-wildcard='true'>";
  for (int number = 0; number < GetParam(); ++number)
    xml += "<tag tag='" + tag_name(number) + "'/>";
  xml += "</keyvalue></expression></declare>";
  OwnedDeclaration declaration{event_declaration_deserialize_xml(xml.c_str())};
  expect_in_copies_of_copies(declaration.get());
  declaration.reset(event_declaration_copy(declaration.get()));
  declaration.reset(event_declaration_copy(declaration.get()));
  expect_in_copies_of_copies(declaration.get());
}

TEST_P(EventMemoryOfManyTags, InSeveralBlocks) {
  const OwnedDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key(declaration.get(), "key", VALUE_TYPE_STRING);
  for (int number = 0; number < GetParam(); ++number)
    event_declaration_add_key_tag(declaration.get(), "key", tag_name(number).c_str());
  for (int number = 0; number < 60; ++number)
    event_declaration_add_key(declaration.get(), key_name(number).c_str(), VALUE_TYPE_STRING);
  expect_in_copies_of_copies(declaration.get());
}

INSTANTIATE_TEST_SUITE_P(Tags, EventMemoryOfManyTags, ::testing::Values(1, 16, 17, 40));

} // namespace
} // namespace varro2::test
