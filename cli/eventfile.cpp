#include "eventfile.hpp"

#include "failure.hpp"
#include "recordjson.hpp"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>

namespace varro2::cli {
namespace {

// Beyond this it is something else than what these commands read.
constexpr std::size_t largest_file = 512 * 1024 * 1024;

inline void close_file(FILE *file) noexcept {
  if (file != stdin)
    std::fclose(file);
}

std::string place(const std::string &path, std::size_t line) {
  return (path == "-" ? "standard input" : path) + ':' + std::to_string(line) + ": ";
}

std::optional<EventLine> event_in(const json_t *json, const std::string &path, std::size_t line) {
  if (json_object_get(json, "notification") != nullptr &&
      json_is_object(json_object_get(json, "values")))
    return {};
  try {
    EventLine event{line, from_json(json), {}, {}};
    if (json_is_object(json_object_get(json, "values"))) {
      if (const char *type = json_string_value(json_object_get(json, "type")))
        event.type = type;
      const json_t *monotonic = json_object_get(json, "monotonic");
      if (json_is_number(monotonic))
        event.monotonic = std::llround(json_number_value(monotonic) * 1e6);
    }
    return event;
  } catch (const Failure &failure) {
    throw Failure{place(path, line) + failure.what()};
  }
}

} // namespace

std::string read_file(const std::string &path) {
  const Owned<FILE, close_file> file{path == "-" ? stdin : std::fopen(path.c_str(), "rbe")};
  if (!file)
    throw Failure{path + ": " + std::strerror(errno)};
  std::string text;
  char buffer[65536];
  std::size_t count = 0;
  while ((count = std::fread(buffer, 1, sizeof buffer, file.get())) > 0) {
    text.append(buffer, count);
    if (text.size() > largest_file)
      throw Failure{path + ": larger than 512 MiB"};
  }
  if (std::ferror(file.get()))
    throw Failure{path + ": " + std::strerror(errno)};
  return text;
}

std::optional<EventLine> parse_event(const std::string &text, const std::string &path,
                                     std::size_t line) {
  json_error_t error;
  const OwnedJson json{json_loadb(text.data(), text.size(), JSON_REJECT_DUPLICATES, &error)};
  if (!json)
    throw Failure{place(path, line + static_cast<std::size_t>(std::max(error.line - 1, 0))) +
                  "no JSON object: " + error.text};
  return event_in(json.get(), path, line);
}

std::vector<EventLine> read_event_file(const std::string &path) {
  const std::string text = read_file(path);
  std::vector<EventLine> events;
  std::size_t line = 1;
  bool any = false;
  for (std::size_t at = 0; at < text.size();) {
    if (std::isspace(static_cast<unsigned char>(text[at]))) {
      line += text[at++] == '\n';
      continue;
    }
    json_error_t error;
    const OwnedJson json{json_loadb(text.data() + at, text.size() - at,
                                    JSON_REJECT_DUPLICATES | JSON_DISABLE_EOF_CHECK, &error)};
    if (!json)
      throw Failure{place(path, line + static_cast<std::size_t>(std::max(error.line - 1, 0))) +
                    "no JSON object: " + error.text};
    any = true;
    if (auto event = event_in(json.get(), path, line))
      events.push_back(std::move(*event));
    const auto length = static_cast<std::size_t>(error.position);
    line += static_cast<std::size_t>(
        std::count(text.begin() + static_cast<std::ptrdiff_t>(at),
                   text.begin() + static_cast<std::ptrdiff_t>(at + length), '\n'));
    at += length;
  }
  if (!any)
    throw Failure{(path == "-" ? "standard input" : path) + ": there is no event in it",
                  exit_nothing};
  return events;
}

} // namespace varro2::cli
