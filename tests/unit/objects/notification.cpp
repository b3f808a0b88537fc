#include "notification.hpp"

#include "logcapture.hpp"
#include "records.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <functional>

using varro2::DateTimeRef;
using varro2::OwnedText;
using namespace varro2::test;

namespace {

NotificationOwner make_notification() {
  const DeclarationOwner declaration{event_declaration_new(TRUE)};
  event_declaration_add_key_value(declaration.get(), "k", "v", VALUE_TYPE_STRING);
  event_declaration_set_name_space(declaration.get(), "k", "ns");
  const ExpressionOwner se{subscribe_expression_new()};
  subscribe_expression_add_key_value(se.get(), "k", "v");
  NotificationOwner notification{notification_new()};
  notification_set_declaration(notification.get(), declaration.get());
  notification_set_subscribe_expression(notification.get(), se.get());
  return notification;
}

// Both parts without any content.
NotificationOwner make_bare_notification() {
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  const ExpressionOwner se{subscribe_expression_new()};
  NotificationOwner notification{notification_new()};
  notification_set_declaration(notification.get(), declaration.get());
  notification_set_subscribe_expression(notification.get(), se.get());
  return notification;
}

Bytes bare_expression() {
  return Record{}.u8(0xF6).u32(0).text("").text("").u32(0).u8(0).raw(empty_container(2)).bytes();
}

Bytes bare_declaration() {
  return Record{}.u8(0xF0).u32(0).u32(0).u32(0).u8(0).u64(0).u64(0).raw(empty_container(0)).bytes();
}

// From the type on.
Bytes ending(guint8 type) {
  return Record{}.u8(type).u32(26).raw(bare_expression()).u32(42).raw(bare_declaration()).bytes();
}

NotificationOwner read_notification(const Bytes &bytes) {
  return NotificationOwner{notification_deserialize(array_of(bytes).get())};
}

} // namespace

TEST(Notification, StartsWithNothing) {
  const NotificationOwner notification{notification_new()};
  EXPECT_EQ(notification_get_user_data(notification.get()), nullptr);
  EXPECT_EQ(notification_get_timestamp2(notification.get()), nullptr);
  EXPECT_EQ(notification_get_subscription_id(notification.get()), 0u);
  EXPECT_EQ(notification_get_declaration_id(notification.get()), 0u);
  EXPECT_EQ(notification_get_type(notification.get()), 0u);
  EXPECT_EQ(notification_get_subscribe_expression(notification.get()), nullptr);
  EXPECT_EQ(notification_get_declaration(notification.get()), nullptr);
}

TEST(Notification, FreeAcceptsNull) {
  const LogCapture log;
  notification_free(nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(Notification, KeepsItsFields) {
  const NotificationOwner notification{notification_new()};
  notification_set_subscription_id(notification.get(), 1);
  notification_set_declaration_id(notification.get(), 2);
  notification_set_type(notification.get(), 7);
  EXPECT_EQ(notification_get_subscription_id(notification.get()), 1u);
  EXPECT_EQ(notification_get_declaration_id(notification.get()), 2u);
  EXPECT_EQ(notification_get_type(notification.get()), 7u);
}

TEST(Notification, OnlyTheTypeOneIsDeleted) {
  const NotificationOwner notification{notification_new()};
  EXPECT_FALSE(notification_is_type_deleted(notification.get()));
  notification_set_type(notification.get(), NOTIFY_DECLARATION_REMOVED);
  EXPECT_TRUE(notification_is_type_deleted(notification.get()));
  notification_set_type(notification.get(), 7);
  EXPECT_FALSE(notification_is_type_deleted(notification.get()));
}

TEST(Notification, AnswersForItsDeclaration) {
  const auto notification = make_notification();
  EXPECT_STREQ(notification_get_value(notification.get(), "k"), "v");
  EXPECT_STREQ(notification_get_name_space(notification.get(), "k"), "ns");
  EXPECT_EQ(notification_get_value(notification.get(), "x"), nullptr);
  EXPECT_TRUE(notification_is_internal(notification.get()));
}

TEST(Notification, CopiesItsParts) {
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  const ExpressionOwner se{subscribe_expression_new()};
  const NotificationOwner notification{notification_new()};
  notification_set_declaration(notification.get(), declaration.get());
  notification_set_subscribe_expression(notification.get(), se.get());
  EXPECT_NE(notification_get_declaration(notification.get()), declaration.get());
  EXPECT_NE(notification_get_subscribe_expression(notification.get()), se.get());
  event_declaration_set_local_id(declaration.get(), 5);
  EXPECT_EQ(event_declaration_get_local_id(notification_get_declaration(notification.get())), 0u);
}

TEST(Notification, SurvivesItsOwnParts) {
  const auto notification = make_notification();
  notification_set_declaration(notification.get(),
                               notification_get_declaration(notification.get()));
  notification_set_subscribe_expression(notification.get(),
                                        notification_get_subscribe_expression(notification.get()));
  EXPECT_STREQ(notification_get_value(notification.get(), "k"), "v");
  EXPECT_TRUE(
      event_declaration_contains(notification_get_declaration(notification.get()),
                                 notification_get_subscribe_expression(notification.get())));
}

TEST(Notification, CopySharesTheTimeAndDuplicatesTheRest) {
  auto notification = make_notification();
  const auto time = DateTimeRef::adopt(g_date_time_new_from_unix_utc(1));
  notification_set_timestamp2(notification.get(), time.get());
  notification_set_user_data_string(notification.get(), "abc");
  notification_set_subscription_id(notification.get(), 1);
  notification_set_declaration_id(notification.get(), 2);
  notification_set_type(notification.get(), 7);
  const NotificationOwner copy{notification_copy(notification.get())};
  notification.reset();
  EXPECT_EQ(notification_get_timestamp2(copy.get()), time.get());
  EXPECT_STREQ(OwnedText{notification_get_user_data_string(copy.get())}.get(), "abc");
  EXPECT_EQ(notification_get_subscription_id(copy.get()), 1u);
  EXPECT_EQ(notification_get_declaration_id(copy.get()), 2u);
  EXPECT_EQ(notification_get_type(copy.get()), 7u);
  EXPECT_STREQ(notification_get_value(copy.get(), "k"), "v");
  EXPECT_TRUE(event_declaration_contains(notification_get_declaration(copy.get()),
                                         notification_get_subscribe_expression(copy.get())));

  const NotificationOwner empty{notification_new()};
  const NotificationOwner copy_of_empty{notification_copy(empty.get())};
  EXPECT_EQ(notification_get_declaration(copy_of_empty.get()), nullptr);
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

TEST(Notification, TimeIsThatOfAnEvent) {
  const LogCapture log;
  const NotificationOwner notification{notification_new()};
  EXPECT_EQ(notification_get_timestamp(notification.get()).tv_sec, 0);
  notification_set_timestamp(notification.get(), GTimeVal{1700000000, 123456});
  notification_set_timestamp2(notification.get(), nullptr);
  const GTimeVal time = notification_get_timestamp(notification.get());
  EXPECT_EQ(time.tv_sec, 1700000000);
  EXPECT_EQ(time.tv_usec, 123456);
  EXPECT_EQ(log.texts(), std::vector{refusal("notification_set_timestamp2", "timestamp != NULL")});
}

G_GNUC_END_IGNORE_DEPRECATIONS

TEST(Notification, UserDataIsThatOfAnEvent) {
  const LogCapture log;
  const NotificationOwner notification{notification_new()};
  notification_set_user_data(notification.get(), "abcdef", 4);
  notification_set_user_data(notification.get(), nullptr, 1);
  notification_set_user_data(notification.get(), "x", 0);
  notification_set_user_data_string(notification.get(), nullptr);
  const varro2::Owned<void, g_free> data{notification_get_user_data(notification.get())};
  EXPECT_EQ(std::memcmp(data.get(), "abcd", 4), 0);
  EXPECT_EQ(log.texts(),
            (std::vector{refusal("notification_set_user_data", "user_data != NULL"),
                         refusal("notification_set_user_data", "size != 0"),
                         refusal("notification_set_user_data_string", "string != NULL")}));
}

/* ---- Record ---- */

TEST(NotificationRecord, OfBareParts) {
  const Bytes expected = Record{}
                             .u8(0xFA)
                             .u16(0)
                             .u32(0x7FFFFFFF)
                             .u32(0x01020304)
                             .u32(0x11121314)
                             .raw(ending(0))
                             .bytes();
  const auto notification = make_bare_notification();
  notification_set_subscription_id(notification.get(), 0x01020304);
  notification_set_declaration_id(notification.get(), 0x11121314);
  EXPECT_EQ(taken(notification_serialize(notification.get())), expected);

  const auto read = read_notification(expected);
  EXPECT_EQ(notification_get_subscription_id(read.get()), 0x01020304u);
  EXPECT_EQ(notification_get_declaration_id(read.get()), 0x11121314u);
  EXPECT_EQ(taken(notification_serialize(read.get())), expected);
}

TEST(NotificationRecord, OfDataAndTime) {
  const Bytes expected = Record{}
                             .u8(0xFA)
                             .u16(3)
                             .raw({'a', 'b', 0})
                             .u32(5)
                             .u64(12)
                             .u32(0)
                             .u32(0)
                             .raw(ending(1))
                             .bytes();
  const auto notification = make_bare_notification();
  notification_set_user_data_string(notification.get(), "ab");
  const auto whole = DateTimeRef::adopt(g_date_time_new_from_unix_utc(12));
  const auto time = DateTimeRef::adopt(g_date_time_add(whole.get(), 5));
  notification_set_timestamp2(notification.get(), time.get());
  notification_set_type(notification.get(), NOTIFY_DECLARATION_REMOVED);
  EXPECT_EQ(taken(notification_serialize(notification.get())), expected);

  const auto read = read_notification(expected);
  EXPECT_STREQ(OwnedText{notification_get_user_data_string(read.get())}.get(), "ab");
  const NotificationOwner copy{notification_copy(read.get())};
  EXPECT_TRUE(g_date_time_equal(notification_get_timestamp2(read.get()), time.get()));
  EXPECT_EQ(notification_get_timestamp2(copy.get()), notification_get_timestamp2(read.get()));
}

TEST(NotificationRecord, LosesTheSizeOfLargeDataAndKeepsItsBytes) {
  const Bytes block(70000, 0xA5);
  const auto notification = make_bare_notification();
  notification_set_user_data(notification.get(), block.data(), 70000);
  EXPECT_EQ(
      taken(notification_serialize(notification.get())),
      Record{}.u8(0xFA).u16(4464).raw(block).u32(0x7FFFFFFF).u32(0).u32(0).raw(ending(0)).bytes());
}

TEST(NotificationRecord, EveryTypeButZeroTravelsAsOne) {
  const auto notification = make_bare_notification();
  for (const guint32 type : {1u, 7u, 256u}) {
    notification_set_type(notification.get(), type);
    const Bytes record = taken(notification_serialize(notification.get()));
    EXPECT_EQ(record[1 + 2 + 4 + 4 + 4], 1);
    const auto read = read_notification(record);
    EXPECT_EQ(notification_get_type(read.get()), 1u);
    EXPECT_TRUE(notification_is_type_deleted(read.get()));
  }
  Bytes other = taken(notification_serialize(notification.get()));
  other[1 + 2 + 4 + 4 + 4] = 0x80;
  EXPECT_EQ(notification_get_type(read_notification(other).get()), 1u);
}

TEST(NotificationRecord, PartsHaveTheLengthOfTheirOwnRecords) {
  const auto notification = make_notification();
  const Bytes expression = taken(
      subscribe_expression_serialize(notification_get_subscribe_expression(notification.get())));
  const Bytes declaration =
      taken(event_declaration_serialize(notification_get_declaration(notification.get())));
  const Bytes expected = Record{}
                             .u8(0xFA)
                             .u16(0)
                             .u32(0x7FFFFFFF)
                             .u32(0)
                             .u32(0)
                             .u8(0)
                             .u32(static_cast<guint32>(expression.size()))
                             .raw(expression)
                             .u32(static_cast<guint32>(declaration.size()))
                             .raw(declaration)
                             .bytes();
  EXPECT_EQ(taken(notification_serialize(notification.get())), expected);
  EXPECT_STREQ(notification_get_value(read_notification(expected).get(), "k"), "v");
}

// What is left of a part's length is passed over: a later writer may say more.
TEST(NotificationRecord, PositionMovesPastThePart) {
  Bytes expression = bare_expression();
  expression.push_back(0xEE);
  const Bytes bytes = Record{}
                          .u8(0xFA)
                          .u16(0)
                          .u32(0x7FFFFFFF)
                          .u32(0)
                          .u32(0)
                          .u8(0)
                          .u32(27)
                          .raw(expression)
                          .u32(42)
                          .raw(bare_declaration())
                          .bytes();
  const auto array = array_of(bytes);
  guint32 indx = 0;
  const NotificationOwner read{notification_deserialize_internal(array.get(), &indx)};
  EXPECT_EQ(indx, bytes.size());
}

TEST(NotificationRecord, IsAppendedAndReadAtARunningIndex) {
  const auto notification = make_bare_notification();
  const auto array = array_of({0xEE});
  notification_serialize_internal(notification.get(), array.get());
  guint32 indx = 1;
  const NotificationOwner read{notification_deserialize_internal(array.get(), &indx)};
  EXPECT_EQ(indx, array->len);
}

TEST(NotificationRecordDeathTest, OfAnotherObject) {
  Bytes bytes = taken(notification_serialize(make_bare_notification().get()));
  bytes[0] = 0xF9;
  EXPECT_DEATH(read_notification(bytes),
               "notification_deserialize_internal.*type == SERIALIZE_ID_NOTIFICATION");
}

TEST(NotificationRecordDeathTest, APartDoesNotReadPastItsLength) {
  const Bytes bytes = Record{}
                          .u8(0xFA)
                          .u16(0)
                          .u32(0x7FFFFFFF)
                          .u32(0)
                          .u32(0)
                          .u8(0)
                          .u32(25)
                          .raw(bare_expression())
                          .u32(42)
                          .raw(bare_declaration())
                          .bytes();
  EXPECT_DEATH(read_notification(bytes), "deserialize_size.*array->len >= \\*indx \\+ size");
}

// The byte that is missing in the part's length is there all the same.
TEST(NotificationRecordDeathTest, TheLastPartDoesNotReadPastItsLength) {
  const Bytes whole = taken(notification_serialize(make_bare_notification().get()));
  Bytes bytes = whole;
  bytes[whole.size() - bare_declaration().size() - 4] -= 1;
  EXPECT_DEATH(read_notification(bytes), "deserialize_size.*array->len >= \\*indx \\+ size");
}

TEST(NotificationRecordDeathTest, APartLongerThanTheRest) {
  Bytes bytes = taken(notification_serialize(make_bare_notification().get()));
  bytes.pop_back();
  EXPECT_DEATH(read_notification(bytes), "deserialize_size.*array->len >= \\*indx \\+ size");
}

TEST(NotificationRecordDeathTest, OfMissingParts) {
  const NotificationOwner empty{notification_new()};
  EXPECT_DEATH(notification_serialize(empty.get()), "subscribe_expression != NULL");
  const ExpressionOwner se{subscribe_expression_new()};
  notification_set_subscribe_expression(empty.get(), se.get());
  EXPECT_DEATH(notification_serialize(empty.get()), "declaration != NULL");
}

TEST(NotificationRecordDeathTest, MissingArguments) {
  const auto notification = make_bare_notification();
  const auto array = varro2::new_bytes();
  guint32 indx = 0;
  EXPECT_DEATH(notification_serialize_internal(nullptr, array.get()),
               "notification_serialize_internal.*notification != NULL");
  EXPECT_DEATH(notification_serialize_internal(notification.get(), nullptr),
               "notification_serialize_internal.*array != NULL");
  EXPECT_DEATH(notification_deserialize_internal(nullptr, &indx), "array != NULL");
  EXPECT_DEATH(notification_deserialize_internal(array.get(), nullptr), "indx != NULL");
}

/* ---- Log ---- */

TEST(NotificationPrint, HoldsBothParts) {
  const auto notification = make_bare_notification();
  notification_set_subscription_id(notification.get(), 0xFFFFFFFF);
  notification_set_declaration_id(notification.get(), 2);
  notification_set_type(notification.get(), 7);
  const LogCapture log;
  notification_print(notification.get());
  const std::vector<std::string> expected{"---- Notification ------------------------",
                                          "Subscription Id: -1",
                                          "Declaration Id: 2",
                                          "Declaration Type: NOTIFY_DECLARATION_REMOVED",
                                          "Subscribe expression:",
                                          "---- Subscribe Expression (id:  0) ----",
                                          "DBus Service: ",
                                          "DBus Object: ",
                                          "Consumer Token: 0",
                                          "Clandestine: false",
                                          "---------------------------------------",
                                          "Event declaration:",
                                          "--- Event Declaration -----------------",
                                          "Global Declaration Id: 0",
                                          "Local Declaration Id: 0",
                                          "Producer Id: 0",
                                          "---------------------------------------",
                                          "-----------------------------------"};
  EXPECT_EQ(log.texts(), expected);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_MESSAGE), expected);
}

TEST(NotificationPrint, NamesTheAddedType) {
  const auto notification = make_bare_notification();
  const LogCapture log;
  notification_print(notification.get());
  EXPECT_EQ(log.count(G_LOG_LEVEL_MESSAGE, "Declaration Type: NOTIFY_DECLARATION_ADDED"), 1u);
}

/* ---- Missing arguments ---- */

TEST(Notification, RefusesMissingArguments) {
  struct Case {
    const char *function;
    const char *expression;
    std::function<bool(Notification *)> is_neutral;
  };
  Notification *const none = nullptr;
  using N = Notification;
  const NotificationOwner empty{notification_new()};
  const Case cases[] = {
      {"notification_copy", "notification != NULL", [&](N *) { return !notification_copy(none); }},
      {"notification_set_user_data", "notification != NULL",
       [&](N *) { return notification_set_user_data(none, "x", 1), true; }},
      {"notification_get_user_data", "notification != NULL",
       [&](N *) { return !notification_get_user_data(none); }},
      {"notification_set_user_data_string", "notification != NULL",
       [&](N *) { return notification_set_user_data_string(none, "x"), true; }},
      {"notification_get_user_data_string", "notification != NULL",
       [&](N *) { return !notification_get_user_data_string(none); }},
      {"notification_set_timestamp2", "notification != NULL",
       [&](N *) { return notification_set_timestamp2(none, nullptr), true; }},
      {"notification_get_timestamp2", "notification != NULL",
       [&](N *) { return !notification_get_timestamp2(none); }},
      {"notification_set_declaration", "notification != NULL",
       [&](N *n) {
         return notification_set_declaration(none, notification_get_declaration(n)), true;
       }},
      {"notification_set_declaration", "declaration != NULL",
       [&](N *n) {
         return notification_set_declaration(n, nullptr),
                notification_get_declaration(n) != nullptr;
       }},
      {"notification_set_subscribe_expression", "notification != NULL",
       [&](N *n) {
         return notification_set_subscribe_expression(none,
                                                      notification_get_subscribe_expression(n)),
                true;
       }},
      {"notification_set_subscribe_expression", "se != NULL",
       [&](N *n) {
         return notification_set_subscribe_expression(n, nullptr),
                notification_get_subscribe_expression(n) != nullptr;
       }},
      {"notification_is_type_deleted", "notification != NULL",
       [&](N *) { return !notification_is_type_deleted(none); }},
      {"notification_get_value", "notification != NULL",
       [&](N *) { return !notification_get_value(none, "k"); }},
      {"notification_get_value", "key != NULL",
       [&](N *n) { return !notification_get_value(n, nullptr); }},
      {"notification_get_value", "declaration != NULL",
       [&](N *) { return !notification_get_value(empty.get(), "k"); }},
      {"notification_get_name_space", "notification != NULL",
       [&](N *) { return !notification_get_name_space(none, "k"); }},
      {"notification_get_name_space", "key != NULL",
       [&](N *n) { return !notification_get_name_space(n, nullptr); }},
      {"notification_get_name_space", "declaration != NULL",
       [&](N *) { return !notification_get_name_space(empty.get(), "k"); }},
      {"notification_is_internal", "notification != NULL",
       [&](N *) { return !notification_is_internal(none); }},
      {"notification_is_internal", "declaration != NULL",
       [&](N *) { return !notification_is_internal(empty.get()); }},
      {"notification_serialize", "notification != NULL",
       [&](N *) { return !notification_serialize(none); }},
      {"notification_deserialize", "array != NULL",
       [&](N *) { return !notification_deserialize(nullptr); }},
      {"notification_print", "notification != NULL",
       [&](N *) { return notification_print(none), true; }},
  };
  for (const Case &one : cases) {
    SCOPED_TRACE(refusal(one.function, one.expression));
    const auto notification = make_notification();
    const LogCapture log;
    EXPECT_TRUE(one.is_neutral(notification.get()));
    EXPECT_EQ(log.lines(), (std::vector{LogLine{G_LOG_LEVEL_CRITICAL, "",
                                                refusal(one.function, one.expression)}}));
  }
}
