#include "recordjson.hpp"

#include "failure.hpp"
#include "text.hpp"

#include <charconv>
#include <cmath>
#include <functional>

namespace varro2::cli {
namespace {

// Rounded to the digits that are written, a larger one is no number any more. Its text is given.
constexpr double largest_written = 1.79769313486231e308;

json_t *json_value(const Pair &pair) {
  const std::string &text = pair.value;
  switch (pair.type) {
  case VALUE_TYPE_INT:
    if (is_integer(text))
      return json_integer(std::strtoll(text.c_str(), nullptr, 10));
    break;
  case VALUE_TYPE_BOOL:
    if (text == "0" || text == "1")
      return json_boolean(text == "1");
    break;
  case VALUE_TYPE_DOUBLE:
    if (const double number = g_ascii_strtod(text.c_str(), nullptr);
        is_real(text) && std::abs(number) <= largest_written)
      return json_real(number);
    break;
  default:
    break;
  }
  return json_text(text);
}

std::uint32_t type_in_json(const json_t *value) {
  switch (json_typeof(value)) {
  case JSON_INTEGER:
    return VALUE_TYPE_INT;
  case JSON_REAL:
    return VALUE_TYPE_DOUBLE;
  case JSON_TRUE:
  case JSON_FALSE:
    return VALUE_TYPE_BOOL;
  case JSON_STRING:
    return VALUE_TYPE_STRING;
  default:
    return 0;
  }
}

std::string text_in_json(const json_t *value) {
  switch (json_typeof(value)) {
  case JSON_INTEGER:
    return std::to_string(json_integer_value(value));
  case JSON_REAL: {
    const double number = json_real_value(value);
    const OwnedText text{event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE)};
    return text.get();
  }
  case JSON_TRUE:
    return "1";
  case JSON_FALSE:
    return "0";
  default:
    return std::string{json_string_value(value), json_string_length(value)};
  }
}

// A member that has an entry for each pair that has something to say.
void put_map(const OwnedJson &object, const char *name, const Record &record,
             const std::function<json_t *(const Pair &)> &entry) {
  OwnedJson map;
  for (const Pair &pair : record.pairs)
    if (json_t *value = entry(pair)) {
      if (!map)
        map.reset(json_object());
      put(map, pair.key.c_str(), value);
    }
  if (map)
    put(object, name, map.release());
}

void put_texts(const OwnedJson &object, const char *name, const Record &record,
               std::string Pair::*text) {
  put_map(object, name, record, [text](const Pair &pair) {
    return (pair.*text).empty() ? nullptr : json_text(pair.*text);
  });
}

const json_t *map_in(const json_t *json, const char *name) {
  const json_t *map = json_object_get(json, name);
  if (map != nullptr && !json_is_object(map))
    throw Failure{"\"" + std::string{name} + "\" must be an object"};
  return map;
}

void read_texts(const json_t *json, const char *name, Record &record, std::string Pair::*text) {
  const json_t *map = map_in(json, name);
  if (map == nullptr)
    return;
  for (Pair &pair : record.pairs)
    if (const json_t *value = json_object_get(map, pair.key.c_str())) {
      if (!json_is_string(value))
        throw Failure{"\"" + pair.key + "\" in \"" + name + "\" must be a string"};
      pair.*text = text_in_json(value);
    }
}

std::vector<std::string> texts_in(const json_t *array, const std::string &name) {
  std::vector<std::string> texts;
  if (array == nullptr)
    return texts;
  std::size_t index = 0;
  json_t *element = nullptr;
  if (!json_is_array(array))
    throw Failure{"\"" + name + "\" must be an array of strings"};
  json_array_foreach(array, index, element) {
    if (!json_is_string(element))
      throw Failure{"\"" + name + "\" must be an array of strings"};
    texts.push_back(text_in_json(element));
  }
  return texts;
}

std::uint32_t type_in(const json_t *map, const std::string &key) {
  const json_t *name = json_object_get(map, key.c_str());
  const std::uint32_t type = json_is_string(name) ? type_named(json_string_value(name)) : 0;
  if (type == 0)
    throw Failure{"the type of \"" + key +
                  "\" must be \"int\", \"bool\", \"double\" or \"string\""};
  return type;
}

Pair pair_in(const char *key, const json_t *value, const json_t *types) {
  Pair pair;
  pair.key = key;
  if (pair.key.empty())
    throw Failure{"a key cannot be empty"};
  pair.type = type_in_json(value);
  if (pair.type == 0)
    throw Failure{"the value of \"" + pair.key +
                  "\" must be a string, a number, true or false, not " +
                  (json_is_null(value)    ? "null"
                   : json_is_array(value) ? "an array"
                                          : "an object")};
  pair.value = text_in_json(value);
  if (pair.value.find('\0') != std::string::npos)
    throw Failure{"the value of \"" + pair.key + "\" holds a zero byte"};
  if (json_object_get(types, key) != nullptr)
    pair.type = type_in(types, pair.key);
  return pair;
}

void read_open(const json_t *json, Record &record) {
  const json_t *open = map_in(json, "open");
  const char *key = nullptr;
  json_t *value = nullptr;
  json_object_foreach(const_cast<json_t *>(open), key, value) {
    if (record.find(key) != nullptr)
      throw Failure{"\"" + std::string{key} + "\" cannot both have a value and be open"};
    Pair pair;
    pair.key = key;
    pair.open = true;
    pair.type = type_in(open, key);
    record.pairs.push_back(std::move(pair));
  }
}

std::optional<std::int64_t> time_in(const json_t *json) {
  const json_t *time = json_object_get(json, "time");
  if (time == nullptr)
    return {};
  const OwnedDateTime read{json_is_string(time)
                               ? g_date_time_new_from_iso8601(json_string_value(time), nullptr)
                               : nullptr};
  if (!read)
    throw Failure{"\"time\" must be a time as in \"2026-01-31T12:30:01.25Z\""};
  return g_date_time_to_unix(read.get()) * G_USEC_PER_SEC + g_date_time_get_microsecond(read.get());
}

std::uint32_t number_in(const json_t *json, const char *name) {
  const json_t *number = json_object_get(json, name);
  return json_is_integer(number) ? static_cast<std::uint32_t>(json_integer_value(number)) : 0;
}

} // namespace

std::string iso_time(std::int64_t microseconds) {
  // Downwards: the fraction counts from the second before, also before 1970.
  const bool before = microseconds % G_USEC_PER_SEC < 0;
  const std::int64_t seconds = microseconds / G_USEC_PER_SEC - (before ? 1 : 0);
  const OwnedDateTime time{g_date_time_new_from_unix_utc(seconds)};
  if (!time)
    return "";
  char text[48];
  g_snprintf(text, sizeof text, "%04d-%02d-%02dT%02d:%02d:%02d.%06dZ",
             g_date_time_get_year(time.get()), g_date_time_get_month(time.get()),
             g_date_time_get_day_of_month(time.get()), g_date_time_get_hour(time.get()),
             g_date_time_get_minute(time.get()), g_date_time_get_second(time.get()),
             static_cast<int>(microseconds - seconds * G_USEC_PER_SEC));
  return text;
}

json_t *json_text(std::string_view text) {
  if (json_t *value = json_stringn(text.data(), text.size()))
    return value;
  const std::string valid = valid_utf8(text);
  return json_stringn(valid.data(), valid.size());
}

json_t *json_texts(const std::vector<std::string> &texts) {
  json_t *array = json_array();
  for (const std::string &text : texts)
    json_array_append_new(array, json_text(text));
  return array;
}

void put(const OwnedJson &object, const char *name, json_t *value) {
  if (g_utf8_validate(name, -1, nullptr))
    json_object_set_new_nocheck(object.get(), name, value);
  else
    json_object_set_new(object.get(), valid_utf8(name).c_str(), value);
}

std::string dump(const json_t *json) {
  const OwnedCText text{json_dumps(json, JSON_COMPACT | JSON_REAL_PRECISION(15))};
  return text ? text.get() : "{}";
}

OwnedJson to_json(const Record &record) {
  OwnedJson object{json_object()};
  if (record.time)
    put(object, "time", json_text(iso_time(*record.time)));
  put(object, "topic", json_text(topic_of(record)));
  OwnedJson values{json_object()};
  for (const Pair &pair : record.pairs)
    if (!pair.open)
      put(values, pair.key.c_str(), json_value(pair));
  put(object, "values", values.release());
  put_map(object, "open", record,
          [](const Pair &pair) { return pair.open ? json_string(type_name(pair.type)) : nullptr; });
  put_map(object, "types", record, [](const Pair &pair) {
    const OwnedJson value{pair.open ? nullptr : json_value(pair)};
    const bool plain = pair.open || type_in_json(value.get()) == pair.type;
    return plain ? nullptr : json_string(type_name(pair.type));
  });
  put_texts(object, "namespaces", record, &Pair::name_space);
  put_map(object, "tags", record,
          [](const Pair &pair) { return pair.tags.empty() ? nullptr : json_texts(pair.tags); });
  put_texts(object, "names", record, &Pair::key_nice_name);
  put_texts(object, "value_names", record, &Pair::value_nice_name);
  put_texts(object, "user_strings", record, &Pair::user_string);
  put_texts(object, "complex_types", record, &Pair::complex_type);
  if (!record.tags.empty())
    put(object, "event_tags", json_texts(record.tags));
  if (record.property)
    put(object, "property", json_true());
  if (record.internal)
    put(object, "internal", json_true());
  if (record.declaration_id != 0)
    put(object, "declaration", json_integer(record.declaration_id));
  if (record.producer_id != 0)
    put(object, "producer", json_integer(record.producer_id));
  return object;
}

Record from_json(const json_t *json) {
  if (!json_is_object(json))
    throw Failure{"an event is a JSON object"};
  Record record;
  const json_t *values = json_object_get(json, "values");
  const bool flat = !json_is_object(values);
  if (flat && values != nullptr)
    throw Failure{"\"values\" must be an object"};
  if (flat)
    values = json;
  const json_t *types = flat ? nullptr : map_in(json, "types");
  const char *key = nullptr;
  json_t *value = nullptr;
  json_object_foreach(const_cast<json_t *>(values), key, value)
      record.pairs.push_back(pair_in(key, value, types));
  if (flat)
    return record;
  read_open(json, record);
  read_texts(json, "namespaces", record, &Pair::name_space);
  read_texts(json, "names", record, &Pair::key_nice_name);
  read_texts(json, "value_names", record, &Pair::value_nice_name);
  read_texts(json, "user_strings", record, &Pair::user_string);
  read_texts(json, "complex_types", record, &Pair::complex_type);
  if (const json_t *tags = map_in(json, "tags"))
    for (Pair &pair : record.pairs)
      pair.tags = texts_in(json_object_get(tags, pair.key.c_str()), "tags");
  record.tags = texts_in(json_object_get(json, "event_tags"), "event_tags");
  record.property = json_is_true(json_object_get(json, "property"));
  record.internal = json_is_true(json_object_get(json, "internal"));
  record.declaration_id = number_in(json, "declaration");
  record.producer_id = number_in(json, "producer");
  record.time = time_in(json);
  return record;
}

} // namespace varro2::cli
