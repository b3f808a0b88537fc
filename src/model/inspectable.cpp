#include "inspectable.hpp"

#include "quarks.hpp"

#include <new>
#include <optional>

using varro2::AndList;
using varro2::Bucket;
using varro2::Pair;
using varro2::PairFields;

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
  for (AndList &and_list : and_lists_)
    and_list.destroy_pairs();
}

AndList &Inspectable::add_and_list() {
  // Most containers have one and no more.
  and_lists_.reserve(arena_, 1);
  return and_lists_.push_back(arena_, AndList{});
}

void Inspectable::add(const PairFields &fields, const GList *tags) {
  VARRO2_ASSERT_AS("inspectable_add_key_value_internal", "and_list != NULL", !and_lists_.empty());
  AndList &and_list = and_lists_.back();
  Bucket *declared = type == IT_EVENT_DECLARATION && !fields.key_wildcard
                         ? and_list.keys.find(fields.key)
                         : nullptr;
  Pair *pair = declared != nullptr ? &declared->first() : store(fields);
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
  bucket.first().restart(fields, arena_);
  look_for_strays(bucket.first());
  bucket.destroy_all_but_first();
}

const Bucket *Inspectable::bucket_of(const char *key) const noexcept {
  const GQuark quark = varro2::find_interned(key);
  return quark != 0 && !and_lists_.empty() ? and_lists_.back().keys.find(quark) : nullptr;
}

const Pair *Inspectable::find(const char *key) const noexcept {
  const Bucket *bucket = bucket_of(key);
  return bucket != nullptr ? &bucket->first() : nullptr;
}

Pair *Inspectable::find(const char *key) noexcept {
  return const_cast<Pair *>(std::as_const(*this).find(key));
}

guint32 Inspectable::key_count() const noexcept {
  return positions_hidden_ || and_lists_.empty() ? 0 : and_lists_.back().keys.size();
}

const Pair *Inspectable::at(guint32 position) const noexcept {
  return position < key_count() ? &and_lists_.back().keys[position].first() : nullptr;
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
      std::optional<Bucket> copied;
      for (const Pair &pair : bucket) {
        Pair *added = store(PairFields::of(pair));
        added->store_tags_once(pair.tags, arena_);
        copied ? copied->add(added) : void(copied.emplace(added));
      }
      table.insert(arena_, *copied);
    }
  };
  copy(to.keys, from.keys);
  copy(to.wildcards, from.wildcards);
}
