#include "render.hpp"

#include "failure.hpp"
#include "recordjson.hpp"
#include "text.hpp"

#include <utility>
#include <vector>

namespace varro2::cli {
namespace {

std::string seconds_text(std::int64_t microseconds) {
  char text[40];
  g_snprintf(text, sizeof text, "%" G_GINT64_FORMAT ".%06d", microseconds / G_USEC_PER_SEC,
             static_cast<int>(microseconds % G_USEC_PER_SEC));
  return text;
}

std::int64_t time_of(const Record &record, const Arrival &arrival) {
  return record.time.value_or(arrival.realtime);
}

const char *word_for(const ::Notification &notification) {
  // Also one that has not travelled may have any number that is not 0.
  return notification_get_type(&notification) == NOTIFY_DECLARATION_ADDED ? "added" : "removed";
}

Record declared_in(const ::Notification &notification) {
  Record record = read_declaration(*notification_get_declaration(&notification));
  record.declaration_id = notification_get_declaration_id(&notification);
  return record;
}

class TextRenderer final : public Renderer {
 public:
  explicit TextRenderer(const Style &style) : style_{style} {}

  std::string event(const ::Event &event, const Arrival &arrival) const override {
    const Record record = read_event(event);
    const std::string word = record.property ? style_.cyan("property") : style_.green("event   ");
    return line(word, record, arrival);
  }

  std::string notification(const ::Notification &notification,
                           const Arrival &arrival) const override {
    return line(style_.yellow(padded(word_for(notification), 8)), declared_in(notification),
                arrival);
  }

 private:
  std::string line(const std::string &word, const Record &record, const Arrival &arrival) const {
    std::string text =
        style_.dim(local_time(time_of(record, arrival)) + ' ' + seconds_text(arrival.monotonic)) +
        ' ' + word + ' ';
    const std::string topic = topic_of(record);
    text += topic.empty() ? style_.dim("(no topic)") : style_.bold(printable(topic));
    if (const std::string values = values_text(record, style_); !values.empty())
      text += ' ' + values;
    if (arrival.uid)
      text += ' ' + style_.dim("uid=" + std::to_string(*arrival.uid));
    return text;
  }

  Style style_;
};

class JsonRenderer final : public Renderer {
 public:
  std::string event(const ::Event &event, const Arrival &arrival) const override {
    return object(nullptr, read_event(event), arrival);
  }
  std::string notification(const ::Notification &notification,
                           const Arrival &arrival) const override {
    return object(word_for(notification), declared_in(notification), arrival);
  }

 private:
  static std::string object(const char *word, Record record, const Arrival &arrival) {
    record.time = time_of(record, arrival);
    OwnedJson json = to_json(record);
    put(json, "monotonic", json_real(static_cast<double>(arrival.monotonic) / G_USEC_PER_SEC));
    if (word != nullptr)
      put(json, "notification", json_string(word));
    if (arrival.uid)
      put(json, "uid", json_integer(*arrival.uid));
    return dump(json.get());
  }
};

class OnvifRenderer final : public Renderer {
 public:
  OnvifRenderer() : options_{json_options_new()} {
    json_options_set_format(options_.get(), JSON_FORMAT_ONVIF);
  }
  std::string event(const ::Event &event, const Arrival &) const override {
    const OwnedCText text{event_get_json(&event, options_.get())};
    return text ? text.get() : "{}";
  }
  std::string notification(const ::Notification &, const Arrival &) const override { return ""; }

 private:
  OwnedJsonOptions options_;
};

// Literal pieces and names in turn.
class TemplateRenderer final : public Renderer {
 public:
  explicit TemplateRenderer(const std::string &text) { parse(text); }

  std::string event(const ::Event &event, const Arrival &arrival) const override {
    const Record record = read_event(event);
    return fill(record.property ? "property" : "event", record, arrival);
  }
  std::string notification(const ::Notification &notification,
                           const Arrival &arrival) const override {
    return fill(word_for(notification), declared_in(notification), arrival);
  }

 private:
  struct Piece {
    bool name;
    std::string text;
  };

  void parse(const std::string &text) {
    std::string literal;
    for (std::size_t at = 0; at < text.size(); ++at) {
      const char character = text[at];
      const char next = at + 1 < text.size() ? text[at + 1] : '\0';
      if ((character == '{' || character == '}') && next == character) {
        literal += character;
        ++at;
      } else if (character == '\\' && (next == 't' || next == 'n' || next == '\\')) {
        literal += next == 't' ? '\t' : next == 'n' ? '\n' : '\\';
        ++at;
      } else if (character == '{') {
        pieces_.push_back({false, std::exchange(literal, {})});
        at = take_name(text, at);
      } else if (character == '}') {
        throw UsageError{"--format: '}' without '{'; write '}}' for the character"};
      } else {
        literal += character;
      }
    }
    pieces_.push_back({false, literal});
  }

  std::size_t take_name(const std::string &text, std::size_t open) {
    const std::size_t close = text.find('}', open);
    if (close == std::string::npos)
      throw UsageError{"--format: '" + text.substr(open) + "' has no '}'"};
    if (close == open + 1)
      throw UsageError{"--format: '{}' names no key"};
    pieces_.push_back({true, text.substr(open + 1, close - open - 1)});
    return close;
  }

  std::string fill(const char *word, const Record &record, const Arrival &arrival) const {
    std::string text;
    for (const Piece &piece : pieces_)
      text += piece.name ? value(piece.text, word, record, arrival) : piece.text;
    return text;
  }

  static std::string value(const std::string &name, const char *word, const Record &record,
                           const Arrival &arrival) {
    static constexpr std::string_view key_prefix = "key:";
    const bool forced = name.starts_with(key_prefix);
    if (!forced) {
      if (name == "topic")
        return printable(topic_of(record));
      if (name == "time")
        return iso_time(time_of(record, arrival));
      if (name == "monotonic")
        return seconds_text(arrival.monotonic);
      if (name == "kind")
        return word;
      if (name == "values")
        return values_text(record, Style{});
      if (name == "uid")
        return arrival.uid ? std::to_string(*arrival.uid) : "-";
    }
    const std::string *found = record.value_of(forced ? name.substr(key_prefix.size()) : name);
    return found != nullptr ? printable(*found) : "-";
  }

  std::vector<Piece> pieces_;
};

} // namespace

Arrival Arrival::now(std::optional<std::uint32_t> uid) {
  return {g_get_real_time(), g_get_monotonic_time(), uid};
}

std::string local_time(std::int64_t microseconds) {
  const OwnedDateTime time{g_date_time_new_from_unix_local(microseconds / G_USEC_PER_SEC)};
  if (!time)
    return "--:--:--.------";
  const OwnedText text{g_date_time_format(time.get(), "%H:%M:%S")};
  char fraction[16];
  g_snprintf(fraction, sizeof fraction, ".%06d", static_cast<int>(microseconds % G_USEC_PER_SEC));
  return std::string{text.get()} + fraction;
}

std::string values_text(const Record &record, const Style &style) {
  std::string text;
  for (const Pair &pair : record.pairs) {
    if (topic_level(pair.key))
      continue;
    if (!text.empty())
      text += ' ';
    if (!pair.name_space.empty())
      text += style.dim(printable(pair.name_space) + ':');
    text += printable(pair.key);
    if (pair.open)
      text += style.dim(std::string{"("} + type_name(pair.type) + ')');
    else
      text += style.dim("=") + style.green(printable(quoted_if_needed(pair.value)));
  }
  return text;
}

std::unique_ptr<Renderer> make_renderer(const std::string &format, const Style &style) {
  if (format == "text")
    return std::make_unique<TextRenderer>(style);
  if (format == "json")
    return std::make_unique<JsonRenderer>();
  if (format == "onvif")
    return std::make_unique<OnvifRenderer>();
  if (format.find_first_of("{}") == std::string::npos)
    throw UsageError{"--format: '" + format +
                     "' is neither text, json or onvif nor a template such as '{topic} {port}'"};
  return std::make_unique<TemplateRenderer>(format);
}

} // namespace varro2::cli
