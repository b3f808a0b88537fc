// What varro2 status shows: of the real switch, of one that refuses, and of older and odd ones.
#include "commandline.hpp"
#include "foreignpeer.hpp"

#include <varro2/varro2.h>

#include <unistd.h>

namespace varro2::test {
namespace {

TEST_F(CommandLine, StatusNamesWhoDeclaresAndWhoSubscribesToWhom) {
  auto monitor = subscribed({"monitor", "topic0=Device", "&", "!state=0"});
  ChildProcess holder{{VARRO2, "send", "--from", "-", "--hold", "600"}};
  holder.write(port_event + "\n");
  EXPECT_TRUE(iterate_until([&] { return varro2({"list"}).code == 0; }));
  const Result status = varro2({"status"});
  EXPECT_EQ(status.code, 0);
  const auto shows = [&](const std::string &text) {
    EXPECT_NE(status.output.find(text), std::string::npos) << text << "\n" << status.output;
  };
  shows("message bus    " + std::string{getenv("DBUS_SYSTEM_BUS_ADDRESS")} + "\n");
  shows("(varro2-switchd), user " + std::to_string(geteuid()) + ", version ");
  shows("declarations   1 of 1 producer\n");
  shows("subscriptions  1 of 1 consumer\n");
  shows("unanswered (0 overdue), 0 waiting, 0 dropped\n");
  shows("varro2[" + std::to_string(monitor->pid()) + "]");
  shows("varro2[" + std::to_string(holder.pid()) + "]");
  shows("event  Device/IO  :1.");
  shows("1             topic0=Device & state!=0\n");
  shows(" of 12000  ");
  EXPECT_EQ(status.output.find("DROPPED"), std::string::npos) << "columns for trouble only";

  const Json json{varro2({"status", "--json"}).output};
  const json_t *clients = json_object_get(json.at("report"), "clients");
  EXPECT_EQ(json_array_size(clients), 2u);
  EXPECT_EQ(json_array_size(json.at("producers")), 1u);
}

// A switch that is played by hand, with one declaration.
class OtherSwitch : public ::testing::Test {
 protected:
  OtherSwitch() {
    EventDeclaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Device", VALUE_TYPE_STRING);
    event_declaration_set_producer_id(declaration, 7);
    GByteArray *record = event_declaration_serialize(declaration);
    const guint32 count = 1;
    const auto *number = reinterpret_cast<const std::uint8_t *>(&count);
    Bytes list(number, number + sizeof count);
    list.insert(list.end(), record->data, record->data + record->len);
    g_byte_array_unref(record);
    event_declaration_free(declaration);
    switch_.answer_bytes("GetAllDeclarations", list);
    switch_.come();
  }

  void tells(const std::string &text) {
    switch_.answer("GetStatus", [text](const Call &) {
      return Response{own(g_variant_new("(s)", text.c_str())), "", "", false};
    });
  }

  PrivateBus bus_;
  FakeSwitch switch_;
};

constexpr const char *declarations_only = "declarations   1 of 1 producer\n"
                                          "  PRODUCER  DECLARATIONS  PROPERTIES  TOPICS\n"
                                          "  7         1             0           Device\n";

TEST_F(OtherSwitch, ThatRefusesLeavesWhatEverybodyMayAsk) {
  switch_.answer_error("GetStatus", "org.freedesktop.DBus.Error.AccessDenied", "no");
  const Result status = varro2({"status"});
  EXPECT_EQ(status.code, 0);
  EXPECT_NE(status.output.find(declarations_only), std::string::npos) << status.output;
  EXPECT_NE(status.output.find("subscriptions  the switch tells who holds what only to root and to "
                               "its own user\n"),
            std::string::npos);
  const Json json{varro2({"status", "--json"}).output};
  EXPECT_TRUE(json_is_null(json.at("report")));
  EXPECT_TRUE(json_is_string(json.at("no_report")));
  EXPECT_EQ(json_array_size(json.at("producers")), 1u);
}

TEST_F(OtherSwitch, ThatIsOlderLeavesWhatEverybodyMayAsk) {
  for (const char *error : {"UnknownMethod", "UnknownInterface", "UnknownObject"}) {
    switch_.answer_error("GetStatus", std::string{"org.freedesktop.DBus.Error."} + error, "no");
    const Result status = varro2({"status"});
    EXPECT_EQ(status.code, 0);
    EXPECT_NE(status.output.find(declarations_only), std::string::npos) << status.output;
    EXPECT_NE(status.output.find("this switch is an older one"), std::string::npos);
  }
}

TEST_F(OtherSwitch, ThatTellsNonsenseIsNoHarm) {
  for (const char *text : {"", "[]", "{", "{\"clients\":3}", "{\"clients\":[1,{\"queue\":[]}]}"}) {
    tells(text);
    EXPECT_EQ(varro2({"status"}).code, 0) << text;
    EXPECT_EQ(varro2({"status", "--json"}).code, 0) << text;
  }
  switch_.answer_again("GetStatus"); // without any text
  EXPECT_NE(varro2({"status"}).output.find("cannot be read"), std::string::npos);
}

TEST_F(OtherSwitch, ThatLeavesWhileItIsAskedIsMissing) {
  switch_.answer_error("GetStatus", "org.freedesktop.DBus.Error.NoReply", "it disconnected");
  const Result status = varro2({"status"});
  EXPECT_EQ(status.code, 1);
  EXPECT_NE(status.output.find("event switch   the switch left the bus without an answer\n"),
            std::string::npos)
      << status.output;
  const Result json = varro2({"status", "--json"});
  EXPECT_EQ(json.code, 1);
  EXPECT_TRUE(json_is_string(json_object_get(Json{json.output}.at("switch"), "reason")));
}

TEST_F(OtherSwitch, ThatHasTroubleShowsIt) {
  tells(
      R"({"version":"9","truncated":true,"totals":{"answered":5,"unanswered":3,"waiting":12,)"
      R"("dropped":2,"overdue":1,"declarations":1,"producers":1,"subscriptions":1,"consumers":1},)"
      R"("clients":[{"name":":1.9","uid":null,"pid":null,"producers":[{"id":1,"name":"p",)"
      R"("declarations":[{"id":4,"topic":"A\u001b","property":true,"subscribers":8}]}],)"
      R"("consumers":[{"name":"c","subscriptions":[{"id":3,"expression":"","matches":[4]}]}],)"
      R"("queue":{"unanswered":3,"waiting":12,"waiting_bytes":4096,"dropped":2,"overdue":1}}]})");
  const std::string shown = varro2({"status", "--color", "never"}).output;
  EXPECT_NE(
      shown.find("calls          5 answered, 3 unanswered (1 overdue), 12 waiting, 2 dropped"),
      std::string::npos)
      << shown;
  EXPECT_NE(shown.find("the lists below are cut"), std::string::npos);
  EXPECT_NE(shown.find("CLIENT  PROCESS  USER  DECLARES  SUBSCRIBES  UNANSWERED  WAITING  BYTES  "
                       "DROPPED  OVERDUE\n"
                       ":1.9    ?        ?     1         1           3           12       4096   "
                       "2        1\n"),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find("4            :1.9    p     property  A\\x1b  :1.9 and 7 more\n"),
            std::string::npos)
      << shown;
  EXPECT_NE(shown.find("3             :1.9    c     4             everything\n"), std::string::npos)
      << shown;
}

} // namespace
} // namespace varro2::test
