// explain: why an event fits an expression, or why not.
#include "commands.hpp"

#include "catalogue.hpp"
#include "evaluate.hpp"
#include "eventfile.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "render.hpp"
#include "session.hpp"
#include "text.hpp"

#include <algorithm>

namespace varro2::cli {
namespace {

struct Arguments {
  std::string expression;
  std::string file;
  bool live = false;
  bool json = false;
};

class Explainer {
 public:
  Explainer(Program &program, const Arguments &arguments)
      : out_{program.out}, style_{program.style}, arguments_{arguments},
        expression_{expression_argument(arguments.expression)} {}

  int run() {
    if (arguments_.file.empty() && !arguments_.live)
      return form_only();
    bool delivered = true;
    if (!arguments_.file.empty())
      for (const EventLine &event : read_event_file(arguments_.file))
        delivered = explain(event) && delivered;
    if (arguments_.live)
      delivered = explain_declarations() && delivered;
    return delivered ? exit_done : exit_nothing;
  }

 private:
  int form_only() {
    if (arguments_.json) {
      const OwnedJson json{json_object()};
      put(json, "expression", json_text(to_string(expression_)));
      out_.line(dump(json.get()));
      return exit_done;
    }
    out_.line("an event fits when all tests of one list hold:");
    for (std::size_t index = 0; index < expression_.lists.size(); ++index)
      out_.line("  list " + std::to_string(index + 1) + "  " +
                tests_text(expression_.lists[index]));
    return exit_done;
  }

  static std::string tests_text(const AndList &list) {
    std::vector<std::string> tests;
    for (const Test &test : list)
      tests.push_back(printable(to_string(test)));
    return tests.empty() ? "(no tests: everything fits)" : joined(tests, " & ");
  }

  bool explain(const EventLine &event) {
    const auto findings = evaluate(expression_, event.record);
    const bool fits = std::any_of(findings.begin(), findings.end(),
                                  [](const ListFinding &finding) { return finding.holds; });
    const std::vector<std::string> open = open_keys(event.record);
    if (arguments_.json)
      out_.line(dump(json(event, findings, fits, open).get()));
    else
      text(event, findings, fits, open);
    return fits && open.empty();
  }

  static std::vector<std::string> open_keys(const Record &record) {
    std::vector<std::string> keys;
    for (const Pair &pair : record.pairs)
      if (pair.open)
        keys.push_back(pair.key);
    return keys;
  }

  void text(const EventLine &event, const std::vector<ListFinding> &findings, bool fits,
            const std::vector<std::string> &open) {
    out_.line(style_.bold((arguments_.file == "-" ? "standard input" : printable(arguments_.file)) +
                          ':' + std::to_string(event.line)) +
              ": " + (fits ? style_.green("fits") : style_.red("does not fit")) + "  " +
              printable(topic_of(event.record)) + ' ' + values_text(event.record, style_));
    for (std::size_t index = 0; index < findings.size(); ++index)
      list_text(index, findings[index]);
    if (!open.empty())
      out_.line("  " + style_.red("not sent: ") + joined(open, ", ") +
                (open.size() == 1 ? " has no value" : " have no values"));
    if (!arguments_.live && !event.record.internal && event.record.find("topic0") == nullptr)
      out_.line("  " + style_.yellow("note: ") +
                "an event without topic0 can only be declared as internal");
  }

  void list_text(std::size_t index, const ListFinding &finding) {
    const std::string mark = finding.holds ? style_.green(std::string{style_.check()})
                                           : style_.red(std::string{style_.cross()});
    const AndList &list = expression_.lists[index];
    if (expression_.lists.size() > 1)
      out_.line("  list " + std::to_string(index + 1) + ' ' + mark);
    std::size_t width = 0;
    for (const Test &test : list)
      width = std::max(width, width_of(printable(to_string(test))));
    for (std::size_t test = 0; test < list.size(); ++test) {
      const Finding &found = finding.tests[test];
      const std::string sign = found.holds ? style_.green(std::string{style_.check()})
                                           : style_.red(std::string{style_.cross()});
      out_.line("    " + sign + ' ' + padded(printable(to_string(list[test])), width) + "  " +
                style_.dim(printable(found.reason)));
    }
  }

  OwnedJson json(const EventLine &event, const std::vector<ListFinding> &findings, bool fits,
                 const std::vector<std::string> &open) const {
    OwnedJson object{json_object()};
    put(object, "line", json_integer(static_cast<json_int_t>(event.line)));
    put(object, "fits", json_boolean(fits));
    json_t *lists = json_array();
    for (std::size_t index = 0; index < findings.size(); ++index) {
      json_t *tests = json_array();
      for (std::size_t test = 0; test < findings[index].tests.size(); ++test) {
        OwnedJson entry{json_object()};
        put(entry, "test", json_text(to_string(expression_.lists[index][test])));
        put(entry, "holds", json_boolean(findings[index].tests[test].holds));
        put(entry, "reason", json_text(findings[index].tests[test].reason));
        json_array_append_new(tests, entry.release());
      }
      json_array_append_new(lists, tests);
    }
    put(object, "lists", lists);
    if (!open.empty())
      put(object, "without_value", json_texts(open));
    return object;
  }

  // Whose events could come at all.
  bool explain_declarations() {
    Session session;
    session.require_switch();
    std::size_t fitting = 0;
    for (const Record &record : ask_declarations()) {
      const bool fits = holds(expression_, record);
      fitting += fits;
      if (arguments_.json) {
        OwnedJson object = to_json(record);
        put(object, "fits", json_boolean(fits));
        out_.line(dump(object.get()));
        continue;
      }
      out_.line((fits ? style_.green(std::string{style_.check()})
                      : style_.red(std::string{style_.cross()})) +
                " declaration " + std::to_string(record.declaration_id) + "  " +
                printable(topic_of(record)) + "  " +
                style_.dim(fits ? "its events can fit" : first_failure(record)));
    }
    if (fitting == 0)
      out_.line(style_.red("no declaration can have events that fit: nothing will be delivered"));
    return fitting > 0;
  }

  std::string first_failure(const Record &record) const {
    for (const ListFinding &finding : evaluate(expression_, record))
      for (const Finding &test : finding.tests)
        if (!test.holds)
          return test.reason;
    return "";
  }

  Output &out_;
  const Style &style_;
  const Arguments &arguments_;
  Expression expression_;
};

} // namespace

void add_explain(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("explain", "Say why an event fits an expression or not");
  command->add_option("EXPRESSION", arguments->expression, "In quotes, one argument")->required();
  command->add_option("FILE", arguments->file,
                      "Events as varro2 monitor --json shows them; '-': stdin");
  command->add_flag("--live", arguments->live,
                    "Also which declarations could have events that fit");
  command->add_flag("--json", arguments->json, "One object a line");
  command->footer(
      R"(Ends with 3 when an event would not be delivered. Without FILE and --live it
shows what the expression comes to.
  varro2 explain 'port=1 | port=2' event.json
  echo '{"port":3}' | varro2 explain 'port=1 | port=2' -)");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return Explainer{program, *arguments}.run(); };
  });
}

} // namespace varro2::cli
