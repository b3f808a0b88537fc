// One function for each command: it adds the command's arguments, and its work as what the program
// runs when the command is asked for.
#pragma once

#include "program.hpp"

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

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

// Checks of arguments. Each tells what is wrong with one.
CLI::Validator seconds();       // from 0, fractions allowed
CLI::Validator count();         // whole, from 1
CLI::Validator number_from_0(); // fractions allowed
CLI::Validator number_above_0();
CLI::Validator one_of(std::vector<std::string> words);

// The help and the mistakes in this program's words.
void use_own_help(CLI::App &app);
std::string told(const CLI::App &app, const CLI::ParseError &error, int count, char **words);

inline constexpr const char *expression_help = R"(An expression is made of tests:
  KEY        it is there             !KEY        it is not there
  KEY=VALUE  it has this value       KEY!=VALUE  it has another, or is not there
  *=VALUE    any key has this value  *!=VALUE    no key has this value
KEY may be written NAMESPACE:KEY. Tests are joined by & (and), | (or), ! (not)
and parentheses, or by these words; quotes take anything odd.
)";

} // namespace varro2::cli
