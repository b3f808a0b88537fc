#include "pair.hpp"

#include "preconditions.hpp"
#include "quarks.hpp"

#include <varro2/eventutils.h>

#include <cstddef>
#include <string>

static_assert(offsetof(KeyValue, key) == 0);
static_assert(offsetof(KeyValue, value) == sizeof(void *));
static_assert(offsetof(KeyValue, tags) == 2 * sizeof(void *));
static_assert(offsetof(KeyValue, value_type) == 3 * sizeof(void *));
static_assert(offsetof(KeyValue, value_settable) == 3 * sizeof(void *) + 4);
static_assert(offsetof(KeyValue, value_user_string) == 3 * sizeof(void *) + 8);
static_assert(offsetof(KeyValue, complex_type_name) == 7 * sizeof(void *) + 8);
static_assert(offsetof(KeyValue, key_wildcard) == 8 * sizeof(void *) + 8);
static_assert(offsetof(KeyValue, value_wildcard) == 8 * sizeof(void *) + 12);
static_assert(offsetof(KeyValue, negated) == 8 * sizeof(void *) + 16);
static_assert(offsetof(KeyValue, evaluated) == 8 * sizeof(void *) + 20);
static_assert(offsetof(KeyValue, paired) == 8 * sizeof(void *) + 24);

namespace varro2 {
namespace {

// Room that an open value gets in the arena: enough for any integer and most words.
constexpr std::size_t open_value_room = 16;

std::size_t value_room(std::size_t length, gboolean settable) noexcept {
  if (settable)
    return Arena::padded(std::max(length + 1, open_value_room));
  return length == 0 ? 0 : Arena::padded(length + 1);
}

char *new_text(std::string_view text) {
  return g_strndup(text.data() != nullptr ? text.data() : no_text, text.size());
}

} // namespace

PairFields PairFields::of(const KeyValue &pair) noexcept {
  PairFields fields;
  fields.key = pair.key;
  for (unsigned which = 0; which < text_count; ++which)
    fields.texts[which] = view_of(pair.*text_members[which]);
  fields.value_type = pair.value_type;
  fields.value_settable = pair.value_settable;
  fields.key_wildcard = pair.key_wildcard;
  fields.value_wildcard = pair.value_wildcard;
  fields.negated = pair.negated;
  return fields;
}

std::optional<PairFields> make_fields(std::string_view key, bool has_key, gboolean key_wildcard,
                                      std::string_view value, gboolean value_wildcard,
                                      gboolean negated) {
  if (key_wildcard == TRUE && value_wildcard == TRUE)
    return std::nullopt;
  const std::string_view empty{no_text, 0};
  if (key_wildcard == TRUE) {
    VARRO2_ASSERT_AS("key_value_new", "value != NULL", value.data() != nullptr);
    key = empty;
  } else {
    VARRO2_ASSERT_AS("key_value_new", "key != NULL", has_key);
    if (value_wildcard == TRUE)
      value = empty;
    VARRO2_ASSERT_AS("key_value_new", "value != NULL", value.data() != nullptr);
  }
  VARRO2_ASSERT_AS("key_value_new_internal", "key_wildcard == FALSE || value_wildcard == FALSE",
                   key_wildcard == FALSE || value_wildcard == FALSE);
  PairFields fields;
  fields.key = intern(key);
  fields.texts.fill(empty);
  fields.texts[text_value] = value;
  fields.value_type = VALUE_TYPE_STRING;
  fields.value_settable = value_wildcard;
  fields.key_wildcard = key_wildcard;
  fields.value_wildcard = value_wildcard;
  fields.negated = negated;
  return fields;
}

void Pair::set_plain(const PairFields &fields) noexcept {
  key = fields.key;
  value_type = fields.value_type;
  value_settable = fields.value_settable;
  key_wildcard = fields.key_wildcard;
  value_wildcard = fields.value_wildcard;
  negated = fields.negated;
}

Pair::Pair(const PairFields &fields) : KeyValue{} {
  set_plain(fields);
  for (unsigned which = 0; which < text_count; ++which) {
    if (fields.texts[which].data() == nullptr)
      continue;
    this->*text_members[which] = new_text(fields.texts[which]);
    own_texts_ |= static_cast<guint16>(1u << which);
  }
}

Pair::Pair(const PairFields &fields, Arena &arena) : KeyValue{} {
  set_plain(fields);
  const std::string_view text = fields.texts[text_value];
  value_capacity_ = static_cast<guint32>(value_room(text.size(), value_settable));
  value = value_capacity_ != 0 ? arena.text(text, value_capacity_) : const_cast<char *>(no_text);
  for (unsigned which = text_value + 1; which < text_count; ++which)
    this->*text_members[which] = arena.text(fields.texts[which]);
}

Pair::~Pair() {
  if (own_texts_ != 0) {
    for (unsigned which = 0; which < text_count; ++which)
      if (own_texts_ & (1u << which))
        g_free(this->*text_members[which]);
  }
  GList *tag = tags;
  for (guint16 stored = 0; stored < stored_tags_; ++stored)
    tag = tag->next;
  while (tag != nullptr) {
    GList *following = tag->next;
    g_free(tag->data);
    g_list_free_1(tag);
    tag = following;
  }
}

OwnedText Pair::set_text(Text which, std::string_view text) {
  char *&member = this->*text_members[which];
  if (which == text_value && text.size() < value_capacity_) {
    std::memmove(member, text.data(), text.size());
    member[text.size()] = '\0';
    return nullptr;
  }
  const auto bit = static_cast<guint16>(1u << which);
  OwnedText former{(own_texts_ & bit) != 0 ? member : nullptr};
  if (text.empty()) {
    member = const_cast<char *>(no_text);
    own_texts_ &= static_cast<guint16>(~bit);
  } else {
    member = new_text(text);
    own_texts_ |= bit;
  }
  if (which == text_value)
    value_capacity_ = text.empty() ? 0 : static_cast<guint32>(text.size() + 1);
  return former;
}

void Pair::restart(const PairFields &fields) {
  set_plain(fields);
  for (unsigned which = 0; which < text_count; ++which)
    set_text(static_cast<Text>(which), fields.texts[which]);
  for (guint16 stored = 0; stored < stored_tags_; ++stored)
    tags = tags->next;
  if (tags != nullptr) {
    tags->prev = nullptr;
    free_string_list(tags);
  }
  tags = nullptr;
  stored_tags_ = 0;
}

void Pair::append_tag(std::string_view tag, Arena &arena) {
  // Tags in the arena come first in the list; behind one of GLib's allocator only such can follow.
  if (g_list_length(tags) != stored_tags_ || stored_tags_ == G_MAXUINT16) {
    tags = g_list_append(tags, new_text(tag));
    return;
  }
  GList *last = g_list_last(tags);
  auto *node = arena.allocate<GList>();
  *node = {arena.text(tag, tag.size() + 1), nullptr, last};
  (last != nullptr ? last->next : tags) = node;
  ++stored_tags_;
}

std::size_t Pair::storage_size(const KeyValue &pair) noexcept {
  std::size_t size = Arena::padded(sizeof(Pair)) +
                     value_room(std::strlen(text_or_empty(pair.value)), pair.value_settable);
  for (unsigned which = text_value + 1; which < text_count; ++which) {
    const char *text = pair.*text_members[which];
    if (!is_empty(text))
      size += Arena::padded(std::strlen(text) + 1);
  }
  for (const GList *tag = pair.tags; tag != nullptr; tag = tag->next)
    size += Arena::padded(sizeof(GList)) +
            Arena::padded(view_of(static_cast<const char *>(tag->data)).size() + 1);
  return size;
}

bool has_tag(const GList *tags, const char *tag) noexcept {
  for (; tags != nullptr; tags = tags->next)
    if (g_strcmp0(static_cast<const char *>(tags->data), tag) == 0)
      return true;
  return false;
}

GList *copy_tags_reversed(const GList *tags) {
  GList *copies = nullptr;
  for (; tags != nullptr; tags = tags->next)
    copies = g_list_prepend(copies, g_strdup(static_cast<const char *>(tags->data)));
  return copies;
}

void add_tag_once(KeyValue &pair, const char *tag) {
  if (!has_tag(pair.tags, tag))
    pair.tags = g_list_append(pair.tags, g_strdup(tag));
}

} // namespace varro2
