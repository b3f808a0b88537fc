// event.h: soft where a caller calls, hard where a record is written into or read from an array.
#include "table.hpp"

#include <cstdlib>

namespace varro2::test {
namespace {

const Null none = refused("event != NULL");
const Null no_key = refused("key != NULL");
const Null no_tag = refused("tag != NULL");
const Null no_data = refused("data != NULL");
constexpr guint32 text = 1;

Event *open_event(Objects &of) {
  return of.keep(event_declaration_generate_event(of.declaration()), event_free);
}

// "fixed" was added with its value.
Event *fixed_event(Objects &of) {
  Event *event = of.event();
  inspectable_add_key_value(event_get_inspectable(event), "fixed", FALSE, "value", FALSE, FALSE);
  return event;
}

JsonOptions *unknown_format(Objects &of) {
  JsonOptions *options = of.options();
  json_options_set_format(options, 2);
  return options;
}

ROW(event_new, given<event_free>, NULLS())
ROW(event_free, nothing, NULLS(accepted), of.give<Event>(event_new(), event_free))
ROW(event_copy, given<event_free>, NULLS(refused("event_src != NULL")), of.event())
ROW(event_set_inspectable, nothing, NULLS(none, refused("inspect != NULL")), of.event(),
    of.container())
ROW(event_get_inspectable, lent, NULLS(none), of.event())
ROW(event_set_property, nothing, NULLS(none), of.event(), TRUE)
ROW(event_is_property, lent, NULLS(none), of.event())
ROW(event_set_producer_id, nothing, NULLS(none), of.event(), 1)
ROW(event_get_producer_id, lent, NULLS(none), of.event())
ROW(event_set_global_id, nothing, NULLS(none), of.event(), 1)
ROW(event_get_global_id, lent, NULLS(none), of.event())
ROW(event_set_local_id, nothing, NULLS(none), of.event(), 1)
ROW(event_get_local_id, lent, NULLS(none), of.event())
ROW(event_is_internal, nothing, NULLS(none), of.event())
ROW(event_contains, lent, NULLS(refused("container != NULL"), refused("containee != NULL")),
    of.event(), of.expression())
ROW(event_is_complete, lent, NULLS(none), of.event())
ROW(event_set_timestamp2, nothing, NULLS(none, refused("timestamp != NULL")), of.event(), of.time())
ROW(event_get_timestamp2, lent, NULLS(none), of.event())
G_GNUC_BEGIN_IGNORE_DEPRECATIONS
ROW(event_set_timestamp, nothing, NULLS(none), of.event(), GTimeVal{1, 2})
G_GNUC_END_IGNORE_DEPRECATIONS
ROW(event_get_timestamp, lent, NULLS(none), of.event())
ROW(event_set_user_data, nothing, NULLS(none, refused("user_data != NULL")), of.event(), "abc", 3)
ROW(event_get_user_data, given<g_free>, NULLS(none), of.event())
ROW(event_set_user_data_string, nothing, NULLS(none, refused("string != NULL")), of.event(), "abc")
ROW(event_get_user_data_string, given<g_free>, NULLS(none), of.event())
ROW(event_set_value, lent, NULLS(none, no_key, refused("value != NULL")), open_event(of), "text",
    "x")
ROW(event_get_value, lent, NULLS(none, no_key), of.event(), "text")
ROW(event_get_typed_value, lent, NULLS(none, no_key, no_data), of.event(), "text", of.text_slot())
ROW(event_get_name_space, lent, NULLS(none, no_key), of.event(), "text")
ROW(event_get_complex_type_name, lent, NULLS(none, no_key), of.event(), "text")
ROW(event_get_value_user_string, lent, NULLS(none, no_key), of.event(), "text")
ROW(event_get_key_nice_name, lent, NULLS(none, no_key), of.event(), "text")
ROW(event_get_value_nice_name, lent, NULLS(none, no_key), of.event(), "text")
ROW(event_get_index, otherwise(INSPECTABLE_NO_INDEX), NULLS(none, no_key), of.event(), "text")
ROW(event_get_key_count, lent, NULLS(none), of.event())
ROW(event_get_key_at, lent, NULLS(none), of.event(), text)
ROW(event_get_name_space_at, lent, NULLS(none), of.event(), text)
ROW(event_get_complex_type_name_at, lent, NULLS(none), of.event(), text)
ROW(event_get_value_at, lent, NULLS(none), of.event(), text)
ROW(event_get_type_at, lent, NULLS(none), of.event(), text)
ROW(event_get_typed_value_at, lent, NULLS(none, no_data), of.event(), text, of.text_slot())
ROW(event_has_value_at, lent, NULLS(none), of.event(), text)
ROW(event_get_tags, given<free_string_list>, NULLS(none), of.event())
ROW(event_get_tags_at, given<free_string_list>, NULLS(none), of.event(), text)
ROW(event_has_tag, lent, NULLS(none, no_tag), of.event(), "tag")
ROW(event_has_tag_at, lent, NULLS(none, no_tag), of.event(), text, "tag")
ROW(event_add_tag, lent, NULLS(none, no_tag), of.event(), "another")
ROW(event_add_key_tag, lent, NULLS(none, no_key, no_tag), of.event(), "text", "another")
ROW(event_serialize, given<g_byte_array_unref>, NULLS(none), of.event())
ROW(event_serialize_internal, nothing, NULLS(aborts("event != NULL"), aborts("array != NULL")),
    of.event(), of.bytes())
ROW(event_deserialize, given<event_free>, NULLS(refused("array != NULL")),
    of.record<event_serialize_internal>(of.event()))
ROW(event_deserialize_internal, given<event_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")),
    of.record<event_serialize_internal>(of.event()), of.index())
ROW(event_print, nothing, NULLS(none), of.event())
// From the C library, for free().
ROW(event_get_json, given<std::free>, NULLS(none, accepted), of.event(), of.options())
ROW(event_get_tamlo_json, given<std::free>, NULLS(none, refused("options != NULL")), of.event(),
    of.options())
ROW(set_event_time_now, nothing, NULLS(none), of.event())

REFUSAL(event_set_user_data, of_no_size, nothing, refused("size != 0"), of.event(), "abc", 0)
REFUSAL(event_set_value, unknown, lent, neutral, open_event(of), "unknown", "x")
REFUSAL(event_set_value, fixed, lent, neutral, fixed_event(of), "fixed", "x")
REFUSAL(event_get_value, unknown, lent, neutral, of.event(), "unknown")
REFUSAL(event_get_typed_value, unknown, lent, neutral, of.event(), "unknown", of.text_slot())
REFUSAL(event_get_index, unknown, otherwise(INSPECTABLE_NO_INDEX), neutral, of.event(), "unknown")
REFUSAL(event_get_value_at, past_the_end, lent, neutral, of.event(), 3)
REFUSAL(event_add_key_tag, unknown, lent, neutral, of.event(), "unknown", "x")
REFUSAL(event_is_complete, open, lent, neutral, open_event(of))
REFUSAL(event_get_timestamp, absent, lent, neutral, open_event(of))
REFUSAL(event_get_timestamp2, absent, lent, neutral, open_event(of))
REFUSAL(event_get_user_data, absent, lent, neutral, open_event(of))
REFUSAL(event_deserialize, another_record, given<event_free>,
        aborts("type == SERIALIZE_ID_EVENT", "event_deserialize_internal"),
        of.record<notification_serialize_internal>(of.notification()))
REFUSAL(event_get_json, unknown_format, given<std::free>, neutral, of.event(), unknown_format(of))

} // namespace
} // namespace varro2::test
