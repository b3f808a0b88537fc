// A pair as it is stored: the public record, then what its memory needs.
//
// A container puts its pairs and their texts into its arena; a text that outgrows its place there,
// and everything of a pair on its own, comes from GLib's allocator and belongs to the pair.
#pragma once

#include "arena.hpp"
#include "owning.hpp"
#include "quarks.hpp"

#include <varro2/eventutils.h>
#include <varro2/keyvalue.h>

#include <array>
#include <string_view>

namespace varro2 {

// Position of each text in PairFields and in the mask of own texts.
enum Text : unsigned {
  text_value,
  text_value_user_string,
  text_key_nice_name,
  text_value_nice_name,
  text_name_space,
  text_complex_type_name,
  text_count
};

inline constexpr std::array<char * KeyValue::*, text_count> text_members{
    &KeyValue::value,           &KeyValue::value_user_string, &KeyValue::key_nice_name,
    &KeyValue::value_nice_name, &KeyValue::name_space,        &KeyValue::complex_type_name};

// What a new pair is made of, all borrowed. A text without data is NULL on a pair of its own, and
// empty inside a container.
struct PairFields {
  GQuark key = 0;
  std::array<std::string_view, text_count> texts;
  guint32 value_type = VALUE_TYPE_STRING;
  gboolean value_settable = FALSE;
  gboolean key_wildcard = FALSE;
  gboolean value_wildcard = FALSE;
  gboolean negated = FALSE;

  static PairFields of(const KeyValue &pair) noexcept;
};

inline std::string_view view_of(const char *text) noexcept {
  return text != nullptr ? std::string_view{text} : std::string_view{};
}

// A text of a pair may be NULL, and then counts as empty.
inline const char *text_or_empty(const char *text) noexcept {
  return text ? text : no_text;
}

inline bool is_empty(const char *text) noexcept {
  return text == nullptr || *text == '\0';
}

// What a wildcard stands for has no text. False when both are set.
bool apply_wildcards(std::string_view &key, bool has_key, gboolean key_wildcard,
                     std::string_view &value, gboolean value_wildcard);

// Sets key, value and flags as key_value_new() understands its arguments, which answers for them;
// the other texts are the caller's. False when both wildcards are set.
inline bool set_fields(PairFields &fields, std::string_view key, bool has_key,
                       gboolean key_wildcard, std::string_view value, gboolean value_wildcard,
                       gboolean negated) {
  const bool plain = has_key && value.data() != nullptr && (key_wildcard | value_wildcard) == FALSE;
  if (!plain && !apply_wildcards(key, has_key, key_wildcard, value, value_wildcard))
    return false;
  fields.key = intern(key);
  fields.texts[text_value] = value;
  fields.value_settable = value_wildcard;
  fields.key_wildcard = key_wildcard;
  fields.value_wildcard = value_wildcard;
  fields.negated = negated;
  return true;
}

void displace_tags(GList *&tags, const Displacement &displacement) noexcept;

struct Pair final : KeyValue {
  // On its own: every text and tag from GLib's allocator.
  explicit Pair(const PairFields &fields);
  // Inside a container: texts in the arena. An open value gets room for a usual value to come.
  Pair(const PairFields &fields, Arena &arena);
  Pair(const Pair &) = delete;
  Pair &operator=(const Pair &) = delete;
  ~Pair() {
    if (own_texts_ != 0 || tags != nullptr)
      free_own();
  }

  // Sets a text of a pair inside a container. The first one goes into the arena, a value stays in
  // its place while it fits, and what is set again and again comes from GLib's allocator, so that
  // the arena does not grow. The new text may lie in the old one.
  void set_text(Text which, std::string_view text, Arena &arena);
  void set_value(std::string_view text, Arena &arena) {
    set_text(text_value, text, arena);
    value_wildcard = FALSE;
  }
  // A declaration's key that is declared again starts over in its place.
  void restart(const PairFields &fields, Arena &arena);

  // Both add to a pair inside a container that has got its tags in no other way so far. The first
  // goes on behind `last`, null at first, and returns the new last one; the second takes each tag
  // of the list once.
  GList *store_tag(GList *last, const char *tag, std::size_t length, Arena &arena);
  void store_tags_once(const GList *list, Arena &arena);

  // Bytes that a container needs to store a pair like this one.
  static std::size_t storage_size(const KeyValue &pair) noexcept;
  // Whether a copy has the same bytes: nothing is outside the arena, and no tag is there twice.
  bool copies_as_it_is() const noexcept {
    return own_texts_ == 0 && (tags == nullptr || has_stored_tags_once());
  }
  // After the arena's block was copied with the pair in it. Tags outside the arena stay the
  // source's.
  void displace(const Displacement &displacement) noexcept {
    displacement.text(value);
    displacement.text(value_user_string);
    displacement.text(key_nice_name);
    displacement.text(value_nice_name);
    displacement.text(name_space);
    displacement.text(complex_type_name);
    displacement.present_object(next);
    if (tags != nullptr && has_stored_tags_once())
      displace_tags(tags, displacement);
  }
  // Then, for one that does not copy as it is: takes what the source has outside its arena.
  void take_over(const Pair &source, Arena &arena);
  static std::size_t taken_over_size(const Pair &source) noexcept;

  Pair *next = nullptr; // in the ring of the same bucket

 private:
  void set_plain(const PairFields &fields) noexcept;
  bool has_stored_tags_once() const noexcept;
  static std::size_t tags_size(const GList *tags) noexcept;
  void free_own() noexcept;

  guint32 value_capacity_ = 0;         // bytes at value that may be written, the NUL included
  guint32 stored_tags_ : 25 = 0;       // so many tags, the first ones, live in the arena
  guint32 stored_once_ : 1 = 0;        // among them none is there twice for certain
  guint32 own_texts_ : text_count = 0; // a bit for each text that came from GLib's allocator
};

bool has_tag(const GList *tags, const char *tag) noexcept;

// A new list of copies, the last tag first.
GList *copy_tags_reversed(const GList *tags);

void add_tag_once(KeyValue &pair, const char *tag);

// Appends a copy of each tag in the list once, to a pair without tags.
void copy_tags_once(KeyValue &pair, const GList *list);

} // namespace varro2
