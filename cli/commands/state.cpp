// state: the present state of a property.
#include "commands.hpp"

#include "catalogue.hpp"
#include "expression.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "render.hpp"
#include "session.hpp"
#include "text.hpp"

namespace varro2::cli {
namespace {

struct Arguments {
  std::vector<std::string> expression;
  bool json = false;
};

int state(Program &program, const Arguments &arguments) {
  const Expression expression = expression_argument(arguments.expression);
  Session session;
  session.require_switch();
  Subscriber asker{session};
  std::string why;
  int code = 0;
  std::optional<Record> record = ask_state(asker.get(), *build(expression), &why, &code);
  if (!record)
    throw Failure{"no state: " + why,
                  code == EVENT_ERROR_LOOKING_UP_PROP_STATE ? exit_nothing : exit_failed};
  take_types(*record, ask_declarations());
  if (arguments.json) {
    program.out.line(dump(to_json(*record).get()));
    return exit_done;
  }
  const Style &style = program.style;
  std::string line = style.bold(printable(topic_of(*record)));
  line += (line.empty() ? "" : " ") + values_text(*record, style);
  for (const Pair &pair : record->pairs)
    if (has_tag(pair, state_tag))
      line += style.yellow("  {state: " + printable(pair.key) + '}');
  program.out.line(line);
  return exit_done;
}

} // namespace

void add_state(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("state", "Show the present state of a property");
  command->add_option("EXPRESSION", arguments->expression, "Which property")->required();
  command->add_flag("--json", arguments->json, "As one object");
  command->footer(
      R"(Where several properties fit, the first that tells its state is shown. Ends
with 3 when none fits or none knows its state. See varro2 monitor --help for
expressions.
  varro2 state 'topic1=NetworkLink & interface=eth0')");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return state(program, *arguments); };
  });
}

} // namespace varro2::cli
