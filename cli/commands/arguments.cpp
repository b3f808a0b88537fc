// What is said about arguments: the help, and mistakes.
#include "commands.hpp"

#include "text.hpp"

#include <algorithm>
#include <cmath>

namespace varro2::cli {
namespace {

// Longer than any device runs; what a timer takes.
constexpr double most_seconds = 4e6;

bool read_number(const std::string &text, double &number) {
  return CLI::detail::lexical_cast(text, number) && std::isfinite(number);
}

CLI::Validator check(const std::string &wanted, bool (*is_good)(const std::string &text)) {
  return CLI::Validator{[wanted, is_good](std::string &text) {
                          return is_good(text) ? std::string{} : "'" + text + "' is no " + wanted;
                        },
                        ""};
}

class HelpFormatter final : public CLI::Formatter {
 public:
  HelpFormatter() {
    column_width(26);
    label("Positionals", "Arguments");
  }

 private:
  std::string make_option_opts(const CLI::Option *option) const override {
    const std::string type = option->get_type_name();
    const bool shown = !option->get_positional() && option->get_type_size() != 0 && !type.empty();
    return shown ? ' ' + type : "";
  }
};

bool is_option(const std::string &word) {
  return word.size() > 1 && word.starts_with('-');
}

std::vector<std::string> option_names(const CLI::App &app) {
  std::vector<std::string> names;
  for (const CLI::Option *option : app.get_options())
    for (const std::string &name : option->get_lnames())
      names.push_back("--" + name);
  return names;
}

std::string about_unknown(const std::string &word, const char *kind,
                          const std::vector<std::string> &known) {
  const std::string meant = nearest(word, known);
  return std::string{"there is no "} + kind + " '" + word + "'" +
         (meant.empty() ? "" : "; did you mean '" + meant + "'?");
}

// Before any command was understood.
std::string about_command(const CLI::App &app, int count, char **words) {
  std::vector<std::string> commands;
  for (const CLI::App *command : app.get_subcommands([](const CLI::App *) { return true; }))
    commands.push_back(command->get_name());
  const std::vector<std::string> options = option_names(app);
  for (int index = 1; index < count; ++index) {
    const std::string word = words[index];
    if (!is_option(word))
      return about_unknown(word, "command", commands);
    const std::string name = word.substr(0, word.find('='));
    if (name != "-v" && std::find(options.begin(), options.end(), name) == options.end())
      return about_unknown(name, "option", options);
  }
  return "which command?";
}

} // namespace

CLI::Validator seconds() {
  return check("number of seconds", [](const std::string &text) {
    double number = 0;
    return read_number(text, number) && number >= 0 && number <= most_seconds;
  });
}

CLI::Validator count() {
  return check("whole number from 1", [](const std::string &text) {
    return is_integer(text) && text.size() < 19 && !text.starts_with('-') &&
           text.find_first_not_of("0+") != std::string::npos;
  });
}

CLI::Validator number_from_0() {
  return check("number from 0", [](const std::string &text) {
    double number = 0;
    return read_number(text, number) && number >= 0;
  });
}

CLI::Validator number_above_0() {
  return check("number above 0", [](const std::string &text) {
    double number = 0;
    return read_number(text, number) && number > 0;
  });
}

CLI::Validator one_of(std::vector<std::string> words) {
  return CLI::Validator{[words = std::move(words)](std::string &text) {
                          return std::find(words.begin(), words.end(), text) != words.end()
                                     ? std::string{}
                                     : "'" + text + "' is none of " + joined(words, ", ");
                        },
                        ""};
}

void use_own_help(CLI::App &app) {
  app.formatter(std::make_shared<HelpFormatter>());
  app.set_help_flag("-h,--help", "Tell about it");
}

std::string told(const CLI::App &app, const CLI::ParseError &error, int count, char **words) {
  const auto parsed = app.get_subcommands();
  if (parsed.empty() && (dynamic_cast<const CLI::RequiredError *>(&error) != nullptr ||
                         dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr))
    return about_command(app, count, words);
  if (dynamic_cast<const CLI::ExtrasError *>(&error) != nullptr)
    for (const std::string &word : app.remaining(true))
      return is_option(word) ? about_unknown(word.substr(0, word.find('=')), "option",
                                             option_names(*parsed.front()))
                             : "'" + word + "' is one argument too many";
  std::string text = error.what();
  if (dynamic_cast<const CLI::ArgumentMismatch *>(&error) != nullptr)
    return text.substr(0, text.find(':')) + " needs a value";
  return text;
}

} // namespace varro2::cli
