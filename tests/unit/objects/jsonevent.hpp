// Events for the rendering tests, made the way producers make them.
#pragma once

#include "records.hpp"

#include <varro2/eventutils.h>

#include <cstdlib>
#include <initializer_list>
#include <string>

namespace varro2::test {

using OwnedOptions = Owned<JsonOptions, json_options_free>;

class EventMaker {
 public:
  using Tags = std::initializer_list<const char *>;

  EventMaker &key(const char *name, gint32 value, Tags tags = {}) {
    return add(name, &value, VALUE_TYPE_INT, tags);
  }
  EventMaker &flag(const char *name, gboolean value, Tags tags = {}) {
    return add(name, &value, VALUE_TYPE_BOOL, tags);
  }
  EventMaker &key(const char *name, double value, Tags tags = {}) {
    return add(name, &value, VALUE_TYPE_DOUBLE, tags);
  }
  EventMaker &key(const char *name, const char *value, Tags tags = {}) {
    return add(name, value, VALUE_TYPE_STRING, tags);
  }
  EventMaker &open(const char *name, guint32 type, Tags tags = {}) {
    event_declaration_add_key(declaration_.get(), name, type);
    return tag(name, tags);
  }
  EventMaker &level(int number, const char *value, const char *name_space) {
    const std::string name = "topic" + std::to_string(number);
    key(name.c_str(), value);
    event_declaration_set_name_space(declaration_.get(), name.c_str(), name_space);
    return *this;
  }
  EventMaker &at(gint64 seconds, gint32 microseconds) {
    const auto whole = DateTimeRef::adopt(g_date_time_new_from_unix_utc(seconds));
    timestamp_ = DateTimeRef::adopt(g_date_time_add(whole.get(), microseconds));
    return *this;
  }

  EventOwner make() const {
    EventOwner event{event_declaration_generate_event(declaration_.get())};
    if (timestamp_)
      event_set_timestamp2(event.get(), timestamp_.get());
    return event;
  }

 private:
  EventMaker &add(const char *name, const void *value, guint32 type, Tags tags) {
    event_declaration_add_key_value(declaration_.get(), name, value, type);
    return tag(name, tags);
  }
  EventMaker &tag(const char *name, Tags tags) {
    for (const char *each : tags)
      event_declaration_add_key_tag(declaration_.get(), name, each);
    return *this;
  }

  DeclarationOwner declaration_{event_declaration_new(FALSE)};
  DateTimeRef timestamp_;
};

// What a rendering returned, which the standard free() releases.
inline std::string text_of(char *json) {
  const Owned<char, std::free> owner{json};
  return json ? json : "(NULL)";
}

inline std::string render(const EventMaker &maker, const JsonOptions *options = nullptr) {
  return text_of(event_get_json(maker.make().get(), options));
}

} // namespace varro2::test
