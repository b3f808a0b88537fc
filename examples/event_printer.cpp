// Subscribes with the expression on its command line and prints what comes, as it comes.
#include "eventtext.hpp"

#include <glib-unix.h>

#include <csignal>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace {

constexpr const char *usage =
    R"(usage: event_printer [--count N] [--format FORMAT] TEST... [or TEST...]...

Prints every event that passes all tests of at least one list, and every notification
that a declaration of such events was added or removed. Ends on SIGINT or SIGTERM.

A test is one of
  KEY          the key is there           !KEY         the key is not there
  KEY=VALUE    it has this value          KEY!=VALUE   it has another value, or is not there
  *=VALUE      any key has this value     *!=VALUE     no key has this value
KEY may be written NAMESPACE:KEY.

  --count N         end after N events
  --format FORMAT   text (the default), or a JSON document a line: json or onvif. With these two
                    the notifications go to standard error, so that the documents stand alone.

For example: event_printer topic0=Monitoring topic1=Processor or NetworkLink '!failed'
)";

[[noreturn]] void usage_error(const std::string &what) {
  std::fprintf(stderr, "event_printer: %s\n\n%s", what.c_str(), usage);
  std::exit(2);
}

struct ExpressionFree {
  void operator()(SubscribeExpression *expression) const { subscribe_expression_free(expression); }
};
using Expression = std::unique_ptr<SubscribeExpression, ExpressionFree>;

void add_value_test(SubscribeExpression *expression, const std::string &key,
                    const std::string &value, bool negated) {
  if (key == "*") {
    (negated ? subscribe_expression_add_not_value : subscribe_expression_add_value)(expression,
                                                                                    value.c_str());
    return;
  }
  (negated ? subscribe_expression_add_key_not_value
           : subscribe_expression_add_key_value)(expression, key.c_str(), value.c_str());
}

// Splits "NAMESPACE:KEY"; the key alone remains, the name space is given back.
std::string take_name_space(std::string &key) {
  const auto colon = key.find(':');
  if (colon == std::string::npos)
    return "";
  auto name_space = key.substr(0, colon);
  key.erase(0, colon + 1);
  return name_space;
}

void add_test(SubscribeExpression *expression, const std::string &argument) {
  const auto equals = argument.find('=');
  const bool has_value = equals != std::string::npos;
  bool negated = has_value && equals > 0 && argument[equals - 1] == '!';
  std::string key = argument.substr(0, has_value ? equals - (negated ? 1 : 0) : equals);
  if (key.starts_with('!')) {
    if (has_value)
      usage_error("argument '" + argument + "': write KEY!=VALUE for a value that is not wanted");
    negated = true;
    key.erase(0, 1);
  }
  const auto name_space = take_name_space(key);
  if (key.empty())
    usage_error("argument '" + argument + "' names no key");
  if (key == "*" && (!has_value || !name_space.empty()))
    usage_error("argument '" + argument + "': '*' needs a value and takes no name space");

  if (has_value)
    add_value_test(expression, key, argument.substr(equals + 1), negated);
  else
    (negated ? subscribe_expression_add_not_key : subscribe_expression_add_key)(expression,
                                                                                key.c_str());
  if (!name_space.empty())
    subscribe_expression_set_name_space(expression, key.c_str(), name_space.c_str());
}

guint64 parse_count(const char *text) {
  guint64 count = 0;
  if (!text)
    usage_error("argument '--count' needs a number");
  if (!g_ascii_string_to_unsigned(text, 10, 1, G_MAXUINT32, &count, nullptr))
    usage_error(std::string{"argument '--count "} + text + "': not a number from 1");
  return count;
}

// None for text.
std::optional<guint32> parse_format(const char *text) {
  const std::string_view format{text ? text : ""};
  if (format == "json")
    return JSON_FORMAT_TAMLO;
  if (format == "onvif")
    return JSON_FORMAT_ONVIF;
  if (format != "text")
    usage_error(text ? "argument '--format " + std::string{format} + "': not text, json or onvif"
                     : "argument '--format' needs text, json or onvif");
  return std::nullopt;
}

struct Options {
  Expression expression{subscribe_expression_new()};
  std::optional<guint64> count;
  std::optional<guint32> json_format;
};

Options parse(int argc, char **argv) {
  Options options;
  bool list_begun = false;
  int i = 1;
  for (; i < argc && std::string_view{argv[i]}.starts_with("--"); ++i) {
    const std::string_view option{argv[i]};
    if (option == "--help") {
      std::fputs(usage, stdout);
      std::exit(0);
    }
    if (option == "--count")
      options.count = parse_count(argv[++i]);
    else if (option == "--format")
      options.json_format = parse_format(argv[++i]);
    else
      usage_error("unknown option '" + std::string{option} + "'");
  }
  for (; i < argc; ++i) {
    if (std::string_view{argv[i]} != "or") {
      add_test(options.expression.get(), argv[i]);
      list_begun = true;
      continue;
    }
    if (!list_begun || i + 1 == argc)
      usage_error("argument " + std::to_string(i) + ", 'or', must stand between tests");
    subscribe_expression_or(options.expression.get());
    list_begun = false;
  }
  if (!list_begun)
    usage_error("no test was given");
  return options;
}

struct Printer {
  GMainLoop *loop;
  std::optional<guint64> limit;
  std::optional<guint32> json_format;
  guint64 events = 0;
  guint64 notifications = 0;

  std::FILE *beside_events() const { return json_format ? stderr : stdout; }
};

void print_json(const Event *event, guint32 format) {
  JsonOptions *options = json_options_new();
  json_options_set_format(options, format);
  json_options_use_only_strings_in_message(options, FALSE);
  char *document = event_get_json(event, options);
  std::puts(document);
  std::fflush(stdout);
  std::free(document);
  json_options_free(options);
}

void on_event(Event *event, gpointer data) {
  auto &printer = *static_cast<Printer *>(data);
  if (printer.json_format)
    print_json(event, *printer.json_format);
  else
    print_line("event", event_text(event));
  event_free(event);
  ++printer.events;
  if (printer.limit && printer.events >= *printer.limit)
    g_main_loop_quit(printer.loop);
}

void on_notification(Notification *notification, gpointer data) {
  auto &printer = *static_cast<Printer *>(data);
  ++printer.notifications;
  // A declaration's events as they are before their open values are filled in.
  Event *declared = event_declaration_generate_event(notification_get_declaration(notification));
  print_line(notification_is_type_deleted(notification) ? "removed" : "added", event_text(declared),
             printer.beside_events());
  event_free(declared);
  notification_free(notification);
}

gboolean on_signal(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop *>(loop));
  return G_SOURCE_CONTINUE;
}

void on_freed(EventConsumer *, gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop *>(loop));
}

} // namespace

int main(int argc, char **argv) {
  const Options options = parse(argc, argv);
  Printer printer{g_main_loop_new(nullptr, FALSE), options.count, options.json_format};
  g_unix_signal_add(SIGINT, on_signal, printer.loop);
  g_unix_signal_add(SIGTERM, on_signal, printer.loop);

  EventConsumer *consumer = event_consumer_new("event_printer");
  const guint32 token = event_consumer_subscribe_full(consumer, options.expression.get(), on_event,
                                                      on_notification, &printer);
  if (token == 0)
    return 1;
  g_main_loop_run(printer.loop);

  // The loop runs on until the handle has said good-bye to the switch.
  event_consumer_unsubscribe(consumer, token, nullptr);
  event_consumer_int_free(consumer, on_freed, printer.loop);
  g_main_loop_run(printer.loop);
  print_line("total",
             std::to_string(printer.events) + " events, " + std::to_string(printer.notifications) +
                 " notifications",
             printer.beside_events());
  g_main_loop_unref(printer.loop);
  return 0;
}
