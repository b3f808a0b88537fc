// The buckets of an and-list, in order of insertion, found by key or by text.
#pragma once

#include "arena.hpp"
#include "pair.hpp"

#include <bit>

namespace varro2 {

// The pairs of one key, or of one value for tests of any key, in order of insertion.
struct Bucket {
  class Iterator {
   public:
    explicit Iterator(const Pair *pair) noexcept : pair_{pair} {}
    const Pair &operator*() const noexcept { return *pair_; }
    Iterator &operator++() noexcept {
      pair_ = pair_->next;
      return *this;
    }
    bool operator==(const Iterator &) const noexcept = default;

   private:
    const Pair *pair_;
  };
  Iterator begin() const noexcept { return Iterator{first}; }
  Iterator end() const noexcept { return Iterator{nullptr}; }

  GQuark key;
  guint32 size;
  Pair *first;
  Pair *last;
};

// A few buckets are searched one by one. More get an open-addressing table of positions, at most
// half full, so that adding a thousand keys costs a thousand adds.
template <typename Traits>
class BucketTable {
 public:
  using Key = typename Traits::Key;

  const Bucket *find(Key key) const noexcept {
    if (slots_.empty()) {
      for (const Bucket &bucket : buckets_)
        if (Traits::matches(bucket, key))
          return &bucket;
      return nullptr;
    }
    for (guint32 at = Traits::hash(key);; ++at) {
      const guint32 entry = slots_[at & (slots_.size() - 1)];
      if (entry == 0)
        return nullptr;
      if (Traits::matches(buckets_[entry - 1], key))
        return &buckets_[entry - 1];
    }
  }
  Bucket *find(Key key) noexcept { return const_cast<Bucket *>(std::as_const(*this).find(key)); }

  // The bucket must not be there yet.
  void insert(Arena &arena, const Bucket &bucket) {
    buckets_.push_back(arena, bucket);
    if (2 * buckets_.size() <= slots_.size())
      enter(buckets_.size());
    else if (buckets_.size() > searched_one_by_one)
      rebuild(arena);
  }

  // The pair joins the bucket of its key, which is made when there is none.
  void add(Arena &arena, Pair *pair) {
    if (Bucket *bucket = find(Traits::key_of(*pair))) {
      bucket->last->next = pair;
      bucket->last = pair;
      ++bucket->size;
    } else {
      insert(arena, {pair->key, 1, pair, pair});
    }
  }

  // A bucket of the same key, which a broken record can repeat, takes the place of the former.
  void put(Arena &arena, const Bucket &bucket) {
    if (Bucket *former = find(Traits::key_of(*bucket.first)))
      *former = bucket;
    else
      insert(arena, bucket);
  }

  void displace(const Displacement &displacement) noexcept {
    buckets_.displace(displacement);
    slots_.displace(displacement);
    for (Bucket &bucket : buckets_) {
      displacement.present_object(bucket.first);
      displacement.present_object(bucket.last);
      for (Pair *pair = bucket.first; pair != nullptr; pair = pair->next)
        pair->displace(displacement);
    }
  }

  // For so many buckets in all.
  void reserve(Arena &arena, guint32 count) {
    buckets_.reserve(arena, count);
    if (slots_.empty() && count > searched_one_by_one)
      slots_.assign(arena, slots_for(count), 0);
  }
  static constexpr std::size_t storage_size(guint32 count) noexcept {
    return count * sizeof(Bucket) +
           (count > searched_one_by_one ? slots_for(count) * sizeof(guint32) : 0);
  }
  guint32 size() const noexcept { return buckets_.size(); }
  bool empty() const noexcept { return buckets_.empty(); }
  const Bucket *begin() const noexcept { return buckets_.begin(); }
  const Bucket *end() const noexcept { return buckets_.end(); }
  const Bucket &operator[](guint32 position) const noexcept { return buckets_[position]; }
  guint32 position_of(const Bucket &bucket) const noexcept {
    return static_cast<guint32>(&bucket - buckets_.begin());
  }

 private:
  static constexpr guint32 searched_one_by_one = 16;

  static constexpr guint32 slots_for(guint32 count) noexcept { return std::bit_ceil(2 * count); }

  void rebuild(Arena &arena) {
    slots_.assign(arena, slots_for(buckets_.size()), 0);
    for (guint32 entry = 1; entry <= buckets_.size(); ++entry)
      enter(entry);
  }
  void enter(guint32 entry) noexcept {
    guint32 at = Traits::hash(Traits::key_of(*buckets_[entry - 1].first));
    while (slots_[at & (slots_.size() - 1)] != 0)
      ++at;
    slots_[at & (slots_.size() - 1)] = entry;
  }

  ArenaVector<Bucket> buckets_;
  ArenaVector<guint32> slots_; // position + 1, or 0; the size is a power of two
};

struct ByKey {
  using Key = GQuark;
  static Key key_of(const Pair &pair) noexcept { return pair.key; }
  static bool matches(const Bucket &bucket, Key key) noexcept { return bucket.key == key; }
  static guint32 hash(Key key) noexcept { return (key * 2654435769u) >> 7; }
};

struct ByValue {
  using Key = const char *;
  static Key key_of(const Pair &pair) noexcept { return pair.value; }
  static bool matches(const Bucket &bucket, Key value) noexcept {
    return std::strcmp(bucket.first->value, value) == 0;
  }
  static guint32 hash(Key value) noexcept { return g_str_hash(value); }
};

struct AndList {
  BucketTable<ByKey> keys;
  BucketTable<ByValue> wildcards; // tests of any key, by the value they ask for

  void add(Arena &arena, Pair *pair) {
    if (pair->key_wildcard)
      wildcards.add(arena, pair);
    else
      keys.add(arena, pair);
  }
  void displace(const Displacement &displacement) noexcept {
    keys.displace(displacement);
    wildcards.displace(displacement);
  }
  std::size_t storage_size() const noexcept {
    return keys.storage_size(keys.size()) + wildcards.storage_size(wildcards.size());
  }
};

// Calls visit(pair) for every pair of a table: bucket by bucket, in order of insertion.
template <typename Table, typename Visit>
void for_each_pair(const Table &table, Visit visit) {
  for (const Bucket &bucket : table)
    for (const Pair &pair : bucket)
      visit(pair);
}

// The pairs of the keys first, then the tests of any key.
template <typename Visit>
void for_each_pair(const AndList &and_list, Visit visit) {
  for_each_pair(and_list.keys, visit);
  for_each_pair(and_list.wildcards, visit);
}

} // namespace varro2
