// The buckets of an and-list, in order of insertion, found by key or by text.
#pragma once

#include "arena.hpp"
#include "pair.hpp"

#include <bit>
#include <iterator>
#include <memory>

namespace varro2 {

// The pairs of one key, or of one value for tests of any key, in order of insertion: a ring, which
// is known by its last pair. There is always one.
class Bucket {
 public:
  class Iterator {
   public:
    Iterator(const Pair *pair, const Pair *last) noexcept : pair_{pair}, last_{last} {}
    const Pair &operator*() const noexcept { return *pair_; }
    Iterator &operator++() noexcept {
      pair_ = pair_ != last_ ? pair_->next : nullptr;
      return *this;
    }
    bool operator==(std::default_sentinel_t) const noexcept { return pair_ == nullptr; }
    // Not left to the compiler: clang-tidy cannot follow what that derives.
    bool operator!=(std::default_sentinel_t) const noexcept { return pair_ != nullptr; }

   private:
    const Pair *pair_; // null behind the last one
    const Pair *last_;
  };
  Iterator begin() const noexcept { return {last_->next, last_}; }
  std::default_sentinel_t end() const noexcept { return {}; }

  explicit Bucket(Pair *pair) noexcept : last_{pair} { pair->next = pair; }

  void add(Pair *pair) noexcept {
    pair->next = std::exchange(last_->next, pair);
    last_ = pair;
  }
  void destroy_all_but_first() noexcept {
    Pair *const first = last_->next;
    for (Pair *pair = first->next; pair != first;)
      std::exchange(pair, pair->next)->~Pair();
    *this = Bucket{first};
  }
  void destroy_pairs() noexcept {
    destroy_all_but_first();
    last_->~Pair();
  }

  GQuark key() const noexcept { return last_->key; }
  const Pair &first() const noexcept { return *last_->next; }
  Pair &first() noexcept { return *last_->next; }
  bool has_one() const noexcept { return last_->next == last_; }
  guint32 size() const noexcept {
    guint32 count = 1;
    for (const Pair *pair = last_->next; pair != last_; pair = pair->next)
      ++count;
    return count;
  }
  void displace(const Displacement &displacement) noexcept {
    displacement.present_object(last_);
    Pair *pair = last_;
    do {
      pair->displace(displacement);
      pair = pair->next;
    } while (pair != last_);
  }

 private:
  Pair *last_;
};

// A few buckets are searched one by one. More get an open-addressing table of positions, at most
// half full, so that adding a thousand keys costs a thousand adds. It lies behind the buckets.
template <typename Traits>
class BucketTable {
 public:
  using Key = typename Traits::Key;

  const Bucket *find(Key key) const noexcept {
    if (capacity_ <= searched_one_by_one) {
      for (const Bucket &bucket : *this)
        if (Traits::matches(bucket, key))
          return &bucket;
      return nullptr;
    }
    const guint32 mask = slots_for(capacity_) - 1;
    for (guint32 at = Traits::hash(key);; ++at) {
      const guint32 entry = slots()[at & mask];
      if (entry == 0)
        return nullptr;
      if (Traits::matches(buckets_[entry - 1], key))
        return &buckets_[entry - 1];
    }
  }
  Bucket *find(Key key) noexcept { return const_cast<Bucket *>(std::as_const(*this).find(key)); }

  // The bucket must not be there yet.
  void insert(Arena &arena, const Bucket &bucket) {
    if (size_ == capacity_)
      reserve(arena, capacity_ == 0 ? 4 : 2 * capacity_);
    new (buckets_ + size_++) Bucket{bucket};
    if (capacity_ > searched_one_by_one)
      enter(size_);
  }

  // The pair joins the bucket of its key, which is made when there is none.
  void add(Arena &arena, Pair *pair) {
    if (Bucket *bucket = find(Traits::key_of(*pair)))
      bucket->add(pair);
    else
      insert(arena, Bucket{pair});
  }

  // A bucket of the same key, which a broken record can repeat, takes the place of the former.
  void put(Arena &arena, const Bucket &bucket) {
    if (Bucket *former = find(Traits::key_of(bucket.first())))
      *former = bucket;
    else
      insert(arena, bucket);
  }

  void displace(const Displacement &displacement) noexcept {
    displacement.object(buckets_);
    for (guint32 position = 0; position < size_; ++position)
      buckets_[position].displace(displacement);
  }

  void destroy_pairs() noexcept {
    for (guint32 position = 0; position < size_; ++position)
      buckets_[position].destroy_pairs();
  }

  // For so many buckets in all.
  void reserve(Arena &arena, guint32 count) {
    if (count <= capacity_)
      return;
    auto *grown = reinterpret_cast<Bucket *>(arena.allocate<char>(storage_size(count)));
    std::uninitialized_copy_n(buckets_, size_, grown);
    buckets_ = grown;
    capacity_ = count;
    if (count <= searched_one_by_one)
      return;
    std::uninitialized_fill_n(slots(), slots_for(count), 0u);
    for (guint32 entry = 1; entry <= size_; ++entry)
      enter(entry);
  }
  static constexpr std::size_t storage_size(guint32 count) noexcept {
    return count * sizeof(Bucket) +
           (count > searched_one_by_one ? slots_for(count) * sizeof(guint32) : 0);
  }
  guint32 size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }
  const Bucket *begin() const noexcept { return buckets_; }
  const Bucket *end() const noexcept { return buckets_ + size_; }
  const Bucket &operator[](guint32 position) const noexcept { return buckets_[position]; }
  guint32 position_of(const Bucket &bucket) const noexcept {
    return static_cast<guint32>(&bucket - buckets_);
  }

 private:
  static constexpr guint32 searched_one_by_one = 16;

  static constexpr guint32 slots_for(guint32 count) noexcept { return std::bit_ceil(2 * count); }

  // Each is a position + 1, or 0.
  const guint32 *slots() const noexcept {
    return reinterpret_cast<const guint32 *>(buckets_ + capacity_);
  }
  guint32 *slots() noexcept { return const_cast<guint32 *>(std::as_const(*this).slots()); }

  void enter(guint32 entry) noexcept {
    const guint32 mask = slots_for(capacity_) - 1;
    guint32 at = Traits::hash(Traits::key_of(buckets_[entry - 1].first()));
    while (slots()[at & mask] != 0)
      ++at;
    slots()[at & mask] = entry;
  }

  Bucket *buckets_ = nullptr;
  guint32 size_ = 0;
  guint32 capacity_ = 0;
};

struct ByKey {
  using Key = GQuark;
  static Key key_of(const Pair &pair) noexcept { return pair.key; }
  static bool matches(const Bucket &bucket, Key key) noexcept { return bucket.key() == key; }
  static guint32 hash(Key key) noexcept { return (key * 2654435769u) >> 7; }
};

struct ByValue {
  using Key = const char *;
  static Key key_of(const Pair &pair) noexcept { return pair.value; }
  static bool matches(const Bucket &bucket, Key value) noexcept {
    return std::strcmp(bucket.first().value, value) == 0;
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
  void destroy_pairs() noexcept {
    keys.destroy_pairs();
    wildcards.destroy_pairs();
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
