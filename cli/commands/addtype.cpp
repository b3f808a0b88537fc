// add-type and remove-type: the declaration types that the switch keeps.
#include "commands.hpp"

#include "eventfile.hpp"
#include "failure.hpp"
#include "log.hpp"
#include "publisher.hpp"
#include "xmlcheck.hpp"

namespace varro2::cli {
namespace {

constexpr double patience = 30; // seconds

struct Arguments {
  std::string name;
  std::string file;
};

struct Answer {
  bool given = false;
  OwnedError error;
};

void on_answer(const char *, gpointer data, GError *error) {
  auto &answer = *static_cast<Answer *>(data);
  answer.given = true;
  answer.error.reset(error);
}

OwnedDeclaration declaration_in(const std::string &file) {
  const std::string text = read_file(file);
  const Document document = check_document(text);
  std::string report;
  for (const Problem &problem : document.problems) {
    const std::string line = file + ':' + std::to_string(problem.line) + ':' +
                             std::to_string(problem.column) + ": " + problem.text;
    if (problem.error)
      report += (report.empty() ? "" : "\n") + line;
    else
      note_warning(line);
  }
  if (!document.usable())
    throw Failure{report};
  if (document.kind != DocumentKind::declaration)
    throw Failure{file + ": is no declaration but " +
                  (document.kind == DocumentKind::expression ? "an " : "a ") +
                  name_of(document.kind)};
  const QuietLog log;
  OwnedDeclaration declaration{event_declaration_deserialize_xml(text.c_str())};
  if (!declaration)
    throw Failure{file + ": cannot be read"};
  return declaration;
}

std::string told(const std::string &name, const GError &error) {
  switch (error.code) {
  case EVENT_ERROR_ALREADY_EXISTS:
    return "there is already a type '" + name + "'";
  case EVENT_ERROR_NOT_REGISTERED:
    return "there is no type '" + name + "' that could be removed";
  default:
    return error.message;
  }
}

void await(Session &session, const std::string &name, const Answer &answer) {
  if (!iterate_until(session, patience, [&] { return answer.given; }))
    fail_waiting(session, "the switch did not answer in time");
  if (answer.error)
    throw Failure{told(name, *answer.error)};
}

int add_type(const Arguments &arguments) {
  const OwnedDeclaration declaration = declaration_in(arguments.file);
  Session session;
  session.require_switch();
  session.quit_on_signals(exit_interrupted);
  Answer answer;
  Sender sender{session};
  event_producer_add_declaration(sender.get(), arguments.name.c_str(), declaration.get(), on_answer,
                                 &answer);
  await(session, arguments.name, answer);
  return exit_done;
}

int remove_type(const Arguments &arguments) {
  Session session;
  session.require_switch();
  session.quit_on_signals(exit_interrupted);
  Answer answer;
  Sender sender{session};
  event_producer_remove_declaration(sender.get(), arguments.name.c_str(), on_answer, &answer);
  await(session, arguments.name, answer);
  return exit_done;
}

} // namespace

void add_add_type(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("add-type", "Have the switch keep a declaration type");
  command->add_option("NAME", arguments->name, "What producers will register")->required();
  command->add_option("FILE", arguments->file, "The declaration as XML; '-': standard input")
      ->required();
  command->footer("The file is checked as by varro2 lint first. A type that is there is not\n"
                  "replaced: varro2 remove-type it before.\n"
                  "  varro2 add-type door door.xml");
  command->callback(
      [&program, arguments] { program.command = [arguments] { return add_type(*arguments); }; });
}

void add_remove_type(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command =
      app.add_subcommand("remove-type", "Have the switch forget a declaration type");
  command->add_option("NAME", arguments->name, "Which")->required();
  command->footer("Only types that were added can be removed, not those of the system.");
  command->callback(
      [&program, arguments] { program.command = [arguments] { return remove_type(*arguments); }; });
}

} // namespace varro2::cli
