// The container behind every object of the event model.
//
// Everything that it holds lies in its arena: and-lists, buckets, pairs, texts and tags. A copy and
// a read-back know how much they need and take it as one block.
#pragma once

#include "buckets.hpp"
#include "serialize.hpp"

#include <varro2/inspectable.h>

#include <atomic>

namespace varro2 {

// The record of one pair, also of one outside a container.
template <class Sink>
void write_pair(const KeyValue &pair, Sink &to);

// The same read back, all fields up to the tags, which follow: a count of 16 bits and the texts.
void read_pair_fields(Reader &reader, PairFields &fields);

// The same of an element "keyvalue"; false, mostly after a warning, when it is none.
bool read_pair_fields(const XmlNode &node, PairFields &fields);

// The tags in its elements "tag", borrowed.
OwnedList read_tag_elements(const XmlNode &node);

// One element "tag" for each tag.
void add_tag_elements(XmlNode *node, const GList *tags);

inline bool is_valid_type(guint32 type) noexcept {
  return type <= IT_PROPERTY_STATE;
}

} // namespace varro2

struct Inspectable final : varro2::WithRoom<Inspectable> {
  // With one empty and-list.
  explicit Inspectable(guint32 type);
  // The room, if any, comes from room_for_copy() and lies behind what the new one is part of.
  Inspectable(const Inspectable &source, guint32 new_type, const varro2::Room &room = {});
  Inspectable(const Inspectable &source) : Inspectable{source, source.type} {}
  Inspectable(Inspectable &&other) noexcept;
  Inspectable &operator=(Inspectable &&other) noexcept;
  ~Inspectable() {
    if (has_strays_)
      destroy_pairs();
  }

  template <class Sink>
  void write(Sink &sink) const;
  // The room, if any, comes from room_to_read() of the same record.
  static Inspectable read(varro2::Reader &reader, const varro2::Room &room = {});

  varro2::Room room_for_copy() const noexcept { return {storage_size()}; }
  // Looks at a record that may be broken.
  static varro2::Room room_to_read(const guint8 *record, std::size_t length) noexcept;

  // The new and-list becomes the current one.
  varro2::AndList &add_and_list();
  // A copy of the pair joins the current and-list by the rules of the container's type.
  void add(const varro2::PairFields &fields, const GList *tags = nullptr);
  void add_tag(std::string_view tag);

  // The first pair of the key in the current and-list, or null. There is no current and-list only
  // in a container read from a record without any.
  const varro2::Pair *find(const char *key) const noexcept;
  varro2::Pair *find(const char *key) noexcept;
  // All three change a pair that find() gave.
  void set_text(varro2::Pair &pair, varro2::Text which, std::string_view text) {
    pair.set_text(which, text, arena_);
    look_for_strays(pair);
  }
  void set_value(varro2::Pair &pair, std::string_view text) {
    pair.set_value(text, arena_);
    look_for_strays(pair);
  }
  void add_key_tag(varro2::Pair &pair, const char *tag) {
    varro2::add_tag_once(pair, tag);
    look_for_strays(pair);
  }
  // As find(), for somebody who can give the pair tags by the pair's own functions.
  const varro2::Pair *lend(const char *key) const noexcept {
    has_strays_ = true;
    return find(key);
  }
  // How many keys the positional accessors see, and the pair at a position or null.
  guint32 key_count() const noexcept;
  const varro2::Pair *at(guint32 position) const noexcept;
  guint32 position_of(const char *key) const noexcept;

  const varro2::ArenaVector<varro2::AndList> &and_lists() const noexcept { return and_lists_; }
  const GList *tags() const noexcept { return tags_; }

  guint32 type;
  gboolean internal = FALSE;

 private:
  struct WithoutAndList {};
  Inspectable(guint32 of_type, WithoutAndList, const varro2::Room &room = {}) noexcept
      : type{of_type}, arena_{room} {}

  void look_for_strays(const varro2::Pair &pair) noexcept {
    if (!pair.copies_as_it_is())
      has_strays_ = true;
  }
  std::size_t storage_size() const noexcept;
  void copy_block(const Inspectable &source);
  void copy_pairs(varro2::AndList &to, const varro2::AndList &from);
  varro2::Pair *store(const varro2::PairFields &fields) {
    return new (arena_.allocate<varro2::Pair>()) varro2::Pair{fields, arena_};
  }
  void redeclare(varro2::Bucket &bucket, const varro2::PairFields &fields);
  const varro2::Bucket *bucket_of(const char *key) const noexcept;
  varro2::Pair *read_pair(varro2::Reader &reader, varro2::PairFields &fields);
  varro2::Bucket read_bucket(varro2::Reader &reader, varro2::PairFields &fields);
  void read_and_list(varro2::Reader &reader, guint16 still_to_come);
  void destroy_pairs() noexcept;

  varro2::Arena arena_;
  varro2::ArenaVector<varro2::AndList> and_lists_;
  GList *tags_ = nullptr; // the object's own, in the arena
  GList *last_tag_ = nullptr;
  // A declaration read from its record answers positional questions as if it had no keys until one
  // is added.
  bool positions_hidden_ = false;
  // Whether a pair may have something outside the arena, or a tag twice. Threads that read one
  // container may lend its pairs at the same time.
  mutable std::atomic<bool> has_strays_ = false;
};

namespace varro2 {

// Most texts are empty: those need no search for their end.
template <class Sink>
[[gnu::always_inline]] inline void write_text(const char *text, Sink &sink) {
  if (text != nullptr && *text == '\0')
    sink.u16(0);
  else
    sink.text(text);
}

// Writes through a copy of the sink, which can stay in registers.
template <class Sink>
void write_pair(const KeyValue &pair, Sink &to) {
  Sink sink = to;
  sink.u8(SERIALIZE_ID_KEYVALUE);
  sink.text(g_quark_to_string(pair.key));
  sink.u8(static_cast<guint32>(pair.key_wildcard));
  write_text(pair.name_space, sink);
  write_text(pair.key_nice_name, sink);
  write_text(pair.value, sink);
  sink.u8(static_cast<guint32>(pair.value_wildcard));
  write_text(pair.value_nice_name, sink);
  write_text(pair.value_user_string, sink);
  write_text(pair.complex_type_name, sink);
  sink.u8(static_cast<guint32>(pair.negated));
  sink.u8(pair.value_type);
  sink.u16(pair.tags != nullptr ? g_list_length(pair.tags) : 0);
  for (const GList *tag = pair.tags; tag != nullptr; tag = tag->next)
    sink.text(static_cast<const char *>(tag->data));
  to = sink;
}

template <class Table, class Sink>
void write_buckets(const Table &table, Sink &sink) {
  sink.u16(table.size());
  for (const Bucket &bucket : table) {
    sink.u8(SERIALIZE_ID_BUCKET);
    sink.u16(bucket.size());
    for (const Pair &pair : bucket)
      write_pair(pair, sink);
  }
}

} // namespace varro2

template <class Sink>
void Inspectable::write(Sink &sink) const {
  sink.u8(SERIALIZE_ID_INSPECTABLE);
  sink.u16(and_lists_.size());
  sink.u8(type);
  sink.u8(static_cast<guint32>(internal));
  for (const varro2::AndList &and_list : and_lists_) {
    sink.u8(SERIALIZE_ID_ANDLIST);
    varro2::write_buckets(and_list.keys, sink);
    varro2::write_buckets(and_list.wildcards, sink);
  }
  sink.u16(g_list_length(const_cast<GList *>(tags_)));
  for (const GList *tag = tags_; tag != nullptr; tag = tag->next)
    sink.text(static_cast<const char *>(tag->data));
}
