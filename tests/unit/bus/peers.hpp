// Declarations, expressions and events as the tests of producers and consumers use them.
#pragma once

#include <varro2/consumer.h>
#include <varro2/producer.h>

#include <glib-object.h>

#include <memory>

namespace varro2::test {

struct Release {
  void operator()(Event *event) const noexcept { event_free(event); }
  void operator()(EventDeclaration *declaration) const noexcept {
    event_declaration_free(declaration);
  }
  void operator()(SubscribeExpression *expression) const noexcept {
    subscribe_expression_free(expression);
  }
  void operator()(Notification *notification) const noexcept { notification_free(notification); }
  void operator()(Producer *producer) const noexcept { g_object_unref(producer); }
  void operator()(Consumer *consumer) const noexcept { g_object_unref(consumer); }
  void operator()(GByteArray *bytes) const noexcept { g_byte_array_unref(bytes); }
};
template <typename T>
using Own = std::unique_ptr<T, Release>;

// "topic0" is fixed, "value" is open.
inline EventDeclaration *new_declaration(bool property = false) {
  EventDeclaration *declaration = event_declaration_new(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "door", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "value", VALUE_TYPE_STRING);
  if (property)
    event_declaration_set_property(declaration, "value", nullptr, nullptr);
  return declaration;
}

inline Own<GByteArray> expression_bytes(guint32 id, bool clandestine = false,
                                        const char *topic = "door") {
  const Own<SubscribeExpression> expression{subscribe_expression_new_full(clandestine)};
  subscribe_expression_add_key_value(expression.get(), "topic0", topic);
  subscribe_expression_set_id(expression.get(), id);
  subscribe_expression_set_dbus_service(expression.get(), ":1.7");
  subscribe_expression_set_dbus_object(expression.get(), "/consumer");
  subscribe_expression_set_consumer_token(expression.get(), 100 + id);
  return Own<GByteArray>{subscribe_expression_serialize(expression.get())};
}

} // namespace varro2::test
