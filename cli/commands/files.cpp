// lint and convert: declaration, expression and property files.
#include "commands.hpp"

#include "eventfile.hpp"
#include "failure.hpp"
#include "log.hpp"
#include "recordjson.hpp"
#include "text.hpp"
#include "xmlcheck.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <variant>

namespace varro2::cli {
namespace {

// ---- lint

struct LintArguments {
  std::vector<std::string> files;
  bool json = false;
  bool strict = false;
};

void show(Program &program, const std::string &file, const Problem &problem, bool json) {
  if (json) {
    OwnedJson object{json_object()};
    put(object, "file", json_text(file));
    put(object, "line", json_integer(static_cast<json_int_t>(problem.line)));
    put(object, "column", json_integer(static_cast<json_int_t>(problem.column)));
    put(object, "severity", json_string(problem.error ? "error" : "warning"));
    put(object, "text", json_text(problem.text));
    program.out.line(dump(object.get()));
    return;
  }
  const Style &style = program.style;
  program.out.line(style.bold(printable(file) + ':' + std::to_string(problem.line) + ':' +
                              std::to_string(problem.column) + ':') +
                   ' ' + (problem.error ? style.red("error:") : style.yellow("warning:")) + ' ' +
                   printable(problem.text));
}

int lint(Program &program, const LintArguments &arguments) {
  std::size_t errors = 0;
  std::size_t warnings = 0;
  for (const std::string &file : arguments.files) {
    Document document;
    try {
      document = check_document(read_file(file));
    } catch (const Failure &failure) {
      note(failure.what());
      ++errors;
      continue;
    }
    for (const Problem &problem : document.problems) {
      show(program, file, problem, arguments.json);
      (problem.error ? errors : warnings) += 1;
    }
    if (document.problems.empty() && !arguments.json)
      program.out.line(program.style.bold(printable(file) + ':') + ' ' +
                       program.style.green("good") + " (" + name_of(document.kind) + ')');
  }
  return errors > 0 || (arguments.strict && warnings > 0) ? exit_failed : exit_done;
}

// ---- convert

struct ConvertArguments {
  std::string file;
  std::string to;
  std::string output;
};

// One object of any kind, held by what the library made of it.
using Object = std::variant<OwnedDeclaration, OwnedEvent, OwnedExpression, OwnedPropertyState,
                            OwnedNotification>;

Object read_xml(const std::string &path, const std::string &text) {
  const Document document = check_document(text);
  if (!document.usable()) {
    std::string report;
    for (const Problem &problem : document.problems)
      if (problem.error)
        report += (report.empty() ? "" : "\n") + path + ':' + std::to_string(problem.line) + ':' +
                  std::to_string(problem.column) + ": " + problem.text;
    throw Failure{report};
  }
  const QuietLog log;
  switch (document.kind) {
  case DocumentKind::declaration:
    if (OwnedDeclaration object{event_declaration_deserialize_xml(text.c_str())})
      return object;
    break;
  case DocumentKind::expression:
    if (OwnedExpression object{subscribe_expression_deserialize_xml(text.c_str())})
      return object;
    break;
  default:
    if (OwnedPropertyState object{property_state_deserialize_xml(text.c_str())})
      return object;
  }
  throw Failure{path + ": " + (log.warnings().empty() ? "cannot be read" : log.warnings().front())};
}

// The byte that opens a record that can be converted; 0 for none.
guint8 record_id(const std::string &bytes) {
  const auto id = bytes.empty() ? guint8{0} : static_cast<guint8>(bytes.front());
  switch (id) {
  case SERIALIZE_ID_EVENT_DECLARATION:
  case SERIALIZE_ID_EVENT:
  case SERIALIZE_ID_SUBSCRIBE_EXPRESSION:
  case SERIALIZE_ID_PROPERTY_STATE:
  case SERIALIZE_ID_NOTIFICATION:
    return id;
  default:
    return 0;
  }
}

Object read_record(guint8 id, const GByteArray *bytes, guint32 *position) {
  switch (id) {
  case SERIALIZE_ID_EVENT_DECLARATION:
    return OwnedDeclaration{event_declaration_deserialize_internal(bytes, position)};
  case SERIALIZE_ID_EVENT:
    return OwnedEvent{event_deserialize_internal(bytes, position)};
  case SERIALIZE_ID_SUBSCRIBE_EXPRESSION:
    return OwnedExpression{subscribe_expression_deserialize_internal(bytes, position)};
  case SERIALIZE_ID_PROPERTY_STATE:
    return OwnedPropertyState{property_state_deserialize_internal(bytes, position)};
  default:
    return OwnedNotification{notification_deserialize_internal(bytes, position)};
  }
}

Object read_binary(const std::string &path, const std::string &text) {
  const OwnedBytes bytes{g_byte_array_new()};
  g_byte_array_append(bytes.get(), reinterpret_cast<const guint8 *>(text.data()),
                      static_cast<guint>(text.size()));
  // The library trusts what it reads.
  if (!serialize_is_valid_record(bytes.get(), 0, record_id(text)))
    throw Failure{path + ": the record is damaged or cut off"};
  guint32 position = 0;
  Object object = read_record(record_id(text), bytes.get(), &position);
  if (position != bytes->len)
    throw Failure{path + ": " + plural(bytes->len - position, "byte") + " after the record"};
  return object;
}

Object read_object(const std::string &path) {
  const std::string text = read_file(path);
  const std::string name = path == "-" ? "standard input" : path;
  const std::size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos)
    throw Failure{name + ": is empty"};
  if (record_id(text) != 0)
    return read_binary(name, text);
  if (text[begin] == '{') {
    const auto event = parse_event(text, path, 1);
    if (!event)
      throw Failure{name + ": a notification cannot be converted from JSON"};
    return make_event(event->record);
  }
  if (text[begin] == '<' || text.starts_with("\xEF\xBB\xBF"))
    return read_xml(name, text);
  throw Failure{name + ": neither XML nor JSON nor a binary record"};
}

template <auto serialize>
std::string binary_of(const auto *object) {
  const OwnedBytes bytes{serialize(object)};
  return {reinterpret_cast<const char *>(bytes->data), bytes->len};
}

std::string to_binary(const Object &object) {
  struct Visitor {
    std::string operator()(const OwnedDeclaration &it) const {
      return binary_of<event_declaration_serialize>(it.get());
    }
    std::string operator()(const OwnedEvent &it) const {
      return binary_of<event_serialize>(it.get());
    }
    std::string operator()(const OwnedExpression &it) const {
      return binary_of<subscribe_expression_serialize>(it.get());
    }
    std::string operator()(const OwnedPropertyState &it) const {
      return binary_of<property_state_serialize>(it.get());
    }
    std::string operator()(const OwnedNotification &it) const {
      return binary_of<notification_serialize>(it.get());
    }
  };
  return std::visit(Visitor{}, object);
}

std::string to_dump(const Object &object) {
  struct Visitor {
    void operator()(const OwnedDeclaration &it) const { event_declaration_print(it.get()); }
    void operator()(const OwnedEvent &it) const { event_print(it.get()); }
    void operator()(const OwnedExpression &it) const { subscribe_expression_print(it.get()); }
    void operator()(const OwnedPropertyState &it) const { property_state_print(it.get()); }
    void operator()(const OwnedNotification &it) const { notification_print(it.get()); }
  };
  std::string text;
  for (const std::string &line : printed([&] { std::visit(Visitor{}, object); }))
    text += printable(line) + '\n';
  return text;
}

// The tree with an element on each line, as people write these files.
void write_indented(const XmlNode *node, const std::string &indent, std::string &text) {
  const OwnedXml bare{xmlnode_create_node()};
  bare->name = g_strdup(node->name);
  for (const GList *at = node->attributes; at != nullptr; at = at->next) {
    const auto *attribute = static_cast<const XmlAttribute *>(at->data);
    xmlnode_add_attribute(bare.get(), attribute->name, attribute->value);
  }
  const OwnedText written{xmlnode_get_xml_escape_newline(bare.get())};
  std::string tag = written.get();
  if (node->children == nullptr) {
    text += indent + tag + '\n';
    return;
  }
  tag.erase(tag.rfind(tag.ends_with("/>") ? "/>" : "></"));
  text += indent + tag + ">\n";
  for (const GList *at = node->children; at != nullptr; at = at->next)
    write_indented(static_cast<const XmlNode *>(at->data), indent + "  ", text);
  text += indent + "</" + node->name + ">\n";
}

std::string to_xml(const Object &object) {
  OwnedXml node;
  if (const auto *declaration = std::get_if<OwnedDeclaration>(&object))
    node.reset(event_declaration_serialize_xmlnode(declaration->get()));
  else if (const auto *expression = std::get_if<OwnedExpression>(&object))
    node.reset(subscribe_expression_serialize_xmlnode(expression->get()));
  else if (const auto *state = std::get_if<OwnedPropertyState>(&object))
    node.reset(property_state_serialize_xmlnode(state->get()));
  else
    throw Failure{"events and notifications have no XML form"};
  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
  write_indented(node.get(), "", text);
  return text;
}

std::string to_json_text(const Object &object) {
  if (const auto *event = std::get_if<OwnedEvent>(&object))
    return dump(to_json(read_event(**event)).get()) + '\n';
  if (const auto *declaration = std::get_if<OwnedDeclaration>(&object))
    return dump(to_json(read_declaration(**declaration)).get()) + '\n';
  if (const auto *state = std::get_if<OwnedPropertyState>(&object))
    return dump(to_json(read_property_state(**state)).get()) + '\n';
  throw Failure{"only events, declarations and property states have a JSON form"};
}

void write_result(Program &program, const ConvertArguments &arguments, const std::string &text) {
  if (arguments.output.empty() || arguments.output == "-") {
    if (arguments.to == "binary" && is_terminal(STDOUT_FILENO))
      throw UsageError{"--to binary: a terminal is no place for it; use --output FILE"};
    program.out.bytes(text);
    return;
  }
  std::ofstream file{arguments.output, std::ios::binary | std::ios::trunc};
  file << text;
  file.close();
  if (!file)
    throw Failure{arguments.output + ": " + std::strerror(errno)};
}

int convert(Program &program, const ConvertArguments &arguments) {
  const Object object = read_object(arguments.file);
  write_result(program, arguments,
               arguments.to == "xml"      ? to_xml(object)
               : arguments.to == "binary" ? to_binary(object)
               : arguments.to == "json"   ? to_json_text(object)
                                          : to_dump(object));
  return exit_done;
}

} // namespace

void add_lint(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<LintArguments>();
  CLI::App *command =
      app.add_subcommand("lint", "Check declaration, expression and property files");
  command->add_option("FILE", arguments->files, "XML files; '-': standard input")->required();
  command->add_flag("--json", arguments->json, "One object a line");
  command->add_flag("--strict", arguments->strict, "Fail on warnings too");
  command->footer(
      R"(Each mistake with file, line, column and what is allowed. Errors are what cannot
be used; warnings are what is read, but probably not as it was meant. Ends with
1 when there are errors.
  varro2 lint data/declarations.d/*.xml)");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return lint(program, *arguments); };
  });
}

void add_convert(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<ConvertArguments>();
  arguments->to = "dump";
  CLI::App *command = app.add_subcommand("convert", "Convert between XML, binary, JSON and a dump");
  command->add_option("FILE", arguments->file, "XML, JSON or a binary record; '-': standard input")
      ->required();
  command->add_option("--to", arguments->to, "xml, binary, json or dump, to be read (dump)")
      ->check(one_of({"xml", "binary", "json", "dump"}))
      ->type_name("FORM");
  command->add_option("-o,--output", arguments->output, "Instead of the standard output")
      ->type_name("FILE");
  command->footer(R"(What FILE holds is seen from its first byte.
  varro2 convert door.xml --to binary --output door.bin
  varro2 convert door.bin)");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return convert(program, *arguments); };
  });
}

} // namespace varro2::cli
