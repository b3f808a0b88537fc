// What the walk over a record lets through, byte by byte.
#include "logcapture.hpp"
#include "records.hpp"

#include <varro2/keyvalue.h>
#include <varro2/propertystate.h>
#include <varro2/serialize.h>

#include <gtest/gtest.h>

namespace varro2::test {
namespace {

bool valid(const Bytes &bytes, guint32 type_id, guint32 index = 0) {
  return serialize_is_valid_record(array_of(bytes).get(), index, type_id);
}

// The bytes of one pair: flags and the value's type as they are to be tested.
struct PairBytes {
  std::string_view key = "key";
  std::string_view value = "value";
  guint8 key_wildcard = 0;
  guint8 value_wildcard = 0;
  guint8 value_type = 4;
  guint8 id = 0xF5;

  Bytes bytes() const {
    return Record{}
        .u8(id)
        .text(key)
        .u8(key_wildcard)
        .text("")
        .text("")
        .text(value)
        .u8(value_wildcard)
        .text("")
        .text("")
        .text("")
        .u8(0)
        .u8(value_type)
        .u16(1)
        .text("a tag")
        .bytes();
  }
};

Bytes bucket(std::initializer_list<PairBytes> pairs) {
  Record record;
  record.u8(0xF4).u16(static_cast<guint16>(pairs.size()));
  for (const PairBytes &pair : pairs)
    record.raw(pair.bytes());
  return record.bytes();
}

Bytes and_list(std::initializer_list<Bytes> keys, std::initializer_list<Bytes> any_key) {
  Record record;
  record.u8(0xF3);
  for (const auto &buckets : {keys, any_key}) {
    record.u16(static_cast<guint16>(buckets.size()));
    for (const Bytes &bucket : buckets)
      record.raw(bucket);
  }
  return record.bytes();
}

Bytes container(guint8 type, std::initializer_list<Bytes> and_lists) {
  Record record;
  record.u8(0xF2).u16(static_cast<guint16>(and_lists.size())).u8(type).u8(0);
  for (const Bytes &list : and_lists)
    record.raw(list);
  return record.u16(1).text("tag").bytes();
}

Bytes event(const Bytes &content, const Bytes &time = Record{}.u32(0x7FFFFFFF).bytes()) {
  return Record{}
      .u8(0xF1)
      .raw(content)
      .u16(2)
      .raw({0, 7})
      .raw(time)
      .u32(1)
      .u32(2)
      .u32(3)
      .u8(0)
      .bytes();
}

Bytes declaration(const Bytes &content = empty_container(0)) {
  return Record{}.u8(0xF0).u32(1).u32(2).u32(3).u8(1).u64(0).u64(9).raw(content).bytes();
}

Bytes expression(const Bytes &content = empty_container(2), std::string_view service = ":1.7") {
  return Record{}.u8(0xF6).u32(1).text(service).text("/c").u32(5).u8(0).raw(content).bytes();
}

Bytes notification(const Bytes &expression_part, const Bytes &declaration_part, int longer = 0) {
  return Record{}
      .u8(0xFA)
      .u16(0)
      .u32(0x7FFFFFFF)
      .u32(1)
      .u32(2)
      .u8(0)
      .u32(static_cast<guint32>(static_cast<int>(expression_part.size()) + longer))
      .raw(expression_part)
      .u32(static_cast<guint32>(declaration_part.size()))
      .raw(declaration_part)
      .bytes();
}

// All that is missing somewhere at the end is refused.
void expect_whole(const Bytes &bytes, guint32 type_id) {
  ASSERT_TRUE(valid(bytes, type_id));
  for (std::size_t length = 0; length < bytes.size(); ++length)
    ASSERT_FALSE(
        valid({bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length)}, type_id))
        << "cut to " << length << " of " << bytes.size();
}

TEST(RecordWalk, TakesWholeRecordsOnly) {
  const Bytes keys = and_list({bucket({{}, {.value = "other"}})}, {});
  const Bytes tests = and_list({bucket({{}})}, {bucket({{.key_wildcard = 1}})});
  expect_whole(PairBytes{}.bytes(), SERIALIZE_ID_KEYVALUE);
  expect_whole(bucket({{}, {}}), SERIALIZE_ID_BUCKET);
  expect_whole(tests, SERIALIZE_ID_ANDLIST);
  expect_whole(container(2, {tests, tests}), SERIALIZE_ID_INSPECTABLE);
  expect_whole(event(container(1, {keys})), SERIALIZE_ID_EVENT);
  expect_whole(event(container(1, {keys}), Record{}.u32(5).u64(1700000000).bytes()),
               SERIALIZE_ID_EVENT);
  expect_whole(declaration(container(0, {keys})), SERIALIZE_ID_EVENT_DECLARATION);
  expect_whole(expression(container(2, {tests})), SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
  expect_whole(Record{}.u8(0xF9).raw(container(3, {keys})).bytes(), SERIALIZE_ID_PROPERTY_STATE);
  expect_whole(notification(expression(), declaration()), SERIALIZE_ID_NOTIFICATION);
}

TEST(RecordWalk, TellsTheKindsApart) {
  const Bytes record = expression();
  for (guint32 id = 0; id < 300; ++id)
    EXPECT_EQ(valid(record, id), id == SERIALIZE_ID_SUBSCRIBE_EXPRESSION) << id;
  EXPECT_FALSE(valid({247}, 247));
  EXPECT_FALSE(valid({}, SERIALIZE_ID_EVENT));
}

TEST(RecordWalk, BeginsAtTheIndexAndLeavesWhatFollows) {
  const Bytes record = Record{}.u16(3).raw(expression()).u16(4).bytes();
  EXPECT_TRUE(valid(record, SERIALIZE_ID_SUBSCRIBE_EXPRESSION, 2));
  EXPECT_FALSE(valid(record, SERIALIZE_ID_SUBSCRIBE_EXPRESSION, 1));
  EXPECT_FALSE(
      valid(record, SERIALIZE_ID_SUBSCRIBE_EXPRESSION, static_cast<guint32>(record.size())));
  EXPECT_FALSE(valid(record, SERIALIZE_ID_SUBSCRIBE_EXPRESSION, G_MAXUINT32));
}

TEST(RecordWalk, RefusesPairsThatNoReaderTakes) {
  const auto pair = [](const PairBytes &bytes) {
    return valid(bytes.bytes(), SERIALIZE_ID_KEYVALUE);
  };
  EXPECT_TRUE(pair({.key_wildcard = 1}));
  EXPECT_TRUE(pair({.value_wildcard = 1}));
  EXPECT_FALSE(pair({.key_wildcard = 1, .value_wildcard = 1}));
  EXPECT_FALSE(pair({.key_wildcard = 2, .value_wildcard = 1}));
  EXPECT_TRUE(pair({.value_type = 1}));
  EXPECT_FALSE(pair({.value_type = 0}));
  EXPECT_FALSE(pair({.value_type = 5}));
  EXPECT_FALSE(pair({.id = 0xF4}));
}

TEST(RecordWalk, TakesTextsOfAnyCodeButNoNul) {
  EXPECT_TRUE(valid(PairBytes{.value = "\xFF\xFE"}.bytes(), SERIALIZE_ID_KEYVALUE));
  EXPECT_FALSE(
      valid(PairBytes{.value = std::string_view{"a\0b", 3}}.bytes(), SERIALIZE_ID_KEYVALUE));
  EXPECT_FALSE(valid(PairBytes{.key = std::string_view{"a\0", 2}}.bytes(), SERIALIZE_ID_KEYVALUE));
}

TEST(RecordWalk, RefusesBucketsThatDoNotBelongTogether) {
  EXPECT_FALSE(valid(bucket({}), SERIALIZE_ID_BUCKET));
  EXPECT_FALSE(valid(bucket({{}, {.key = "other"}}), SERIALIZE_ID_BUCKET));
  EXPECT_FALSE(valid(bucket({{}, {.key_wildcard = 1}}), SERIALIZE_ID_BUCKET));
  // A test of any key has no key, and is found by its value.
  EXPECT_TRUE(
      valid(bucket({{.key_wildcard = 1}, {.key = "x", .key_wildcard = 1}}), SERIALIZE_ID_BUCKET));
  EXPECT_FALSE(valid(bucket({{.key_wildcard = 1}, {.value = "other", .key_wildcard = 1}}),
                     SERIALIZE_ID_BUCKET));
}

TEST(RecordWalk, RefusesTestsInTheWrongHalfOfAnAndList) {
  EXPECT_FALSE(valid(and_list({bucket({{.key_wildcard = 1}})}, {}), SERIALIZE_ID_ANDLIST));
  EXPECT_FALSE(valid(and_list({}, {bucket({{}})}), SERIALIZE_ID_ANDLIST));
}

TEST(RecordWalk, WantsOneAndListExceptInExpressions) {
  const Bytes list = and_list({}, {});
  for (guint8 type = 0; type <= 3; ++type) {
    EXPECT_FALSE(valid(container(type, {}), SERIALIZE_ID_INSPECTABLE));
    EXPECT_TRUE(valid(container(type, {list}), SERIALIZE_ID_INSPECTABLE));
    EXPECT_EQ(valid(container(type, {list, list}), SERIALIZE_ID_INSPECTABLE), type == 2);
  }
  EXPECT_FALSE(valid(container(4, {list}), SERIALIZE_ID_INSPECTABLE));
}

TEST(RecordWalk, WantsTheContainerOfTheObject) {
  for (guint8 type = 0; type <= 3; ++type) {
    const Bytes content = empty_container(type);
    EXPECT_EQ(valid(event(content), SERIALIZE_ID_EVENT), type == 1);
    EXPECT_EQ(valid(declaration(content), SERIALIZE_ID_EVENT_DECLARATION), type == 0);
    EXPECT_EQ(valid(expression(content), SERIALIZE_ID_SUBSCRIBE_EXPRESSION), type == 2);
    EXPECT_EQ(valid(Record{}.u8(0xF9).raw(content).bytes(), SERIALIZE_ID_PROPERTY_STATE),
              type == 3);
  }
}

TEST(RecordWalk, HoldsThePartsOfANotificationToTheirLength) {
  Bytes longer = expression();
  longer.push_back(0);
  EXPECT_FALSE(valid(notification(longer, declaration()), SERIALIZE_ID_NOTIFICATION));
  EXPECT_FALSE(valid(notification(expression(), declaration(), -1), SERIALIZE_ID_NOTIFICATION));
  EXPECT_FALSE(valid(notification(expression(), declaration(), 1), SERIALIZE_ID_NOTIFICATION));
  EXPECT_FALSE(valid(notification(declaration(), expression()), SERIALIZE_ID_NOTIFICATION));
}

TEST(RecordWalk, NeedsAnArray) {
  const LogCapture log;
  EXPECT_FALSE(serialize_is_valid_record(nullptr, 0, SERIALIZE_ID_EVENT));
  EXPECT_EQ(log.texts(), std::vector{refusal("serialize_is_valid_record", "array != NULL")});
}

} // namespace
} // namespace varro2::test
