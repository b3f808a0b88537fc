#include "pair.hpp"

#include "preconditions.hpp"

#include <cstddef>
#include <string>
#include <unordered_set>

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

// Room that an open value gets in the arena: enough for numbers, timestamps and most names.
constexpr std::size_t open_value_room = 24;

std::size_t value_room(std::size_t length, gboolean open) noexcept {
  if (open)
    return std::max(length + 1, open_value_room);
  return length == 0 ? 0 : length + 1;
}

constexpr guint32 bit_of(unsigned which) noexcept {
  return 1u << which;
}

constexpr guint32 all_texts = bit_of(text_count) - 1;

// So many tags are compared one by one.
constexpr guint32 few_tags = 16;

// Visits each tag unless an equal one came before. A record that brings many must not cost their
// square.
template <typename Visit>
void for_each_tag_once(const GList *list, Visit visit) {
  std::unordered_set<std::string_view> more;
  guint32 count = 0;
  bool null_seen = false;
  for (const GList *at = list; at != nullptr; at = at->next, ++count) {
    const auto *tag = static_cast<const char *>(at->data);
    bool seen = false;
    if (tag == nullptr) {
      seen = std::exchange(null_seen, true);
    } else if (count < few_tags) {
      for (const GList *before = list; before != at && !seen; before = before->next)
        seen = g_strcmp0(static_cast<const char *>(before->data), tag) == 0;
    } else {
      if (more.empty())
        for (const GList *before = list; before != at; before = before->next)
          if (before->data != nullptr)
            more.insert(static_cast<const char *>(before->data));
      seen = !more.insert(tag).second;
    }
    if (!seen)
      visit(tag);
  }
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

bool apply_wildcards(std::string_view &key, bool has_key, gboolean key_wildcard,
                     std::string_view &value, gboolean value_wildcard) {
  if (key_wildcard == TRUE && value_wildcard == TRUE)
    return false;
  const std::string_view empty{no_text};
  if (key_wildcard == TRUE) {
    key = empty;
  } else {
    VARRO2_ASSERT_AS("key_value_new", "key != NULL", has_key);
    if (value_wildcard == TRUE)
      value = empty;
  }
  VARRO2_ASSERT_AS("key_value_new", "value != NULL", value.data() != nullptr);
  VARRO2_ASSERT_AS("key_value_new_internal", "key_wildcard == FALSE || value_wildcard == FALSE",
                   key_wildcard == FALSE || value_wildcard == FALSE);
  return true;
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
    own_texts_ = (own_texts_ | bit_of(which)) & all_texts;
  }
}

Pair::Pair(const PairFields &fields, Arena &arena) : KeyValue{} {
  set_plain(fields);
  const std::string_view text = fields.texts[text_value];
  value_capacity_ = static_cast<guint32>(value_room(text.size(), value_wildcard));
  value = value_capacity_ != 0 ? arena.text(text, value_capacity_) : arena.text(text);
  value_user_string = arena.text(fields.texts[text_value_user_string]);
  key_nice_name = arena.text(fields.texts[text_key_nice_name]);
  value_nice_name = arena.text(fields.texts[text_value_nice_name]);
  name_space = arena.text(fields.texts[text_name_space]);
  complex_type_name = arena.text(fields.texts[text_complex_type_name]);
}

void Pair::free_own() noexcept {
  for (unsigned which = 0; which < text_count; ++which)
    if ((own_texts_ & bit_of(which)) != 0)
      g_free(this->*text_members[which]);
  GList *tag = tags;
  for (guint32 stored = 0; stored < stored_tags_; ++stored)
    tag = tag->next;
  while (tag != nullptr) {
    GList *following = tag->next;
    g_free(tag->data);
    g_list_free_1(tag);
    tag = following;
  }
}

void Pair::set_text(Text which, std::string_view text, Arena &arena) {
  char *&member = this->*text_members[which];
  const bool absent = arena.is_absent(member);
  if (text.empty()) {
    if (!absent)
      *member = '\0';
    return;
  }
  if (which == text_value && text.size() < value_capacity_) {
    std::memmove(member, text.data(), text.size());
    member[text.size()] = '\0';
    return;
  }
  const OwnedText former{(own_texts_ & bit_of(which)) != 0 ? member : nullptr};
  member = absent ? arena.text(text) : new_text(text);
  if (!absent)
    own_texts_ = (own_texts_ | bit_of(which)) & all_texts;
  if (which == text_value)
    value_capacity_ = static_cast<guint32>(text.size() + 1);
}

void Pair::restart(const PairFields &fields, Arena &arena) {
  set_plain(fields);
  for (unsigned which = 0; which < text_count; ++which)
    set_text(static_cast<Text>(which), fields.texts[which], arena);
  for (guint32 stored = 0; stored < stored_tags_; ++stored)
    tags = tags->next;
  if (tags != nullptr) {
    tags->prev = nullptr;
    free_string_list(tags);
  }
  tags = nullptr;
  stored_tags_ = 0;
}

GList *Pair::store_tag(GList *last, const char *tag, std::size_t length, Arena &arena) {
  auto *node = arena.allocate<GList>();
  char *text = tag != nullptr ? arena.text({tag, length}, length + 1) : nullptr;
  *node = {text, nullptr, last};
  (last != nullptr ? last->next : tags) = node;
  ++stored_tags_;
  return node;
}

void Pair::store_tags_once(const GList *list, Arena &arena) {
  GList *last = nullptr;
  for_each_tag_once(
      list, [&](const char *tag) { last = store_tag(last, tag, view_of(tag).size(), arena); });
  stored_once_ = 1;
}

bool Pair::has_stored_tags_once() const noexcept {
  guint32 count = 0;
  for (const GList *tag = tags; tag != nullptr; tag = tag->next, ++count) {
    if (count == stored_tags_)
      return false;
    if (!stored_once_ &&
        (count == few_tags || has_tag(tag->next, static_cast<const char *>(tag->data))))
      return false;
  }
  return true;
}

std::size_t Pair::tags_size(const GList *tags) noexcept {
  std::size_t size = 0;
  for (const GList *tag = tags; tag != nullptr; tag = tag->next)
    size += sizeof(GList) + view_of(static_cast<const char *>(tag->data)).size() + 1;
  return size;
}

std::size_t Pair::storage_size(const KeyValue &pair) noexcept {
  std::size_t size =
      sizeof(Pair) + value_room(std::strlen(text_or_empty(pair.value)), pair.value_wildcard);
  for (unsigned which = text_value + 1; which < text_count; ++which) {
    const char *text = pair.*text_members[which];
    if (!is_empty(text))
      size += std::strlen(text) + 1;
  }
  return size + tags_size(pair.tags);
}

void Pair::take_over(const Pair &source, Arena &arena) {
  own_texts_ = 0;
  for (unsigned which = 0; which < text_count; ++which)
    if ((source.own_texts_ & bit_of(which)) != 0) {
      const std::string_view text = source.*text_members[which];
      this->*text_members[which] = arena.text(text);
      if (which == text_value)
        value_capacity_ = static_cast<guint32>(text.empty() ? 0 : text.size() + 1);
    }
  tags = nullptr;
  stored_tags_ = 0;
  store_tags_once(source.tags, arena);
}

std::size_t Pair::taken_over_size(const Pair &source) noexcept {
  std::size_t size = tags_size(source.tags);
  for (unsigned which = 0; which < text_count; ++which)
    if ((source.own_texts_ & bit_of(which)) != 0)
      size += std::strlen(source.*text_members[which]) + 1;
  return size;
}

void displace_tags(GList *&tags, const Displacement &displacement) noexcept {
  displacement.object(tags);
  for (GList *tag = tags; tag != nullptr; tag = tag->next) {
    if (tag->data != nullptr) {
      auto *text = static_cast<char *>(tag->data);
      displacement.text(text);
      tag->data = text;
    }
    displacement.object(tag->next);
    displacement.object(tag->prev);
  }
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

void copy_tags_once(KeyValue &pair, const GList *list) {
  GQueue tags = G_QUEUE_INIT;
  for_each_tag_once(list, [&](const char *tag) { g_queue_push_tail(&tags, g_strdup(tag)); });
  pair.tags = tags.head;
}

} // namespace varro2
