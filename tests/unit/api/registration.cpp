#include "nobus.hpp"

#include "eventdeclaration.hpp"

#include <array>
#include <filesystem>
#include <fstream>

using namespace varro2::test;

namespace {

using TestParams = varro2::Owned<CallbackParams, callback_params_free>;
using TestList = varro2::Owned<GList, g_list_free>;
using TestRegisterList = varro2::Owned<GList, event_producer_int_free_register_list>;

constexpr const char *topic = R"(<keyvalue key="topic0" value="Door" name-space="tns1"/>)";

std::string open_key(const std::string &attributes, const std::string &tags = "") {
  return "<keyvalue value-wildcard=\"true\" " + attributes + ">" + tags + "</keyvalue>";
}

const std::string property = R"(<tag tag="property-state"/>)";

GList *parse_all(int unused, ...) {
  va_list arguments;
  va_start(arguments, unused);
  GList *list = event_producer_int_parse_register_valist(arguments);
  va_end(arguments);
  return list;
}

// Declaration files in a folder of the test's own.
class Types : public WithoutBus {
 protected:
  Types() {
    std::filesystem::create_directories(folder_);
    varro2::declaration_folders = {folder_.c_str(), "/nonexistent/varro2"};
    write("Plain", topic + open_key(R"(key="open")") + open_key(R"(key="other")"));
    write("State", topic + open_key(R"(key="port" value-type="int")") +
                       open_key(R"(key="active" value-type="bool")", property));
    write("NoTopic", open_key(R"(key="open")"));
    write("NoTopicState", open_key(R"(key="active")", property));
  }
  ~Types() override {
    event_producer_free(producer);
    iterate_pending();
    varro2::declaration_folders = folders_before_;
    std::filesystem::remove_all(folder_);
  }

  void write(const std::string &type, const std::string &pairs, const char *attributes = "") {
    std::ofstream{folder_ + "/" + type + ".xml"} << "<declare" << attributes << "><expression>"
                                                 << pairs << "</expression></declare>";
  }

  // Builds a declaration without declaring it.
  Failure build(const char *type, GList *list) {
    EventDeclaration *made = nullptr;
    CallbackParams *made_params = nullptr;
    GError *error = nullptr;
    event_producer_int_register_list(type, list, &made, &made_params, &error);
    declaration.reset(made);
    params.reset(made ? made_params : nullptr);
    return take(error);
  }
  template <typename... Arguments>
  Failure build_with(const char *type, Arguments... arguments) {
    const TestRegisterList list{parse_all(0, arguments..., NULL)};
    return build(type, list.get());
  }
  const KeyValue *pair(const char *key) {
    return inspectable_get_key_value(event_declaration_get_inspectable(declaration.get()), key);
  }
  Lines errors_logged() const { return warnings(); }

  EventProducer *producer = event_producer_new("test");
  TestDeclaration declaration;
  TestParams params;

 private:
  std::string folder_ = ::testing::TempDir() + "varro2-types-" + std::to_string(getpid());
  std::array<const char *, 2> folders_before_ = varro2::declaration_folders;
};

Failure registration_failure(int code, const std::string &message) {
  return {"event-error-quark", code, message};
}

const gint32 seven = 7;
const gboolean yes = TRUE;
const double half = 0.5;

} // namespace

TEST_F(Types, VariadicTriplesBecomeTexts) {
  const TestRegisterList list{parse_all(0, "a", &seven, VALUE_TYPE_INT, "b", &yes, VALUE_TYPE_BOOL,
                                        "c", &half, VALUE_TYPE_DOUBLE, "d", "text",
                                        VALUE_TYPE_STRING, NULL)};
  ASSERT_EQ(g_list_length(list.get()), 12u);
  const char *texts[] = {"a", "7", "b", "1", "c", "0.500000", "d", "text"};
  for (guint i = 0; i < 4; ++i) {
    EXPECT_STREQ(static_cast<char *>(g_list_nth_data(list.get(), 3 * i)), texts[2 * i]);
    EXPECT_STREQ(static_cast<char *>(g_list_nth_data(list.get(), 3 * i + 1)), texts[2 * i + 1]);
    EXPECT_EQ(GPOINTER_TO_UINT(g_list_nth_data(list.get(), 3 * i + 2)), i + 1);
  }
  EXPECT_EQ(parse_all(0, NULL), nullptr);
  EXPECT_EQ(event_producer_int_convert_to_string_list(NULL), nullptr);
  event_producer_int_free_register_list(NULL);
}

TEST_F(Types, CallersListBecomesTexts) {
  TestList values{g_list_append(nullptr, const_cast<char *>("a"))};
  values.reset(g_list_append(values.release(), const_cast<gint32 *>(&seven)));
  EXPECT_DEATH(event_producer_int_convert_to_string_list(values.get()),
               "event_producer_int_convert_to_string_list: assertion failed: "
               "\\(g_list_length\\(iter\\) % 3 == 0\\)");
  values.reset(g_list_append(values.release(), GINT_TO_POINTER(VALUE_TYPE_INT)));
  const TestRegisterList list{event_producer_int_convert_to_string_list(values.get())};
  ASSERT_EQ(g_list_length(list.get()), 3u);
  EXPECT_STREQ(static_cast<char *>(list->data), "a");
  EXPECT_STREQ(static_cast<char *>(list->next->data), "7");
  EXPECT_EQ(GPOINTER_TO_INT(list->next->next->data), VALUE_TYPE_INT);
}

TEST_F(Types, ValueWithoutATextAborts) {
  EXPECT_DEATH(parse_all(0, "a", &seven, 5, NULL),
               "event_producer_int_parse_register_valist: assertion failed: \\(value_str != "
               "NULL\\)");
  TestList values{g_list_append(nullptr, const_cast<char *>("a"))};
  values.reset(g_list_append(values.release(), const_cast<gint32 *>(&seven)));
  values.reset(g_list_append(values.release(), GINT_TO_POINTER(0)));
  EXPECT_DEATH(event_producer_int_convert_to_string_list(values.get()),
               "event_producer_int_convert_to_string_list: assertion failed: \\(value_str != "
               "NULL\\)");
}

TEST_F(Types, FilledKeysKeepWhatTheTemplateSays) {
  write("Rich", topic +
                    open_key(R"(key="port" name-space="tns2" complex-type-name="Port" )"
                             R"(key-nice-name="Port" value-nice-name="Number")",
                             R"(<tag tag="one"/><tag tag="two"/>)") +
                    open_key(R"(key="open" value-type="double")"));
  EXPECT_EQ(build_with("Rich", "port", &seven, VALUE_TYPE_INT), no_failure);
  ASSERT_TRUE(declaration);
  EXPECT_FALSE(params);
  const KeyValue *port = pair("port");
  ASSERT_NE(port, nullptr);
  EXPECT_STREQ(port->value, "7");
  EXPECT_EQ(port->value_type, guint32{VALUE_TYPE_INT});
  EXPECT_FALSE(port->value_wildcard);
  EXPECT_STREQ(port->name_space, "tns2");
  EXPECT_STREQ(port->complex_type_name, "Port");
  EXPECT_STREQ(port->key_nice_name, "Port");
  EXPECT_STREQ(port->value_nice_name, "Number");
  ASSERT_EQ(g_list_length(port->tags), 2u);
  EXPECT_STREQ(static_cast<char *>(port->tags->data), "one");
  EXPECT_STREQ(static_cast<char *>(port->tags->next->data), "two");
  EXPECT_TRUE(pair("open")->value_wildcard);
  EXPECT_EQ(pair("open")->value_type, guint32{VALUE_TYPE_DOUBLE});
  EXPECT_FALSE(event_declaration_is_property(declaration.get()));
}

TEST_F(Types, KeysKeepTheirOrder) {
  EXPECT_EQ(build_with("Plain", "open", "x", VALUE_TYPE_STRING), no_failure);
  const TestEvent event{event_declaration_generate_event(declaration.get())};
  ASSERT_EQ(event_get_key_count(event.get()), 3u);
  EXPECT_STREQ(event_get_key_at(event.get(), 0), "topic0");
  EXPECT_STREQ(event_get_key_at(event.get(), 1), "open");
  EXPECT_STREQ(event_get_key_at(event.get(), 2), "other");
}

TEST_F(Types, PropertyValueTravelsBesideTheDeclaration) {
  EXPECT_EQ(build_with("State", "port", &seven, VALUE_TYPE_INT, "active", &yes, VALUE_TYPE_BOOL),
            no_failure);
  ASSERT_TRUE(declaration && params);
  EXPECT_STREQ(params->key, "active");
  EXPECT_STREQ(params->value, "1");
  EXPECT_STREQ(pair("active")->value, "");
  EXPECT_TRUE(pair("active")->value_wildcard);
  EXPECT_STREQ(pair("port")->value, "7");
  EXPECT_TRUE(event_declaration_is_property(declaration.get()));
  EXPECT_EQ(g_list_length(pair("active")->tags), 1u);
}

TEST_F(Types, PropertyWhoseStateTheTemplateFixes) {
  write("Fixed",
        std::string{topic} + R"(<keyvalue key="active" value="1">)" + property + "</keyvalue>");
  EXPECT_EQ(build_with("Fixed"), no_failure);
  ASSERT_TRUE(declaration && params);
  EXPECT_STREQ(params->key, "active");
  EXPECT_EQ(params->value, nullptr);
  EXPECT_TRUE(event_declaration_is_property(declaration.get()));
  EXPECT_EQ(event_producer_register(producer, "Fixed", NULL), 1u);
  iterate_pending();
  EXPECT_EQ(errors_logged(), Lines{});
}

TEST_F(Types, PropertyMustBeComplete) {
  EXPECT_EQ(build_with("State", "active", &yes, VALUE_TYPE_BOOL),
            registration_failure(16, "Not all keys were parsed for type State"));
  EXPECT_EQ(build_with("State", "port", &seven, VALUE_TYPE_INT),
            registration_failure(16, "Not all keys were parsed for type State"));
  EXPECT_FALSE(declaration);
}

TEST_F(Types, PlainTypeMayStayOpen) {
  EXPECT_EQ(build_with("Plain"), no_failure);
  EXPECT_TRUE(declaration);
}

TEST_F(Types, KeyThatIsNotOpenIsUnknown) {
  EXPECT_EQ(build_with("Plain", "topic0", "x", VALUE_TYPE_STRING),
            registration_failure(15, "Got unknown key 'topic0' to declaration Plain"));
  EXPECT_EQ(build_with("Plain", "open", "x", VALUE_TYPE_STRING, "open", "y", VALUE_TYPE_STRING),
            registration_failure(15, "Got unknown key 'open' to declaration Plain"));
  EXPECT_EQ(build_with("State", "active", &yes, VALUE_TYPE_BOOL, "active", &yes, VALUE_TYPE_BOOL),
            registration_failure(15, "Got unknown key 'active' to declaration State"));
  EXPECT_FALSE(declaration);
}

TEST_F(Types, KeyThatTheTemplateLeavesEmptyIsNotOpen) {
  write("Empty", std::string{topic} + R"(<keyvalue key="comment" value=""/>)");
  EXPECT_EQ(build_with("Empty", "comment", "x", VALUE_TYPE_STRING),
            registration_failure(15, "Got unknown key 'comment' to declaration Empty"));
  EXPECT_EQ(build_with("Empty"), no_failure);
  EXPECT_FALSE(pair("comment")->value_wildcard);
}

TEST_F(Types, FilledKeyIsOfTheTypeOfItsValue) {
  EXPECT_EQ(build_with("Plain", "open", &half, VALUE_TYPE_DOUBLE), no_failure);
  EXPECT_STREQ(pair("open")->value, "0.500000");
  EXPECT_EQ(pair("open")->value_type, guint32{VALUE_TYPE_DOUBLE});
  EXPECT_EQ(pair("other")->value_type, guint32{VALUE_TYPE_STRING});
}

TEST_F(Types, KeyIsLookedAtBeforeWhatIsLeftOpen) {
  EXPECT_EQ(build_with("State", "nothing", "x", VALUE_TYPE_STRING),
            registration_failure(15, "Got unknown key 'nothing' to declaration State"));
  write("TwoAndMore", topic + open_key(R"(key="a")", property) + open_key(R"(key="b")", property));
  EXPECT_EQ(build_with("TwoAndMore", "nothing", "x", VALUE_TYPE_STRING),
            registration_failure(14, "Got multiple property state tags: key 'b' and 'a' to "
                                     "declaration TwoAndMore"));
}

TEST_F(Types, PropertyKeysAreComparedWhetherOpenOrNot) {
  write("Mixed", topic + std::string{R"(<keyvalue key="fixed" value="1">)"} + property +
                     "</keyvalue>" + open_key(R"(key="b")", property));
  EXPECT_EQ(build_with("Mixed", "b", "x", VALUE_TYPE_STRING),
            registration_failure(14, "Got multiple property state tags: key 'b' and 'fixed' to "
                                     "declaration Mixed"));
}

TEST_F(Types, TemplateOfTagsAloneHasNothingToFill) {
  write("Tags", "", R"( internal="true")");
  EXPECT_EQ(build_with("Tags"), no_failure);
  EXPECT_EQ(build_with("Tags", "a", "x", VALUE_TYPE_STRING),
            registration_failure(15, "Got unknown key 'a' to declaration Tags"));
}

TEST_F(Types, TemplateThatNamesNoKeyAborts) {
  write("Any", std::string{topic} + R"(<keyvalue key-wildcard="true" value="x"/>)");
  EXPECT_DEATH(build_with("Any"),
               "event_producer_int_register_list: assertion failed: \\(kv->key != NULL\\)");
}

TEST_F(Types, TwoPropertyKeysAreRefused) {
  write("Two", topic + open_key(R"(key="a")", property) + open_key(R"(key="b")", property));
  const Failure failure = build_with("Two");
  EXPECT_EQ(failure, registration_failure(14, "Got multiple property state tags: key 'b' and 'a' "
                                              "to declaration Two"));
}

TEST_F(Types, UnknownTypeIsRefused) {
  EXPECT_EQ(build_with("Nowhere"),
            registration_failure(13, "event_declaration_new_from_type() failed for Nowhere"));
}

TEST_F(Types, MissingTypeIsCheckedSoftly) {
  EXPECT_EQ(build(NULL, NULL), no_failure);
  EXPECT_EQ(event_producer_register(producer, NULL, NULL), 0u);
  EXPECT_EQ(log.texts(),
            (Lines{"event_producer_int_register_list: assertion 'type != NULL' failed",
                   "event_producer_int_register_list: assertion 'type != NULL' failed"}));
}

TEST_F(Types, ErrorSlotThatIsTakenEndsTheRegistration) {
  EventDeclaration *made = nullptr;
  CallbackParams *made_params = nullptr;
  GError *error = earlier_error();
  event_producer_int_register_list("Plain", NULL, &made, &made_params, &error);
  EXPECT_EQ(take(error), event_failure(11, "Error object already set"));
  EXPECT_EQ(made, nullptr);
  EXPECT_EQ(made_params, nullptr);
}

TEST_F(Types, SlotsMustBeGivenAndEmpty) {
  EventDeclaration *made = nullptr;
  CallbackParams *made_params = nullptr;
  const TestDeclaration taken{event_declaration_new(TRUE)};
  EventDeclaration *taken_slot = taken.get();
  const TestParams other{callback_params_new("k", "v")};
  CallbackParams *other_slot = other.get();
  for (EventDeclaration **slot : {static_cast<EventDeclaration **>(nullptr), &taken_slot})
    EXPECT_DEATH(event_producer_int_register_list(NULL, NULL, slot, &made_params, NULL),
                 "event_producer_int_register_list: assertion failed: \\(declaration != NULL && "
                 "\\*declaration == NULL\\)");
  for (CallbackParams **slot : {static_cast<CallbackParams **>(nullptr), &other_slot})
    EXPECT_DEATH(event_producer_int_register_list(NULL, NULL, &made, slot, NULL),
                 "event_producer_int_register_list: assertion failed: \\(params != NULL && "
                 "\\*params == NULL\\)");
}

TEST_F(Types, EveryWayToRegisterGivesAnId) {
  TestList values{g_list_append(nullptr, const_cast<char *>("open"))};
  values.reset(g_list_append(values.release(), const_cast<char *>("x")));
  values.reset(g_list_append(values.release(), GINT_TO_POINTER(VALUE_TYPE_STRING)));
  const TestRegisterList texts{event_producer_int_convert_to_string_list(values.get())};
  EXPECT_EQ(event_producer_register(producer, "Plain", NULL), 1u);
  EXPECT_EQ(event_producer_register(producer, "Plain", "open", "x", VALUE_TYPE_STRING, NULL), 2u);
  EXPECT_EQ(event_producer_register_and_notify(producer, "Plain", NULL, NULL, "open", "x",
                                               VALUE_TYPE_STRING, NULL),
            3u);
  EXPECT_EQ(event_producer_register_list(producer, "Plain", values.get()), 4u);
  EXPECT_EQ(event_producer_register_and_notify_list(producer, "Plain", NULL, NULL, values.get()),
            5u);
  EXPECT_EQ(
      event_producer_register_and_notify_string_list(producer, "Plain", NULL, NULL, texts.get()),
      6u);
  const TestEvent left_open{event_producer_prepare_event(producer, 1)};
  EXPECT_STREQ(event_get_value(left_open.get(), "open"), "");
  for (guint32 id = 2; id <= 6; ++id) {
    const TestEvent event{event_producer_prepare_event(producer, id)};
    EXPECT_STREQ(event_get_value(event.get(), "open"), "x") << id;
    EXPECT_EQ(event_get_local_id(event.get()), id);
  }
  iterate_pending();
  EXPECT_EQ(errors_logged(), Lines{});
}

TEST_F(Types, FailuresAreLoggedAndGiveNoId) {
  EXPECT_EQ(event_producer_register(producer, "Nowhere", NULL), 0u);
  EXPECT_EQ(event_producer_register(producer, "Plain", "x", "y", VALUE_TYPE_STRING, NULL), 0u);
  EXPECT_EQ(event_producer_register(producer, "NoTopic", NULL), 0u);
  EXPECT_EQ(
      event_producer_register(producer, "NoTopicState", "active", "1", VALUE_TYPE_STRING, NULL),
      0u);
  EXPECT_EQ(event_producer_register(NULL, "Plain", NULL), 0u);
  EXPECT_EQ(event_producer_register(NULL, "State", "port", &seven, VALUE_TYPE_INT, "active", &yes,
                                    VALUE_TYPE_BOOL, NULL),
            0u);
  EXPECT_EQ(
      errors_logged(),
      (Lines{"Error when registering event: event_declaration_new_from_type() failed for Nowhere",
             "Error when registering event: Got unknown key 'x' to declaration Plain",
             "Error when registering event: External event is missing topic",
             "Error when registering event: External event is missing topic",
             "Error when registering event: NULL object supplied as event producer",
             "Error when registering event: NULL object supplied as event producer"}));
  iterate_pending();
  EXPECT_EQ(event_producer_register(producer, "Plain", NULL), 1u);
}

TEST_F(Types, InternalTypeNeedsNoTopic) {
  write("Internal", open_key(R"(key="open")"), R"( internal="true")");
  EXPECT_EQ(event_producer_register(producer, "Internal", NULL), 1u);
}

TEST_F(Types, RegisteredPropertyCanBeSent) {
  const guint32 id = event_producer_register(producer, "State", "port", &seven, VALUE_TYPE_INT,
                                             "active", &yes, VALUE_TYPE_BOOL, NULL);
  ASSERT_EQ(id, 1u);
  iterate_pending();
  const TestEvent event{event_producer_prepare_event(producer, id)};
  EXPECT_TRUE(event_is_property(event.get()));
  EXPECT_STREQ(event_get_value(event.get(), "active"), "");
  const gboolean no = FALSE;
  EXPECT_TRUE(event_set_value(event.get(), "active", &no));
  EXPECT_STREQ(event_get_value(event.get(), "active"), "0");
  EXPECT_TRUE(event_producer_send_event(producer, event.get(), NULL));
}

TEST_F(Types, AsyncRegistrationReportsThroughTheSlot) {
  GError *error = NULL;
  Told told;
  EXPECT_EQ(async_producer_register(producer, "Nowhere", NULL, NULL, NULL, &error, NULL), 0u);
  EXPECT_EQ(take(error),
            registration_failure(13, "event_declaration_new_from_type() failed for Nowhere"));
  EXPECT_EQ(async_producer_register(producer, "Nowhere", NULL, NULL, NULL, NULL, NULL), 0u);
  EXPECT_EQ(async_producer_register(producer, "NoTopicState", Told::id_alone, NULL, &told, &error,
                                    "active", "1", VALUE_TYPE_STRING, NULL),
            0u);
  EXPECT_EQ(take(error), event_failure(7, "External event is missing topic"));
  EXPECT_EQ(async_producer_register(NULL, "Plain", NULL, NULL, NULL, &error, NULL), 0u);
  EXPECT_EQ(take(error), event_failure(1, "NULL object supplied as event producer"));
  error = earlier_error();
  EXPECT_EQ(async_producer_register(producer, "Plain", NULL, NULL, NULL, &error, NULL), 0u);
  EXPECT_EQ(take(error), event_failure(11, "Error object already set"));
  iterate_pending();
  EXPECT_EQ(told.lines, Lines{});
  EXPECT_EQ(log.texts(), Lines{no_bus_line});
}

TEST_F(Types, AsyncRegistrationDeclares) {
  GError *error = NULL;
  Told told;
  TestList values{g_list_append(nullptr, const_cast<char *>("open"))};
  values.reset(g_list_append(values.release(), const_cast<char *>("x")));
  values.reset(g_list_append(values.release(), GINT_TO_POINTER(VALUE_TYPE_STRING)));
  EXPECT_EQ(async_producer_register_list(producer, "Plain", Told::id_alone, NULL, &told,
                                         values.get(), &error),
            1u);
  EXPECT_EQ(async_producer_register(producer, "State", Told::id_alone, NULL, &told, &error, "port",
                                    &seven, VALUE_TYPE_INT, "active", &yes, VALUE_TYPE_BOOL, NULL),
            2u);
  EXPECT_EQ(take(error), no_failure);
  EXPECT_EQ(async_producer_prepare_event(producer, 1), nullptr);
  iterate_pending();
  EXPECT_EQ(told.lines, (Lines{"id 1", "id 2"}));
  const TestEvent event{async_producer_prepare_event(producer, 1)};
  EXPECT_STREQ(event_get_value(event.get(), "open"), "x");
  const TestEvent state{async_producer_prepare_event(producer, 2)};
  EXPECT_STREQ(event_get_value(state.get(), "port"), "7");
}
