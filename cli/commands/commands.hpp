// One function for each command: it adds the command's arguments, and its work as what the program
// runs when the command is asked for.
#pragma once

#include "program.hpp"

#include <CLI/CLI.hpp>

namespace varro2::cli {

void add_list(CLI::App &app, Program &program);
void add_types(CLI::App &app, Program &program);
void add_tree(CLI::App &app, Program &program);
void add_describe(CLI::App &app, Program &program);
void add_monitor(CLI::App &app, Program &program);
void add_wait(CLI::App &app, Program &program);
void add_state(CLI::App &app, Program &program);
void add_explain(CLI::App &app, Program &program);
void add_send(CLI::App &app, Program &program);
void add_record(CLI::App &app, Program &program);
void add_replay(CLI::App &app, Program &program);
void add_add_type(CLI::App &app, Program &program);
void add_remove_type(CLI::App &app, Program &program);
void add_lint(CLI::App &app, Program &program);
void add_convert(CLI::App &app, Program &program);
void add_status(CLI::App &app, Program &program);
void add_complete(CLI::App &app, Program &program); // for the shells' completions

// A number of seconds, fractions allowed, from 0.
inline CLI::Validator seconds() {
  return CLI::Validator{[](std::string &text) {
                          double number = 0;
                          if (!CLI::detail::lexical_cast(text, number) || !(number >= 0) ||
                              number > 4e6)
                            return "'" + text + "' is no number of seconds";
                          return std::string{};
                        },
                        ""};
}

inline CLI::Validator count() {
  return CLI::Validator{[](std::string &text) {
                          unsigned long long number = 0;
                          if (text.starts_with('-') || !CLI::detail::lexical_cast(text, number) ||
                              number == 0)
                            return "'" + text + "' is no number from 1";
                          return std::string{};
                        },
                        ""};
}

inline constexpr const char *expression_help = R"(
An expression is made of tests:
  KEY          it is there               !KEY         it is not there
  KEY=VALUE    it has this value         KEY!=VALUE   it has another, or is not there
  *=VALUE      any key has this value    *!=VALUE     no key has this value
KEY may be written NAMESPACE:KEY. Tests are joined by & (and), | (or), ! (not) and
parentheses, or by these words; quotes take anything odd.
)";

} // namespace varro2::cli
