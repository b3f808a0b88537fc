// serialize.h: what is broken ends the process; only what is newly made is the caller's.
#include "table.hpp"

namespace varro2::test {
namespace {

void write_text(gpointer text, GByteArray *array) {
  serialize_string(array, static_cast<const char *>(text));
}

gpointer read_text(GByteArray *array, guint32 *indx) {
  return deserialize_string(array, indx);
}

GByteArray *eight_bytes(Objects &of) {
  GByteArray *array = of.bytes();
  for (guint8 byte = 1; byte <= 8; ++byte)
    serialize_8bit(array, byte);
  return array;
}

GByteArray *one_text(Objects &of) {
  GByteArray *array = of.bytes();
  serialize_string(array, "text");
  return array;
}

GByteArray *one_text_list(Objects &of) {
  GByteArray *array = of.bytes();
  serialize_glist(array, of.texts("text"), write_text);
  return array;
}

const Null no_array = aborts("array != NULL");
const Null no_index = aborts("indx != NULL");

ROW(serialize_create_array, given<g_byte_array_unref>, NULLS())
ROW(serialize_8bit, nothing, NULLS(no_array), of.bytes(), 1)
ROW(serialize_16bit, nothing, NULLS(no_array), of.bytes(), 1)
ROW(serialize_32bit, nothing, NULLS(no_array), of.bytes(), 1)
ROW(serialize_pointer, nothing, NULLS(no_array, accepted), of.bytes(), &of)
ROW(serialize_string, nothing, NULLS(no_array, aborts("string != NULL")), of.bytes(), "text")
ROW(serialize_blob, nothing, NULLS(no_array, accepted), of.bytes(), "", 0)
ROW(serialize_glist, nothing, NULLS(no_array, accepted, aborts("serializer != NULL")), of.bytes(),
    of.texts("text"), write_text)
ROW(deserialize_8bit, lent, NULLS(no_array, no_index), eight_bytes(of), of.index())
ROW(deserialize_16bit, lent, NULLS(no_array, no_index), eight_bytes(of), of.index())
ROW(deserialize_32bit, lent, NULLS(no_array, no_index), eight_bytes(of), of.index())
ROW(deserialize_pointer, lent, NULLS(no_array, no_index), eight_bytes(of), of.index())
ROW(deserialize_string, given<g_free>, NULLS(no_array, no_index), one_text(of), of.index())
ROW(deserialize_blob, given<g_free>, NULLS(no_array, no_index), eight_bytes(of), of.index(), 3)
ROW(deserialize_glist, given<free_string_list>,
    NULLS(no_array, no_index, aborts("deserializer != NULL")), one_text_list(of), of.index(),
    read_text)
ROW(serialize_is_valid_record, lent, NULLS(refused("array != NULL")),
    of.record<event_serialize_internal>(of.event()), 0, SERIALIZE_ID_EVENT)

const Null past_the_end = aborts("array->len >= *indx + size", "deserialize_size");

REFUSAL(deserialize_8bit, past_the_end, lent, past_the_end, of.bytes(), of.index())
REFUSAL(deserialize_16bit, past_the_end, lent, past_the_end, of.bytes(), of.index())
REFUSAL(deserialize_32bit, past_the_end, lent, past_the_end, of.bytes(), of.index())
REFUSAL(deserialize_pointer, past_the_end, lent, past_the_end, of.bytes(), of.index())
REFUSAL(deserialize_blob, past_the_end, given<g_free>, past_the_end, eight_bytes(of), of.index(), 9)
REFUSAL(deserialize_string, past_the_end, given<g_free>, aborts("array->len >= *indx + length"),
        eight_bytes(of), of.index())
REFUSAL(serialize_is_valid_record, of_another_kind, lent, neutral,
        of.record<event_serialize_internal>(of.event()), 0, SERIALIZE_ID_NOTIFICATION)

} // namespace
} // namespace varro2::test
