#include "topictree.hpp"
#include "nobus.hpp"

using namespace varro2::test;

namespace {

struct Topic {
  const char *value;
  const char *name_space = nullptr;
  const char *nice_name = nullptr;
  std::vector<const char *> tags = {};
};

TestDeclaration declaration_of(const std::vector<Topic> &topics, gboolean internal = FALSE) {
  TestDeclaration declaration{event_declaration_new(internal)};
  for (std::size_t i = 0; i < topics.size(); ++i) {
    const std::string key = "topic" + std::to_string(i);
    event_declaration_add_key_value(declaration.get(), key.c_str(), topics[i].value,
                                    VALUE_TYPE_STRING);
    event_declaration_set_name_space(declaration.get(), key.c_str(), topics[i].name_space);
    event_declaration_set_nice_names(declaration.get(), key.c_str(), NULL, topics[i].nice_name);
    for (const char *tag : topics[i].tags)
      event_declaration_add_key_tag(declaration.get(), key.c_str(), tag);
  }
  return declaration;
}

const TopicNode *info_of(const GNode *node) {
  return static_cast<const TopicNode *>(node->data);
}

// "a{events}[children]", with name space and nice name where there are any.
std::string drawing(const GNode *node) {
  std::string text;
  if (const TopicNode *info = info_of(node)) {
    if (info->name_space)
      text += std::string{info->name_space} + ":";
    text += info->topic;
    if (info->nice_name)
      text += std::string{"("} + info->nice_name + ")";
    if (info->events)
      text += "{" + std::to_string(g_slist_length(info->events)) + "}";
  }
  if (node->children) {
    text += "[";
    for (const GNode *child = node->children; child; child = child->next)
      text += drawing(child) + (child->next ? " " : "");
    text += "]";
  }
  return text;
}

class TopicTrees : public ::testing::Test {
 protected:
  ~TopicTrees() override { event_query_free_topic_tree(builder.finish()); }

  void add(const std::vector<Topic> &topics, gboolean internal = FALSE) {
    builder.add(*declaration_of(topics, internal));
  }
  std::string finish() {
    GNode *root = builder.finish();
    std::string text = drawing(root);
    event_query_free_declaration_tree(root);
    return text;
  }

  varro2::TopicTreeBuilder builder;
  LogCapture log;
};

} // namespace

TEST_F(TopicTrees, NothingDeclaredIsTheRootAlone) {
  GNode *root = builder.finish();
  EXPECT_EQ(root->data, nullptr);
  EXPECT_EQ(root->children, nullptr);
  event_query_free_topic_tree(root);
}

TEST_F(TopicTrees, PathsShareTheirBeginnings) {
  add({{"a"}, {"b"}});
  add({{"a"}, {"c"}});
  add({{"b"}});
  add({{"a"}, {"b"}});
  EXPECT_EQ(finish(), "[a[b{2} c{1}] b{1}]");
  EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(TopicTrees, ChildrenKeepTheOrderOfTheirFirstMeeting) {
  for (const char *topic : {"z", "m", "a", "m", "b", "z"})
    add({{topic}});
  EXPECT_EQ(finish(), "[z{2} m{2} a{1} b{1}]");
}

TEST_F(TopicTrees, InternalDeclarationsArePassedOver) {
  add({{"a"}}, TRUE);
  EXPECT_EQ(finish(), "");
  EXPECT_EQ(log.texts(), Lines{});
}

TEST_F(TopicTrees, ExternalDeclarationsWithoutATopicAreLogged) {
  add({});
  add({{""}});
  const TestDeclaration open{event_declaration_new(FALSE)};
  event_declaration_add_key(open.get(), "topic0", VALUE_TYPE_STRING);
  builder.add(*open);
  EXPECT_EQ(finish(), "");
  const LogLine line{G_LOG_LEVEL_WARNING, "", "Event is external but doesn't contain a topic"};
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{line, line, line}));
}

TEST_F(TopicTrees, PathEndsAtTheFirstLevelThatIsAbsentOrEmpty) {
  add({{"a"}, {""}, {"c"}});
  const auto gap = declaration_of({{"a"}});
  event_declaration_add_key_value(gap.get(), "topic2", "c", VALUE_TYPE_STRING);
  builder.add(*gap);
  const auto open = declaration_of({{"a"}});
  event_declaration_add_key(open.get(), "topic1", VALUE_TYPE_STRING);
  builder.add(*open);
  EXPECT_EQ(finish(), "[a{3}]");
}

TEST_F(TopicTrees, LevelsHaveNoLimit) {
  add({{"a"}, {"b"}, {"c"}, {"d"}, {"e"}, {"f"}, {"g"}, {"h"}, {"i"}, {"j"}, {"k"}, {"l"}});
  EXPECT_EQ(finish(), "[a[b[c[d[e[f[g[h[i[j[k[l{1}]]]]]]]]]]]]");
}

TEST_F(TopicTrees, NameSpaceJoinsOnlyItsLike) {
  add({{"a"}});
  add({{"a", "x"}});
  add({{"a", "y"}});
  add({{"a", "x"}});
  EXPECT_EQ(finish(), "[a{1} x:a{2} y:a{1}]");
}

TEST_F(TopicTrees, NoNameSpaceJoinsTheFirstOfTheTopic) {
  add({{"a", "x"}});
  add({{"a", "y"}});
  add({{"a"}});
  add({{"a", ""}});
  EXPECT_EQ(finish(), "[x:a{3} y:a{1}]");
}

TEST_F(TopicTrees, NameSpacesAreComparedWithinOneParent) {
  add({{"a", "x"}, {"c", "x"}});
  add({{"b", "x"}, {"c", "y"}});
  EXPECT_EQ(finish(), "[x:a[x:c{1}] x:b[y:c{1}]]");
}

TEST_F(TopicTrees, FirstNiceNameWins) {
  add({{"a", nullptr, ""}});
  add({{"a", nullptr, "first"}});
  add({{"a", nullptr, "second"}});
  EXPECT_EQ(finish(), "[a(first){3}]");
}

TEST_F(TopicTrees, TagsOfALevelAddUp) {
  add({{"a", nullptr, nullptr, {"one", "two"}}, {"b", nullptr, nullptr, {"three"}}});
  add({{"a", nullptr, nullptr, {"two", "four"}}});
  GNode *root = builder.finish();
  const TopicNode *a = info_of(root->children);
  EXPECT_EQ(g_hash_table_size(a->tags), 3u);
  for (const char *tag : {"one", "two", "four"})
    EXPECT_STREQ(static_cast<const char *>(g_hash_table_lookup(a->tags, tag)), "true") << tag;
  const TopicNode *b = info_of(root->children->children);
  EXPECT_EQ(g_hash_table_size(b->tags), 1u);
  EXPECT_STREQ(static_cast<const char *>(g_hash_table_lookup(b->tags, "three")), "true");
  event_query_free_topic_tree(root);
}

TEST_F(TopicTrees, EventsStandNewestFirst) {
  const auto first = declaration_of({{"a"}});
  event_declaration_set_global_id(first.get(), 1);
  const auto second = declaration_of({{"a"}});
  event_declaration_set_global_id(second.get(), 2);
  builder.add(*first);
  builder.add(*second);
  GNode *root = builder.finish();
  const GSList *events = info_of(root->children)->events;
  ASSERT_EQ(g_slist_length(const_cast<GSList *>(events)), 2u);
  EXPECT_EQ(event_get_global_id(static_cast<Event *>(events->data)), 2u);
  EXPECT_EQ(event_get_global_id(static_cast<Event *>(events->next->data)), 1u);
  event_query_free_topic_tree(root);
}

TEST_F(TopicTrees, FreeingNothingAborts) {
  EXPECT_DEATH(event_query_free_topic_tree(NULL),
               "event_query_free_topic_tree: assertion failed: \\(topic_tree\\)");
  EXPECT_DEATH(event_query_free_declaration_tree(NULL),
               "event_query_free_declaration_tree: assertion failed: \\(declaration_tree\\)");
}
