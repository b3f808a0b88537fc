// describe: everything about the declarations of a topic.
#include "commands.hpp"

#include "catalogue.hpp"
#include "expression.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "session.hpp"
#include "table.hpp"
#include "text.hpp"

namespace varro2::cli {
namespace {

struct Arguments {
  std::string what;
  bool json = false;
};

// What tells this property from others: all that its declaration fixes.
Expression expression_for(const Record &record) {
  Expression expression;
  for (const Pair &pair : record.pairs) {
    Test test;
    test.key = pair.key;
    test.name_space = pair.name_space;
    test.any_value = pair.open;
    if (!pair.open)
      test.value = pair.value;
    expression.lists.front().push_back(std::move(test));
  }
  return expression;
}

class Describer {
 public:
  explicit Describer(Program &program) : program_{program} {}

  void text(const Record &record, const DeclaredType *type, const std::optional<Record> &now,
            const std::string &why) {
    const Style &style = program_.style;
    Output &out = program_.out;
    const std::string topic = topic_of(record);
    out.line(style.bold(topic.empty() ? "(no topic)" : printable(topic)));
    std::vector<std::string> facts;
    if (record.declaration_id != 0)
      facts.push_back("declaration " + std::to_string(record.declaration_id) + " of producer " +
                      std::to_string(record.producer_id));
    if (type != nullptr)
      facts.push_back("declaration type " + printable(type->handle()));
    if (record.property)
      facts.push_back(style.cyan("property"));
    if (record.internal)
      facts.push_back(style.cyan("internal"));
    for (const std::string &tag : record.tags)
      facts.push_back(style.yellow("{" + printable(tag) + '}'));
    if (!facts.empty())
      out.line("  " + joined(facts, ", "));
    keys(record, now);
    if (record.property && record.declaration_id != 0 && !now)
      out.line("  " + style.yellow("present state not known: ") + printable(why));
  }

 private:
  void keys(const Record &record, const std::optional<Record> &now) {
    const Style &style = program_.style;
    Table table{
        {"KEY", "TYPE", "VALUE", "NOW", "NAME", "VALUE'S NAME", "USER STRING", "COMPLEX", "TAGS"}};
    for (const Pair &pair : record.pairs) {
      const std::string key =
          (pair.name_space.empty() ? "" : printable(pair.name_space) + ':') + printable(pair.key);
      const std::string value = pair.open ? "any" : printable(quoted_if_needed(pair.value));
      const std::string *present = now && pair.open ? now->value_of(pair.key) : nullptr;
      const std::string present_text =
          present != nullptr ? printable(quoted_if_needed(*present)) : "";
      const std::string tags = printable(joined(pair.tags, ", "));
      table.add({key,
                 {type_name(pair.type), style.dim(type_name(pair.type))},
                 {value, pair.open ? style.dim(value) : style.green(value)},
                 {present_text, style.green(present_text)},
                 printable(pair.key_nice_name),
                 printable(pair.value_nice_name),
                 printable(pair.user_string),
                 printable(pair.complex_type),
                 {tags, style.yellow(tags)}});
    }
    if (!table.empty())
      table.write(program_.out, style, "  ");
  }

  Program &program_;
};

class Description {
 public:
  Description(Program &program, const Arguments &arguments)
      : program_{program}, arguments_{arguments} {}

  bool add(Session &session, const Record &record, const DeclaredType *type = nullptr) {
    std::optional<Record> now;
    std::string why;
    if (record.property && record.declaration_id != 0) {
      if (!asker_)
        asker_ = std::make_unique<Subscriber>(session);
      now = ask_state(asker_->get(), *build(expression_for(record)), &why);
      if (now)
        take_types(*now, {record});
    }
    if (arguments_.json) {
      const OwnedJson json = to_json(record);
      if (type != nullptr)
        put(json, "number", json_integer(static_cast<json_int_t>(type->number)));
      if (type != nullptr && !type->name.empty())
        put(json, "type", json_text(type->name));
      if (now)
        put(json, "state", json_incref(json_object_get(to_json(*now).get(), "values")));
      program_.out.line(dump(json.get()));
      return true;
    }
    if (any_)
      program_.out.line("");
    any_ = true;
    Describer{program_}.text(record, type, now, why);
    return true;
  }

 private:
  Program &program_;
  const Arguments &arguments_;
  std::unique_ptr<Subscriber> asker_;
  bool any_ = false;
};

std::string hint(const std::string &what, const std::vector<Record> &records) {
  std::vector<std::string> topics;
  for (const Record &record : records) {
    topics.push_back(topic_of(record));
    topics.push_back(plain_topic_of(record));
  }
  const std::string meant = nearest(what, topics);
  return meant.empty() ? "" : "; did you mean '" + meant + "'?";
}

int describe(Program &program, const Arguments &arguments) {
  Session session;
  session.require_switch();
  Description description{program, arguments};
  bool any = false;
  const std::vector<Record> records = ask_declarations();
  for (const Record &record : records)
    if (is_meant(record, arguments.what))
      any = description.add(session, record);
  for (const DeclaredType &type : ask_types())
    if (type.handle() == arguments.what || is_meant(type.record, arguments.what))
      any = description.add(session, type.record, &type);
  if (!any)
    throw Failure{"'" + printable(arguments.what) +
                      "' is neither a topic, an id nor a type that is known" +
                      hint(arguments.what, records),
                  exit_nothing};
  return exit_done;
}

} // namespace

void add_describe(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command =
      app.add_subcommand("describe", "Show all about a topic, a declaration or a type");
  command
      ->add_option("TOPIC-OR-ID", arguments->what,
                   "A topic, its beginning or end, an id, or a type")
      ->required();
  command->add_flag("--json", arguments->json, "One object a line");
  command->footer("For a property also its present state, asked of its producer.\n"
                  "  varro2 describe tns1:Monitoring/FileSystem\n"
                  "  varro2 describe 7");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return describe(program, *arguments); };
  });
}

} // namespace varro2::cli
