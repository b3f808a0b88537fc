#include "catalogue.hpp"

#include "failure.hpp"
#include "log.hpp"
#include "text.hpp"

#include <algorithm>
#include <filesystem>
#include <set>

namespace varro2::cli {
namespace {

// Where the library looks a type up, in its order.
constexpr const char *folders[] = {"/usr/share/event/declarations.d",
                                   "/etc/event_switch/declarations.d"};
constexpr std::string_view suffix = ".xml";

struct TypeFile {
  std::string name;
  std::string path;
  OwnedDeclaration declaration;
};

std::vector<std::filesystem::path> files_in(const char *folder) {
  std::vector<std::filesystem::path> files;
  std::error_code failure;
  for (std::filesystem::directory_iterator at{folder, failure}, end; !failure && at != end;
       at.increment(failure))
    if (at->path().extension() == suffix && !at->path().filename().string().starts_with('.'))
      files.push_back(at->path());
  std::sort(files.begin(), files.end());
  return files;
}

std::vector<TypeFile> type_files() {
  std::vector<TypeFile> files;
  std::set<std::string> seen;
  for (const char *folder : folders)
    for (const std::filesystem::path &path : files_in(folder)) {
      OwnedDeclaration declaration{event_declaration_deserialize_xml_file(path.c_str())};
      if (declaration && seen.insert(path.stem().string()).second)
        files.push_back({path.stem().string(), path.string(), std::move(declaration)});
    }
  return files;
}

OwnedDeclarations ask(GList *(*question)(EventQuery *)) {
  const QuietLog log;
  const OwnedQuery query{event_query_new()};
  OwnedDeclarations list{question(query.get())};
  if (!list && !log.warnings().empty())
    throw Failure{"the switch did not answer: " + log.warnings().back()};
  return list;
}

} // namespace

std::vector<Record> ask_declarations() {
  const OwnedDeclarations list = ask(event_query_get_declarations);
  std::vector<Record> records;
  for (const GList *at = list.get(); at != nullptr; at = at->next)
    records.push_back(read_declaration(*static_cast<const EventDeclaration *>(at->data)));
  std::stable_sort(records.begin(), records.end(), [](const Record &one, const Record &other) {
    return one.declaration_id < other.declaration_id;
  });
  return records;
}

// The answer does not name the types, so the files that hold the same are looked for.
std::vector<DeclaredType> ask_types() {
  const OwnedDeclarations list = ask(event_query_get_declaration_types);
  std::vector<TypeFile> files;
  {
    const QuietLog log; // files that are no declarations
    files = type_files();
  }
  std::vector<DeclaredType> types;
  for (const GList *at = list.get(); at != nullptr; at = at->next) {
    const auto *declaration = static_cast<const EventDeclaration *>(at->data);
    DeclaredType type{types.size() + 1, {}, {}, read_declaration(*declaration)};
    const auto found = std::find_if(files.begin(), files.end(), [&](const TypeFile &file) {
      return inspectable_is_equal(event_declaration_get_inspectable(file.declaration.get()),
                                  event_declaration_get_inspectable(declaration));
    });
    if (found != files.end()) {
      type.name = found->name;
      type.file = found->path;
      files.erase(found); // two types may hold the same
    }
    types.push_back(std::move(type));
  }
  return types;
}

std::vector<std::string> type_names() {
  std::set<std::string> names;
  for (const char *folder : folders)
    for (const std::filesystem::path &path : files_in(folder))
      names.insert(path.stem().string());
  return {names.begin(), names.end()};
}

std::optional<Record> type_record(const std::string &type) {
  const QuietLog log;
  const OwnedDeclaration declaration{event_declaration_new_from_type(type.c_str())};
  if (!declaration)
    return {};
  return read_declaration(*declaration);
}

Record require_type(const std::string &type) {
  if (std::optional<Record> record = type_record(type))
    return std::move(*record);
  const std::string meant = nearest(type, type_names());
  throw Failure{"there is no declaration type '" + type + "'" +
                (meant.empty() ? " (varro2 types shows them)" : "; did you mean '" + meant + "'?")};
}

bool is_meant(const Record &record, const std::string &topic_or_id) {
  if (record.declaration_id != 0 && topic_or_id == std::to_string(record.declaration_id))
    return true;
  for (const std::string &topic : {topic_of(record), plain_topic_of(record)})
    if (!topic_or_id.empty() && (topic == topic_or_id || topic.starts_with(topic_or_id + '/') ||
                                 topic.ends_with('/' + topic_or_id)))
      return true;
  return false;
}

std::optional<Record> ask_state(EventConsumer *consumer, const SubscribeExpression &expression,
                                std::string *why, int *code) {
  GError *error = nullptr;
  const OwnedPropertyState state{event_consumer_get_property_state(consumer, &expression, &error)};
  const OwnedError owned{error};
  if (state)
    return read_property_state(*state);
  *why = owned ? owned->message : "the switch did not answer";
  if (code != nullptr)
    *code = owned ? owned->code : 0;
  return {};
}

void take_types(Record &state, const std::vector<Record> &declarations) {
  const auto is_of = [&](const Record &declaration) {
    return declaration.property && declaration.pairs.size() == state.pairs.size() &&
           std::all_of(state.pairs.begin(), state.pairs.end(), [&](const Pair &pair) {
             const Pair *declared = declaration.find(pair.key);
             return declared != nullptr && (declared->open || declared->value == pair.value);
           });
  };
  const auto found = std::find_if(declarations.begin(), declarations.end(), is_of);
  if (found == declarations.end())
    return;
  state.declaration_id = found->declaration_id;
  state.producer_id = found->producer_id;
  for (Pair &pair : state.pairs) {
    const Pair &declared = *found->find(pair.key);
    const std::string value = pair.value;
    pair = declared;
    pair.value = value;
    pair.open = false;
  }
}

} // namespace varro2::cli
