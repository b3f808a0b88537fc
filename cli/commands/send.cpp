// send: one event of a type, or many from a file.
#include "commands.hpp"

#include "catalogue.hpp"
#include "failure.hpp"
#include "log.hpp"
#include "progress.hpp"
#include "publisher.hpp"
#include "text.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace varro2::cli {
namespace {

struct Arguments {
  std::string type;
  std::vector<std::string> values;
  std::string from;
  double timeout = 10;
  double hold = 0;
  double rate = 5000;
};

std::string open_key_list(const Record &record) {
  std::vector<std::string> keys;
  for (const Pair &pair : record.pairs)
    if (pair.open)
      keys.push_back(pair.key + " (" + type_name(pair.type) + ')');
  return joined(keys, ", ");
}

// Gives the open key of the type the value of one argument.
void take_value(Record &record, std::vector<std::string> &given, const std::string &type,
                const std::string &argument) {
  const std::size_t equals = argument.find('=');
  if (equals == std::string::npos || equals == 0)
    throw UsageError{"'" + argument + "': write KEY=VALUE"};
  const std::string key = argument.substr(0, equals);
  const std::string value = argument.substr(equals + 1);
  const auto found = std::find_if(record.pairs.begin(), record.pairs.end(),
                                  [&](const Pair &pair) { return pair.key == key; });
  if (std::find(given.begin(), given.end(), key) != given.end())
    throw UsageError{"'" + key + "' is given twice"};
  if (found == record.pairs.end()) {
    const std::string open = open_key_list(record);
    throw UsageError{"the type " + type + " has no key '" + key + "'; " +
                     (open.empty() ? "it leaves none open" : "it leaves open: " + open)};
  }
  if (!found->open)
    throw UsageError{"the type " + type + " fixes " + key + " to '" + found->value + "'"};
  if (const std::string why = why_no_value(value, found->type); !why.empty())
    throw UsageError{"'" + argument + "': " + why + " for " + key};
  found->value = value;
  given.push_back(key);
}

// All values must be there: an event that lacks one is not sent.
Record filled_record(const Arguments &arguments) {
  Record record = require_type(arguments.type);
  std::vector<std::string> given;
  for (const std::string &value : arguments.values)
    take_value(record, given, arguments.type, value);
  std::vector<std::string> missing;
  for (Pair &pair : record.pairs) {
    if (pair.open && std::find(given.begin(), given.end(), pair.key) == given.end())
      missing.push_back(pair.key + " (" + type_name(pair.type) + ')');
  }
  if (!missing.empty())
    throw UsageError{"the type " + arguments.type + " needs a value for: " + joined(missing, ", ")};
  return record;
}

void hold(Session &session, double seconds) {
  if (seconds > 0)
    iterate_until(session, seconds, [] { return false; });
}

int send_one(const Arguments &arguments) {
  const Record record = filled_record(arguments);
  Session session;
  session.require_switch();
  session.quit_on_signals(exit_interrupted);
  EventLine event{1, record, arguments.type, {}};
  for (Pair &pair : event.record.pairs)
    pair.open = false; // those that the type leaves open have a value now
  Publisher publisher{session, arguments.timeout};
  publisher.send(event);
  hold(session, arguments.hold);
  return session.ended() ? session.result() : exit_done;
}

class Input {
 public:
  explicit Input(const std::string &path)
      : descriptor_{path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC)} {
    if (descriptor_ < 0)
      throw Failure{path + ": " + std::strerror(errno)};
  }
  ~Input() {
    if (descriptor_ != STDIN_FILENO)
      close(descriptor_);
  }
  Input(const Input &) = delete;
  Input &operator=(const Input &) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

bool is_blank(const std::string &line) {
  return std::all_of(line.begin(), line.end(), [](char character) {
    return std::isspace(static_cast<unsigned char>(character));
  });
}

int send_many(const Arguments &arguments) {
  const Input input{arguments.from};
  Session session;
  session.require_switch();
  session.quit_on_signals(exit_interrupted);
  Publisher publisher{session, arguments.timeout};
  const std::string name = arguments.from == "-" ? "standard input" : arguments.from;
  LineReader lines{input.get(), name};
  Progress progress{"sending"};
  std::size_t sent = 0;
  const gint64 begin = g_get_monotonic_time();
  while (const std::optional<std::string> line = lines.next(session)) {
    if (is_blank(*line))
      continue;
    const auto event = parse_event(*line, arguments.from, lines.line());
    if (!event)
      continue;
    try {
      publisher.send(*event);
    } catch (const Failure &failure) {
      if (session.ended())
        throw;
      throw Failure{name + ':' + std::to_string(lines.line()) + ": " + failure.what(),
                    failure.code()};
    }
    progress.show(++sent, 0);
    const double due = static_cast<double>(sent) / arguments.rate;
    const double passed = static_cast<double>(g_get_monotonic_time() - begin) / G_USEC_PER_SEC;
    if (due - passed > 0.002)
      iterate_until(session, due - passed, [] { return false; });
    while (g_main_context_iteration(nullptr, FALSE)) {
    }
  }
  hold(session, arguments.hold);
  if (session.ended())
    return session.result();
  if (sent == 0)
    throw Failure{name + ": there is no event in it", exit_nothing};
  return exit_done;
}

} // namespace

void add_send(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("send", "Send an event of a type, or events from a file");
  auto *type = command->add_option("TYPE", arguments->type, "A declaration type (varro2 types)");
  command->add_option("KEY=VALUE", arguments->values, "For each key that the type leaves open");
  command
      ->add_option("--from", arguments->from, "Events, one JSON object a line; '-': standard input")
      ->type_name("FILE")
      ->excludes(type);
  command->add_option("--timeout", arguments->timeout, "For the declaration (10)")
      ->check(seconds())
      ->type_name("SECONDS");
  command->add_option("--hold", arguments->hold, "Stay declared for so long after the last event")
      ->check(seconds())
      ->type_name("SECONDS");
  command->add_option("--rate", arguments->rate, "With --from: at most so many a second (5000)")
      ->check(number_above_0())
      ->type_name("N");
  command->footer(
      R"(Declares, waits until the switch has named all subscribers, sends, and ends when
they have the event. A property is gone with its producer: --hold keeps it.
An object is {"type":"T","values":{...}}, what varro2 monitor --json prints, or
just keys and values.
  varro2 send machine-processor load_percent=7.5 number=1
  echo '{"topic0":"Test","n":1}' | varro2 send --from -)");
  command->callback([&program, arguments] {
    if (arguments->type.empty() && arguments->from.empty())
      throw CLI::RequiredError{"TYPE or --from"};
    program.command = [arguments] {
      return arguments->from.empty() ? send_one(*arguments) : send_many(*arguments);
    };
  });
}

} // namespace varro2::cli
