// tree: the topics with what is declared below them.
#include "commands.hpp"

#include "failure.hpp"
#include "log.hpp"
#include "pairs.hpp"
#include "recordjson.hpp"
#include "render.hpp"
#include "session.hpp"
#include "text.hpp"

#include <algorithm>

namespace varro2::cli {
namespace {

struct Arguments {
  bool types = false;
  bool json = false;
};

inline void free_tree(GNode *tree) noexcept {
  event_query_free_topic_tree(tree);
}
using OwnedTree = Owned<GNode, free_tree>;

const TopicNode &topic_in(const GNode *node) {
  return *static_cast<const TopicNode *>(node->data);
}

// The library keeps them newest first.
std::vector<Record> events_in(const TopicNode &topic) {
  std::vector<Record> records;
  for (const GSList *at = topic.events; at != nullptr; at = at->next)
    records.push_back(read_event(*static_cast<const ::Event *>(at->data)));
  std::reverse(records.begin(), records.end());
  return records;
}

std::vector<std::string> tags_in(const TopicNode &topic) {
  std::vector<std::string> tags;
  GHashTableIter at;
  gpointer tag = nullptr;
  g_hash_table_iter_init(&at, topic.tags);
  while (g_hash_table_iter_next(&at, &tag, nullptr))
    tags.emplace_back(static_cast<const char *>(tag));
  std::sort(tags.begin(), tags.end());
  return tags;
}

std::string text_or_empty(const char *text) {
  return text != nullptr ? text : "";
}

class TreeWriter {
 public:
  TreeWriter(Output &out, const Style &style) : out_{out}, style_{style} {}

  void write(const GNode *root) {
    for (const GNode *node = root->children; node != nullptr; node = node->next) {
      out_.line(title(topic_in(node)));
      below(node, "");
    }
  }

 private:
  std::string title(const TopicNode &topic) const {
    std::string text;
    if (const std::string name_space = text_or_empty(topic.name_space); !name_space.empty())
      text = style_.dim(printable(name_space) + ':');
    text += style_.bold(printable(topic.topic));
    if (const std::string name = text_or_empty(topic.nice_name); !name.empty())
      text += "  \"" + printable(name) + '"';
    for (const std::string &tag : tags_in(topic))
      text += style_.yellow("  {" + printable(tag) + '}');
    return text;
  }

  std::string event_text(const Record &record) const {
    std::string text = style_.cyan(record.property ? "property" : "event");
    if (const std::string values = values_text(record, style_); !values.empty())
      text += ' ' + values;
    for (const Pair &pair : record.pairs)
      if (has_tag(pair, state_tag))
        text += style_.yellow("  {state: " + printable(pair.key) + '}');
    return text;
  }

  void below(const GNode *node, const std::string &indent) {
    const std::vector<Record> events = events_in(topic_in(node));
    for (std::size_t index = 0; index < events.size(); ++index) {
      const bool last = index + 1 == events.size() && node->children == nullptr;
      out_.line(indent + branch(last) + event_text(events[index]));
    }
    for (const GNode *child = node->children; child != nullptr; child = child->next) {
      const bool last = child->next == nullptr;
      out_.line(indent + branch(last) + title(topic_in(child)));
      below(child, indent + trunk(last));
    }
  }

  std::string branch(bool last) const {
    if (!style_.utf8())
      return style_.dim(last ? "`-- " : "|-- ");
    return style_.dim(last ? "└── " : "├── ");
  }
  std::string trunk(bool last) const {
    return last ? "    " : style_.dim(style_.utf8() ? "│   " : "|   ");
  }

  Output &out_;
  const Style &style_;
};

OwnedJson node_json(const GNode *node) {
  const TopicNode &topic = topic_in(node);
  OwnedJson json{json_object()};
  put(json, "topic", json_text(topic.topic));
  if (!text_or_empty(topic.name_space).empty())
    put(json, "namespace", json_text(topic.name_space));
  if (!text_or_empty(topic.nice_name).empty())
    put(json, "name", json_text(topic.nice_name));
  if (const auto tags = tags_in(topic); !tags.empty())
    put(json, "tags", json_texts(tags));
  OwnedJson events{json_array()};
  for (const Record &record : events_in(topic))
    json_array_append_new(events.get(), to_json(record).release());
  if (json_array_size(events.get()) > 0)
    put(json, "events", events.release());
  OwnedJson topics{json_array()};
  for (const GNode *child = node->children; child != nullptr; child = child->next)
    json_array_append_new(topics.get(), node_json(child).release());
  if (json_array_size(topics.get()) > 0)
    put(json, "topics", topics.release());
  return json;
}

OwnedTree ask_tree(bool types) {
  const QuietLog log;
  const OwnedQuery query{event_query_new()};
  OwnedTree tree{types ? event_query_get_declaration_type_tree(query.get())
                       : event_query_get_topic_tree(query.get())};
  if (tree->children == nullptr && !log.warnings().empty())
    throw Failure{"the switch did not answer: " + log.warnings().back()};
  return tree;
}

int tree(Program &program, const Arguments &arguments) {
  Session session;
  session.require_switch();
  const OwnedTree root = ask_tree(arguments.types);
  if (root->children == nullptr)
    throw Failure{arguments.types ? "the switch knows no declaration types with a topic"
                                  : "nothing is declared that has a topic",
                  exit_nothing};
  if (arguments.json)
    for (const GNode *node = root->children; node != nullptr; node = node->next)
      program.out.line(dump(node_json(node).get()));
  else
    TreeWriter{program.out, program.style}.write(root.get());
  return exit_done;
}

} // namespace

void add_tree(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("tree", "Show the topics as a tree");
  command->add_flag("--types", arguments->types, "Of the declaration types instead");
  command->add_flag("--json", arguments->json, "One object a line, one line for each first level");
  command->footer("Under each topic stand the declarations that end there, with their keys.\n"
                  "Declarations without a topic are internal: varro2 list shows them too.");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return tree(program, *arguments); };
  });
}

} // namespace varro2::cli
