// Keys and values of events and declarations, taken out of the library's objects.
#pragma once

#include "owned.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::cli {

struct Pair {
  std::string key;
  std::string name_space;
  std::string value;
  bool open = false; // any value, or none yet
  std::uint32_t type = VALUE_TYPE_STRING;
  std::string key_nice_name;
  std::string value_nice_name;
  std::string user_string;
  std::string complex_type;
  std::vector<std::string> tags;
};

inline constexpr std::string_view state_tag = "property-state";

// What an event or a declaration holds.
struct Record {
  std::vector<Pair> pairs;
  std::vector<std::string> tags;
  bool property = false;
  bool internal = false;
  std::uint32_t declaration_id = 0; // the switch's
  std::uint32_t producer_id = 0;
  std::optional<std::int64_t> time; // microseconds since 1970
  std::string user_data;

  const Pair *find(std::string_view key) const;
  const std::string *value_of(std::string_view key) const;
};

Record read_event(const ::Event &event);
Record read_declaration(const EventDeclaration &declaration);
Record read_property_state(const PropertyState &state);

// The level of "topic0", "topic1", ...; nothing for other keys and from level 100.
std::optional<unsigned> topic_level(std::string_view key);
// The levels with their name spaces: "tns1:Device/IO". A name space is written where it changes;
// a level without one after a level with one as ":IO".
std::string topic_of(const Record &record);
// The levels alone: "Device/IO".
std::string plain_topic_of(const Record &record);
bool has_tag(const Pair &pair, std::string_view tag);

const char *type_name(std::uint32_t value_type);
std::uint32_t type_named(std::string_view name); // 0 for none
// Why the text is no value of the type; empty when it is one.
std::string why_no_value(std::string_view text, std::uint32_t value_type);

// A declaration of the keys: those that are open stay open.
OwnedDeclaration make_declaration(const Record &record);
// The event with all its values. Keys that are open stay open.
OwnedEvent make_event(const Record &record);
// The value by its type; false when the event does not know the key or its value is fixed.
bool set_event_value(::Event *event, const std::string &key, const std::string &text,
                     std::uint32_t value_type);

} // namespace varro2::cli
