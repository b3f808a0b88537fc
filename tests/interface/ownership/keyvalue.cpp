// keyvalue.h: building blocks; what is broken ends the process.
#include "table.hpp"

namespace varro2::test {
namespace {

const Null no_pair = aborts("key_value != NULL");

KeyValue *loose_pair() {
  return key_value_new("key", FALSE, nullptr, nullptr, "value", FALSE, nullptr, nullptr, nullptr,
                       FALSE);
}

GByteArray *pair_record(Objects &of) {
  return of.record<key_value_serialize>(of.pair());
}

ROW(key_value_new, given<key_value_free>,
    NULLS(aborts("key != NULL"), accepted, accepted, aborts("value != NULL"), accepted, accepted,
          accepted),
    "key", FALSE, "ns", "Key", "value", FALSE, "Value", "user string", "complex", FALSE)
ROW(key_value_free, nothing, NULLS(accepted), of.give<KeyValue>(loose_pair(), key_value_free))
ROW(key_value_copy, given<key_value_free>, NULLS(no_pair), of.pair())
ROW(key_value_add_tag, nothing, NULLS(no_pair, accepted), of.pair(), "another")
ROW(key_value_give_tag, nothing, NULLS(no_pair, accepted), of.pair(),
    of.give<char>(g_strdup("another"), [](char *tag) { g_free(tag); }))
ROW(key_value_is_equal, nothing, NULLS(aborts("key_value1 != NULL"), aborts("key_value2 != NULL")),
    of.pair(), of.pair())
ROW(key_value_is_contained, nothing,
    NULLS(accepted, aborts("key_value_containee != NULL"), aborts("fail != NULL"),
          aborts("matched != NULL")),
    of.pair(), of.pair(), of.flag(), of.index())
ROW(key_value_serialize, nothing, NULLS(no_pair, aborts("array != NULL")), of.pair(), of.bytes())
ROW(key_value_deserialize, given<key_value_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")), pair_record(of), of.index())
ROW(key_value_serialize_xml, given<xmlnode_free_tree>, NULLS(no_pair), of.pair())
ROW(key_value_deserialize_xml, given<key_value_free>, NULLS(aborts("node != NULL")),
    of.node("<keyvalue key='text' value='open'/>"))
ROW(key_value_get_raw, given<key_value_free_raw>, NULLS(no_pair), of.pair())
ROW(key_value_free_raw, nothing, NULLS(accepted),
    of.give<KeyValueRaw>(key_value_get_raw(of.pair()), key_value_free_raw))
ROW(key_value_print, nothing, NULLS(no_pair), of.pair())

REFUSAL(key_value_new, both_wildcards, given<key_value_free>, neutral, "key", TRUE, "", "", "value",
        TRUE, "", "", "", FALSE)
REFUSAL(key_value_new, wildcard_without_value, given<key_value_free>, aborts("value != NULL"),
        nullptr, TRUE, "", "", nullptr, FALSE, "", "", "", FALSE)
REFUSAL(key_value_deserialize_xml, another_element, given<key_value_free>,
        warned("Expected xml tag 'keyvalue' but got 'a'"), of.node("<a/>"))
REFUSAL(key_value_deserialize_xml, both_wildcards, given<key_value_free>, neutral,
        of.node("<keyvalue key-wildcard='true' value-wildcard='true'/>"))
REFUSAL(key_value_deserialize, another_record, given<key_value_free>,
        aborts("type == SERIALIZE_ID_KEYVALUE"), of.record<event_serialize_internal>(of.event()),
        of.index())
REFUSAL(key_value_is_contained, any_key, nothing,
        aborts("key_value_container->key_wildcard == FALSE && "
               "key_value_containee->key_wildcard == FALSE"),
        of.pair(),
        of.keep(key_value_new(nullptr, TRUE, "", "", "open", FALSE, "", "", "", FALSE),
                key_value_free),
        of.flag(), of.index())
REFUSAL(key_value_serialize, absent_text, nothing, aborts("string != NULL", "serialize_string"),
        of.keep(loose_pair(), key_value_free), of.bytes())

} // namespace
} // namespace varro2::test
