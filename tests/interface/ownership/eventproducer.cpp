// eventproducer.h, eventproducer_int.h and asyncproducer.h
#include "table.hpp"

#include <cstdarg>

// What the compiler cannot forward to a function with "...".
static guint32 call_register(EventProducer *producer, const char *type) noexcept {
  const gint32 value = 3;
  return event_producer_register(producer, type, "count", &value, VALUE_TYPE_INT, nullptr);
}
static guint32 call_register_and_notify(EventProducer *producer, const char *type,
                                        EventProducerNotifyCallback notify,
                                        gpointer user_data) noexcept {
  const gint32 value = 3;
  return event_producer_register_and_notify(producer, type, notify, user_data, "count", &value,
                                            VALUE_TYPE_INT, nullptr);
}
static guint32 call_async_register(EventProducer *producer, const char *type,
                                   EventProducerDeclaredCallback declared,
                                   EventProducerNotifyCallback notify, gpointer user_data,
                                   GError **error) noexcept {
  const gint32 value = 3;
  return async_producer_register(producer, type, declared, notify, user_data, error, "count",
                                 &value, VALUE_TYPE_INT, nullptr);
}

namespace varro2::test {
namespace {

const Null none = refused("event_producer != NULL");
const Null nobody_undeclares = refused("event_producer != NULL", "event_producer_int_undeclare");
const Null no_handle = aborts("event_producer != NULL");
const Null no_name = refused("name != NULL");
const Null no_type = refused("type != NULL");
const Null no_declaration = refused("declaration != NULL");
const Null nobody_to_send = fails(1, "NULL object supplied as event producer");
const Null nothing_to_send = fails(1, "NULL object supplied as event");
const Null nothing_to_declare = fails(1, "NULL object supplied as declaration");
const Null no_declarer = warned("Failed to declare: NULL object supplied as event producer");
const Null nothing_declared = warned("Failed to declare: NULL object supplied as declaration");

void changed(GArray *, gpointer) {}
void told(guint32, gpointer) {}
void undeclared(guint32, gpointer, GError *error) {
  g_clear_error(&error);
}
void sent(guint32, Event *, gpointer, GError *error) {
  g_clear_error(&error);
}
void stored(const char *, gpointer, GError *error) {
  g_clear_error(&error);
}
void set_up(EventProducer *, gpointer, GError *error) {
  g_clear_error(&error);
}
void done(EventProducer *, gpointer) {}

void async_free(EventProducer *producer) {
  async_producer_free(producer, nullptr, nullptr);
}

// A property's event is accepted without a switch.
const Event *sendable(Objects &of) {
  of.declared();
  return of.event();
}

Event *copy_of(Objects &of) {
  return of.give<Event>(event_copy(sendable(of)), event_free);
}

ROW(event_producer_new_full, given<event_producer_free>, NULLS(no_name, accepted, accepted), "name",
    changed, &of)
ROW(event_producer_new, given<event_producer_free>,
    NULLS(refused("name != NULL", "event_producer_new_full")), "name")
ROW(event_producer_free, nothing, NULLS(accepted), of.given_producer())
ROW(event_producer_declare_and_notify, lent,
    NULLS(no_declarer, nothing_declared, accepted, accepted), of.producer(), of.declaration(), told,
    &of)
ROW(event_producer_declare, lent, NULLS(no_declarer, nothing_declared), of.producer(),
    of.declaration())
// No switch has given it an id.
ROW(event_producer_declaration_complete, nothing, NULLS(none), of.producer(), of.declared())
ROW(event_producer_undeclare_and_notify, lent, NULLS(nobody_undeclares, accepted, accepted),
    of.producer(), of.declared(), undeclared, &of)
ROW(event_producer_undeclare, lent, NULLS(nobody_undeclares), of.producer(), of.declared())
ROW(event_producer_prepare_event, given<event_free>, NULLS(none), of.producer(), of.declared())
ROW(event_producer_send_event, lent, NULLS(nobody_to_send, nothing_to_send, accepted),
    of.producer(), sendable(of), of.error())
ROW(event_producer_send_event_async, lent, NULLS(neutral, neutral), of.producer(), sendable(of))
ROW(event_producer_add_declaration, lent, NULLS(none, no_type, no_declaration, accepted, accepted),
    of.connected_producer(), "type", of.declaration(), stored, &of)
ROW(event_producer_remove_declaration, lent, NULLS(none, no_type, accepted, accepted),
    of.connected_producer(), "type", stored, &of)

REFUSAL(event_producer_declare, without_topic, lent,
        warned("Failed to declare: External event is missing topic"), of.producer(),
        of.keep(event_declaration_new(FALSE), event_declaration_free))
REFUSAL(event_producer_undeclare, no_id, lent,
        refused("local_declare_id != 0", "event_producer_int_undeclare"), of.producer(), 0)
REFUSAL(event_producer_undeclare, unknown, lent, neutral, of.producer(), 9)
REFUSAL(event_producer_prepare_event, no_id, lent, refused("local_declare_id != 0"), of.producer(),
        0)
REFUSAL(event_producer_prepare_event, unknown, lent, neutral, of.producer(), 9)
REFUSAL(
    event_producer_send_event, not_registered, lent,
    fails(5,
          "The event has not been declared to the event switch. (The connection to the switch is "
          "likely to be broken)"),
    of.producer(), of.keep(event_new(), event_free), of.error())
REFUSAL(event_producer_send_event, taken_slot, lent, fails(11, "Error object already set"),
        of.producer(), sendable(of), of.taken_error())

// ---- By type. The types stand in the system's folders alone, where a test has none.

const Null unknown_type = warned(
    "Error when registering event: event_declaration_new_from_type() failed for no-such-type");
const Null type_missing = refused("type != NULL", "event_producer_int_register_list");
const Null unknown_type_failure =
    fails(13, "event_declaration_new_from_type() failed for no-such-type");

// One triple: key, address of the value, type.
GList *triple(Objects &of) {
  static const gint32 value = 3;
  GList *list = g_list_append(nullptr, const_cast<char *>("count"));
  list = g_list_append(list, const_cast<gint32 *>(&value));
  list = g_list_append(list, GINT_TO_POINTER(VALUE_TYPE_INT));
  return of.keep(list, g_list_free);
}

GList *register_list(Objects &of) {
  return of.give<GList>(event_producer_int_convert_to_string_list(triple(of)),
                        event_producer_int_free_register_list);
}

GList *kept_register_list(Objects &of) {
  return of.keep<GList>(event_producer_int_convert_to_string_list(triple(of)),
                        event_producer_int_free_register_list);
}

ROW_WHERE(event_producer_register_list, nothing, unknown_type,
          NULLS(unknown_type, type_missing, unknown_type), of.producer(), "no-such-type",
          triple(of))
ROW_WHERE(event_producer_register_and_notify_list, nothing, unknown_type,
          NULLS(unknown_type, type_missing, unknown_type, unknown_type, unknown_type),
          of.producer(), "no-such-type", told, &of, triple(of))
ROW_WHERE(event_producer_register_and_notify_string_list, nothing, unknown_type,
          NULLS(unknown_type, type_missing, unknown_type, unknown_type, unknown_type),
          of.producer(), "no-such-type", told, &of, kept_register_list(of))
ROW_WHERE(event_producer_int_register_list, nothing, unknown_type_failure,
          NULLS(refused("type != NULL"), unknown_type_failure,
                aborts("declaration != NULL && *declaration == NULL"),
                aborts("params != NULL && *params == NULL"), neutral),
          "no-such-type", kept_register_list(of), of.declaration_slot(), of.params_slot(),
          of.error())
ROW(event_producer_int_convert_to_string_list, given<event_producer_int_free_register_list>,
    NULLS(neutral), triple(of))
ROW(event_producer_int_free_register_list, nothing, NULLS(accepted), register_list(of))

GList *call_parse(int before, ...) noexcept {
  va_list arguments;
  va_start(arguments, before);
  GList *list = event_producer_int_parse_register_valist(arguments);
  va_end(arguments);
  return list;
}

TEST(Ownership, event_producer_register) {
  check_row(VARRO2_DESCRIBE(call_register, of.producer(), "no-such-type"), nothing,
            NULLS(unknown_type, type_missing), unknown_type);
}

TEST(Ownership, event_producer_register_and_notify) {
  check_row(VARRO2_DESCRIBE(call_register_and_notify, of.producer(), "no-such-type", told, &of),
            nothing, NULLS(unknown_type, type_missing, unknown_type, unknown_type), unknown_type);
}

TEST(Ownership, async_producer_register) {
  check_row(VARRO2_DESCRIBE(call_async_register, of.producer(), "no-such-type", told, told, &of,
                            of.error()),
            nothing,
            NULLS(unknown_type_failure, type_missing, unknown_type_failure, unknown_type_failure,
                  unknown_type_failure, neutral),
            unknown_type_failure);
}

TEST(Ownership, event_producer_int_parse_register_valist) {
  const gint32 value = 3;
  GList *list = call_parse(0, "count", &value, static_cast<int>(VALUE_TYPE_INT), nullptr);
  ASSERT_EQ(g_list_length(list), 3u);
  EXPECT_NE(list->data, "count"); // a copy
  event_producer_int_free_register_list(list);
  EXPECT_EQ(call_parse(0, static_cast<char *>(nullptr)), nullptr);
  EXPECT_DEATH(call_parse(0, "count", static_cast<gint32 *>(nullptr),
                          static_cast<int>(VALUE_TYPE_STRING), nullptr),
               "assertion failed: \\(value_str != NULL\\)");
}

// ---- What the two faces share

// A handle is made in two steps and ends by being freed.
TEST(Ownership, event_producer_int_new_empty) {
  Objects of;
  EventProducer *producer = event_producer_int_new_empty();
  ASSERT_NE(producer, nullptr);
  bool failed = false;
  event_producer_int_setup(
      producer, "name",
      [](EventProducer *, gpointer flag, GError *error) {
        *static_cast<bool *>(flag) = error != nullptr;
        g_clear_error(&error); // ours
      },
      nullptr, &failed);
  of.settle();
  EXPECT_TRUE(failed);
  event_producer_int_free(producer, nullptr, nullptr);
  of.settle();
}

EventProducer *empty(Objects &of) {
  of.producer(); // turns away from the bus
  return of.keep<EventProducer>(event_producer_int_new_empty(), event_producer_free);
}

ROW(event_producer_int_setup, nothing,
    NULLS(no_handle, aborts("name != NULL"), accepted, accepted, accepted), empty(of), "name",
    set_up, changed, &of)
ROW(event_producer_int_free, nothing, NULLS(no_handle, accepted, accepted), of.given_producer(),
    done, &of)
ROW(event_producer_int_get_decl_id, lent, NULLS(nobody_to_send, nothing_to_declare, accepted),
    of.producer(), of.declaration(), of.error())
ROW(event_producer_int_declare, nothing,
    NULLS(no_handle, aborts("declaration != NULL"), accepted, accepted, accepted), of.producer(),
    of.declaration(), 9, told, told, &of)
ROW(event_producer_int_undeclare, lent, NULLS(none, accepted, accepted), of.producer(),
    of.declared(), undeclared, &of)
ROW(event_producer_int_send_event, lent,
    NULLS(no_handle, unchecked, unchecked, accepted, accepted, accepted), of.producer(),
    sendable(of), copy_of(of), sent, &of, of.error())

// The event and its copy are missing only together.
REFUSAL(event_producer_int_send_event, nothing, lent, nothing_to_send, of.producer(), nullptr,
        nullptr, sent, &of, of.error())
REFUSAL(event_producer_int_get_decl_id, taken_slot, lent, fails(11, "Error object already set"),
        of.producer(), of.declaration(), of.taken_error())
REFUSAL(event_producer_int_get_decl_id, without_topic, lent,
        fails(7, "External event is missing topic"), of.producer(),
        of.keep(event_declaration_new(FALSE), event_declaration_free), of.error())

// ---- The asynchronous face

ROW(async_producer_new, given<async_free>, NULLS(no_name, accepted, accepted, accepted), "name",
    set_up, changed, &of)
ROW(async_producer_free, nothing, NULLS(accepted, accepted, accepted), of.given_producer(), done,
    &of)
ROW(async_producer_declare, lent,
    NULLS(nobody_to_send, nothing_to_declare, accepted, accepted, accepted, accepted),
    of.producer(), of.declaration(), told, told, &of, of.error())
ROW_WHERE(async_producer_register_list, nothing, unknown_type_failure,
          NULLS(unknown_type_failure, type_missing, unknown_type_failure, unknown_type_failure,
                unknown_type_failure, unknown_type_failure, neutral),
          of.producer(), "no-such-type", told, told, &of, triple(of), of.error())
ROW_WHERE(async_producer_register_string_list, nothing, unknown_type_failure,
          NULLS(unknown_type_failure, type_missing, unknown_type_failure, unknown_type_failure,
                unknown_type_failure, unknown_type_failure, neutral),
          of.producer(), "no-such-type", told, told, &of, kept_register_list(of), of.error())
ROW(async_producer_undeclare, nothing, NULLS(none, accepted, accepted), of.producer(),
    of.declared(), undeclared, &of)
ROW(async_producer_prepare_event, given<event_free>,
    NULLS(refused("event_producer != NULL", "event_producer_prepare_event")), of.producer(),
    of.declared())
// A missing event is the callback's to hear of.
ROW(async_producer_send_event, nothing, NULLS(none, accepted, accepted, accepted), of.producer(),
    sendable(of), sent, &of)

REFUSAL(async_producer_undeclare, no_id, nothing, refused("local_declare_id != 0"), of.producer(),
        0, undeclared, &of)

} // namespace
} // namespace varro2::test
