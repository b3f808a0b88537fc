// A container's record, which every event is written to and read from.
#include "inspectable.hpp"

using varro2::AndList;
using varro2::Bucket;
using varro2::Pair;
using varro2::PairFields;
using varro2::Reader;

namespace {

// What the parts take in a record at the least, and what the texts of a pair usually take at most.
constexpr guint32 smallest_record_of_and_list = 5;
constexpr guint32 smallest_record_of_bucket = 24;
constexpr guint32 usual_texts_of_pair = 64;

// How many of the announced buckets the rest of a record can hold: a broken count must not make us
// take more than that.
guint32 expected_buckets(guint32 announced, guint32 remaining) noexcept {
  return std::min(announced, remaining / smallest_record_of_bucket);
}

std::size_t storage_to_read(guint32 and_lists, guint32 buckets, guint32 remaining) noexcept {
  const guint32 texts =
      std::min(remaining - buckets * smallest_record_of_bucket, buckets * usual_texts_of_pair);
  return and_lists * sizeof(AndList) + varro2::BucketTable<varro2::ByKey>::storage_size(buckets) +
         buckets * sizeof(Pair) + texts;
}

guint32 expected_and_lists(guint32 announced, guint32 remaining) noexcept {
  return std::min(announced, 1 + remaining / smallest_record_of_and_list);
}

} // namespace

Pair *Inspectable::read_pair(Reader &reader, PairFields &fields) {
  varro2::read_pair_fields(reader, fields);
  Pair *pair = store(fields);
  GList *last_tag = nullptr;
  for (guint16 tags = reader.u16(); tags > 0; --tags) {
    const std::string_view tag = reader.text();
    last_tag = pair->store_tag(last_tag, tag.data(), tag.size(), arena_);
  }
  look_for_strays(*pair);
  return pair;
}

Bucket Inspectable::read_bucket(Reader &reader, PairFields &fields) {
  guint8 record = 0;
  guint16 count = 0;
  reader.read_group(sizeof record + sizeof count, [&](auto &from) {
    record = from.u8();
    count = from.u16();
    return true;
  });
  VARRO2_ASSERT_AS("bucket_deserialize", "type == SERIALIZE_ID_BUCKET",
                   record == SERIALIZE_ID_BUCKET);
  VARRO2_ASSERT_AS("bucket_deserialize", "bucket->key_value_list != NULL", count != 0);
  Bucket bucket{read_pair(reader, fields)};
  for (guint16 read = 1; read < count; ++read) {
    Pair *pair = read_pair(reader, fields);
    VARRO2_ASSERT_AS("bucket_add_key_value", "bucket->key == key_value->key",
                     bucket.key() == pair->key);
    bucket.add(pair);
  }
  return bucket;
}

void Inspectable::read_and_list(Reader &reader, guint16 still_to_come) {
  const guint8 record = reader.u8();
  VARRO2_ASSERT_AS("and_list_deserialize", "type == SERIALIZE_ID_ANDLIST",
                   record == SERIALIZE_ID_ANDLIST);
  const auto read_table = [&](auto &table, guint32 and_lists) {
    const guint16 count = reader.u16();
    const guint32 expected = expected_buckets(count, reader.remaining());
    arena_.reserve(storage_to_read(and_lists, expected, reader.remaining()));
    and_lists_.reserve(arena_, and_lists);
    table.reserve(arena_, expected);
    PairFields fields; // of one pair after the other
    for (guint16 read = 0; read < count; ++read)
      table.put(arena_, read_bucket(reader, fields));
  };
  AndList and_list;
  read_table(and_list.keys, expected_and_lists(still_to_come, reader.remaining()));
  read_table(and_list.wildcards, 0);
  and_lists_.push_back(arena_, and_list);
}

varro2::Room Inspectable::room_to_read(const guint8 *record, std::size_t length) noexcept {
  // Up to the number of buckets in the key table of the first and-list.
  constexpr std::size_t head = 8;
  if (length < head)
    return {0};
  guint32 index = 0;
  Reader reader{record, static_cast<guint32>(length), &index};
  reader.u8();
  const guint16 and_lists = reader.u16();
  reader.u8();
  reader.u8();
  if (and_lists == 0)
    return {0};
  reader.u8();
  const guint16 announced = reader.u16();
  const guint32 left = reader.remaining();
  return {storage_to_read(expected_and_lists(and_lists, left), expected_buckets(announced, left),
                          left)};
}

Inspectable Inspectable::read(Reader &reader, const varro2::Room &room) {
  static constexpr const char *function = "inspectable_deserialize_internal";
  const guint8 record = reader.u8();
  const guint16 and_list_count = reader.u16();
  VARRO2_ASSERT_AS(function, "type == SERIALIZE_ID_INSPECTABLE",
                   record == SERIALIZE_ID_INSPECTABLE);
  const guint8 type_read = reader.u8();
  VARRO2_ASSERT_AS(function, "inspect_type <= IT_PROPERTY_STATE", varro2::is_valid_type(type_read));
  Inspectable inspect{type_read, WithoutAndList{}, room};
  inspect.internal = reader.u8();
  inspect.positions_hidden_ = type_read == IT_EVENT_DECLARATION;
  for (guint16 read = 0; read < and_list_count; ++read)
    inspect.read_and_list(reader, static_cast<guint16>(and_list_count - read));
  for (guint16 tags = reader.u16(); tags > 0; --tags)
    inspect.add_tag(reader.text());
  return inspect;
}

void inspectable_serialize_internal(const Inspectable *inspect, GByteArray *array) noexcept {
  VARRO2_ASSERT(inspect != NULL);
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(inspect->type <= IT_PROPERTY_STATE);
  varro2::append_record(array, *inspect);
}

Inspectable *inspectable_deserialize_internal(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  varro2::Reader reader{array, indx};
  varro2::Room room = Inspectable::room_to_read(array->data + *indx, reader.remaining());
  return new (room) Inspectable{Inspectable::read(reader, room)};
}
