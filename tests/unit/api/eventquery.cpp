#include "nobus.hpp"

#include <thread>

using namespace varro2::test;

namespace {

constexpr const char *no_connection = "Failed to connect to the bus for Query object";

class Queries : public WithoutBus {
 protected:
  ~Queries() override {
    event_query_free(query);
    iterate_pending();
  }

  std::size_t warnings_that_begin(const std::string &text) const {
    std::size_t count = 0;
    for (const std::string &line : warnings())
      count += line.starts_with(text) ? 1 : 0;
    return count;
  }

  EventQuery *query = event_query_new();
};

} // namespace

TEST_F(Queries, FailedConnectionIsAWarning) {
  EXPECT_EQ(log.texts(), Lines{});
  iterate_pending();
  EXPECT_EQ(log.texts(), Lines{no_connection});
}

TEST_F(Queries, GettersConnectFirstAndReportWhatTheyMiss) {
  EXPECT_EQ(event_query_get_declarations(query), nullptr);
  EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, no_connection), 1u);
  EXPECT_EQ(warnings_that_begin("Could not get event declarations: "), 1u);
  EXPECT_EQ(event_query_get_declaration_types(query), nullptr);
  EXPECT_EQ(warnings_that_begin("Could not get event declaration types: "), 1u);
  for (const std::string &line : log.texts())
    EXPECT_EQ(line.find("(null)"), std::string::npos) << line;
}

TEST_F(Queries, TreesAreTheRootAlone) {
  GNode *topics = event_query_get_topic_tree(query);
  ASSERT_NE(topics, nullptr);
  EXPECT_EQ(g_node_n_nodes(topics, G_TRAVERSE_ALL), 1u);
  event_query_free_topic_tree(topics);
  GNode *types = event_query_get_declaration_type_tree(query);
  ASSERT_NE(types, nullptr);
  EXPECT_EQ(g_node_n_nodes(types, G_TRAVERSE_ALL), 1u);
  event_query_free_declaration_tree(types);
  EXPECT_EQ(warnings_that_begin("Could not get event declarations: "), 1u);
  EXPECT_EQ(warnings_that_begin("Could not get event declaration types: "), 1u);
}

TEST_F(Queries, MissingHandleIsCheckedSoftly) {
  event_query_free(NULL);
  EXPECT_EQ(event_query_get_declarations(NULL), nullptr);
  EXPECT_EQ(event_query_get_declaration_types(NULL), nullptr);
  event_query_free_topic_tree(event_query_get_topic_tree(NULL));
  event_query_free_declaration_tree(event_query_get_declaration_type_tree(NULL));
  const char *declarations = "event_query_get_declarations: assertion 'event_query != NULL' failed";
  const char *types = "event_query_get_declaration_types: assertion 'event_query != NULL' failed";
  EXPECT_EQ(log.texts(), (Lines{declarations, types, declarations, types}));
}

TEST_F(Queries, FromAnotherThreadTheLoopAnswers) {
  bool answered = false;
  std::thread other{[&] {
    EXPECT_EQ(event_query_get_declarations(query), nullptr);
    g_main_context_invoke(
        NULL,
        [](gpointer data) -> gboolean {
          *static_cast<bool *>(data) = true;
          return G_SOURCE_REMOVE;
        },
        &answered);
  }};
  EXPECT_TRUE(iterate_until([&] { return answered; }));
  other.join();
  EXPECT_EQ(warnings_that_begin("Could not get event declarations: "), 1u);
}

TEST_F(Queries, TheBusObjectIsAGObjectOfItsName) {
  const GType type = query_get_type();
  EXPECT_STREQ(g_type_name(type), "Query");
  EXPECT_EQ(g_type_parent(type), G_TYPE_OBJECT);
  EXPECT_EQ(query_get_type(), type);
  Query *object = query_new();
  EXPECT_EQ(G_OBJECT_TYPE(object), type);
  EXPECT_EQ(query_init_dbus(object), 0);
  EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, no_connection), 1u);
  g_object_unref(object);
}
