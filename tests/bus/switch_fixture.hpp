// A switch of its own on a bus of its own, and peers that speak to it by hand.
#pragma once

#include "foreignpeer.hpp"
#include "mainloop.hpp"
#include "privatebus.hpp"
#include "switchprocess.hpp"

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>
#include <varro2/notification.h>
#include <varro2/propertystate.h>
#include <varro2/serialize.h>
#include <varro2/subscribeexpression.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace varro2::test {

inline constexpr const char *switch_name = "com.quor.Event.Switch";
inline constexpr const char *switch_path = "/com/quor/Event/Switch";
inline constexpr const char *producer_path = "/com/quor/Event/Producer/0x1";
inline constexpr const char *consumer_path = "/com/quor/Event/Consumer/0x1";

template <auto release>
struct Release {
  template <typename T>
  void operator()(T *object) const noexcept {
    release(object);
  }
};

using OwnedArray = std::unique_ptr<GByteArray, Release<g_byte_array_unref>>;
using OwnedDeclaration = std::unique_ptr<EventDeclaration, Release<event_declaration_free>>;
using OwnedExpression = std::unique_ptr<SubscribeExpression, Release<subscribe_expression_free>>;
using OwnedNotification = std::unique_ptr<Notification, Release<notification_free>>;
using OwnedState = std::unique_ptr<PropertyState, Release<property_state_free>>;
using OwnedEvent = std::unique_ptr<Event, Release<event_free>>;

inline Bytes taken(GByteArray *array) {
  const OwnedArray owner{array};
  return array->len > 0 ? Bytes(array->data, array->data + array->len) : Bytes{};
}

inline OwnedArray as_array(const Bytes &bytes) {
  OwnedArray array{g_byte_array_new()};
  g_byte_array_append(array.get(), bytes.data(), static_cast<guint>(bytes.size()));
  return array;
}

inline OwnedDeclaration declaration_of(const char *topic, std::uint32_t local_id) {
  OwnedDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", topic, VALUE_TYPE_STRING);
  event_declaration_set_local_id(declaration.get(), local_id);
  return declaration;
}

inline Bytes declaration(const char *topic, std::uint32_t local_id) {
  return taken(event_declaration_serialize(declaration_of(topic, local_id).get()));
}

// The state key is "state"; the hook is never called by anybody but its owner.
inline OwnedDeclaration property_of(const char *topic, std::uint32_t local_id) {
  OwnedDeclaration declaration = declaration_of(topic, local_id);
  event_declaration_add_key(declaration.get(), "state", VALUE_TYPE_STRING);
  event_declaration_set_property(
      declaration.get(), "state", [](Event *event, gpointer) { return event; }, nullptr);
  return declaration;
}

inline Bytes property(const char *topic, std::uint32_t local_id) {
  return taken(event_declaration_serialize(property_of(topic, local_id).get()));
}

inline Bytes property_event(const char *topic, const char *state) {
  const OwnedDeclaration declaration = property_of(topic, 1);
  const OwnedEvent event{event_declaration_generate_event(declaration.get())};
  event_set_value(event.get(), "state", state);
  return taken(event_serialize(event.get()));
}

inline Bytes expression(const char *topic) {
  const OwnedExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), "topic0", topic);
  return taken(subscribe_expression_serialize(expression.get()));
}

inline OwnedExpression read_expression(const Bytes &bytes) {
  return OwnedExpression{subscribe_expression_deserialize(as_array(bytes).get())};
}

inline OwnedNotification read_notification(const Bytes &bytes) {
  return OwnedNotification{notification_deserialize(as_array(bytes).get())};
}

// A peer that calls the switch's methods and answers whatever the switch calls.
class SwitchClient : public ForeignPeer {
 public:
  Answer producer(const char *member, GVariant *arguments) {
    return call(switch_name, switch_path, "com.quor.Event.Switch.Producer", member, arguments);
  }
  Answer consumer(const char *member, GVariant *arguments) {
    return call(switch_name, switch_path, "com.quor.Event.Switch.Consumer", member, arguments);
  }
  Answer query(const char *member) {
    return call(switch_name, switch_path, "com.quor.Event.Switch.Query", member);
  }
  Answer control(const char *member) {
    return call(switch_name, switch_path, "com.quor.Event.Switch", member);
  }

  Answer declare(const Bytes &bytes, const char *path = producer_path) {
    return producer("Declare",
                    g_variant_new("(ss@ay)", path, "a producer", bytes_variant(bytes).get()));
  }
  Answer undeclare(std::uint32_t global_id, const char *path = producer_path) {
    return producer("Undeclare", g_variant_new("(su)", path, global_id));
  }
  Answer subscribe(std::uint32_t token, const Bytes &bytes, const char *path = consumer_path) {
    return consumer("Subscribe", g_variant_new("(ssu@ay)", path, "a consumer", token,
                                               bytes_variant(bytes).get()));
  }
  Answer unsubscribe(std::uint32_t token, const char *path = consumer_path) {
    return consumer("Unsubscribe", g_variant_new("(su)", path, token));
  }
  Answer get_property_state(const Bytes &bytes) {
    return consumer("GetPropertyState", g_variant_new("(@ay)", bytes_variant(bytes).get()));
  }

  // Everything that the switch has sent here so far is in calls().
  void settle() { fence(switch_name); }
};

class SwitchTest : public ::testing::Test {
 protected:
  explicit SwitchTest(std::vector<std::string> more = {}) {
    std::vector<std::string> arguments{"--verbose", "--types-dir=" + own_types(),
                                       "--system-types-dir=" + system_types()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    event_switch_ = std::make_unique<SwitchProcess>(VARRO2_SWITCHD, arguments);
    event_switch_->start();
  }

  std::string own_types() const { return bus_.folder() + "/own-types"; }
  std::string system_types() const { return bus_.folder() + "/system-types"; }

  PrivateBus bus_;
  std::unique_ptr<SwitchProcess> event_switch_;
};

} // namespace varro2::test
