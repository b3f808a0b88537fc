#include "event.hpp"

#include "logcapture.hpp"
#include "records.hpp"

#include <gtest/gtest.h>

using varro2::DateTimeRef;
using varro2::OwnedBytes;
using varro2::OwnedText;
using namespace varro2::test;

namespace {

constexpr gint64 seconds = 1700000000;

EventOwner event_with_key(const char *key, const char *value) {
  EventOwner event{event_new()};
  inspectable_add_key_value(event_get_inspectable(event.get()), key, FALSE, value, FALSE, FALSE);
  return event;
}

DateTimeRef time_at(gint64 unix_seconds, gint64 microseconds) {
  const auto whole = DateTimeRef::adopt(g_date_time_new_from_unix_utc(unix_seconds));
  return DateTimeRef::adopt(g_date_time_add(whole.get(), microseconds));
}

// From the timestamp on: no ids, no property.
Bytes record_with_time(guint32 microseconds, gint64 unix_seconds) {
  return Record{}
      .u8(0xF1)
      .raw(empty_container(1))
      .u16(0)
      .u32(microseconds)
      .u64(static_cast<guint64>(unix_seconds))
      .u32(0)
      .u32(0)
      .u32(0)
      .u8(0)
      .bytes();
}

EventOwner read_event(const Bytes &bytes) {
  return EventOwner{event_deserialize(array_of(bytes).get())};
}

} // namespace

TEST(Event, StartsWithNothing) {
  const EventOwner event{event_new()};
  EXPECT_EQ(event_get_key_count(event.get()), 0u);
  EXPECT_EQ(event_get_timestamp2(event.get()), nullptr);
  EXPECT_EQ(event_get_user_data(event.get()), nullptr);
  EXPECT_EQ(event_get_local_id(event.get()), 0u);
  EXPECT_EQ(event_get_global_id(event.get()), 0u);
  EXPECT_EQ(event_get_producer_id(event.get()), 0u);
  EXPECT_FALSE(event_is_property(event.get()));
  EXPECT_FALSE(event_is_internal(event.get()));
  EXPECT_TRUE(event_is_complete(event.get()));
}

TEST(Event, FreeAcceptsNull) {
  const LogCapture log;
  event_free(nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(Event, KeepsItsFields) {
  const EventOwner event{event_new()};
  event_set_local_id(event.get(), 1);
  event_set_global_id(event.get(), 2);
  event_set_producer_id(event.get(), 0xFFFFFFFF);
  event_set_property(event.get(), TRUE);
  inspectable_set_internal(event_get_inspectable(event.get()), TRUE);
  EXPECT_EQ(event_get_local_id(event.get()), 1u);
  EXPECT_EQ(event_get_global_id(event.get()), 2u);
  EXPECT_EQ(event_get_producer_id(event.get()), 0xFFFFFFFFu);
  EXPECT_TRUE(event_is_property(event.get()));
  EXPECT_TRUE(event_is_internal(event.get()));
}

TEST(Event, CopySharesTheTimeAndDuplicatesTheRest) {
  auto event = event_with_key("k", "v");
  const auto time = time_at(seconds, 5);
  event_set_timestamp2(event.get(), time.get());
  event_set_user_data_string(event.get(), "abc");
  event_set_local_id(event.get(), 1);
  event_set_global_id(event.get(), 2);
  event_set_producer_id(event.get(), 3);
  event_set_property(event.get(), TRUE);
  event_add_tag(event.get(), "t");
  inspectable_set_internal(event_get_inspectable(event.get()), TRUE);

  const EventOwner copy{event_copy(event.get())};
  event.reset();
  EXPECT_STREQ(event_get_value(copy.get(), "k"), "v");
  EXPECT_EQ(event_get_timestamp2(copy.get()), time.get());
  EXPECT_STREQ(OwnedText{event_get_user_data_string(copy.get())}.get(), "abc");
  EXPECT_EQ(event_get_local_id(copy.get()), 1u);
  EXPECT_EQ(event_get_global_id(copy.get()), 2u);
  EXPECT_EQ(event_get_producer_id(copy.get()), 3u);
  EXPECT_TRUE(event_is_property(copy.get()));
  EXPECT_TRUE(event_is_internal(copy.get()));
  EXPECT_TRUE(event_has_tag(copy.get(), "t"));
}

TEST(Event, TakesACopyOfAContainerAsAnEventsOwn) {
  const varro2::Owned<Inspectable, inspectable_free> given{inspectable_new(IT_EVENT_DECLARATION)};
  inspectable_add_key_value(given.get(), "k", FALSE, "v", FALSE, FALSE);
  const EventOwner event{event_new()};
  event_set_inspectable(event.get(), given.get());
  EXPECT_NE(event_get_inspectable(event.get()), given.get());
  EXPECT_STREQ(inspectable_get_value(given.get(), "k"), "v");
  // Only an event counts its keys.
  EXPECT_EQ(event_get_key_count(event.get()), 1u);
  EXPECT_STREQ(event_get_value(event.get(), "k"), "v");
}

TEST(Event, SurvivesItsOwnContainer) {
  const auto event = event_with_key("k", "v");
  event_set_inspectable(event.get(), event_get_inspectable(event.get()));
  EXPECT_STREQ(event_get_value(event.get(), "k"), "v");
}

TEST(Event, IsCompleteOnceItsOpenValuesAreSet) {
  const EventOwner event{event_new()};
  Inspectable *content = event_get_inspectable(event.get());
  inspectable_add_key_value(content, "k", FALSE, nullptr, TRUE, FALSE);
  EXPECT_FALSE(event_is_complete(event.get()));
  EXPECT_TRUE(event_set_value(event.get(), "k", "v"));
  EXPECT_TRUE(event_is_complete(event.get()));
}

TEST(Event, ContainsWhatAnExpressionAsksFor) {
  const auto event = event_with_key("k", "v");
  const ExpressionOwner fitting{subscribe_expression_new()};
  subscribe_expression_add_key_value(fitting.get(), "k", "v");
  EXPECT_TRUE(event_contains(event.get(), fitting.get()));
  const ExpressionOwner other{subscribe_expression_new()};
  subscribe_expression_add_key_value(other.get(), "k", "w");
  EXPECT_FALSE(event_contains(event.get(), other.get()));
}

/* ---- Timestamp ---- */

TEST(EventTime, IsSharedNotCopied) {
  const EventOwner event{event_new()};
  auto time = time_at(seconds, 0);
  GDateTime *const shared = time.get();
  event_set_timestamp2(event.get(), shared);
  event_set_timestamp2(event.get(), shared);
  time.reset();
  ASSERT_EQ(event_get_timestamp2(event.get()), shared);
  EXPECT_EQ(g_date_time_to_unix(event_get_timestamp2(event.get())), seconds);
}

TEST(EventTime, KeepsTheOldOneWhenGivenNone) {
  const LogCapture log;
  const EventOwner event{event_new()};
  const auto time = time_at(seconds, 0);
  event_set_timestamp2(event.get(), time.get());
  event_set_timestamp2(event.get(), nullptr);
  EXPECT_EQ(event_get_timestamp2(event.get()), time.get());
  EXPECT_EQ(log.count(G_LOG_LEVEL_CRITICAL, refusal("event_set_timestamp2", "timestamp != NULL")),
            1u);
}

TEST(EventTime, IsStampedOnlyWhereThereIsNone) {
  Event event;
  const auto before = DateTimeRef::adopt(g_date_time_new_now_utc());
  varro2::stamp_now_if_unset(event);
  const auto after = DateTimeRef::adopt(g_date_time_new_now_utc());
  ASSERT_TRUE(event.timestamp);
  EXPECT_LE(g_date_time_compare(before.get(), event.timestamp.get()), 0);
  EXPECT_LE(g_date_time_compare(event.timestamp.get(), after.get()), 0);
  EXPECT_EQ(g_date_time_get_utc_offset(event.timestamp.get()), 0);

  const auto own = time_at(seconds, 0);
  event_set_timestamp2(&event, own.get());
  varro2::stamp_now_if_unset(event);
  EXPECT_EQ(event.timestamp.get(), own.get());
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

TEST(EventTime, IsCountedInSecondsAndMicroseconds) {
  const EventOwner event{event_new()};
  GTimeVal time = event_get_timestamp(event.get());
  EXPECT_EQ(time.tv_sec, 0);
  EXPECT_EQ(time.tv_usec, 0);

  event_set_timestamp(event.get(), GTimeVal{seconds, 123456});
  time = event_get_timestamp(event.get());
  EXPECT_EQ(time.tv_sec, seconds);
  EXPECT_EQ(time.tv_usec, 123456);
  EXPECT_EQ(g_date_time_to_unix(event_get_timestamp2(event.get())), seconds);
  EXPECT_EQ(g_date_time_get_microsecond(event_get_timestamp2(event.get())), 123456);
}

#if GLIB_SIZEOF_LONG == 8 // one of 32 bits holds nothing but calendar times
TEST(EventTime, ThatNoCalendarHoldsChangesNothing) {
  const LogCapture log;
  const EventOwner event{event_new()};
  for (const gint64 impossible :
       {G_MAXINT64, G_MININT64, G_GINT64_CONSTANT(-18446744073709) - 62135596800}) {
    event_set_timestamp(event.get(), GTimeVal{static_cast<glong>(impossible), 0});
    EXPECT_EQ(event_get_timestamp2(event.get()), nullptr);
  }
  EXPECT_EQ(log.count(G_LOG_LEVEL_CRITICAL, refusal("event_set_timestamp2", "timestamp != NULL")),
            3u);
}
#endif

// 2040: more seconds than a long of 32 bits counts.
TEST(EventTime, ThatALongCannotCountIsZeroAndNotAnotherTime) {
  constexpr gint64 later = 2'208'988'800;
  const EventOwner event{event_new()};
  const auto timestamp = time_at(later, 5);
  event_set_timestamp2(event.get(), timestamp.get());
  const GTimeVal time = event_get_timestamp(event.get());
  EXPECT_EQ(time.tv_sec, sizeof(glong) == 8 ? static_cast<glong>(later) : 0);
  EXPECT_EQ(time.tv_usec, sizeof(glong) == 8 ? 5 : 0);
  EXPECT_EQ(event_get_timestamp2(event.get()), timestamp.get());
}

TEST(EventTime, IsZeroForNoEvent) {
  const LogCapture log;
  const GTimeVal time = event_get_timestamp(nullptr);
  EXPECT_EQ(time.tv_sec, 0);
  EXPECT_EQ(time.tv_usec, 0);
}

G_GNUC_END_IGNORE_DEPRECATIONS

/* ---- User data ---- */

TEST(EventUserData, IsCopiedInAndOut) {
  const EventOwner event{event_new()};
  guint8 block[] = {1, 0, 2};
  event_set_user_data(event.get(), block, sizeof block);
  block[0] = 9;
  const varro2::Owned<void, g_free> first{event_get_user_data(event.get())};
  const varro2::Owned<void, g_free> second{event_get_user_data(event.get())};
  const guint8 expected[] = {1, 0, 2};
  EXPECT_NE(first.get(), second.get());
  EXPECT_EQ(std::memcmp(first.get(), expected, sizeof expected), 0);
  EXPECT_EQ(std::memcmp(second.get(), expected, sizeof expected), 0);
}

TEST(EventUserData, TextIsStoredWithItsNul) {
  const EventOwner event{event_new()};
  event_set_user_data(event.get(), "longer than the text", 20);
  event_set_user_data_string(event.get(), "abc");
  EXPECT_STREQ(OwnedText{event_get_user_data_string(event.get())}.get(), "abc");
  EXPECT_EQ(taken(event_serialize(event.get())), Record{}
                                                     .u8(0xF1)
                                                     .raw(empty_container(1))
                                                     .u16(4)
                                                     .raw({'a', 'b', 'c', 0})
                                                     .u32(0x7FFFFFFF)
                                                     .u32(0)
                                                     .u32(0)
                                                     .u32(0)
                                                     .u8(0)
                                                     .bytes());
}

TEST(EventUserData, RefusesNothing) {
  const LogCapture log;
  const EventOwner event{event_new()};
  event_set_user_data_string(event.get(), "kept");
  event_set_user_data(event.get(), nullptr, 1);
  event_set_user_data(event.get(), "x", 0);
  event_set_user_data_string(event.get(), nullptr);
  EXPECT_STREQ(OwnedText{event_get_user_data_string(event.get())}.get(), "kept");
  EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL),
            (std::vector{refusal("event_set_user_data", "user_data != NULL"),
                         refusal("event_set_user_data", "size != 0"),
                         refusal("event_set_user_data_string", "string != NULL")}));
}

TEST(EventUserData, OfTheLargestSizeSurvivesTheRecord) {
  const EventOwner event{event_new()};
  const Bytes block(65535, 0xA5);
  event_set_user_data(event.get(), block.data(), 65535);
  const auto read = read_event(taken(event_serialize(event.get())));
  const varro2::Owned<void, g_free> data{event_get_user_data(read.get())};
  EXPECT_EQ(std::memcmp(data.get(), block.data(), block.size()), 0);
}

TEST(EventUserData, AboveThatKeepsItsBytesAndLosesItsSize) {
  const EventOwner event{event_new()};
  for (const guint size : {70000u, 65536u}) {
    const Bytes block(size, 0xA5);
    event_set_user_data(event.get(), block.data(), size);
    const Bytes record = taken(event_serialize(event.get()));
    EXPECT_EQ(record, Record{}
                          .u8(0xF1)
                          .raw(empty_container(1))
                          .u16(static_cast<guint16>(size % 65536))
                          .raw(block)
                          .u32(0x7FFFFFFF)
                          .u32(0)
                          .u32(0)
                          .u32(0)
                          .u8(0)
                          .bytes());
  }
}

/* ---- Record ---- */

TEST(EventRecord, OfAFreshEvent) {
  const Bytes expected{0xF1, 0xF2, 1,    0, 1, 0, 0xF3, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF,
                       0xFF, 0xFF, 0x7F, 0, 0, 0, 0,    0, 0, 0, 0, 0, 0, 0, 0, 0};
  const EventOwner event{event_new()};
  EXPECT_EQ(taken(event_serialize(event.get())), expected);

  const auto read = read_event(expected);
  EXPECT_EQ(event_get_timestamp2(read.get()), nullptr);
  EXPECT_EQ(event_get_user_data(read.get()), nullptr);
  EXPECT_EQ(taken(event_serialize(read.get())), expected);
}

TEST(EventRecord, OfEverything) {
  const auto event = event_with_key("k", "v");
  event_add_key_tag(event.get(), "k", "kt");
  event_add_tag(event.get(), "et");
  inspectable_set_internal(event_get_inspectable(event.get()), TRUE);
  event_set_user_data(event.get(), "\1\2", 2);
  event_set_timestamp2(event.get(), time_at(seconds, 123456).get());
  event_set_global_id(event.get(), 0x01020304);
  event_set_local_id(event.get(), 0x11121314);
  event_set_producer_id(event.get(), 0x21222324);
  event_set_property(event.get(), TRUE);

  const Bytes expected = Record{}
                             .u8(0xF1)
                             .u8(0xF2)
                             .u16(1)
                             .u8(1)
                             .u8(1)
                             .u8(0xF3)
                             .u16(1)
                             .u8(0xF4)
                             .u16(1)
                             .u8(0xF5)
                             .text("k")
                             .u8(0)
                             .text("")
                             .text("")
                             .text("v")
                             .u8(0)
                             .text("")
                             .text("")
                             .text("")
                             .u8(0)
                             .u8(4)
                             .u16(1)
                             .text("kt")
                             .u16(0)
                             .u16(1)
                             .text("et")
                             .u16(2)
                             .raw({1, 2})
                             .u32(123456)
                             .u64(1700000000)
                             .u32(0x01020304)
                             .u32(0x11121314)
                             .u32(0x21222324)
                             .u8(1)
                             .bytes();
  EXPECT_EQ(taken(event_serialize(event.get())), expected);
  const auto read = read_event(expected);
  EXPECT_EQ(taken(event_serialize(read.get())), expected);
  EXPECT_EQ(event_get_global_id(read.get()), 0x01020304u);
  EXPECT_EQ(event_get_local_id(read.get()), 0x11121314u);
  EXPECT_EQ(event_get_producer_id(read.get()), 0x21222324u);
  EXPECT_TRUE(event_is_property(read.get()));
  EXPECT_TRUE(event_is_internal(read.get()));
  EXPECT_EQ(event_get_key_count(read.get()), 1u);
}

TEST(EventRecord, IsAppendedAndReadAtARunningIndex) {
  const EventOwner event{event_new()};
  event_set_local_id(event.get(), 7);
  const auto array = array_of({0xEE});
  event_serialize_internal(event.get(), array.get());
  event_serialize_internal(event.get(), array.get());
  g_byte_array_append(array.get(), reinterpret_cast<const guint8 *>("!"), 1);

  guint32 indx = 1;
  const EventOwner first{event_deserialize_internal(array.get(), &indx)};
  EXPECT_EQ(indx, 1u + 32u);
  const EventOwner second{event_deserialize_internal(array.get(), &indx)};
  EXPECT_EQ(indx, 1u + 2 * 32u);
  EXPECT_EQ(array->len, indx + 1);
  EXPECT_EQ(event_get_local_id(first.get()), 7u);
  EXPECT_EQ(event_get_local_id(second.get()), 7u);
}

TEST(EventRecord, TimeIsExact) {
  const auto event = read_event(record_with_time(123456, seconds));
  EXPECT_EQ(g_date_time_to_unix(event_get_timestamp2(event.get())), seconds);
  EXPECT_EQ(g_date_time_get_microsecond(event_get_timestamp2(event.get())), 123456);
  EXPECT_EQ(taken(event_serialize(event.get())), record_with_time(123456, seconds));
}

TEST(EventRecord, TimeBefore1970IsExact) {
  const auto event = read_event(record_with_time(999999, -2));
  EXPECT_EQ(g_date_time_to_unix(event_get_timestamp2(event.get())), -2);
  EXPECT_EQ(taken(event_serialize(event.get())), record_with_time(999999, -2));
}

TEST(EventRecord, MicrosecondsAreASignedSpan) {
  const auto back = read_event(record_with_time(static_cast<guint32>(-1), seconds));
  EXPECT_EQ(g_date_time_to_unix(event_get_timestamp2(back.get())), seconds - 1);
  EXPECT_EQ(g_date_time_get_microsecond(event_get_timestamp2(back.get())), 999999);

  const auto on = read_event(record_with_time(0x7FFFFFFE, seconds));
  EXPECT_EQ(g_date_time_to_unix(event_get_timestamp2(on.get())), seconds + 2147);
  EXPECT_EQ(g_date_time_get_microsecond(event_get_timestamp2(on.get())), 483646);
}

TEST(EventRecord, TimeThatNoCalendarHoldsIsNone) {
  constexpr gint64 last_second = 253402300799; // of the year 9999
  for (const gint64 impossible : {G_MAXINT64, G_MININT64, last_second + 1})
    EXPECT_EQ(event_get_timestamp2(read_event(record_with_time(0, impossible)).get()), nullptr);
  // Counted in microseconds this passes 64 bits and comes out in the year 1.
  constexpr gint64 wrapping = -18446744073709 - 62135596800;
  EXPECT_EQ(event_get_timestamp2(read_event(record_with_time(0, wrapping)).get()), nullptr);
  EXPECT_NE(event_get_timestamp2(read_event(record_with_time(999999, last_second)).get()), nullptr);
  EXPECT_EQ(event_get_timestamp2(read_event(record_with_time(1000000, last_second)).get()),
            nullptr);
  // Nothing is added to a time that there is not.
  const LogCapture log;
  EXPECT_EQ(event_get_timestamp2(read_event(record_with_time(1, last_second + 1)).get()), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(EventRecordDeathTest, OfAnotherObject) {
  Bytes bytes = record_with_time(0, 0);
  bytes[0] = 0xF0;
  EXPECT_DEATH(read_event(bytes), "event_deserialize_internal.*type == SERIALIZE_ID_EVENT\\)");
}

TEST(EventRecordDeathTest, CutOff) {
  const Bytes whole = record_with_time(0, 0);
  const Bytes cut{whole.begin(), whole.end() - 1};
  EXPECT_DEATH(read_event(cut), "deserialize_size.*array->len >= \\*indx \\+ size");
}

TEST(EventRecordDeathTest, MissingArguments) {
  const EventOwner event{event_new()};
  const auto array = varro2::new_bytes();
  guint32 indx = 0;
  EXPECT_DEATH(event_serialize_internal(nullptr, array.get()),
               "event_serialize_internal.*event != NULL");
  EXPECT_DEATH(event_serialize_internal(event.get(), nullptr),
               "event_serialize_internal.*array != NULL");
  EXPECT_DEATH(event_deserialize_internal(nullptr, &indx), "array != NULL");
  EXPECT_DEATH(event_deserialize_internal(array.get(), nullptr), "indx != NULL");
}

/* ---- Log ---- */

TEST(EventPrint, OfAFreshEvent) {
  const EventOwner event{event_new()};
  const LogCapture log;
  event_print(event.get());
  EXPECT_EQ(log.texts(), (std::vector<std::string>{
                             "---- Event ------------------------", "Global Declaration Id: 0",
                             "Local Declaration Id: 0", "Producer Id: 0", "Timestamp: 0.0",
                             "-----------------------------------"}));
  for (const LogLine &line : log.lines()) {
    EXPECT_EQ(line.level, G_LOG_LEVEL_MESSAGE);
    EXPECT_EQ(line.domain, "");
  }
}

TEST(EventPrint, OfEverything) {
  const EventOwner event{event_new()};
  event_set_property(event.get(), TRUE);
  inspectable_set_internal(event_get_inspectable(event.get()), TRUE);
  event_add_tag(event.get(), "tag");
  event_set_global_id(event.get(), 0xFFFFFFFF);
  event_set_local_id(event.get(), 2);
  event_set_producer_id(event.get(), 3);
  event_set_timestamp2(event.get(), time_at(12, 5).get());
  const LogCapture log;
  event_print(event.get());
  EXPECT_EQ(log.texts(),
            (std::vector<std::string>{
                "---- Event ------------------------", "< Property >", "< Internal >",
                "Global Declaration Id: -1", "Local Declaration Id: 2", "Producer Id: 3",
                "Timestamp: 12.5", "{tag}", "-----------------------------------"}));
}
