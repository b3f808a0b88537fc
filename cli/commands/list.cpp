// list and types: what is declared, a row each.
#include "commands.hpp"

#include "catalogue.hpp"
#include "evaluate.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "render.hpp"
#include "session.hpp"
#include "table.hpp"
#include "text.hpp"

namespace varro2::cli {
namespace {

struct Arguments {
  std::vector<std::string> expression;
  bool json = false;
};

std::string kind_of(const Record &record) {
  std::vector<std::string> kinds;
  if (record.property)
    kinds.emplace_back("property");
  if (record.internal)
    kinds.emplace_back("internal");
  return joined(kinds, ", ");
}

Table::Cell topic_cell(const Record &record, const Style &style) {
  const std::string topic = printable(topic_of(record));
  if (topic.empty())
    return {"(none)", style.dim("(none)")};
  return {topic, style.bold(topic)};
}

Table::Cell values_cell(const Record &record, const Style &style) {
  return {values_text(record, Style{}), values_text(record, style)};
}

Table::Cell kind_cell(const Record &record, const Style &style) {
  return {kind_of(record), style.cyan(kind_of(record))};
}

int list(Program &program, const Arguments &arguments) {
  const Expression expression = expression_argument(arguments.expression);
  Session session;
  session.require_switch();
  Table table{{"ID", "TOPIC", "KEYS", "KIND", "PRODUCER"}};
  bool any = false;
  for (const Record &record : ask_declarations()) {
    if (!holds(expression, record))
      continue;
    any = true;
    if (arguments.json)
      program.out.line(dump(to_json(record).get()));
    else
      table.add({std::to_string(record.declaration_id), topic_cell(record, program.style),
                 values_cell(record, program.style), kind_cell(record, program.style),
                 std::to_string(record.producer_id)});
  }
  if (!any)
    throw Failure{arguments.expression.empty() ? "nothing is declared"
                                               : "no declaration fits the expression",
                  exit_nothing};
  if (!arguments.json)
    table.write(program.out, program.style);
  return exit_done;
}

int types(Program &program, const Arguments &arguments) {
  Session session;
  session.require_switch();
  Table table{{"TYPE", "TOPIC", "KEYS", "KIND", "FILE"}};
  bool any = false;
  for (const DeclaredType &type : ask_types()) {
    any = true;
    if (arguments.json) {
      const OwnedJson json = to_json(type.record);
      put(json, "number", json_integer(static_cast<json_int_t>(type.number)));
      if (!type.name.empty()) {
        put(json, "type", json_text(type.name));
        put(json, "file", json_text(type.file));
      }
      program.out.line(dump(json.get()));
      continue;
    }
    const std::string name = printable(type.handle());
    table.add({{name, type.name.empty() ? program.style.dim(name) : program.style.green(name)},
               topic_cell(type.record, program.style),
               values_cell(type.record, program.style),
               kind_cell(type.record, program.style),
               {type.file, program.style.dim(type.file)}});
  }
  if (!any)
    throw Failure{"the switch knows no declaration types", exit_nothing};
  if (!arguments.json)
    table.write(program.out, program.style);
  return exit_done;
}

} // namespace

void add_list(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("list", "Show what is declared, a row each");
  command->add_option("EXPRESSION", arguments->expression,
                      "Only declarations whose events could fit it");
  command->add_flag("--json", arguments->json, "One object a line");
  command->footer(std::string{expression_help} + R"(
Keys are shown with their fixed value, or with their type where events fill it.
  varro2 list 'topic0=Monitoring')");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return list(program, *arguments); };
  });
}

void add_types(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("types", "Show the declaration types");
  command->add_flag("--json", arguments->json, "One object a line");
  command->footer(R"(A type is a declaration that producers register by its name (varro2 send). The
name is that of the file that holds it. A type that is in neither of
  /usr/share/event/declarations.d and /etc/event_switch/declarations.d
here, because the switch keeps its types elsewhere, cannot be registered from
here; it is shown by its number, which describe takes: varro2 describe '#2')");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return types(program, *arguments); };
  });
}

} // namespace varro2::cli
