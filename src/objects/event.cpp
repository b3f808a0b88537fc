#include "event.hpp"

#include "preconditions.hpp"
#include "subscribeexpression.hpp"

Event *Event::read_new(const GByteArray &array, guint32 &indx) {
  varro2::Reader reader{&array, &indx};
  const guint8 type = reader.u8();
  VARRO2_ASSERT_AS("event_deserialize_internal", "type == SERIALIZE_ID_EVENT",
                   type == SERIALIZE_ID_EVENT);
  varro2::Room room = Inspectable::room_to_read(array.data + indx, reader.remaining());
  return new (room) Event{.inspectable = Inspectable::read(reader, room),
                          .user_data = varro2::UserData::read(reader),
                          .timestamp = varro2::read_timestamp(reader),
                          .global_id = reader.u32(),
                          .local_id = reader.u32(),
                          .producer_id = reader.u32(),
                          .property = reader.u8()};
}

void varro2::stamp_now_if_unset(Event &event) {
  if (!event.timestamp)
    event.timestamp = Timestamp::now();
}

/* ---- Life ---- */

Event *event_new(void) noexcept {
  return new Event;
}

void event_free(Event *event) noexcept {
  delete event;
}

Event *event_copy(const Event *event_src) noexcept {
  VARRO2_EXPECT(event_src != NULL, nullptr);
  varro2::Room room = event_src->inspectable.room_for_copy();
  return new (room) Event{.inspectable = Inspectable{event_src->inspectable, IT_EVENT, room},
                          .user_data = event_src->user_data,
                          .timestamp = event_src->timestamp,
                          .global_id = event_src->global_id,
                          .local_id = event_src->local_id,
                          .producer_id = event_src->producer_id,
                          .property = event_src->property};
}

/* ---- Content ---- */

void event_set_inspectable(Event *event, const Inspectable *inspect) noexcept {
  VARRO2_EXPECT(event != NULL);
  VARRO2_EXPECT(inspect != NULL);
  // Copied before the old one goes: it may be the event's own.
  event->inspectable = Inspectable{*inspect, IT_EVENT};
}

Inspectable *event_get_inspectable(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return const_cast<Inspectable *>(&event->inspectable);
}

void event_set_property(Event *event, gboolean property) noexcept {
  VARRO2_EXPECT(event != NULL);
  event->property = property;
}

gboolean event_is_property(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  return event->property;
}

void event_set_producer_id(Event *event, guint32 producer_id) noexcept {
  VARRO2_EXPECT(event != NULL);
  event->producer_id = producer_id;
}

guint32 event_get_producer_id(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, 0);
  return event->producer_id;
}

void event_set_global_id(Event *event, guint32 global_id) noexcept {
  VARRO2_EXPECT(event != NULL);
  event->global_id = global_id;
}

guint32 event_get_global_id(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, 0);
  return event->global_id;
}

void event_set_local_id(Event *event, guint32 local_id) noexcept {
  VARRO2_EXPECT(event != NULL);
  event->local_id = local_id;
}

guint32 event_get_local_id(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, 0);
  return event->local_id;
}

gboolean event_is_internal(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  return inspectable_get_internal(&event->inspectable);
}

gboolean event_contains(const Event *container, const SubscribeExpression *containee) noexcept {
  VARRO2_EXPECT(container != NULL, FALSE);
  VARRO2_EXPECT(containee != NULL, FALSE);
  return inspectable_contains(&container->inspectable, &containee->inspectable);
}

gboolean event_is_complete(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, FALSE);
  return inspectable_is_complete(&event->inspectable);
}

/* ---- Timestamp ---- */

void event_set_timestamp2(Event *event, GDateTime *timestamp) noexcept {
  VARRO2_EXPECT(event != NULL);
  VARRO2_EXPECT(timestamp != NULL);
  event->timestamp = varro2::Timestamp{timestamp};
}

GDateTime *event_get_timestamp2(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return event->timestamp.get();
}

G_GNUC_BEGIN_IGNORE_DEPRECATIONS

void event_set_timestamp(Event *event, GTimeVal timestamp) noexcept {
  VARRO2_EXPECT(event != NULL);
  event_set_timestamp2(event, varro2::timestamp_from_timeval(timestamp).get());
}

GTimeVal event_get_timestamp(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, {});
  return varro2::timestamp_to_timeval(event->timestamp);
}

G_GNUC_END_IGNORE_DEPRECATIONS

/* ---- User data ---- */

void event_set_user_data(Event *event, const void *user_data, guint size) noexcept {
  VARRO2_EXPECT(event != NULL);
  VARRO2_EXPECT(user_data != NULL);
  VARRO2_EXPECT(size != 0);
  event->user_data = varro2::UserData{user_data, size};
}

void *event_get_user_data(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return event->user_data.duplicate();
}

void event_set_user_data_string(Event *event, const char *string) noexcept {
  VARRO2_EXPECT(event != NULL);
  VARRO2_EXPECT(string != NULL);
  event->user_data = varro2::UserData{string};
}

char *event_get_user_data_string(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  return static_cast<char *>(event->user_data.duplicate());
}

/* ---- External forms ---- */

std::size_t varro2::record_size_of(const Event &event) {
  return record_size(event);
}

void varro2::write_record(const Event &event, guint8 *to) {
  ArraySink sink{to};
  event.write(sink);
}

GByteArray *event_serialize(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL, nullptr);
  const auto size = static_cast<guint>(varro2::record_size_of(*event));
  GByteArray *array = g_byte_array_sized_new(size);
  g_byte_array_set_size(array, size);
  varro2::write_record(*event, array->data);
  return array;
}

void event_serialize_internal(const Event *event, GByteArray *array) noexcept {
  VARRO2_ASSERT(event != NULL);
  VARRO2_ASSERT(array != NULL);
  varro2::append_record(array, *event);
}

Event *event_deserialize(const GByteArray *array) noexcept {
  VARRO2_EXPECT(array != NULL, nullptr);
  guint32 indx = 0;
  return event_deserialize_internal(array, &indx);
}

Event *event_deserialize_internal(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  return Event::read_new(*array, *indx);
}

void event_print(const Event *event) noexcept {
  VARRO2_EXPECT(event != NULL);
  constexpr auto level = G_LOG_LEVEL_MESSAGE;

  g_log(nullptr, level, "---- Event ------------------------");
  if (event->property)
    g_log(nullptr, level, "< Property >");
  if (inspectable_get_internal(&event->inspectable))
    g_log(nullptr, level, "< Internal >");
  g_log(nullptr, level, "Global Declaration Id: %d", static_cast<gint>(event->global_id));
  g_log(nullptr, level, "Local Declaration Id: %d", static_cast<gint>(event->local_id));
  g_log(nullptr, level, "Producer Id: %d", static_cast<gint>(event->producer_id));
  // The microseconds are a count, not decimals: they are not padded.
  g_log(nullptr, level, "Timestamp: %" G_GINT64_FORMAT ".%d", event->timestamp.seconds(),
        event->timestamp.microsecond());
  inspectable_print(&event->inspectable);
  g_log(nullptr, level, "-----------------------------------");
}
