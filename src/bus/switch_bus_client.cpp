#include "buscall.hpp"
#include "log.hpp"
#include "preconditions.hpp"
#include "untrusted.hpp"

#include <varro2/switch_bus_client.h>

#include <cerrno>

using namespace varro2;

void com_quor_Event_Switch_Producer_declare_async(sd_bus *bus, const char *object, const char *name,
                                                  GByteArray *declaration,
                                                  sd_bus_message_handler_t callback,
                                                  void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  VARRO2_EXPECT(name);
  VARRO2_EXPECT(declaration);
  const auto message = build_switch_call(bus, switch_producer::declare, object, name, declaration);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Producer_undeclare_async(sd_bus *bus, const char *object,
                                                    guint32 global_id,
                                                    sd_bus_message_handler_t callback,
                                                    void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  const auto message = build_switch_call(bus, switch_producer::undeclare, object, global_id);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Producer_add_declaration_async(sd_bus *bus, const char *type,
                                                          GByteArray *declaration,
                                                          sd_bus_message_handler_t callback,
                                                          void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(type);
  VARRO2_EXPECT(declaration);
  const auto message = build_switch_call(bus, switch_producer::add_declaration, type, declaration);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Producer_remove_declaration_async(sd_bus *bus, const char *type,
                                                             sd_bus_message_handler_t callback,
                                                             void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(type);
  const auto message = build_switch_call(bus, switch_producer::remove_declaration, type);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Producer_disconnect_async(sd_bus *bus, const char *object,
                                                     sd_bus_message_handler_t callback,
                                                     void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  const auto message = build_switch_call(bus, switch_producer::disconnect, object);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Consumer_subscribe_async(sd_bus *bus, const char *object,
                                                    const char *name, guint32 token,
                                                    GByteArray *subscribe_expression_data,
                                                    sd_bus_message_handler_t callback,
                                                    void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  VARRO2_EXPECT(name);
  VARRO2_EXPECT(subscribe_expression_data);
  const auto message = build_switch_call(bus, switch_consumer::subscribe, object, name, token,
                                         subscribe_expression_data);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Consumer_unsubscribe_async(sd_bus *bus, const char *object,
                                                      guint32 token,
                                                      sd_bus_message_handler_t callback,
                                                      void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  const auto message = build_switch_call(bus, switch_consumer::unsubscribe, object, token);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Consumer_refresh_property_async(sd_bus *bus, const char *object,
                                                           guint32 token,
                                                           sd_bus_message_handler_t callback,
                                                           void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  const auto message = build_switch_call(bus, switch_consumer::refresh_property, object, token);
  queue_call(bus, message.get(), callback, user_data);
}

void com_quor_Event_Switch_Consumer_disconnect_async(sd_bus *bus, const char *object,
                                                     sd_bus_message_handler_t callback,
                                                     void *user_data) noexcept {
  VARRO2_EXPECT(bus);
  VARRO2_EXPECT(object);
  const auto message = build_switch_call(bus, switch_consumer::disconnect, object);
  queue_call(bus, message.get(), callback, user_data);
}

namespace {

// Says the opposite of what went wrong; the wording is what others look for.
int refuse(const char *condition) {
  VARRO2_CRITICAL("%sAssertion failed '%s'", condition);
  return -1;
}

// The answer to a call that brought nothing usable.
int refuse_answer(sd_bus_error *error) {
  refuse_record(error);
  return -EBADMSG;
}

// Asks for one byte array. On success it is handed over, to be released with g_free().
int ask_for_bytes(sd_bus *bus, sd_bus_message *message, const BusMethod &method, PayloadCheck check,
                  sd_bus_error *error, guint8 **data, gsize *length) {
  MessageRef answer;
  const int r = sd_bus_call(bus, message, call_timeout, error, answer.out());
  if (r < 0)
    return r;
  if (!is_acceptable(answer.get(), check))
    return refuse_answer(error);
  const ByteView bytes = read_bytes(method.stub, answer.get());
  auto *dest = static_cast<guint8 *>(g_memdup2(bytes.data, bytes.length));
  if (dest == nullptr && bytes.length != 0)
    g_assertion_message(nullptr, __FILE__, __LINE__, method.stub, "'dest' should not be NULL");
  *data = dest;
  *length = bytes.length;
  return r;
}

// A call whose answer says nothing but that it worked.
int ask(sd_bus *bus, const BusMethod &method, sd_bus_error *error, sd_bus_message **reply) {
  if (bus == nullptr)
    return refuse("bus == NULL");
  const auto message = build_switch_call(bus, method);
  return sd_bus_call(bus, message.get(), call_timeout, error, reply);
}

} // namespace

int com_quor_Event_Switch_Consumer_get_property_state(sd_bus *bus,
                                                      GByteArray *subscribe_expression_data,
                                                      sd_bus_error *error, guint8 **data,
                                                      gsize *length) noexcept {
  if (bus == nullptr || subscribe_expression_data == nullptr)
    return refuse("bus == NULL || subscribe_expression_data == NULL");
  VARRO2_EXPECT(data, -1);
  VARRO2_EXPECT(length, -1);
  const BusMethod &method = switch_consumer::get_property_state;
  const auto message = build_switch_call(bus, method, subscribe_expression_data);
  return ask_for_bytes(bus, message.get(), method, is_record<SERIALIZE_ID_PROPERTY_STATE>, error,
                       data, length);
}

int com_quor_Event_Switch_Query_get_all_declarations(sd_bus *bus, sd_bus_error *error,
                                                     guint8 **data, gsize *length) noexcept {
  if (bus == nullptr)
    return refuse("bus == NULL");
  VARRO2_EXPECT(data, -1);
  VARRO2_EXPECT(length, -1);
  const BusMethod &method = switch_query::get_all_declarations;
  const auto message = build_switch_call(bus, method);
  return ask_for_bytes(bus, message.get(), method, is_declaration_list, error, data, length);
}

int com_quor_Event_Switch_Query_get_declaration_types(sd_bus *bus, sd_bus_error *error,
                                                      sd_bus_message **reply) noexcept {
  if (bus == nullptr)
    return refuse("bus == NULL");
  VARRO2_EXPECT(reply, -1);
  const int r = ask(bus, switch_query::get_declaration_types, error, reply);
  if (r < 0 || is_acceptable(*reply, is_declaration_list))
    return r;
  MessageRef::adopt(std::exchange(*reply, nullptr)).reset();
  return refuse_answer(error);
}

int com_quor_Event_Switch_debug(sd_bus *bus, sd_bus_error *error) noexcept {
  return ask(bus, switch_control::debug, error, nullptr);
}

int com_quor_Event_Switch_quit(sd_bus *bus, sd_bus_error *error) noexcept {
  return ask(bus, switch_control::quit, error, nullptr);
}
