// varro2, the command line tool.
#include "commands/commands.hpp"

#include "failure.hpp"
#include "log.hpp"
#include "text.hpp"

#include <varro2/varro2.h>

#include <cerrno>
#include <clocale>
#include <csignal>
#include <cstring>
#include <iostream>

namespace varro2::cli {
namespace {

constexpr const char *exit_codes =
    R"(Exit codes: 0 done, 1 failed, 2 usage, 3 nothing found, 124 timed out.
The bus is the system bus, or the one that DBUS_SYSTEM_BUS_ADDRESS names.
'varro2 COMMAND --help' tells about a command, 'man varro2' has examples.)";

void add_general(CLI::App &app, Program &program) {
  app.require_subcommand(1);
  app.fallthrough(); // what is meant for all commands may also stand behind one
  app.set_version_flag("--version", std::string{"varro2 "} + VARRO2_VERSION, "Print the version");
  app.add_option_function<std::string>(
         "--color,--colour",
         [&program](const std::string &when) {
           program.colour = when == "always"  ? ColourChoice::always
                            : when == "never" ? ColourChoice::never
                                              : ColourChoice::automatic;
         },
         "auto (on a terminal), always or never")
      ->check(one_of({"auto", "always", "never"}))
      ->type_name("WHEN");
  app.add_flag("-v,--verbose", program.verbose, "Show what the library has to say");
  app.footer(exit_codes);
}

void add_commands(CLI::App &app, Program &program) {
  for (void (*add)(CLI::App &, Program &) :
       {add_monitor, add_wait, add_state, add_list, add_tree, add_describe, add_types, add_send,
        add_record, add_replay, add_explain, add_lint, add_convert, add_add_type, add_remove_type,
        add_status, add_complete})
    add(app, program);
}

int usage_error(const CLI::App &app, const std::string &text) {
  const auto parsed = app.get_subcommands();
  const std::string command = parsed.empty() ? "" : ' ' + parsed.front()->get_name();
  std::fputs(
      ("varro2" + command + ": " + printable(text) + "\nTry 'varro2" + command + " --help'.\n")
          .c_str(),
      stderr);
  return exit_usage;
}

int finish(Program &program, int code) {
  program.out.finish();
  if (program.out.error() != 0) {
    note(std::string{"standard output: "} + std::strerror(program.out.error()));
    return exit_failed;
  }
  return code;
}

int run(Program &program) {
  program.style = Style{STDOUT_FILENO, program.colour};
  program.error_style = Style{STDERR_FILENO, program.colour};
  install_log_handler(program.error_style, program.verbose);
  event_utils_set_untrusted_peers(TRUE);
  try {
    return finish(program, program.command());
  } catch (const Failure &failure) {
    program.out.finish();
    if (*failure.what() != '\0')
      note(failure.what());
    return failure.code();
  }
}

int show_help(const CLI::App &app, const CLI::Success &success) {
  const int code = app.exit(success);
  if (std::cout.flush())
    return code;
  note(std::string{"standard output: "} + std::strerror(errno));
  return exit_failed;
}

int parse_and_run(int count, char **words) {
  Program program;
  CLI::App app{"See, send, test and understand the events of this device.", "varro2"};
  use_own_help(app);
  add_general(app, program);
  add_commands(app, program);
  try {
    app.parse(count, words);
  } catch (const CLI::Success &success) {
    return show_help(app, success);
  } catch (const CLI::ParseError &error) {
    return usage_error(app, told(app, error, count, words));
  }
  return run(program);
}

} // namespace
} // namespace varro2::cli

int main(int count, char **words) {
  std::setlocale(LC_ALL, "");
  std::setlocale(LC_NUMERIC, "C");
  // A reader that has gone is told by the write that failed.
  std::signal(SIGPIPE, SIG_IGN);
  return varro2::cli::parse_and_run(count, words);
}
