// What the stubs refuse before anything is sent.
#include "logcapture.hpp"

#include <varro2/consumer_bus_client.h>
#include <varro2/producer_bus_client.h>
#include <varro2/switch_bus_client.h>

#include <gtest/gtest.h>

#include <functional>

namespace varro2::test {
namespace {

// Never looked into: the stubs refuse before they use a bus.
sd_bus *some_bus() {
  return reinterpret_cast<sd_bus *>(0x1000);
}

struct Payload {
  GByteArray *array = g_byte_array_new();
  ~Payload() { g_byte_array_unref(array); }
};

std::string critical_of(const std::function<void()> &call) {
  const LogCapture log;
  call();
  const auto lines = log.lines();
  if (lines.size() != 1 || lines[0].level != G_LOG_LEVEL_CRITICAL || !lines[0].domain.empty())
    return "not one critical line without a domain";
  return lines[0].text;
}

std::string refusal(const char *function, const char *expression) {
  return std::string{function} + ": assertion '" + expression + "' failed";
}

#define EXPECT_REFUSED(expression, function, ...)                                                  \
  EXPECT_EQ(critical_of([&] { function(__VA_ARGS__, nullptr, nullptr); }),                         \
            refusal(#function, expression))

TEST(SwitchProducerStubs, RefuseMissingArguments) {
  const Payload p;
  sd_bus *b = some_bus();
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Producer_declare_async, nullptr, "/o", "n", p.array);
  EXPECT_REFUSED("object", com_quor_Event_Switch_Producer_declare_async, b, nullptr, "n", p.array);
  EXPECT_REFUSED("name", com_quor_Event_Switch_Producer_declare_async, b, "/o", nullptr, p.array);
  EXPECT_REFUSED("declaration", com_quor_Event_Switch_Producer_declare_async, b, "/o", "n",
                 nullptr);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Producer_undeclare_async, nullptr, "/o", 1);
  EXPECT_REFUSED("object", com_quor_Event_Switch_Producer_undeclare_async, b, nullptr, 1);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Producer_add_declaration_async, nullptr, "T",
                 p.array);
  EXPECT_REFUSED("type", com_quor_Event_Switch_Producer_add_declaration_async, b, nullptr, p.array);
  EXPECT_REFUSED("declaration", com_quor_Event_Switch_Producer_add_declaration_async, b, "T",
                 nullptr);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Producer_remove_declaration_async, nullptr, "T");
  EXPECT_REFUSED("type", com_quor_Event_Switch_Producer_remove_declaration_async, b, nullptr);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Producer_disconnect_async, nullptr, "/o");
  EXPECT_REFUSED("object", com_quor_Event_Switch_Producer_disconnect_async, b, nullptr);
}

TEST(SwitchConsumerStubs, RefuseMissingArguments) {
  const Payload p;
  sd_bus *b = some_bus();
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Consumer_subscribe_async, nullptr, "/o", "n", 1,
                 p.array);
  EXPECT_REFUSED("object", com_quor_Event_Switch_Consumer_subscribe_async, b, nullptr, "n", 1,
                 p.array);
  EXPECT_REFUSED("name", com_quor_Event_Switch_Consumer_subscribe_async, b, "/o", nullptr, 1,
                 p.array);
  EXPECT_REFUSED("subscribe_expression_data", com_quor_Event_Switch_Consumer_subscribe_async, b,
                 "/o", "n", 1, nullptr);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Consumer_unsubscribe_async, nullptr, "/o", 1);
  EXPECT_REFUSED("object", com_quor_Event_Switch_Consumer_unsubscribe_async, b, nullptr, 1);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Consumer_refresh_property_async, nullptr, "/o", 1);
  EXPECT_REFUSED("object", com_quor_Event_Switch_Consumer_refresh_property_async, b, nullptr, 1);
  EXPECT_REFUSED("bus", com_quor_Event_Switch_Consumer_disconnect_async, nullptr, "/o");
  EXPECT_REFUSED("object", com_quor_Event_Switch_Consumer_disconnect_async, b, nullptr);
}

TEST(ConsumerStubs, RefuseMissingArguments) {
  const Payload p;
  sd_bus *b = some_bus();
  EXPECT_REFUSED("bus", com_quor_Event_Consumer_event_async, nullptr, "a.b", "/o", p.array, 1);
  EXPECT_REFUSED("destination", com_quor_Event_Consumer_event_async, b, nullptr, "/o", p.array, 1);
  EXPECT_REFUSED("object", com_quor_Event_Consumer_event_async, b, "a.b", nullptr, p.array, 1);
  EXPECT_REFUSED("event", com_quor_Event_Consumer_event_async, b, "a.b", "/o", nullptr, 1);
  EXPECT_REFUSED("bus", com_quor_Event_Consumer_notification_async, nullptr, "a.b", "/o", p.array,
                 1);
  EXPECT_REFUSED("destination", com_quor_Event_Consumer_notification_async, b, nullptr, "/o",
                 p.array, 1);
  EXPECT_REFUSED("object", com_quor_Event_Consumer_notification_async, b, "a.b", nullptr, p.array,
                 1);
  EXPECT_REFUSED("notification", com_quor_Event_Consumer_notification_async, b, "a.b", "/o",
                 nullptr, 1);
}

TEST(ProducerStubs, RefuseMissingArguments) {
  const Payload p;
  sd_bus *b = some_bus();
  EXPECT_REFUSED("bus", com_quor_Event_Producer_global_declare_id_async, nullptr, "a.b", "/o", 1, 2,
                 3);
  EXPECT_REFUSED("destination", com_quor_Event_Producer_global_declare_id_async, b, nullptr, "/o",
                 1, 2, 3);
  EXPECT_REFUSED("object", com_quor_Event_Producer_global_declare_id_async, b, "a.b", nullptr, 1, 2,
                 3);
  EXPECT_REFUSED("bus", com_quor_Event_Producer_declaration_complete_async, nullptr, "a.b", "/o", 1,
                 2);
  EXPECT_REFUSED("object", com_quor_Event_Producer_declaration_complete_async, b, "a.b", nullptr, 1,
                 2);
  EXPECT_REFUSED("bus", com_quor_Event_Producer_subscribe_async, nullptr, "a.b", "/o", p.array, 1);
  EXPECT_REFUSED("object", com_quor_Event_Producer_subscribe_async, b, "a.b", nullptr, p.array, 1);
  EXPECT_REFUSED("subscribe_expression_data", com_quor_Event_Producer_subscribe_async, b, "a.b",
                 "/o", nullptr, 1);
  EXPECT_REFUSED("bus", com_quor_Event_Producer_refresh_property_async, nullptr, "a.b", "/o", 1, 2);
  EXPECT_REFUSED("object", com_quor_Event_Producer_refresh_property_async, b, "a.b", nullptr, 1, 2);
  EXPECT_REFUSED("bus", com_quor_Event_Producer_unsubscribe_async, nullptr, "a.b", "/o", 1, 2);
  EXPECT_REFUSED("object", com_quor_Event_Producer_unsubscribe_async, b, "a.b", nullptr, 1, 2);
}

TEST(SynchronousStubs, RefuseMissingBusOrPayload) {
  const Payload p;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  guint8 *data = nullptr;
  gsize length = 0;
  int r = 0;
  const char *no_bus = "Assertion failed 'bus == NULL'";
  const char *no_payload = "Assertion failed 'bus == NULL || subscribe_expression_data == NULL'";
  EXPECT_EQ(critical_of([&] {
              r = com_quor_Event_Switch_Consumer_get_property_state(nullptr, p.array, &error, &data,
                                                                    &length);
            }),
            no_payload);
  EXPECT_EQ(r, -1);
  EXPECT_EQ(critical_of([&] {
              r = com_quor_Event_Switch_Consumer_get_property_state(some_bus(), nullptr, &error,
                                                                    &data, &length);
            }),
            no_payload);
  EXPECT_EQ(r, -1);
  EXPECT_EQ(critical_of([&] {
              r = com_quor_Event_Switch_Query_get_all_declarations(nullptr, &error, &data, &length);
            }),
            no_bus);
  EXPECT_EQ(r, -1);
  sd_bus_message *reply = nullptr;
  EXPECT_EQ(critical_of([&] {
              r = com_quor_Event_Switch_Query_get_declaration_types(nullptr, &error, &reply);
            }),
            no_bus);
  EXPECT_EQ(r, -1);
  EXPECT_EQ(critical_of([&] { r = com_quor_Event_Switch_debug(nullptr, &error); }), no_bus);
  EXPECT_EQ(r, -1);
  EXPECT_EQ(critical_of([&] { r = com_quor_Event_Switch_quit(nullptr, &error); }), no_bus);
  EXPECT_EQ(r, -1);
  EXPECT_FALSE(sd_bus_error_is_set(&error));
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(reply, nullptr);
}

} // namespace
} // namespace varro2::test
