#include "topictree.hpp"

#include "eventproducer.hpp"
#include "preconditions.hpp"

#include <cstddef>

using namespace varro2;

static_assert(offsetof(TopicNode, name_space) == 0);
static_assert(offsetof(TopicNode, topic) == sizeof(void *));
static_assert(offsetof(TopicNode, nice_name) == 2 * sizeof(void *));
static_assert(offsetof(TopicNode, events) == 3 * sizeof(void *));
static_assert(offsetof(TopicNode, tags) == 4 * sizeof(void *));

namespace {

bool has_text(const char *text) {
  return text && *text;
}

void free_topic_node(TopicNode *info) {
  VARRO2_ASSERT(info->topic != NULL);
  for (GSList *event = info->events; event; event = event->next)
    event_free(static_cast<Event *>(event->data));
  g_slist_free(info->events);
  g_free(info->topic);
  g_free(info->nice_name);
  g_free(info->name_space);
  g_hash_table_destroy(info->tags);
  delete info;
}

TopicNode *info_of(const GNode *node) {
  return static_cast<TopicNode *>(node->data);
}

// Topics hold no NUL, so that the two parts cannot run into each other.
std::string name_of(const char *topic, const char *name_space) {
  std::string name{topic};
  name += '\0';
  if (name_space)
    name += name_space;
  return name;
}

void add_tags(GNode *node, const Event *event, const char *key) {
  const OwnedStringList tags{event_get_tags_at(event, event_get_index(event, key))};
  for (GList *tag = tags.get(); tag; tag = tag->next)
    g_hash_table_insert(info_of(node)->tags, g_strdup(static_cast<const char *>(tag->data)),
                        g_strdup("true"));
}

} // namespace

void varro2::free_topic_tree(GNode *root) {
  g_node_traverse(
      root, G_PRE_ORDER, G_TRAVERSE_ALL, -1,
      [](GNode *node, gpointer) noexcept -> gboolean {
        if (node->data)
          free_topic_node(info_of(node));
        return FALSE;
      },
      nullptr);
  g_node_destroy(root);
}

void TopicTreeBuilder::add(const EventDeclaration &declaration) {
  OwnedEvent event{event_declaration_generate_event(&declaration)};
  if (event_is_internal(event.get()))
    return;
  if (!has_text(event_get_value(event.get(), "topic0"))) {
    g_log(nullptr, G_LOG_LEVEL_WARNING, "Event is external but doesn't contain a topic");
    return;
  }
  GNode *node = root_;
  for (guint i = 0;; ++i) {
    const std::string key = "topic" + std::to_string(i);
    const char *topic = event_get_value(event.get(), key.c_str());
    if (!has_text(topic))
      break;
    node = child_for(node, {topic, event_get_name_space(event.get(), key.c_str()),
                            event_get_value_nice_name(event.get(), key.c_str())});
    add_tags(node, event.get(), key.c_str());
  }
  TopicNode *info = info_of(node);
  info->events = g_slist_prepend(info->events, event.release());
}

// A level without a name space joins the first child of its topic, whatever that one's name space;
// one with a name space joins only its like. So a node's name space never changes once it is made.
GNode *TopicTreeBuilder::child_for(GNode *parent, const Level &level) {
  const Children &children = children_[parent];
  const auto found = children.by_name.find(name_of(level.topic, level.name_space));
  GNode *node = found == children.by_name.end() ? append_child(parent, level) : found->second;
  TopicNode *info = info_of(node);
  if (!info->nice_name && has_text(level.nice_name))
    info->nice_name = g_strdup(level.nice_name);
  return node;
}

GNode *TopicTreeBuilder::append_child(GNode *parent, const Level &level) {
  const char *name_space = has_text(level.name_space) ? level.name_space : nullptr;
  auto *info = new TopicNode{g_strdup(name_space), g_strdup(level.topic), nullptr, nullptr,
                             g_hash_table_new_full(g_str_hash, g_str_equal, g_free, g_free)};
  Children &children = children_[parent];
  GNode *node = g_node_insert_after(parent, children.last, g_node_new(info));
  children.last = node;
  children.by_name.emplace(name_of(level.topic, name_space), node);
  children.by_name.emplace(name_of(level.topic, nullptr), node); // unless one came before
  return node;
}
