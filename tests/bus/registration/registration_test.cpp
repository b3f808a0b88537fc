// Registration by type on a bus: what goes to the switch, and what a property's subscribers get.
#include "eventdeclaration.hpp"
#include "live.hpp"

#include <array>
#include <filesystem>
#include <fstream>
#include <set>

namespace varro2::test {
namespace {

constexpr const char *object = "/foreign/listener";

const gboolean yes = TRUE;
const gboolean no = FALSE;
const gint32 seven = 7;

const std::string topic = R"(<keyvalue key="topic0" value="Door"/>)";
const std::string open_text = R"(<keyvalue key="text" value-wildcard="true"/>)";
const std::string open_count =
    R"(<keyvalue key="count" value-wildcard="true" value-type="int"><tag tag="one"/></keyvalue>)";
const std::string state = R"(<keyvalue key="open" value-wildcard="true" value-type="bool">)"
                          R"(<tag tag="property-state"/></keyvalue>)";

wire::Pair tagged(wire::Pair pair, const char *tag) {
  pair.tags = {tag};
  return pair;
}

// A declaration without the addresses of its property hook.
Bytes without_hook(const Bytes &record) {
  constexpr std::ptrdiff_t hook = 1 + 4 + 4 + 4 + 1;
  Bytes rest(record.begin(), record.begin() + hook);
  rest.insert(rest.end(), record.begin() + hook + 16, record.end());
  return rest;
}

Bytes property_record(guint32 local_id, const wire::AndList &pairs) {
  return without_hook(wire::declaration_record({0, local_id, 0, true}, false, pairs));
}

// What the callbacks were told, in their order.
struct Heard {
  std::vector<std::string> lines;
  const FakeSwitch *fake_switch = nullptr;

  static Heard &of(gpointer self) { return *static_cast<Heard *>(self); }
  static void declared(guint32 local_id, gpointer self) {
    auto &heard = of(self);
    heard.lines.push_back("declared " + std::to_string(local_id) + " after " +
                          std::to_string(heard.fake_switch->count("Declare")));
  }
  static void complete(guint32 local_id, gpointer self) {
    of(self).lines.push_back("complete " + std::to_string(local_id));
  }
};

class Registration : public Live {
 protected:
  Registration() {
    std::filesystem::create_directories(first_);
    std::filesystem::create_directories(second_);
    declaration_folders = {first_.c_str(), second_.c_str()};
    switch_.come();
    write(first_, "Plain", topic + open_text + open_count);
    write(first_, "Door", topic + open_count + state);
    heard_.fake_switch = &switch_;
  }
  ~Registration() override { declaration_folders = folders_before_; }

  static void write(const std::string &folder, const std::string &type, const std::string &pairs) {
    std::ofstream{folder + "/" + type + ".xml"} << "<declare><expression>" << pairs
                                                << "</expression></declare>";
  }

  Call declared() {
    EXPECT_TRUE(switch_.wait_for("Declare"));
    return switch_.calls("Declare").back();
  }

  // Subscribes the peer and waits for what the subscription brings at once.
  Bytes first_event(const Declared &declared, FakeConsumer &peer, std::uint32_t subscription_id) {
    const auto before = peer.count("Event");
    subscribe(declared, peer, object, subscription_id, 5, {{"topic0", "Door"}});
    EXPECT_TRUE(peer.wait_for("Event", before + 1));
    return peer.calls("Event").back().bytes(0);
  }

  Bytes door_event(bool is_open, const char *count = "7") const {
    return wire::without_time(wire::stamped_event(
        {101, 1, producer_id, true},
        {{"topic0", "Door"},
         tagged({"count", count, wire::integer}, "one"),
         tagged({"open", is_open ? "1" : "0", wire::boolean}, "property-state")}));
  }

  guint32 register_door(const ProducerHandle &producer, const gboolean *is_open) {
    return event_producer_register(producer.get(), "Door", "count", &seven, VALUE_TYPE_INT, "open",
                                   is_open, VALUE_TYPE_BOOL, NULL);
  }

  Heard heard_;

 private:
  std::array<const char *, 2> folders_before_ = declaration_folders;

 protected:
  std::string first_ = bus_.folder() + "/first";
  std::string second_ = bus_.folder() + "/second";
};

TEST_F(Registration, DeclaresTheTemplateWithItsValues) {
  ProducerHandle producer{"test"};
  EXPECT_EQ(event_producer_register_and_notify(producer.get(), "Plain", Heard::complete, &heard_,
                                               "count", &seven, VALUE_TYPE_INT, NULL),
            1U);
  const Call declare = declared();
  EXPECT_EQ(declare.bytes(2),
            wire::declaration_record({0, 1, 0}, false,
                                     {{"topic0", "Door"},
                                      wire::open("text", wire::string),
                                      tagged({"count", "7", wire::integer}, "one")}));
  EXPECT_EQ(heard_.lines, std::vector<std::string>{});
  identify({1, 101, declare});
  identify({1, 101, declare});
  EXPECT_EQ(heard_.lines, std::vector<std::string>{"complete 1"});
}

TEST_F(Registration, AnEventOfAPlainTypeFillsInTheRest) {
  ProducerHandle producer{"test"};
  ASSERT_EQ(event_producer_register(producer.get(), "Plain", "count", &seven, VALUE_TYPE_INT, NULL),
            1U);
  const Declared plain{1, 101, declared()};
  identify(plain);
  const HeldEvent event{event_producer_prepare_event(producer.get(), 1)};
  Failure unset;
  EXPECT_FALSE(event_producer_send_event(producer.get(), event.get(), unset.slot()));
  EXPECT_TRUE(unset.is(EVENT_ERROR_INCOMPLETE, "The event has keys with unset values"));
  event_set_value(event.get(), "text", "hi");
  FakeConsumer peer;
  subscribe(plain, peer, object, 3, 5, {{"text", "hi"}});
  EXPECT_TRUE(event_producer_send_event(producer.get(), event.get(), nullptr));
  ASSERT_TRUE(peer.wait_for("Event"));
  EXPECT_EQ(
      wire::without_time(peer.calls("Event").front().bytes(0)),
      wire::without_time(wire::stamped_event(
          {101, 1, producer_id},
          {{"topic0", "Door"}, {"text", "hi"}, tagged({"count", "7", wire::integer}, "one")})));
}

TEST_F(Registration, APropertysValueIsNotDeclaredButKept) {
  ProducerHandle producer{"test"};
  ASSERT_EQ(register_door(producer, &yes), 1U);
  const Declared registered{1, 101, declared()};
  EXPECT_EQ(without_hook(registered.declare.bytes(2)),
            property_record(1, {{"topic0", "Door"},
                                tagged({"count", "7", wire::integer}, "one"),
                                tagged(wire::open("open", wire::boolean), "property-state")}));
  identify(registered);
  FakeConsumer peer;
  EXPECT_EQ(wire::without_time(first_event(registered, peer, 3)), door_event(true));
  EXPECT_EQ(peer.calls("Event").front().number(1), 5U);
}

TEST_F(Registration, APropertysNextEventTakesThePlaceOfItsFirst) {
  ProducerHandle producer{"test"};
  ASSERT_EQ(register_door(producer, &yes), 1U);
  const Declared registered{1, 101, declared()};
  identify(registered);
  ASSERT_TRUE(send_door(producer.get(), 1, FALSE));
  iterate_pending();
  FakeConsumer peer;
  EXPECT_EQ(wire::without_time(first_event(registered, peer, 3)), door_event(false));
  switch_.refresh_property(registered.declare, 3, 1);
  ASSERT_TRUE(peer.wait_for("Event", 2));
  EXPECT_EQ(wire::without_time(peer.calls("Event").back().bytes(0)), door_event(false));
}

TEST_F(Registration, APropertyOutlivesTheSwitch) {
  ProducerHandle producer{"test"};
  ASSERT_EQ(register_door(producer, &no), 1U);
  identify({1, 101, declared()});
  switch_.leave();
  ASSERT_TRUE(
      iterate_until([&] { return !event_producer_declaration_complete(producer.get(), 1); }));
  switch_.come();
  ASSERT_TRUE(switch_.wait_for("Declare", 2));
  const Declared again{1, 101, switch_.calls("Declare").back()};
  EXPECT_EQ(without_hook(again.declare.bytes(2)),
            without_hook(switch_.calls("Declare").front().bytes(2)));
  identify(again);
  FakeConsumer peer;
  EXPECT_EQ(wire::without_time(first_event(again, peer, 3)), door_event(false));
}

TEST_F(Registration, AStateThatTheTemplateFixesIsSentToo) {
  write(first_, "Fixed",
        topic + R"(<keyvalue key="open" value="1" value-type="bool">)"
                R"(<tag tag="property-state"/></keyvalue>)");
  ProducerHandle producer{"test"};
  ASSERT_EQ(event_producer_register(producer.get(), "Fixed", NULL), 1U);
  const Declared registered{1, 101, declared()};
  identify(registered);
  FakeConsumer peer;
  EXPECT_EQ(wire::without_time(first_event(registered, peer, 3)),
            wire::without_time(wire::stamped_event({101, 1, producer_id, true}, door_pairs(true))));
}

TEST_F(Registration, FailuresDeclareNothing) {
  expect_quiet_log_ = false;
  ProducerHandle producer{"test"};
  EXPECT_EQ(event_producer_register(producer.get(), "Door", "open", &yes, VALUE_TYPE_BOOL, NULL),
            0U);
  EXPECT_EQ(event_producer_register(producer.get(), "Door", "count", &seven, VALUE_TYPE_INT,
                                    "topic0", "x", VALUE_TYPE_STRING, NULL),
            0U);
  EXPECT_EQ(event_producer_register(producer.get(), "../first/Plain", NULL), 0U);
  EXPECT_EQ(log_.texts(),
            (std::vector<std::string>{
                "Error when registering event: Not all keys were parsed for type Door",
                "Error when registering event: Got unknown key 'topic0' to declaration Door",
                "Error when registering event: event_declaration_new_from_type() failed for "
                "../first/Plain"}));
  ASSERT_EQ(event_producer_register(producer.get(), "Plain", NULL), 1U);
  declared();
  EXPECT_EQ(switch_.count("Declare"), 1U);
}

TEST_F(Registration, TheFirstFolderWinsIfItsFileIsValid) {
  write(second_, "Plain", R"(<keyvalue key="topic0" value="Second"/>)");
  write(second_, "Other", R"(<keyvalue key="topic0" value="Second"/>)");
  write(second_, "Broken", R"(<keyvalue key="topic0" value="Second"/>)");
  std::ofstream{first_ + "/Broken.xml"} << "<declare><expression>";
  ProducerHandle producer{"test"};
  const auto topic_of = [&](const char *type) {
    const guint32 id = event_producer_register(producer.get(), type, NULL);
    const HeldEvent event{event_producer_prepare_event(producer.get(), id)};
    return event ? std::string{event_get_value(event.get(), "topic0")} : "nothing";
  };
  EXPECT_EQ(topic_of("Plain"), "Door");
  EXPECT_EQ(topic_of("Other"), "Second");
  EXPECT_EQ(topic_of("Broken"), "Second");
}

TEST_F(Registration, AsynchronouslyTheCallbacksComeInTheirOrder) {
  EventProducer *producer = async_producer_new("test", nullptr, nullptr, nullptr);
  Failure failure;
  // Before the set-up has run.
  EXPECT_EQ(async_producer_register(producer, "Door", Heard::declared, Heard::complete, &heard_,
                                    failure.slot(), "count", &seven, VALUE_TYPE_INT, "open", &yes,
                                    VALUE_TYPE_BOOL, NULL),
            1U);
  EXPECT_EQ(async_producer_register(producer, "Plain", Heard::declared, nullptr, &heard_,
                                    failure.slot(), NULL),
            2U);
  EXPECT_EQ(async_producer_register(producer, "Nowhere", Heard::declared, nullptr, &heard_,
                                    failure.slot(), NULL),
            0U);
  EXPECT_TRUE(failure.is(EVENT_ERROR_REGISTRATION_UNKNOWN_TYPE,
                         "event_declaration_new_from_type() failed for Nowhere"));
  EXPECT_EQ(async_producer_prepare_event(producer, 1), nullptr);
  ASSERT_TRUE(switch_.wait_for("Declare", 2));
  ASSERT_EQ(heard_.lines.size(), 2U);
  // The connection, which comes after both commands, sends what is there; the callbacks follow.
  EXPECT_TRUE(heard_.lines[0].starts_with("declared 1 after ")) << heard_.lines[0];
  EXPECT_TRUE(heard_.lines[1].starts_with("declared 2 after ")) << heard_.lines[1];
  const Declared registered{1, 101, switch_.calls("Declare").front()};
  identify(registered);
  EXPECT_EQ(heard_.lines.back(), "complete 1");
  FakeConsumer peer;
  EXPECT_EQ(wire::without_time(first_event(registered, peer, 3)), door_event(true));

  bool done = false;
  async_producer_free(
      producer, [](auto *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done);
  ASSERT_TRUE(iterate_until([&] { return done; }));
}

// ---- The types that come with the system

const KeyValue *pair(const HeldDeclaration &declaration, const char *key) {
  return inspectable_get_key_value(event_declaration_get_inspectable(declaration.get()), key);
}

std::vector<std::string> tags(const KeyValue *pair) {
  std::vector<std::string> texts;
  for (const GList *tag = pair->tags; tag; tag = tag->next)
    texts.emplace_back(static_cast<const char *>(tag->data));
  return texts;
}

class Samples : public Registration {
 protected:
  Samples() { declaration_folders = {"/nonexistent/varro2", VARRO2_TYPES}; }

  std::vector<std::string> types() const {
    std::set<std::string> names;
    for (const auto &file : std::filesystem::directory_iterator{VARRO2_TYPES})
      names.insert(file.path().stem());
    return {names.begin(), names.end()};
  }
};

TEST_F(Samples, AllAreValidAndSurviveTheirXml) {
  EXPECT_EQ(types(),
            (std::vector<std::string>{"every-attribute", "machine-file-system", "machine-memory",
                                      "machine-network-link", "machine-processor"}));
  for (const auto &type : types()) {
    const HeldDeclaration declaration{event_declaration_new_from_type(type.c_str())};
    ASSERT_NE(declaration, nullptr) << type;
    EXPECT_FALSE(event_declaration_is_internal(declaration.get())) << type;
    const bool is_property = type == "machine-file-system" || type == "machine-network-link";
    EXPECT_EQ(event_declaration_is_property(declaration.get()), is_property) << type;
    char *xml = event_declaration_serialize_xml(declaration.get());
    const HeldDeclaration again{event_declaration_deserialize_xml(xml)};
    g_free(xml);
    ASSERT_NE(again, nullptr) << type;
    EXPECT_TRUE(inspectable_is_equal(event_declaration_get_inspectable(declaration.get()),
                                     event_declaration_get_inspectable(again.get())))
        << type;
  }
}

TEST_F(Samples, AllCanBeRegistered) {
  ProducerHandle producer{"test"};
  const double half = 0.5;
  EXPECT_EQ(event_producer_register(producer.get(), "machine-processor", NULL), 1U);
  EXPECT_EQ(event_producer_register(producer.get(), "machine-memory", "total_mib", &seven,
                                    VALUE_TYPE_INT, NULL),
            2U);
  EXPECT_EQ(event_producer_register(producer.get(), "machine-file-system", "mount_point", "/",
                                    VALUE_TYPE_STRING, "almost_full", &no, VALUE_TYPE_BOOL,
                                    "free_mib", &seven, VALUE_TYPE_INT, "number", &seven,
                                    VALUE_TYPE_INT, NULL),
            3U);
  EXPECT_EQ(event_producer_register(producer.get(), "machine-network-link", "interface", "lo",
                                    VALUE_TYPE_STRING, "up", &yes, VALUE_TYPE_BOOL, "number",
                                    &seven, VALUE_TYPE_INT, NULL),
            4U);
  EXPECT_EQ(event_producer_register(producer.get(), "every-attribute", "level", &half,
                                    VALUE_TYPE_DOUBLE, "active", &yes, VALUE_TYPE_BOOL, "comment",
                                    "none", VALUE_TYPE_STRING, "details", "<d/>", VALUE_TYPE_STRING,
                                    NULL),
            5U);
  ASSERT_TRUE(switch_.wait_for("Declare", 5));
}

TEST_F(Samples, EveryAttributeIsRead) {
  const HeldDeclaration declaration{event_declaration_new_from_type("every-attribute")};
  ASSERT_NE(declaration, nullptr);
  const KeyValue *channel = pair(declaration, "channel");
  ASSERT_NE(channel, nullptr);
  EXPECT_STREQ(channel->name_space, "tnsquor");
  EXPECT_STREQ(channel->complex_type_name, "tt:ReferenceToken");
  EXPECT_STREQ(channel->key_nice_name, "Channel");
  EXPECT_FALSE(channel->key_wildcard);
  EXPECT_STREQ(channel->value, "1");
  EXPECT_STREQ(channel->value_nice_name, "First channel");
  EXPECT_STREQ(channel->value_user_string, "left");
  EXPECT_FALSE(channel->value_wildcard);
  EXPECT_FALSE(channel->negated);
  EXPECT_EQ(channel->value_type, guint32{VALUE_TYPE_INT});
  EXPECT_EQ(tags(channel), (std::vector<std::string>{"onvif-source", "my-own-tag"}));
  const KeyValue *details = pair(declaration, "details");
  ASSERT_NE(details, nullptr);
  EXPECT_TRUE(details->value_wildcard);
  EXPECT_EQ(details->value_type, guint32{VALUE_TYPE_STRING});
  EXPECT_EQ(tags(details), (std::vector<std::string>{"onvif-data", "onvif-element"}));
  EXPECT_EQ(pair(declaration, "level")->value_type, guint32{VALUE_TYPE_DOUBLE});
  EXPECT_EQ(pair(declaration, "active")->value_type, guint32{VALUE_TYPE_BOOL});
  const HeldEvent event{event_declaration_generate_event(declaration.get())};
  EXPECT_TRUE(event_has_tag(event.get(), "sample"));
}

} // namespace
} // namespace varro2::test
