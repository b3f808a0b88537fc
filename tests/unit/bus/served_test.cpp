// What producers and consumers serve, called as no bus would call it.
#include "consumer.hpp"
#include "producer.hpp"

#include <gtest/gtest.h>

#include <string>

namespace varro2::test {
namespace {

struct Served {
  const sd_bus_vtable *vtable;
  const char *handler;
  const char *member;
};

sd_bus_message_handler_t handler_of(const Served &served) {
  for (const sd_bus_vtable *entry = served.vtable; entry->type != _SD_BUS_VTABLE_END; ++entry)
    if (entry->type == _SD_BUS_VTABLE_METHOD &&
        std::string{entry->x.method.member} == served.member)
      return entry->x.method.handler;
  return nullptr;
}

TEST(ServedDeathTest, NeedsAMessageAndAnObject) {
  const Served all[] = {
      {producer_vtable, "producer_receive_global_declare_id_bus", "GlobalDeclareId"},
      {producer_vtable, "producer_receive_declaration_complete_bus", "DeclarationComplete"},
      {producer_vtable, "producer_receive_subscribe_bus", "Subscribe"},
      {producer_vtable, "producer_receive_refresh_property_bus", "RefreshProperty"},
      {producer_vtable, "producer_receive_unsubscribe_bus", "Unsubscribe"},
      {consumer_vtable, "consumer_receive_event_bus", "Event"},
      {consumer_vtable, "consumer_receive_notification_bus", "Notification"}};
  int place = 0;
  auto *some_message = reinterpret_cast<sd_bus_message *>(&place);
  for (const Served &served : all) {
    const sd_bus_message_handler_t handler = handler_of(served);
    ASSERT_NE(handler, nullptr) << served.member;
    EXPECT_DEATH(handler(nullptr, &place, nullptr),
                 std::string{served.handler} + ": assertion failed: \\(m\\)");
    EXPECT_DEATH(handler(some_message, nullptr, nullptr),
                 std::string{served.handler} + ": assertion failed: \\(self\\)");
  }
}

} // namespace
} // namespace varro2::test
