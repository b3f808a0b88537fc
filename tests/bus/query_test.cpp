// What is declared, asked of a switch that answers by hand and of the real one.
#include "live.hpp"
#include "switchprocess.hpp"

#include <atomic>
#include <filesystem>
#include <fstream>
#include <thread>

namespace varro2::test {
namespace {

using HeldQuery = Held<EventQuery, event_query_free>;
using HeldTopics = Held<GNode, event_query_free_topic_tree>;
using HeldTypeTopics = Held<GNode, event_query_free_declaration_tree>;

void free_declarations(GList *list) {
  g_list_free_full(list, [](gpointer declaration) {
    event_declaration_free(static_cast<EventDeclaration *>(declaration));
  });
}
using HeldDeclarations = Held<GList, free_declarations>;

using Texts = std::vector<std::string>;

Bytes list_of(const std::vector<Bytes> &records) {
  wire::Writer writer;
  writer.u32(static_cast<std::uint32_t>(records.size()));
  for (const auto &record : records)
    writer.bytes(record);
  return writer.result();
}

wire::Pair level(int number, const std::string &topic, const std::string &name_space = "",
                 const std::vector<std::string> &tags = {}) {
  wire::Pair pair{"topic" + std::to_string(number), topic};
  pair.name_space = name_space;
  pair.tags = tags;
  return pair;
}

Bytes external(std::uint32_t global_id, const wire::AndList &pairs) {
  return wire::declaration_record({7, 1, global_id}, false, pairs);
}

Bytes internal(std::uint32_t global_id, const wire::AndList &pairs) {
  return wire::declaration_record({7, 1, global_id}, true, pairs);
}

std::vector<guint32> global_ids(const HeldDeclarations &declarations) {
  std::vector<guint32> ids;
  for (const GList *at = declarations.get(); at; at = at->next)
    ids.push_back(event_declaration_get_global_id(static_cast<const EventDeclaration *>(at->data)));
  return ids;
}

// One line a node, in the order of the tree: "  NAMESPACE:TOPIC {TAG} #ID #ID", two blanks a level.
void draw(const GNode *node, std::size_t depth, Texts &lines) {
  for (const GNode *child = node->children; child; child = child->next) {
    const auto *info = static_cast<const TopicNode *>(child->data);
    std::string line(2 * depth, ' ');
    if (info->name_space)
      line += std::string{info->name_space} + ":";
    line += info->topic;
    GHashTableIter iter;
    gpointer tag = nullptr;
    gpointer value = nullptr;
    g_hash_table_iter_init(&iter, info->tags);
    while (g_hash_table_iter_next(&iter, &tag, &value)) {
      EXPECT_STREQ(static_cast<const char *>(value), "true");
      line += std::string{" {"} + static_cast<const char *>(tag) + "}";
    }
    for (const GSList *event = info->events; event; event = event->next)
      line += " #" + std::to_string(event_get_global_id(static_cast<const Event *>(event->data)));
    lines.push_back(line);
    draw(child, depth + 1, lines);
  }
}

Texts drawing(const GNode *root) {
  Texts lines;
  EXPECT_EQ(root->data, nullptr);
  draw(root, 0, lines);
  return lines;
}

class Queries : public Live {
 protected:
  Queries() {
    expect_quiet_log_ = false;
    switch_.come();
  }
  ~Queries() override {
    query_.reset();
    iterate_pending();
  }

  HeldDeclarations declarations() {
    return HeldDeclarations{event_query_get_declarations(query_.get())};
  }
  HeldDeclarations types() {
    return HeldDeclarations{event_query_get_declaration_types(query_.get())};
  }
  Texts topics() { return drawing(HeldTopics{event_query_get_topic_tree(query_.get())}.get()); }
  Texts type_topics() {
    return drawing(HeldTypeTopics{event_query_get_declaration_type_tree(query_.get())}.get());
  }

  HeldQuery query_{event_query_new()};
};

} // namespace

TEST_F(Queries, CallsAreAsAgreed) {
  switch_.answer_bytes("GetAllDeclarations", list_of({}));
  switch_.answer_bytes("GetDeclarationTypes", list_of({}));
  EXPECT_EQ(declarations(), nullptr);
  EXPECT_EQ(types(), nullptr);
  const auto calls = switch_.calls();
  ASSERT_EQ(calls.size(), 2U);
  for (const auto &call : calls) {
    EXPECT_EQ(call.path, "/com/quor/Event/Switch");
    EXPECT_EQ(call.interface, "com.quor.Event.Switch.Query");
    EXPECT_EQ(call.signature, "");
    EXPECT_TRUE(call.wants_answer);
  }
  EXPECT_EQ(calls[0].member, "GetAllDeclarations");
  EXPECT_EQ(calls[1].member, "GetDeclarationTypes");
  EXPECT_EQ(log_.texts(), Texts{});
}

TEST_F(Queries, ListsWhatTheSwitchLists) {
  const auto open = wire::open("text", wire::string);
  switch_.answer_bytes("GetAllDeclarations",
                       list_of({external(11, {level(0, "a"), open}), internal(12, {open}),
                                external(13, {level(0, "b")})}));
  switch_.answer_bytes("GetDeclarationTypes", list_of({external(0, {level(0, "type")})}));
  const auto all = declarations();
  EXPECT_EQ(global_ids(all), (std::vector<guint32>{11, 12, 13}));
  const auto *first = static_cast<const EventDeclaration *>(all->data);
  EXPECT_EQ(event_declaration_get_producer_id(first), 7U);
  EXPECT_EQ(event_declaration_get_local_id(first), 1U);
  EXPECT_FALSE(event_declaration_is_internal(first));
  EXPECT_TRUE(
      event_declaration_is_internal(static_cast<const EventDeclaration *>(all->next->data)));
  const auto known = types();
  ASSERT_EQ(g_list_length(known.get()), 1U);
  const HeldEvent event{
      event_declaration_generate_event(static_cast<const EventDeclaration *>(known->data))};
  EXPECT_STREQ(event_get_value(event.get(), "topic0"), "type");
  EXPECT_EQ(log_.texts(), Texts{});
}

TEST_F(Queries, AnAnswerWithoutAByteIsNothingDeclared) {
  switch_.answer_bytes("GetAllDeclarations", {});
  switch_.answer_bytes("GetDeclarationTypes", {});
  EXPECT_EQ(declarations(), nullptr);
  EXPECT_EQ(types(), nullptr);
  EXPECT_EQ(topics(), Texts{});
  EXPECT_EQ(type_topics(), Texts{});
  EXPECT_EQ(log_.texts(), Texts{});
}

TEST_F(Queries, TreesAreOfTheListThatTheyAreNamedAfter) {
  switch_.answer_bytes("GetAllDeclarations",
                       list_of({external(1, {level(0, "a", "x", {"one"}), level(1, "b")}),
                                external(2, {level(0, "a", "y"), level(1, "b")}),
                                external(3, {level(0, "a"), level(1, "c")}), internal(4, {}),
                                external(5, {level(0, "a", "x"), level(1, "b")}),
                                external(6, {level(0, "a", "x"), level(2, "gap")}),
                                external(7, {level(0, "a", "x"), level(1, "")})}));
  switch_.answer_bytes("GetDeclarationTypes", list_of({external(0, {level(0, "type")})}));
  EXPECT_EQ(topics(), (Texts{"x:a {one} #7 #6", "  b #5 #1", "  c #3", "y:a", "  b #2"}));
  EXPECT_EQ(type_topics(), (Texts{"type #0"}));
  EXPECT_EQ(log_.texts(), Texts{});
}

TEST_F(Queries, ExternalDeclarationsWithoutATopicAreLoggedAndLeftOut) {
  switch_.answer_bytes("GetAllDeclarations",
                       list_of({external(1, {{"text", "x"}}), external(2, {level(0, "")}),
                                external(3, {level(0, "a")})}));
  EXPECT_EQ(topics(), (Texts{"a #3"}));
  const LogLine line{G_LOG_LEVEL_WARNING, "", "Event is external but doesn't contain a topic"};
  EXPECT_EQ(log_.lines(), (std::vector<LogLine>{line, line}));
}

TEST_F(Queries, AFailingSwitchIsLoggedAndGivesNothing) {
  switch_.answer_error("GetAllDeclarations", "com.quor.Event.Error.File", "no list today");
  switch_.answer_error("GetDeclarationTypes", "org.freedesktop.DBus.Error.AccessDenied",
                       "not for you");
  EXPECT_EQ(declarations(), nullptr);
  EXPECT_EQ(topics(), Texts{});
  EXPECT_EQ(types(), nullptr);
  EXPECT_EQ(type_topics(), Texts{});
  const LogLine all{G_LOG_LEVEL_WARNING, "", "Could not get event declarations: no list today"};
  const LogLine some{G_LOG_LEVEL_WARNING, "", "Could not get event declaration types: not for you"};
  EXPECT_EQ(log_.lines(), (std::vector<LogLine>{all, all, some, some}));
  // The next answer counts again.
  switch_.answer_bytes("GetAllDeclarations", list_of({external(11, {level(0, "a")})}));
  EXPECT_EQ(global_ids(declarations()), (std::vector<guint32>{11}));
}

TEST_F(Queries, WithoutASwitchTheBusSaysSo) {
  switch_.leave();
  EXPECT_EQ(declarations(), nullptr);
  EXPECT_EQ(types(), nullptr);
  const auto texts = log_.texts(G_LOG_LEVEL_WARNING);
  ASSERT_EQ(texts.size(), 2U);
  EXPECT_TRUE(texts[0].starts_with("Could not get event declarations: The name ")) << texts[0];
  EXPECT_TRUE(texts[1].starts_with("Could not get event declaration types: The name ")) << texts[1];
}

TEST_F(Queries, AnAnswerOfAnotherShapeAborts) {
  const auto ask = [this](const char *member) {
    switch_.answer(member, [](const Call &) {
      Response response;
      response.arguments = own(g_variant_new("(s)", "text"));
      return response;
    });
  };
  ask("GetAllDeclarations");
  ask("GetDeclarationTypes");
  iterate_pending();
  // In a process of its own: a forked one would have to talk through this one's connections.
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(event_query_get_declarations(query_.get()), "r >= 0");
  EXPECT_DEATH(event_query_get_declaration_types(query_.get()), "r >= 0");
}

TEST_F(Queries, AskedFromAnotherThreadTheLoopAnswers) {
  switch_.answer_bytes("GetAllDeclarations",
                       list_of({external(1, {level(0, "a"), level(1, "b")})}));
  std::atomic<bool> answered{false};
  Texts seen;
  std::thread other{[&] {
    seen = topics();
    answered = true;
  }};
  EXPECT_TRUE(iterate_until([&] { return answered.load(); }));
  other.join();
  EXPECT_EQ(seen, (Texts{"a", "  b #1"}));
}

TEST_F(Queries, AskedBeforeItsFreeingTheLoopStillAnswers) {
  switch_.answer_bytes("GetAllDeclarations", list_of({external(1, {level(0, "a")})}));
  HeldQuery other{event_query_new()};
  event_query_free(other.release()); // connects and goes, nothing else
  event_query_free(nullptr);
  EXPECT_EQ(global_ids(declarations()), (std::vector<guint32>{1}));
  EXPECT_EQ(log_.texts(), Texts{});
}

namespace {

// The switch itself, with folders of types of the test's own.
class QueriesOfTheSwitch : public ::testing::Test {
 protected:
  QueriesOfTheSwitch() {
    write_type("system", "Beta", R"(<keyvalue key="topic0" value="Beta"/>)");
    write_type("system", "Alpha",
               R"(<keyvalue key="topic0" value="Alpha" name-space="x"/>)"
               R"(<keyvalue key="topic1" value="One"/>)");
    write_type("own", "Alpha", R"(<keyvalue key="topic0" value="Hidden"/>)");
    write_type("own", "Gamma",
               R"(<keyvalue key="topic0" value="Alpha" name-space="x"/>)"
               R"(<keyvalue key="topic1" value="Two"/>)");
    switch_ = std::make_unique<SwitchProcess>(
        VARRO2_SWITCHD,
        std::vector<std::string>{"--types-dir=" + bus_.folder() + "/own",
                                 "--system-types-dir=" + bus_.folder() + "/system"});
    switch_->start();
    query_.reset(event_query_new());
  }
  ~QueriesOfTheSwitch() override {
    query_.reset();
    iterate_pending();
    EXPECT_EQ(log_.texts(), Texts{});
  }

  void write_type(const std::string &folder, const std::string &type, const std::string &pairs) {
    std::filesystem::create_directories(bus_.folder() + "/" + folder);
    std::ofstream{bus_.folder() + "/" + folder + "/" + type + ".xml"}
        << "<declare><expression>" << pairs << "</expression></declare>";
  }
  Texts topics() { return drawing(HeldTopics{event_query_get_topic_tree(query_.get())}.get()); }

  LogCapture log_;
  PrivateBus bus_;
  std::unique_ptr<SwitchProcess> switch_;
  HeldQuery query_;
};

} // namespace

TEST_F(QueriesOfTheSwitch, DeclarationsComeAndGo) {
  EXPECT_EQ(topics(), Texts{});
  ProducerHandle producer{"test"};
  const guint32 greetings = event_producer_declare(producer.get(), greeting().get());
  const guint32 doors = event_producer_declare(producer.get(), door().get());
  const auto both_complete = [&] {
    return event_producer_declaration_complete(producer.get(), greetings) &&
           event_producer_declaration_complete(producer.get(), doors);
  };
  ASSERT_TRUE(iterate_until(both_complete));
  EXPECT_EQ(topics(), (Texts{"Greeting #1", "Door #2"}));
  event_producer_undeclare(producer.get(), greetings);
  iterate_pending();
  EXPECT_EQ(topics(), (Texts{"Door #2"}));
  producer.free();
  EXPECT_EQ(topics(), Texts{});
}

TEST_F(QueriesOfTheSwitch, TypesAreThoseOfBothFolders) {
  const HeldTypeTopics tree{event_query_get_declaration_type_tree(query_.get())};
  EXPECT_EQ(drawing(tree.get()), (Texts{"x:Alpha", "  One #0", "  Two #0", "Beta #0"}));
}

} // namespace varro2::test
