// Events of any shape as JSON, with all options: Jansson reads it, and it is, byte for byte, what a
// plain telling of the format gives.
#include "target.hpp"

#include <jansson.h>

#include <cmath>
#include <limits>
#include <optional>

namespace varro2::fuzz {
namespace {

using JsonOwner = Owned<json_t, json_decref>;

constexpr const char *words[] = {"",         "1",     "0",          "-7",          "12.9",
                                 "Device",   "x/y:z", "1e300",      "nan",         "\"\\\x01",
                                 "\xC3\xA4", "\xFF",  "<a b='c'/>", "99999999999", "\xED\xA0\x80"};
constexpr const char *spaces[] = {"tns1", "", "tnsquor", "ns", "tns1", "\xFF"};
constexpr const char *all_tags[] = {"onvif-source", "onvif-key", "onvif-data", "other"};

struct Fact {
  std::string key;
  std::string name_space;
  std::string value;
  guint32 type;
  std::vector<std::string> tags;

  bool has(const char *tag) const {
    for (const std::string &each : tags)
      if (each == tag)
        return true;
    return false;
  }
};

struct Options {
  bool pretty = false;
  bool only_strings = true;
  std::optional<std::string> serial;
  std::string onvif = "tns1";
  std::string maker = "tnsquor";
  guint32 format = 0;
};

struct Occurrence {
  std::vector<Fact> facts;
  bool has_time = false;
  gint64 seconds = 0;
  gint64 microseconds = 0;

  const Fact *find(const std::string &key) const {
    for (const Fact &fact : facts)
      if (fact.key == key)
        return &fact;
    return nullptr;
  }
};

// ---- The format

json_t *text(const std::string &value) {
  return json_string(value.c_str());
}

std::string topic_of(const Occurrence &occurrence, const Options &options) {
  enum Prefix { none, onvif, maker, own } last = none;
  std::string topic;
  for (int level = 0; level < 100; ++level) {
    const Fact *fact = occurrence.find("topic" + std::to_string(level));
    if (fact == nullptr)
      break;
    if (level > 0)
      topic += '/';
    if (fact->name_space.empty())
      continue;
    const Prefix prefix = fact->name_space == "tns1"      ? onvif
                          : fact->name_space == "tnsquor" ? maker
                                                          : own;
    if (prefix == own || prefix != last)
      topic += (prefix == onvif   ? options.onvif
                : prefix == maker ? options.maker
                                  : fact->name_space) +
               ":";
    last = prefix;
    topic += fact->value;
  }
  return topic;
}

// Nothing where the value is none of its type. `certain` becomes false where a number is beyond
// what its type holds.
json_t *typed(const Fact &fact, bool &certain) {
  const double number = g_ascii_strtod(fact.value.c_str(), nullptr);
  switch (fact.type) {
  case VALUE_TYPE_INT:
    if (!(std::trunc(number) >= std::numeric_limits<gint32>::min() &&
          std::trunc(number) <= std::numeric_limits<gint32>::max()))
      certain = false;
    return json_integer(certain ? static_cast<gint32>(number) : 0);
  case VALUE_TYPE_BOOL:
    return fact.value == "0" || fact.value == "1" ? json_boolean(fact.value == "1") : nullptr;
  case VALUE_TYPE_DOUBLE:
    return json_real(number);
  default:
    return text(fact.value);
  }
}

json_t *tamlo(const Occurrence &occurrence, const Options &options, bool &certain) {
  json_t *root = json_object();
  json_object_set_new(root, "topic", text(topic_of(occurrence, options)));
  json_object_set_new(root, "timestamp",
                      json_integer(occurrence.has_time
                                       ? occurrence.seconds * 1000 + occurrence.microseconds / 1000
                                       : 0));
  if (options.serial)
    json_object_set_new(root, "serial", text(*options.serial));
  json_t *message = json_object();
  const std::pair<const char *, const char *> members[] = {
      {"source", "onvif-source"}, {"key", "onvif-key"}, {"data", "onvif-data"}};
  for (const auto &[member, tag] : members) {
    json_t *object = json_object();
    for (const Fact &fact : occurrence.facts)
      if (fact.has(tag))
        json_object_set_new(object, fact.key.c_str(),
                            options.only_strings ? text(fact.value) : typed(fact, certain));
    json_object_set_new(message, member, object);
  }
  json_object_set_new(root, "message", message);
  return root;
}

json_t *onvif(const Occurrence &occurrence, GDateTime *time) {
  json_t *root = json_object();
  if (time != nullptr)
    json_object_set_new(root, "UtcTime", text(OwnedText{g_date_time_format_iso8601(time)}.get()));
  const std::pair<const char *, const char *> members[] = {{"Source", "onvif-source"},
                                                           {"Data", "onvif-data"}};
  for (const auto &[member, tag] : members) {
    json_t *object = json_object();
    for (const Fact &fact : occurrence.facts)
      if (fact.has(tag))
        json_object_set_new(object, fact.key.c_str(), text(fact.value));
    json_object_set_new(root, member, object);
  }
  return root;
}

// ---- What is rendered

Occurrence any_occurrence(Choices &choices) {
  Occurrence occurrence;
  const unsigned levels = choices.below(16);
  for (unsigned level = 0; level < (levels == 15 ? 103 : levels % 5); ++level)
    occurrence.facts.push_back({"topic" + std::to_string(level),
                                choices.one_of(spaces),
                                choices.text(words),
                                VALUE_TYPE_STRING,
                                {}});
  for (unsigned count = choices.below(8); count > 0; --count) {
    Fact fact{
        choices.text(words), choices.one_of(spaces), choices.text(words), 1 + choices.below(4), {}};
    for (unsigned tags = choices.below(4); tags > 0; --tags)
      fact.tags.push_back(choices.one_of(all_tags));
    if (occurrence.find(fact.key) == nullptr)
      occurrence.facts.push_back(fact);
  }
  occurrence.has_time = choices.flag();
  occurrence.seconds = static_cast<gint32>(choices.number());
  occurrence.microseconds = choices.number() % G_USEC_PER_SEC;
  return occurrence;
}

Options any_options(Choices &choices) {
  Options options;
  options.pretty = choices.flag();
  options.only_strings = choices.flag();
  if (choices.flag())
    options.serial = choices.text(words);
  if (choices.flag())
    options.onvif = choices.text(words);
  if (choices.flag())
    options.maker = choices.text(words);
  options.format = choices.below(3);
  return options;
}

Owned<JsonOptions, json_options_free> made(const Options &from) {
  Owned<JsonOptions, json_options_free> options{json_options_new()};
  json_options_set_pretty_printing(options.get(), from.pretty);
  json_options_use_only_strings_in_message(options.get(), from.only_strings);
  json_options_set_serialnumber(options.get(), from.serial ? from.serial->c_str() : nullptr);
  json_options_set_onvif_namespace(options.get(), from.onvif.c_str());
  json_options_set_quor_namespace(options.get(), from.maker.c_str());
  json_options_set_format(options.get(), from.format);
  return options;
}

DateTimeRef time_of(const Occurrence &occurrence) {
  if (!occurrence.has_time)
    return {};
  const auto seconds = DateTimeRef::adopt(g_date_time_new_from_unix_utc(occurrence.seconds));
  return DateTimeRef::adopt(g_date_time_add(seconds.get(), occurrence.microseconds));
}

EventOwner made(const Occurrence &from, GDateTime *time) {
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  for (const Fact &fact : from.facts) {
    event_declaration_add_key(declaration.get(), fact.key.c_str(), fact.type);
    event_declaration_set_name_space(declaration.get(), fact.key.c_str(), fact.name_space.c_str());
    for (const std::string &tag : fact.tags)
      event_declaration_add_key_tag(declaration.get(), fact.key.c_str(), tag.c_str());
  }
  EventOwner event{event_declaration_generate_event(declaration.get())};
  for (const Fact &fact : from.facts)
    inspectable_set_value_as_string(event_get_inspectable(event.get()), fact.key.c_str(),
                                    fact.value.c_str());
  if (time != nullptr)
    event_set_timestamp2(event.get(), time);
  return event;
}

void check(char *written, const json_t *expected, std::size_t flags, bool certain) {
  VARRO2_ASSERT(written != nullptr);
  const JsonOwner read{json_loads(written, JSON_REJECT_DUPLICATES, nullptr)};
  VARRO2_ASSERT(read != nullptr);
  if (certain) {
    char *text = json_dumps(expected, flags);
    VARRO2_ASSERT(std::strcmp(written, text) == 0);
    ::free(text);
  }
  ::free(written);
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2::fuzz;
  Choices choices{data, size};
  const Options wanted = any_options(choices);
  const Occurrence occurrence = any_occurrence(choices);
  const auto options = made(wanted);
  const auto time = time_of(occurrence);
  const EventOwner event = made(occurrence, time.get());

  bool certain = true;
  const JsonOwner as_tamlo{tamlo(occurrence, wanted, certain)};
  const std::size_t flags = wanted.pretty ? JSON_INDENT(4) : JSON_COMPACT;
  check(event_get_tamlo_json(event.get(), options.get()), as_tamlo.get(), flags, certain);
  if (wanted.format == JSON_FORMAT_TAMLO)
    check(event_get_json(event.get(), options.get()), as_tamlo.get(), flags, certain);
  else if (wanted.format == JSON_FORMAT_ONVIF)
    check(event_get_json(event.get(), options.get()),
          JsonOwner{onvif(occurrence, time.get())}.get(), JSON_COMPACT, true);
  else
    VARRO2_ASSERT(event_get_json(event.get(), options.get()) == nullptr);

  bool defaults_certain = true;
  const JsonOwner as_default{tamlo(occurrence, Options{}, defaults_certain)};
  check(event_get_json(event.get(), nullptr), as_default.get(), JSON_COMPACT, true);
  return 0;
}
