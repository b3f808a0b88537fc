// Lookups that end while the calls they made still wait: giving one of those calls up ends others.
#include "service.hpp"

#include "bussource.hpp"
#include "foreignpeer.hpp"
#include "privatebus.hpp"
#include "samples.hpp"
#include "status.hpp"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace varro2::switchd {
namespace {

using test::Answer;
using test::Bytes;
using test::ForeignPeer;

constexpr const char *switch_name = "com.quor.Event.Switch";
constexpr const char *switch_path = "/com/quor/Event/Switch";
constexpr std::size_t smallest_entry = 64; // as which a call without a payload counts

Bytes taken(GByteArray *array) {
  const BytesRef owner = BytesRef::adopt(array);
  return {array->data, array->data + array->len};
}

// What the switch sends for a lookup, by its length.
std::size_t lookup_size(const char *switch_unique_name) {
  const OwnedExpression expression = wants("a");
  subscribe_expression_set_dbus_service(expression.get(), switch_unique_name);
  subscribe_expression_set_dbus_object(expression.get(), "/com/quor/Event/Switch/PropertyState");
  return taken(subscribe_expression_serialize(expression.get())).size();
}

// A switch in this process, with a producer that never answers. Its queue is full when it holds one
// lookup and the calls for two declarations.
class FullQueue : public ::testing::Test {
 protected:
  FullQueue() {
    sd_event_new(loop_.out());
    sd_bus_open_system(own_.out());
    sd_bus_attach_event(own_.get(), loop_.get(), SD_EVENT_PRIORITY_NORMAL);
    const char *name = nullptr;
    sd_bus_get_unique_name(own_.get(), &name);
    Service::Limits limits;
    limits.queue = lookup_size(name) + 4 * smallest_entry;
    limits.property_state = 600'000'000;
    service_ = std::make_unique<Service>(loop_.get(), own_.get(), Types{"", ""}, limits);
    EXPECT_GE(service_->serve(), 0);
    EXPECT_GE(sd_bus_request_name(own_.get(), switch_name, 0), 0);
    source_ = SourceRef::adopt(bus_source_new(loop_.get(), own_.get()));
    g_source_attach(source_.get(), nullptr);
    for (const char *member :
         {"GlobalDeclareId", "DeclarationComplete", "Subscribe", "Unsubscribe"})
      producer_.stay_silent(member);
  }
  ~FullQueue() override {
    g_source_destroy(source_.get());
    service_.reset();
    sd_bus_flush(own_.get());
    sd_bus_close(own_.get());
  }

  void declare(OwnedDeclaration declaration) {
    const Bytes bytes = taken(event_declaration_serialize(declaration.get()));
    const Answer answer =
        producer_.call(switch_name, switch_path, "com.quor.Event.Switch.Producer", "Declare",
                       g_variant_new("(ss@ay)", "/com/quor/Event/Producer/0x1", "p",
                                     test::bytes_variant(bytes).get()));
    EXPECT_EQ(answer.error_name, "");
  }
  // Each takes two calls.
  void declare_others(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t local_id = first; local_id <= last; ++local_id)
      declare(topic("x", local_id));
  }
  void declare_property(std::uint32_t local_id) {
    OwnedDeclaration declaration = topic("a", local_id);
    event_declaration_set_property(declaration.get(), nullptr, nullptr, nullptr);
    declare(std::move(declaration));
  }

  void look_up(ForeignPeer &caller) {
    const Bytes bytes = taken(subscribe_expression_serialize(wants("a").get()));
    caller.post(switch_name, switch_path, "com.quor.Event.Switch.Consumer", "GetPropertyState",
                g_variant_new("(@ay)", test::bytes_variant(bytes).get()));
    caller.fence(switch_name);
  }

  std::string status() {
    ForeignPeer caller;
    return caller
        .call(switch_name, switch_path, switch_status::interface, switch_status::get_status)
        .first_text();
  }
  // The number of that name that comes first.
  static std::string number_in(const std::string &status, const std::string &name) {
    const std::string before = "\"" + name + "\":";
    const std::size_t at = status.find(before);
    return at == std::string::npos
               ? ""
               : status.substr(at + before.size(),
                               status.find_first_of(",}", at) - at - before.size());
  }
  void expect_lookups_left(const std::string &count) {
    std::string left;
    ASSERT_TRUE(test::iterate_until([&] {
      left = status();
      return number_in(left, "lookups") == count;
    }));
    const std::size_t users = left.find("\"users\":");
    ASSERT_NE(users, std::string::npos);
    EXPECT_EQ(number_in(left.substr(users), "calls"), count) << left;
    EXPECT_NE(number_in(left, "dropped"), "0") << left;
  }

  test::PrivateBus bus_;
  EventLoop loop_;
  Bus own_;
  std::unique_ptr<Service> service_;
  SourceRef source_;
  ForeignPeer producer_;
};

TEST_F(FullQueue, GivesUpTheVeryCallWhoseLookupEnds) {
  declare_property(1);
  declare_others(2, 4); // with which the producer has all the calls that it gets at a time
  auto caller = std::make_unique<ForeignPeer>();
  look_up(*caller);
  declare_others(5, 6);
  // One more for the queue, for which the lookup's own subscription gives way.
  caller.reset();
  expect_lookups_left("0");
}

TEST_F(FullQueue, GivesUpTheCallOfTheLookupThatWouldEndNext) {
  declare_property(1);
  declare_others(2, 3);
  ForeignPeer other;
  look_up(other);
  auto caller = std::make_unique<ForeignPeer>();
  look_up(*caller); // the last one with which the producer is called
  look_up(*caller);
  declare_others(4, 5);
  caller.reset();
  expect_lookups_left("1");
}

} // namespace
} // namespace varro2::switchd
