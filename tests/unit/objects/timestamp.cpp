// A time is kept as a number; the GDateTime of it is made when somebody asks.
#include "timestamp.hpp"

#include "event.hpp"
#include "records.hpp"

#include <gtest/gtest.h>

#include <barrier>
#include <random>
#include <thread>

using varro2::DateTimeRef;
using varro2::Timestamp;
using namespace varro2::test;

namespace {

constexpr gint64 first_second = -62135596800; // of the year 1
constexpr gint64 last_second = 253402300799;  // of the year 9999
constexpr gint64 seconds = 1700000000;

// As GLib counts: a time in whole seconds, and a span that is added to it.
DateTimeRef by_glib(gint64 unix_seconds, gint64 microseconds) {
  if (unix_seconds < first_second || unix_seconds > last_second)
    return {};
  const auto whole = DateTimeRef::adopt(g_date_time_new_from_unix_utc(unix_seconds));
  return DateTimeRef::adopt(g_date_time_add(whole.get(), microseconds));
}

void expect_same(const Timestamp &timestamp, const DateTimeRef &time) {
  ASSERT_EQ(static_cast<bool>(timestamp), static_cast<bool>(time));
  if (!time) {
    EXPECT_EQ(timestamp.get(), nullptr);
    EXPECT_EQ(timestamp.seconds(), 0);
    EXPECT_EQ(timestamp.microsecond(), 0);
    return;
  }
  EXPECT_EQ(timestamp.seconds(), g_date_time_to_unix(time.get()));
  EXPECT_EQ(timestamp.microsecond(), g_date_time_get_microsecond(time.get()));
  GDateTime *made = timestamp.get();
  ASSERT_NE(made, nullptr);
  EXPECT_TRUE(g_date_time_equal(made, time.get()));
  EXPECT_EQ(g_date_time_get_utc_offset(made), 0);
  EXPECT_EQ(timestamp.get(), made);
}

DateTimeRef in_zone(const char *zone) {
  GTimeZone *made = g_time_zone_new_identifier(zone);
  auto time = DateTimeRef::adopt(g_date_time_new(made, 2001, 2, 3, 4, 5, 6.789));
  g_time_zone_unref(made);
  return time;
}

Timestamp read_back(const Timestamp &timestamp) {
  guint8 bytes[12] = {};
  varro2::ArraySink sink{bytes};
  varro2::write_timestamp(sink, timestamp);
  guint32 at = 0;
  varro2::Reader reader{bytes, static_cast<guint32>(sink.position() - bytes), &at};
  return varro2::read_timestamp(reader);
}

} // namespace

TEST(Timestamp, IsWhatGLibCounts) {
  const gint64 spans[] = {0,          1,           999'999,     1'000'000,  1'000'001,
                          -1,         -999'999,    -1'000'000,  -1'000'001, 2'147'483'646,
                          G_MAXINT32, -86'400'000, 100'000'000, G_MININT32};
  for (const gint64 second :
       {first_second - 1, first_second, first_second + 1, first_second + 2148, gint64{-86'401},
        gint64{-86'400}, gint64{-2}, gint64{-1}, gint64{0}, gint64{1}, seconds,
        gint64{2'208'988'800}, last_second - 2147, last_second - 1, last_second, last_second + 1,
        G_MAXINT64, G_MININT64})
    for (const gint64 span : spans) {
      SCOPED_TRACE(testing::Message{} << second << " + " << span << " us");
      expect_same(Timestamp::at(second, span), by_glib(second, span));
    }
}

TEST(Timestamp, IsWhatGLibCountsAnywhere) {
  std::mt19937_64 random{1};
  std::uniform_int_distribution<gint64> any_second{first_second, last_second};
  std::uniform_int_distribution<gint64> any_span{G_MININT32, G_MAXINT32};
  for (int turn = 0; turn < 10'000; ++turn) {
    const gint64 second = any_second(random);
    const gint64 span = any_span(random);
    SCOPED_TRACE(testing::Message{} << second << " + " << span << " us");
    const Timestamp timestamp = Timestamp::at(second, span);
    expect_same(timestamp, by_glib(second, span));
    expect_same(read_back(timestamp), by_glib(second, span));
  }
}

TEST(Timestamp, ThatPasses64BitsIsNone) {
  EXPECT_FALSE(Timestamp::at(last_second, G_MAXINT64));
  EXPECT_FALSE(Timestamp::at(first_second, G_MININT64));
  EXPECT_FALSE(Timestamp::at(0, G_MAXINT64));
  EXPECT_FALSE(read_back(Timestamp{}));
}

TEST(Timestamp, OfAnApplicationIsGivenBackAsItIs) {
  const auto time = in_zone("+05:30");
  const Timestamp timestamp{time.get()};
  EXPECT_EQ(timestamp.get(), time.get());
  EXPECT_EQ(timestamp.seconds(), g_date_time_to_unix(time.get()));
  EXPECT_EQ(timestamp.microsecond(), 789'000);

  const Timestamp copy = timestamp;
  EXPECT_EQ(copy.get(), time.get());
  // What was written says nothing about the zone.
  const Timestamp read = read_back(timestamp);
  EXPECT_NE(read.get(), time.get());
  EXPECT_EQ(g_date_time_get_utc_offset(read.get()), 0);
  EXPECT_EQ(g_date_time_compare(read.get(), time.get()), 0);
}

TEST(Timestamp, OfBefore1970IsGivenBackAsItIs) {
  const auto time = by_glib(-1, 250'000);
  const Timestamp timestamp{time.get()};
  EXPECT_EQ(timestamp.seconds(), -1);
  EXPECT_EQ(timestamp.microsecond(), 250'000);
  expect_same(read_back(timestamp), time);
}

TEST(Timestamp, IsMovedAndAssigned) {
  const auto time = in_zone("-08:00");
  Timestamp first{time.get()};
  Timestamp second{std::move(first)};
  EXPECT_EQ(second.get(), time.get());
  first = Timestamp::at(seconds, 5);
  expect_same(first, by_glib(seconds, 5));
  first = second;
  EXPECT_EQ(first.get(), time.get());
  second = Timestamp{};
  EXPECT_EQ(second.get(), nullptr);
  const Timestamp &same = first;
  first = same;
  EXPECT_EQ(first.get(), time.get());
}

// ---- In an event ----

TEST(EventTimestamp, OfACopyWhoseTimeWasAskedForOrNot) {
  for (const bool asked : {false, true}) {
    auto event = std::make_unique<Event>();
    event->timestamp = Timestamp::at(seconds, 7);
    if (asked)
      event_get_timestamp2(event.get());
    const EventOwner copy{event_copy(event.get())};
    const auto time = by_glib(seconds, 7);
    EXPECT_TRUE(g_date_time_equal(event_get_timestamp2(event.get()), time.get()));
    EXPECT_EQ(event_get_timestamp2(copy.get()), event_get_timestamp2(event.get())); // shared
    event.reset();
    expect_same(copy->timestamp, time);
  }
}

TEST(EventTimestamp, StaysTheSameUntilAnotherIsSet) {
  Event event;
  event.timestamp = Timestamp::at(seconds, 7);
  GDateTime *made = event_get_timestamp2(&event);
  varro2::stamp_now_if_unset(event);
  EXPECT_EQ(event_get_timestamp2(&event), made);
  // It may be set from itself.
  event_set_timestamp2(&event, made);
  EXPECT_EQ(event_get_timestamp2(&event), made);
  const auto other = in_zone("+01:00");
  event_set_timestamp2(&event, other.get());
  EXPECT_EQ(event_get_timestamp2(&event), other.get());
}

// For the thread sanitizer as well.
TEST(EventTimestamp, IsTheSameForAllThreadsThatAskAtOnce) {
  constexpr std::size_t threads = 8;
  for (int turn = 0; turn < 50; ++turn) {
    Event event;
    event.timestamp = Timestamp::at(seconds, turn);
    const Event &shared = event;
    std::vector<GDateTime *> lent(threads);
    std::vector<std::thread> running;
    std::barrier together{threads};
    for (GDateTime *&own : lent)
      running.emplace_back([&] {
        together.arrive_and_wait();
        own = event_get_timestamp2(&shared);
        const EventOwner copy{event_copy(&shared)};
        EXPECT_EQ(event_get_timestamp2(copy.get()), own);
      });
    for (std::thread &thread : running)
      thread.join();
    EXPECT_EQ(g_date_time_get_microsecond(lent[0]), turn);
    for (const GDateTime *own : lent)
      EXPECT_EQ(own, lent[0]);
  }
}
