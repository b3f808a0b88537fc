// Builds the tree of topics that a query hands out.
#pragma once

#include <varro2/eventdeclaration.h>
#include <varro2/eventquery.h>

#include <string>
#include <unordered_map>
#include <utility>

namespace varro2 {

void free_topic_tree(GNode *root);

class TopicTreeBuilder {
 public:
  TopicTreeBuilder() : root_{g_node_new(nullptr)} {}
  TopicTreeBuilder(const TopicTreeBuilder &) = delete;
  TopicTreeBuilder &operator=(const TopicTreeBuilder &) = delete;
  ~TopicTreeBuilder() { free_topic_tree(root_); }

  // Internal declarations are passed over; so are external ones without a topic, with a warning.
  void add(const EventDeclaration &declaration);

  // Hands the tree over and begins another.
  GNode *finish() { return std::exchange(root_, g_node_new(nullptr)); }

 private:
  struct Level {
    const char *topic;
    const char *name_space; // may be nullptr
    const char *nice_name;  // may be nullptr
  };
  // The children of a node by topic and name space, and the first of each topic by the topic alone.
  // The tree itself can only be searched child by child.
  struct Children {
    std::unordered_map<std::string, GNode *> by_name;
    GNode *last = nullptr;
  };

  GNode *child_for(GNode *parent, const Level &level);
  GNode *append_child(GNode *parent, const Level &level);

  GNode *root_;
  std::unordered_map<GNode *, Children> children_;
};

} // namespace varro2
