#include "notification.hpp"

#include "preconditions.hpp"

namespace {

// A part is read from a view of exactly its stated length, and no further.
template <typename Part>
Part read_part(varro2::Reader &reader) {
  const guint32 length = reader.u32();
  guint32 indx = 0;
  varro2::Reader view{reader.blob(length), length, &indx};
  return Part::read(view);
}

// As C callers get a part: lent, or NULL.
template <typename Part>
Part *lend(const std::optional<Part> &part) {
  return part ? const_cast<Part *>(&*part) : nullptr;
}

} // namespace

Notification Notification::read(varro2::Reader &reader) {
  const guint8 type = reader.u8();
  VARRO2_ASSERT_AS("notification_deserialize_internal", "type == SERIALIZE_ID_NOTIFICATION",
                   type == SERIALIZE_ID_NOTIFICATION);
  return Notification{.user_data = varro2::UserData::read(reader),
                      .timestamp = varro2::read_timestamp(reader),
                      .subscription_id = reader.u32(),
                      .declaration_id = reader.u32(),
                      .type = reader.u8() ? NOTIFY_DECLARATION_REMOVED : NOTIFY_DECLARATION_ADDED,
                      .subscribe_expression = read_part<SubscribeExpression>(reader),
                      .declaration = read_part<EventDeclaration>(reader)};
}

/* ---- Life ---- */

Notification *notification_new(void) noexcept {
  return new Notification;
}

void notification_free(Notification *notification) noexcept {
  delete notification;
}

Notification *notification_copy(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  return new Notification{*notification};
}

/* ---- User data and timestamp ---- */

void notification_set_user_data(Notification *notification, const void *user_data,
                                guint size) noexcept {
  VARRO2_EXPECT(notification != NULL);
  VARRO2_EXPECT(user_data != NULL);
  VARRO2_EXPECT(size != 0);
  notification->user_data = varro2::UserData{user_data, size};
}

void *notification_get_user_data(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  return notification->user_data.duplicate();
}

void notification_set_user_data_string(Notification *notification, const char *string) noexcept {
  VARRO2_EXPECT(notification != NULL);
  VARRO2_EXPECT(string != NULL);
  notification->user_data = varro2::UserData{string};
}

char *notification_get_user_data_string(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  return static_cast<char *>(notification->user_data.duplicate());
}

void notification_set_timestamp2(Notification *notification, GDateTime *timestamp) noexcept {
  VARRO2_EXPECT(notification != NULL);
  VARRO2_EXPECT(timestamp != NULL);
  notification->timestamp = varro2::Timestamp{timestamp};
}

GDateTime *notification_get_timestamp2(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  return notification->timestamp.get();
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

void notification_set_timestamp(Notification *notification, GTimeVal timestamp) noexcept {
  VARRO2_EXPECT(notification != NULL);
  notification_set_timestamp2(notification, varro2::timestamp_from_timeval(timestamp).get());
}

GTimeVal notification_get_timestamp(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, {});
  return varro2::timestamp_to_timeval(notification->timestamp);
}

G_GNUC_END_IGNORE_DEPRECATIONS

/* ---- Plain fields ---- */

void notification_set_subscription_id(Notification *notification,
                                      guint32 subscription_id) noexcept {
  notification->subscription_id = subscription_id;
}

guint32 notification_get_subscription_id(const Notification *notification) noexcept {
  return notification->subscription_id;
}

void notification_set_declaration_id(Notification *notification, guint32 declaration_id) noexcept {
  notification->declaration_id = declaration_id;
}

guint32 notification_get_declaration_id(const Notification *notification) noexcept {
  return notification->declaration_id;
}

void notification_set_type(Notification *notification, guint32 type) noexcept {
  notification->type = type;
}

guint32 notification_get_type(const Notification *notification) noexcept {
  return notification->type;
}

EventDeclaration *notification_get_declaration(const Notification *notification) noexcept {
  return lend(notification->declaration);
}

SubscribeExpression *
notification_get_subscribe_expression(const Notification *notification) noexcept {
  return lend(notification->subscribe_expression);
}

/* ---- Parts ---- */

// Both setters copy before the old part goes: it may be the notification's own.
void notification_set_declaration(Notification *notification,
                                  const EventDeclaration *declaration) noexcept {
  VARRO2_EXPECT(notification != NULL);
  VARRO2_EXPECT(declaration != NULL);
  notification->declaration = EventDeclaration{*declaration};
}

void notification_set_subscribe_expression(Notification *notification,
                                           const SubscribeExpression *se) noexcept {
  VARRO2_EXPECT(notification != NULL);
  VARRO2_EXPECT(se != NULL);
  notification->subscribe_expression = SubscribeExpression{*se};
}

gboolean notification_is_type_deleted(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, FALSE);
  return notification->type == NOTIFY_DECLARATION_REMOVED;
}

const char *notification_get_value(const Notification *notification, const char *key) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  const EventDeclaration *declaration = lend(notification->declaration);
  VARRO2_EXPECT(declaration != NULL, nullptr);
  return inspectable_get_value(&declaration->inspectable, key);
}

const char *notification_get_name_space(const Notification *notification,
                                        const char *key) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  VARRO2_EXPECT(key != NULL, nullptr);
  const EventDeclaration *declaration = lend(notification->declaration);
  VARRO2_EXPECT(declaration != NULL, nullptr);
  return inspectable_get_name_space(&declaration->inspectable, key);
}

gboolean notification_is_internal(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, FALSE);
  const EventDeclaration *declaration = lend(notification->declaration);
  VARRO2_EXPECT(declaration != NULL, FALSE);
  return inspectable_get_internal(&declaration->inspectable);
}

/* ---- External forms ---- */

GByteArray *notification_serialize(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL, nullptr);
  GByteArray *array = g_byte_array_new();
  notification_serialize_internal(notification, array);
  return array;
}

void notification_serialize_internal(const Notification *notification, GByteArray *array) noexcept {
  VARRO2_ASSERT(notification != NULL);
  VARRO2_ASSERT(array != NULL);
  const SubscribeExpression *subscribe_expression = lend(notification->subscribe_expression);
  const EventDeclaration *declaration = lend(notification->declaration);
  VARRO2_ASSERT(subscribe_expression != NULL);
  VARRO2_ASSERT(declaration != NULL);
  varro2::append_record(array, *notification);
}

Notification *notification_deserialize(const GByteArray *array) noexcept {
  VARRO2_EXPECT(array != NULL, nullptr);
  guint32 indx = 0;
  return notification_deserialize_internal(array, &indx);
}

Notification *notification_deserialize_internal(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  varro2::Reader reader{array, indx};
  return new Notification(Notification::read(reader));
}

void notification_print(const Notification *notification) noexcept {
  VARRO2_EXPECT(notification != NULL);
  constexpr auto level = G_LOG_LEVEL_MESSAGE;

  g_log(nullptr, level, "---- Notification ------------------------");
  g_log(nullptr, level, "Subscription Id: %d", static_cast<gint>(notification->subscription_id));
  g_log(nullptr, level, "Declaration Id: %d", static_cast<gint>(notification->declaration_id));
  g_log(nullptr, level, "Declaration Type: %s",
        notification->type ? "NOTIFY_DECLARATION_REMOVED" : "NOTIFY_DECLARATION_ADDED");
  g_log(nullptr, level, "Subscribe expression:");
  subscribe_expression_print(lend(notification->subscribe_expression));
  g_log(nullptr, level, "Event declaration:");
  event_declaration_print(lend(notification->declaration));
  g_log(nullptr, level, "-----------------------------------");
}
