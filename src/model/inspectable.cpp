#include "inspectable.hpp"

#include "quarks.hpp"

#include <new>

using varro2::AndList;
using varro2::Arena;
using varro2::Bucket;
using varro2::Pair;
using varro2::PairFields;
using varro2::Reader;

Inspectable::Inspectable(guint32 of_type) : type{of_type} {
  add_and_list();
}

Inspectable::Inspectable(const Inspectable &source, guint32 new_type, const varro2::Room &room)
    : type{new_type}, internal{source.internal}, arena_{room} {
  const std::size_t size = room.at != nullptr ? room.size : source.storage_size();
  arena_.reserve(size);
  // Of nothing at all there need not be a block here.
  if (size != 0 && source.arena_.is_one_block()) {
    copy_block(source);
    return;
  }
  and_lists_.reserve(arena_, source.and_lists_.size());
  for (const AndList &and_list : source.and_lists_)
    copy_pairs(add_and_list(), and_list);
  for (const GList *tag = source.tags_; tag != nullptr; tag = tag->next)
    add_tag(static_cast<const char *>(tag->data));
}

Inspectable::Inspectable(Inspectable &&other) noexcept : Inspectable{other.type, WithoutAndList{}} {
  *this = std::move(other);
}

Inspectable &Inspectable::operator=(Inspectable &&other) noexcept {
  std::swap(type, other.type);
  std::swap(internal, other.internal);
  std::swap(arena_, other.arena_);
  std::swap(and_lists_, other.and_lists_);
  std::swap(tags_, other.tags_);
  std::swap(last_tag_, other.last_tag_);
  std::swap(positions_hidden_, other.positions_hidden_);
  has_strays_ = other.has_strays_.exchange(has_strays_);
  return *this;
}

void Inspectable::destroy_pairs() noexcept {
  const auto destroy = [](const varro2::Bucket *bucket, const varro2::Bucket *end) {
    for (; bucket != end; ++bucket)
      for (Pair *pair = bucket->first; pair != nullptr;)
        std::exchange(pair, pair->next)->~Pair();
  };
  for (const AndList &and_list : and_lists_) {
    destroy(and_list.keys.begin(), and_list.keys.end());
    destroy(and_list.wildcards.begin(), and_list.wildcards.end());
  }
}

AndList &Inspectable::add_and_list() {
  // Most containers have one and no more.
  and_lists_.reserve(arena_, 1);
  return and_lists_.push_back(arena_, AndList{});
}

Pair *Inspectable::store(const PairFields &fields) {
  return new (arena_.allocate<Pair>()) Pair{fields, arena_};
}

void Inspectable::add(const PairFields &fields, const GList *tags) {
  VARRO2_ASSERT_AS("inspectable_add_key_value_internal", "and_list != NULL", !and_lists_.empty());
  AndList &and_list = and_lists_.back();
  Bucket *declared = type == IT_EVENT_DECLARATION && !fields.key_wildcard
                         ? and_list.keys.find(fields.key)
                         : nullptr;
  Pair *pair = declared != nullptr ? declared->first : store(fields);
  if (declared != nullptr)
    redeclare(*declared, fields);
  else
    and_list.add(arena_, pair);
  pair->store_tags_once(tags, arena_);
  positions_hidden_ = false;
}

void Inspectable::add_tag(std::string_view tag) {
  auto *node = arena_.allocate<GList>();
  *node = {arena_.text(tag, tag.size() + 1), nullptr, last_tag_};
  (last_tag_ != nullptr ? last_tag_->next : tags_) = node;
  last_tag_ = node;
}

// The later declaration of a key wins; its place and its memory stay.
void Inspectable::redeclare(Bucket &bucket, const PairFields &fields) {
  bucket.first->restart(fields, arena_);
  look_for_strays(*bucket.first);
  for (Pair *pair = std::exchange(bucket.first->next, nullptr); pair != nullptr;)
    std::exchange(pair, pair->next)->~Pair();
  bucket.last = bucket.first;
  bucket.size = 1;
}

const Bucket *Inspectable::bucket_of(const char *key) const noexcept {
  const GQuark quark = varro2::find_interned(key);
  return quark != 0 && !and_lists_.empty() ? and_lists_.back().keys.find(quark) : nullptr;
}

const Pair *Inspectable::find(const char *key) const noexcept {
  const Bucket *bucket = bucket_of(key);
  return bucket != nullptr ? bucket->first : nullptr;
}

Pair *Inspectable::find(const char *key) noexcept {
  return const_cast<Pair *>(std::as_const(*this).find(key));
}

guint32 Inspectable::key_count() const noexcept {
  return positions_hidden_ || and_lists_.empty() ? 0 : and_lists_.back().keys.size();
}

const Pair *Inspectable::at(guint32 position) const noexcept {
  return position < key_count() ? and_lists_.back().keys[position].first : nullptr;
}

guint32 Inspectable::position_of(const char *key) const noexcept {
  const Bucket *bucket = positions_hidden_ ? nullptr : bucket_of(key);
  return bucket != nullptr ? and_lists_.back().keys.position_of(*bucket) : INSPECTABLE_NO_INDEX;
}

// What a copy takes: of a source in one block that block and what its pairs have elsewhere, else of
// each part.
std::size_t Inspectable::storage_size() const noexcept {
  std::size_t size = 0;
  if (arena_.is_one_block()) {
    size = arena_.block_size();
    if (has_strays_)
      for (const AndList &and_list : and_lists_)
        varro2::for_each_pair(and_list, [&size](const Pair &pair) {
          if (!pair.copies_as_it_is())
            size += Pair::taken_over_size(pair);
        });
    return size;
  }
  size = and_lists_.size() * sizeof(AndList);
  for (const AndList &and_list : and_lists_) {
    size += and_list.storage_size();
    varro2::for_each_pair(and_list,
                          [&size](const Pair &pair) { size += Pair::storage_size(pair); });
  }
  for (const GList *tag = tags_; tag != nullptr; tag = tag->next)
    size += sizeof(GList) + std::strlen(static_cast<const char *>(tag->data)) + 1;
  return size;
}

// Copies the one block that everything lies in, then tells each pointer in it where things are now.
void Inspectable::copy_block(const Inspectable &source) {
  const auto displacement = arena_.copy_block(source.arena_);
  and_lists_ = source.and_lists_;
  and_lists_.displace(displacement);
  for (AndList &and_list : and_lists_)
    and_list.displace(displacement);
  tags_ = source.tags_;
  last_tag_ = source.last_tag_;
  displacement.object(last_tag_);
  varro2::displace_tags(tags_, displacement);
  if (!source.has_strays_)
    return;
  for (const AndList &and_list : source.and_lists_)
    varro2::for_each_pair(and_list, [&](const Pair &pair) {
      if (pair.copies_as_it_is())
        return;
      auto *copy = const_cast<Pair *>(&pair);
      displacement.present_object(copy);
      copy->take_over(pair, arena_);
    });
}

void Inspectable::copy_pairs(AndList &to, const AndList &from) {
  const auto copy = [this](auto &table, const auto &source) {
    table.reserve(arena_, source.size());
    for (const Bucket &bucket : source) {
      Bucket copied{bucket.key, 0, nullptr, nullptr};
      for (const Pair *pair = bucket.first; pair != nullptr; pair = pair->next) {
        Pair *added = store(PairFields::of(*pair));
        added->store_tags_once(pair->tags, arena_);
        (copied.last != nullptr ? copied.last->next : copied.first) = added;
        copied.last = added;
        ++copied.size;
      }
      table.insert(arena_, copied);
    }
  };
  copy(to.keys, from.keys);
  copy(to.wildcards, from.wildcards);
}

// ---- Reading a record ----

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

Bucket Inspectable::read_bucket(Reader &reader, PairFields &fields) {
  const guint8 record = reader.u8();
  const guint16 count = reader.u16();
  VARRO2_ASSERT_AS("bucket_deserialize", "type == SERIALIZE_ID_BUCKET",
                   record == SERIALIZE_ID_BUCKET);
  VARRO2_ASSERT_AS("bucket_deserialize", "bucket->key_value_list != NULL", count != 0);
  Bucket bucket{0, count, nullptr, nullptr};
  for (guint16 read = 0; read < count; ++read) {
    varro2::read_pair_fields(reader, fields);
    Pair *pair = store(fields);
    GList *last_tag = nullptr;
    for (guint16 tags = reader.u16(); tags > 0; --tags) {
      const std::string_view tag = reader.text();
      last_tag = pair->store_tag(last_tag, tag.data(), tag.size(), arena_);
    }
    look_for_strays(*pair);
    if (bucket.first == nullptr) {
      bucket.key = pair->key;
      bucket.first = pair;
    } else {
      VARRO2_ASSERT_AS("bucket_add_key_value", "bucket->key == key_value->key",
                       bucket.key == pair->key);
      bucket.last->next = pair;
    }
    bucket.last = pair;
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
