#include "publisher.hpp"

#include "catalogue.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "text.hpp"

#include <glib-unix.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace varro2::cli {
namespace {

// Fixed in the declaration: the topic, and what tells instances from each other.
bool is_fixed(const Pair &pair) {
  return topic_level(pair.key) || has_tag(pair, "onvif-source") || has_tag(pair, "onvif-key");
}

// What events of one kind have in common, as a declaration has it.
Record shape_of(const EventLine &event) {
  Record shape = event.record;
  shape.time.reset();
  shape.declaration_id = 0;
  shape.producer_id = 0;
  for (Pair &pair : shape.pairs)
    if (!is_fixed(pair)) {
      pair.open = true;
      pair.value.clear();
    }
  return shape;
}

std::string stored_text(const std::string &text, std::uint32_t type) {
  if (type == VALUE_TYPE_BOOL)
    return text == "1" || text == "true" ? "1" : "0";
  if (type != VALUE_TYPE_DOUBLE)
    return text;
  const double number = g_ascii_strtod(text.c_str(), nullptr);
  const OwnedText stored{event_utils_value_type_to_string(&number, VALUE_TYPE_DOUBLE)};
  return stored.get();
}

inline void free_triples(GList *list) noexcept {
  event_producer_int_free_register_list(list);
}
using OwnedTriples = Owned<GList, free_triples>;

// What the event says about the keys that the type leaves open.
OwnedTriples triples(const Record &type, const Record &event) {
  GList *list = nullptr;
  for (const Pair &pair : type.pairs) {
    const std::string *value = pair.open ? event.value_of(pair.key) : nullptr;
    if (value == nullptr)
      continue;
    list = g_list_append(list, g_strdup(pair.key.c_str()));
    list = g_list_append(list, g_strdup(stored_text(*value, pair.type).c_str()));
    list = g_list_append(list, GUINT_TO_POINTER(pair.type));
  }
  return OwnedTriples{list};
}

// Events with the same name go out under one declaration. Of a property type that is one for each
// property, whose declaration fixes all but the state.
std::string shape_name(const EventLine &event, const std::optional<Record> &type) {
  if (!type)
    return dump(to_json(shape_of(event)).get());
  std::string name = "type " + event.type;
  if (type->property)
    for (const Pair &pair : type->pairs)
      if (const std::string *value = event.record.value_of(pair.key);
          value != nullptr && pair.open && !has_tag(pair, state_tag))
        name += '\n' + pair.key + '=' + *value;
  return name;
}

void check_values(const Record &event, const Record &type) {
  for (const Pair &pair : type.pairs)
    if (const std::string *value = pair.open ? event.value_of(pair.key) : nullptr)
      if (const std::string why = why_no_value(*value, pair.type); !why.empty())
        throw Failure{pair.key + " cannot be '" + *value + "': " + why};
}

// The declaration says how a value is written, whatever the event said.
void set_value(::Event *event, const Pair &pair, const std::string &type) {
  const guint32 position = event_get_index(event, pair.key.c_str());
  if (position == INSPECTABLE_NO_INDEX)
    throw Failure{"the type " + type + " has no key '" + pair.key + "'"};
  const guint32 value_type = event_get_type_at(event, position);
  if (const std::string why = why_no_value(pair.value, value_type); !why.empty())
    throw Failure{pair.key + " cannot be '" + pair.value + "': " + why};
  if (set_event_value(event, pair.key, pair.value, value_type))
    return;
  // Fixed: then it has to be the same.
  const char *fixed = event_get_value_at(event, position);
  if (fixed == nullptr || pair.value != fixed)
    throw Failure{"the type " + type + " fixes " + pair.key + " to '" +
                  (fixed != nullptr ? fixed : "") + "'"};
}

} // namespace

bool iterate_until(Session &session, double seconds, const std::function<bool()> &condition) {
  bool late = false;
  guint timer = 0;
  if (seconds >= 0)
    timer = g_timeout_add(
        static_cast<guint>(std::min(seconds * 1000, 4e9)),
        [](gpointer data) -> gboolean {
          *static_cast<bool *>(data) = true;
          return G_SOURCE_CONTINUE;
        },
        &late);
  while (!condition() && !late && !session.ended())
    g_main_context_iteration(nullptr, TRUE);
  if (timer != 0)
    g_source_remove(timer);
  return condition();
}

void fail_waiting(const Session &session, const std::string &late) {
  if (session.ended())
    throw Failure{"", session.result()};
  throw Failure{late, exit_timed_out};
}

Publisher::Publisher(Session &session, double patience)
    : session_{session}, patience_{patience}, sender_{session} {}

const std::optional<Record> &Publisher::type_of(const EventLine &event) {
  const auto found = types_.find(event.type);
  if (found != types_.end())
    return found->second;
  std::optional<Record> type;
  if (!event.type.empty())
    type = require_type(event.type);
  return types_.emplace(event.type, std::move(type)).first->second;
}

Publisher::Declared &Publisher::declared_for(const EventLine &event) {
  const std::optional<Record> &type = type_of(event);
  const auto [at, is_new] = declared_.try_emplace(shape_name(event, type));
  Declared &declared = at->second;
  if (!is_new)
    return declared;
  const auto on_complete = [](guint32, gpointer data) {
    static_cast<Declared *>(data)->complete = true;
  };
  if (type) {
    check_values(event.record, *type);
    declared.says_state = type->property;
    const OwnedTriples list = type->property ? triples(*type, event.record) : nullptr;
    declared.local_id = event_producer_register_and_notify_string_list(
        sender_.get(), event.type.c_str(), on_complete, &declared, list.get());
  } else {
    const OwnedDeclaration declaration = make_declaration(shape_of(event));
    declared.local_id =
        event_producer_declare_and_notify(sender_.get(), declaration.get(), on_complete, &declared);
  }
  if (declared.local_id == 0)
    throw Failure{"the event cannot be declared"};
  return declared;
}

void Publisher::wait_for(const Declared &declared) {
  if (declared.complete)
    return;
  if (!iterate_until(session_, patience_, [&] { return declared.complete; }))
    fail_waiting(session_, "the switch did not take the declaration in time");
}

void Publisher::prepare(const EventLine &event) {
  wait_for(declared_for(event));
}

void Publisher::send(const EventLine &event) {
  Declared &declared = declared_for(event);
  wait_for(declared);
  if (std::exchange(declared.says_state, false))
    return;
  const OwnedEvent prepared{event_producer_prepare_event(sender_.get(), declared.local_id)};
  for (const Pair &pair : event.record.pairs)
    if (!pair.open)
      set_value(prepared.get(), pair, event.type);
  GError *error = nullptr;
  if (!event_producer_send_event(sender_.get(), prepared.get(), &error)) {
    const OwnedError owned{error};
    throw Failure{owned->message};
  }
}

std::optional<std::string> LineReader::next(Session &session) {
  for (;;) {
    const std::size_t end = text_.find('\n', begin_);
    if (end != std::string::npos || (ended_ && begin_ < text_.size())) {
      const std::size_t stop = std::min(end, text_.size());
      std::string line = text_.substr(begin_, stop - begin_);
      begin_ = std::min(stop + 1, text_.size());
      ++line_;
      return line;
    }
    if (ended_ || !fill(session))
      return {};
  }
}

bool LineReader::fill(Session &session) {
  text_.erase(0, std::exchange(begin_, 0));
  bool readable = false;
  const guint source = g_unix_fd_add(
      descriptor_, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR),
      [](gint, GIOCondition, gpointer data) -> gboolean {
        *static_cast<bool *>(data) = true;
        return G_SOURCE_CONTINUE;
      },
      &readable);
  iterate_until(session, -1, [&] { return readable; });
  g_source_remove(source);
  if (!readable)
    return false;
  char buffer[65536];
  const ssize_t count = read(descriptor_, buffer, sizeof buffer);
  if (count < 0 && errno != EINTR && errno != EAGAIN)
    throw Failure{name_ + ": " + std::strerror(errno)};
  if (count == 0)
    ended_ = true;
  if (count > 0)
    text_.append(buffer, static_cast<std::size_t>(count));
  return true;
}

} // namespace varro2::cli
