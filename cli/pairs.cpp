#include "pairs.hpp"

#include "text.hpp"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <limits>

namespace varro2::cli {
namespace {

constexpr unsigned most_levels = 100;

std::string text_or_empty(const char *text) {
  return text != nullptr ? text : "";
}

Pair read_pair(const KeyValue &from) {
  Pair pair;
  pair.key = text_or_empty(g_quark_to_string(from.key));
  pair.name_space = text_or_empty(from.name_space);
  pair.value = text_or_empty(from.value);
  pair.open = from.value_wildcard;
  pair.type = from.value_type;
  pair.key_nice_name = text_or_empty(from.key_nice_name);
  pair.value_nice_name = text_or_empty(from.value_nice_name);
  pair.user_string = text_or_empty(from.value_user_string);
  pair.complex_type = text_or_empty(from.complex_type_name);
  for (const GList *at = from.tags; at != nullptr; at = at->next)
    pair.tags.emplace_back(static_cast<const char *>(at->data));
  return pair;
}

std::vector<Pair> read_pairs(const Inspectable *inspectable) {
  const guint32 count = inspectable_get_key_count(inspectable);
  std::vector<Pair> pairs;
  pairs.reserve(count);
  for (guint32 position = 0; position < count; ++position)
    if (const KeyValue *pair =
            inspectable_get_key_value(inspectable, inspectable_get_key_at(inspectable, position)))
      pairs.push_back(read_pair(*pair));
  return pairs;
}

std::vector<std::string> read_tags(const Inspectable *inspectable) {
  std::vector<std::string> tags;
  GList *list = inspectable_get_tags(inspectable);
  for (const GList *at = list; at != nullptr; at = at->next)
    tags.emplace_back(static_cast<const char *>(at->data));
  g_list_free_full(list, g_free);
  std::reverse(tags.begin(), tags.end());
  return tags;
}

// The levels in order up to the first that is not there.
std::vector<const Pair *> levels_of(const Record &record) {
  std::vector<const Pair *> levels;
  for (const Pair &pair : record.pairs)
    if (const auto level = topic_level(pair.key)) {
      if (*level >= levels.size())
        levels.resize(*level + 1);
      levels[*level] = &pair;
    }
  levels.erase(std::find(levels.begin(), levels.end(), nullptr), levels.end());
  return levels;
}

void decorate(EventDeclaration *declaration, const Pair &pair) {
  const char *key = pair.key.c_str();
  if (!pair.name_space.empty())
    event_declaration_set_name_space(declaration, key, pair.name_space.c_str());
  if (!pair.key_nice_name.empty() || !pair.value_nice_name.empty())
    event_declaration_set_nice_names(declaration, key, pair.key_nice_name.c_str(),
                                     pair.value_nice_name.c_str());
  if (!pair.user_string.empty())
    event_declaration_set_value_user_string(declaration, key, pair.user_string.c_str());
  if (!pair.complex_type.empty())
    event_declaration_set_complex_type_name(declaration, key, pair.complex_type.c_str());
  for (const std::string &tag : pair.tags)
    event_declaration_add_key_tag(declaration, key, tag.c_str());
}

template <typename Number>
Number number_in(std::string_view text) {
  Number number{};
  if (text.starts_with('+'))
    text.remove_prefix(1);
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

bool is_true(std::string_view text) {
  return text == "1" || text == "true";
}

} // namespace

const Pair *Record::find(std::string_view key) const {
  const auto found =
      std::find_if(pairs.begin(), pairs.end(), [&](const Pair &pair) { return pair.key == key; });
  return found == pairs.end() ? nullptr : &*found;
}

const std::string *Record::value_of(std::string_view key) const {
  const Pair *pair = find(key);
  return pair != nullptr && !pair->open ? &pair->value : nullptr;
}

Record read_event(const ::Event &event) {
  Record record;
  const Inspectable *inspectable = event_get_inspectable(&event);
  record.pairs = read_pairs(inspectable);
  record.tags = read_tags(inspectable);
  record.property = event_is_property(&event);
  record.internal = event_is_internal(&event);
  record.declaration_id = event_get_global_id(&event);
  record.producer_id = event_get_producer_id(&event);
  if (GDateTime *time = event_get_timestamp2(&event))
    record.time = g_date_time_to_unix(time) * G_USEC_PER_SEC + g_date_time_get_microsecond(time);
  return record;
}

// Only events answer questions by position, so the declaration's event is asked.
Record read_declaration(const EventDeclaration &declaration) {
  const OwnedEvent event{event_declaration_generate_event(&declaration)};
  Record record = read_event(*event);
  record.property = event_declaration_is_property(&declaration);
  record.internal = event_declaration_is_internal(&declaration);
  record.declaration_id = event_declaration_get_global_id(&declaration);
  record.producer_id = event_declaration_get_producer_id(&declaration);
  return record;
}

Record read_property_state(const PropertyState &state) {
  Record record;
  record.pairs = read_pairs(property_state_get_inspectable(&state));
  record.property = true;
  return record;
}

std::optional<unsigned> topic_level(std::string_view key) {
  if (!key.starts_with("topic"))
    return {};
  const std::string_view digits = key.substr(std::strlen("topic"));
  unsigned level = 0;
  const auto [stop, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), level);
  const bool whole = failure == std::errc{} && stop == digits.data() + digits.size();
  const bool plain = digits == "0" || !digits.starts_with('0');
  return whole && plain && level < most_levels ? std::optional{level} : std::nullopt;
}

std::string topic_of(const Record &record) {
  std::string topic;
  std::string_view last;
  bool first = true;
  for (const Pair *level : levels_of(record)) {
    if (!first)
      topic += '/';
    if (level->name_space != last)
      topic.append(level->name_space).append(":");
    last = level->name_space;
    topic += level->open ? "*" : level->value;
    first = false;
  }
  return topic;
}

std::string plain_topic_of(const Record &record) {
  std::vector<std::string> parts;
  for (const Pair *level : levels_of(record))
    parts.push_back(level->open ? "*" : level->value);
  return joined(parts, "/");
}

bool has_tag(const Pair &pair, std::string_view tag) {
  return std::find(pair.tags.begin(), pair.tags.end(), tag) != pair.tags.end();
}

const char *type_name(std::uint32_t value_type) {
  switch (value_type) {
  case VALUE_TYPE_INT:
    return "int";
  case VALUE_TYPE_BOOL:
    return "bool";
  case VALUE_TYPE_DOUBLE:
    return "double";
  default:
    return "string";
  }
}

std::uint32_t type_named(std::string_view name) {
  for (const std::uint32_t type :
       {VALUE_TYPE_INT, VALUE_TYPE_BOOL, VALUE_TYPE_DOUBLE, VALUE_TYPE_STRING})
    if (name == type_name(type))
      return type;
  return 0;
}

std::string why_no_value(std::string_view text, std::uint32_t value_type) {
  switch (value_type) {
  case VALUE_TYPE_INT: {
    if (!is_integer(text))
      return "a whole number is wanted";
    const auto number = number_in<long long>(text);
    const bool fits = number >= std::numeric_limits<gint32>::min() &&
                      number <= std::numeric_limits<gint32>::max();
    return fits ? "" : "whole numbers go from -2147483648 to 2147483647";
  }
  case VALUE_TYPE_BOOL:
    return is_true(text) || text == "0" || text == "false" ? "" : "0, 1, false or true is wanted";
  case VALUE_TYPE_DOUBLE:
    return is_real(text) ? "" : "a number is wanted";
  default:
    return g_utf8_validate(text.data(), static_cast<gssize>(text.size()), nullptr)
               ? ""
               : "a text in UTF-8 is wanted";
  }
}

OwnedDeclaration make_declaration(const Record &record) {
  OwnedDeclaration declaration{event_declaration_new(record.internal)};
  for (const Pair &pair : record.pairs) {
    event_declaration_add_key(declaration.get(), pair.key.c_str(), pair.type);
    if (!pair.open)
      inspectable_set_value_as_string(event_declaration_get_inspectable(declaration.get()),
                                      pair.key.c_str(), pair.value.c_str());
    decorate(declaration.get(), pair);
  }
  for (const std::string &tag : record.tags)
    event_declaration_add_tag(declaration.get(), tag.c_str());
  if (record.property)
    event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr);
  return declaration;
}

OwnedEvent make_event(const Record &record) {
  const OwnedDeclaration declaration = make_declaration(record);
  OwnedEvent event{event_declaration_generate_event(declaration.get())};
  event_set_property(event.get(), record.property);
  event_set_global_id(event.get(), record.declaration_id);
  event_set_producer_id(event.get(), record.producer_id);
  if (record.time) {
    const OwnedDateTime seconds{g_date_time_new_from_unix_utc(*record.time / G_USEC_PER_SEC)};
    if (seconds) {
      const OwnedDateTime time{g_date_time_add(seconds.get(), *record.time % G_USEC_PER_SEC)};
      if (time)
        event_set_timestamp2(event.get(), time.get());
    }
  }
  if (!record.user_data.empty())
    event_set_user_data_string(event.get(), record.user_data.c_str());
  return event;
}

bool set_event_value(::Event *event, const std::string &key, const std::string &text,
                     std::uint32_t value_type) {
  switch (value_type) {
  case VALUE_TYPE_INT: {
    const auto number = number_in<gint32>(text);
    return event_set_value(event, key.c_str(), &number);
  }
  case VALUE_TYPE_BOOL: {
    const gboolean flag = is_true(text);
    return event_set_value(event, key.c_str(), &flag);
  }
  case VALUE_TYPE_DOUBLE: {
    const auto number = number_in<double>(text);
    return event_set_value(event, key.c_str(), &number);
  }
  default:
    return event_set_value(event, key.c_str(), text.c_str());
  }
}

} // namespace varro2::cli
