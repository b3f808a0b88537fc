// complete: words for the shells' completions, one a line. Never tells about a failure.
#include "commands.hpp"

#include "catalogue.hpp"
#include "failure.hpp"
#include "log.hpp"
#include "session.hpp"
#include "text.hpp"

#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <set>
#include <string_view>

namespace varro2::cli {
namespace {

// Who presses a key waits; a bus or switch that hangs is not worth more.
constexpr unsigned patience = 2; // seconds

struct Arguments {
  std::string what;
  std::string type;
};

// What comes from other processes and ends up on a command line must mean nothing to a shell.
bool is_harmless(const std::string &word) {
  static constexpr std::string_view harmless = "_./:=+,@%-";
  return !word.empty() && word == printable(word) &&
         std::all_of(word.begin(), word.end(), [](char character) {
           return (static_cast<unsigned char>(character) & 0x80) != 0 ||
                  g_ascii_isalnum(character) || harmless.find(character) != std::string_view::npos;
         });
}

std::set<std::string> words_from_bus(const std::string &what) {
  Session session;
  session.require_switch();
  std::set<std::string> words;
  for (const Record &record : ask_declarations()) {
    if (what == "topics") {
      words.insert(topic_of(record));
    } else if (what == "keys") {
      for (const Pair &pair : record.pairs)
        words.insert(quoted_if_needed(pair.key) + '=');
    } else {
      for (const Pair &pair : record.pairs)
        if (!pair.open)
          words.insert(quoted_if_needed(pair.key) + '=' + quoted_if_needed(pair.value));
    }
  }
  return words;
}

std::set<std::string> words_for(const Arguments &arguments) {
  if (arguments.what == "types") {
    const std::vector<std::string> names = type_names();
    return {names.begin(), names.end()};
  }
  if (arguments.what != "open-keys")
    return words_from_bus(arguments.what);
  std::set<std::string> words;
  if (const auto record = type_record(arguments.type))
    for (const Pair &pair : record->pairs)
      if (pair.open)
        words.insert(pair.key + '=');
  return words;
}

int complete(Program &program, const Arguments &arguments) {
  std::signal(SIGALRM, [](int) { _exit(exit_done); });
  alarm(patience);
  const QuietLog log;
  try {
    for (const std::string &word : words_for(arguments))
      if (is_harmless(word))
        program.out.line(word);
  } catch (const Failure &) {
  }
  return exit_done;
}

} // namespace

void add_complete(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("complete", "Words for the shells' completions");
  command->group("");
  command->add_option("WHAT", arguments->what, "types, topics, keys, tests or open-keys")
      ->required()
      ->check(one_of({"types", "topics", "keys", "tests", "open-keys"}));
  command->add_option("TYPE", arguments->type, "With open-keys");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return complete(program, *arguments); };
  });
}

} // namespace varro2::cli
