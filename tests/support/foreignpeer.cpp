#include "foreignpeer.hpp"

#include <cstdlib>
#include <stdexcept>

namespace varro2::test {
namespace {

[[noreturn]] void fail(const char *what, GError *error) {
  std::string text = std::string{what} + ": " + error->message;
  g_error_free(error);
  throw std::runtime_error{text};
}

std::string or_empty(const char *text) {
  return text ? text : "";
}

std::string without_parentheses(GVariant *tuple) {
  if (!tuple)
    return "";
  const std::string type = g_variant_get_type_string(tuple);
  return type.substr(1, type.size() - 2);
}

Variant child(GVariant *tuple, std::size_t index) {
  if (!tuple || index >= g_variant_n_children(tuple))
    throw std::out_of_range{"no such argument"};
  return Variant{g_variant_get_child_value(tuple, index)};
}

} // namespace

Variant own(GVariant *variant) {
  return Variant{g_variant_take_ref(variant)};
}

Variant bytes_variant(const Bytes &bytes) {
  return own(g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, bytes.data(), bytes.size(), 1));
}

Bytes to_bytes(GVariant *array) {
  gsize length = 0;
  const auto *data =
      static_cast<const std::uint8_t *>(g_variant_get_fixed_array(array, &length, 1));
  return length ? Bytes(data, data + length) : Bytes{};
}

std::string Call::text(std::size_t index) const {
  return g_variant_get_string(child(arguments.get(), index).get(), nullptr);
}

std::uint32_t Call::number(std::size_t index) const {
  return g_variant_get_uint32(child(arguments.get(), index).get());
}

Bytes Call::bytes(std::size_t index) const {
  return to_bytes(child(arguments.get(), index).get());
}

std::string Answer::first_text() const {
  return g_variant_get_string(child(arguments.get(), 0).get(), nullptr);
}

struct ForeignPeer::State {
  mutable std::mutex lock;
  std::vector<Call> calls;
  std::map<std::string, Rule> rules;

  Rule record(const Call &call) {
    const std::scoped_lock held{lock};
    calls.push_back(call);
    const auto rule = rules.find(call.member);
    return rule == rules.end() ? Rule{} : rule->second;
  }
};

ForeignPeer::ForeignPeer() : ForeignPeer{or_empty(std::getenv("DBUS_SYSTEM_BUS_ADDRESS"))} {}

ForeignPeer::ForeignPeer(const std::string &address) : state_{std::make_shared<State>()} {
  GError *error = nullptr;
  connection_ = g_dbus_connection_new_for_address_sync(
      address.c_str(),
      static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                        G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION),
      nullptr, nullptr, &error);
  if (!connection_)
    fail("cannot connect", error);
  g_dbus_connection_set_exit_on_close(connection_, FALSE);
  // The filter may run once more while it is being removed: it holds the state itself.
  filter_ = g_dbus_connection_add_filter(
      connection_, filter, new std::shared_ptr<State>{state_},
      [](gpointer state) { delete static_cast<std::shared_ptr<State> *>(state); });
}

ForeignPeer::~ForeignPeer() {
  g_dbus_connection_remove_filter(connection_, filter_);
  g_dbus_connection_close_sync(connection_, nullptr, nullptr);
  g_object_unref(connection_);
}

GDBusMessage *ForeignPeer::filter(GDBusConnection *connection, GDBusMessage *message,
                                  gboolean incoming, gpointer data) noexcept {
  if (!incoming || g_dbus_message_get_message_type(message) != G_DBUS_MESSAGE_TYPE_METHOD_CALL)
    return message;
  const std::string interface = or_empty(g_dbus_message_get_interface(message));
  if (interface.starts_with("org.freedesktop.DBus"))
    return message; // Ping, Introspect: GDBus answers

  GVariant *body = g_dbus_message_get_body(message);
  Call call{or_empty(g_dbus_message_get_sender(message)),
            or_empty(g_dbus_message_get_path(message)),
            interface,
            or_empty(g_dbus_message_get_member(message)),
            without_parentheses(body),
            body ? std::shared_ptr<GVariant>{g_variant_ref(body), g_variant_unref} : nullptr,
            !(g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED),
            g_dbus_message_get_serial(message)};
  const Rule rule = (*static_cast<std::shared_ptr<State> *>(data))->record(call);
  const Response response = rule ? rule(call) : Response{};
  g_main_context_wakeup(nullptr);
  if (call.wants_answer && !response.silent) {
    GDBusMessage *reply =
        response.error_name.empty()
            ? g_dbus_message_new_method_reply(message)
            : g_dbus_message_new_method_error_literal(message, response.error_name.c_str(),
                                                      response.error_message.c_str());
    if (response.arguments)
      g_dbus_message_set_body(reply, response.arguments.get());
    g_dbus_connection_send_message(connection, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                   nullptr);
    g_object_unref(reply);
  }
  g_object_unref(message);
  return nullptr;
}

std::string ForeignPeer::unique_name() const {
  return g_dbus_connection_get_unique_name(connection_);
}

void ForeignPeer::request_name(const std::string &name) {
  GError *error = nullptr;
  GVariant *reply = g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "RequestName", g_variant_new("(su)", name.c_str(), 0), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (!reply)
    fail("RequestName", error);
  g_variant_unref(reply);
}

void ForeignPeer::release_name(const std::string &name) {
  GError *error = nullptr;
  GVariant *reply = g_dbus_connection_call_sync(
      connection_, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
      "ReleaseName", g_variant_new("(s)", name.c_str()), G_VARIANT_TYPE("(u)"),
      G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
  if (!reply)
    fail("ReleaseName", error);
  g_variant_unref(reply);
}

void ForeignPeer::answer(const std::string &member, Rule rule) {
  const std::scoped_lock held{state_->lock};
  state_->rules[member] = std::move(rule);
}

void ForeignPeer::answer_bytes(const std::string &member, const Bytes &bytes) {
  answer(member, [bytes](const Call &) {
    Response response;
    GVariant *array = bytes_variant(bytes).release();
    response.arguments = own(g_variant_new_tuple(&array, 1));
    g_variant_unref(array);
    return response;
  });
}

void ForeignPeer::answer_error(const std::string &member, const std::string &name,
                               const std::string &text) {
  answer(member, [name, text](const Call &) { return Response{nullptr, name, text, false}; });
}

void ForeignPeer::stay_silent(const std::string &member) {
  answer(member, [](const Call &) { return Response{nullptr, "", "", true}; });
}

void ForeignPeer::answer_again(const std::string &member) {
  const std::scoped_lock held{state_->lock};
  state_->rules.erase(member);
}

void ForeignPeer::answer_late(const Call &call) {
  GDBusMessage *reply = g_dbus_message_new();
  g_dbus_message_set_message_type(reply, G_DBUS_MESSAGE_TYPE_METHOD_RETURN);
  g_dbus_message_set_destination(reply, call.sender.c_str());
  g_dbus_message_set_reply_serial(reply, call.serial);
  g_dbus_connection_send_message(connection_, reply, G_DBUS_SEND_MESSAGE_FLAGS_NONE, nullptr,
                                 nullptr);
  g_object_unref(reply);
}

std::vector<Call> ForeignPeer::calls() const {
  const std::scoped_lock held{state_->lock};
  return state_->calls;
}

std::vector<Call> ForeignPeer::calls(const std::string &member) const {
  std::vector<Call> found;
  const std::scoped_lock held{state_->lock};
  for (const auto &call : state_->calls)
    if (call.member == member)
      found.push_back(call);
  return found;
}

std::size_t ForeignPeer::count(const std::string &member) const {
  std::size_t found = 0;
  const std::scoped_lock held{state_->lock};
  for (const auto &call : state_->calls)
    found += call.member == member;
  return found;
}

std::vector<std::string> ForeignPeer::members() const {
  std::vector<std::string> found;
  const std::scoped_lock held{state_->lock};
  for (const auto &call : state_->calls)
    found.push_back(call.member);
  return found;
}

void ForeignPeer::forget_calls() {
  const std::scoped_lock held{state_->lock};
  state_->calls.clear();
}

::testing::AssertionResult ForeignPeer::wait_for(const std::string &member,
                                                 std::size_t how_many) const {
  auto result = iterate_until([&] { return count(member) >= how_many; });
  if (!result)
    result << "; " << count(member) << " of " << how_many << " calls of " << member << " came";
  return result;
}

Answer ForeignPeer::call(const std::string &destination, const std::string &path,
                         const std::string &interface, const std::string &member,
                         GVariant *arguments) {
  struct Pending {
    bool done = false;
    GVariant *reply = nullptr;
    GError *error = nullptr;
  };
  // Outlives this function when the answer never comes.
  auto *pending = new Pending;
  g_dbus_connection_call(
      connection_, destination.c_str(), path.c_str(), interface.c_str(), member.c_str(), arguments,
      nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START, G_MAXINT, nullptr,
      [](GObject *source, GAsyncResult *result, gpointer data) {
        auto *waiting = static_cast<Pending *>(data);
        waiting->reply =
            g_dbus_connection_call_finish(G_DBUS_CONNECTION(source), result, &waiting->error);
        waiting->done = true;
      },
      pending);
  if (!iterate_until([&] { return pending->done; }))
    throw std::runtime_error{"no answer to " + member};
  Answer answer;
  answer.arguments.reset(pending->reply);
  answer.signature = without_parentheses(pending->reply);
  if (pending->error) {
    gchar *name = g_dbus_error_get_remote_error(pending->error);
    answer.error_name = or_empty(name);
    g_free(name);
    g_dbus_error_strip_remote_error(pending->error);
    answer.error_message = pending->error->message;
    g_error_free(pending->error);
  }
  delete pending;
  return answer;
}

void ForeignPeer::post(const std::string &destination, const std::string &path,
                       const std::string &interface, const std::string &member,
                       GVariant *arguments) {
  g_dbus_connection_call(connection_, destination.c_str(), path.c_str(), interface.c_str(),
                         member.c_str(), arguments, nullptr, G_DBUS_CALL_FLAGS_NO_AUTO_START,
                         G_MAXINT, nullptr, nullptr, nullptr);
}

void ForeignPeer::emit(const std::string &path, const std::string &interface,
                       const std::string &member, GVariant *arguments) {
  GError *error = nullptr;
  if (!g_dbus_connection_emit_signal(connection_, nullptr, path.c_str(), interface.c_str(),
                                     member.c_str(), arguments, &error))
    fail("emit", error);
  g_dbus_connection_flush_sync(connection_, nullptr, nullptr);
}

void ForeignPeer::fence(const std::string &destination) {
  call(destination, "/", "org.freedesktop.DBus.Peer", "Ping");
}

Answer ForeignPeer::get_property(const std::string &destination, const std::string &path,
                                 const std::string &interface, const std::string &property) {
  return call(destination, path, "org.freedesktop.DBus.Properties", "Get",
              g_variant_new("(ss)", interface.c_str(), property.c_str()));
}

Answer ForeignPeer::set_property(const std::string &destination, const std::string &path,
                                 const std::string &interface, const std::string &property,
                                 GVariant *value) {
  return call(destination, path, "org.freedesktop.DBus.Properties", "Set",
              g_variant_new("(ssv)", interface.c_str(), property.c_str(), value));
}

std::string ForeignPeer::introspect(const std::string &destination, const std::string &path) {
  return call(destination, path, "org.freedesktop.DBus.Introspectable", "Introspect").first_text();
}

Answer FakeSwitch::on_producer(const Call &declare, const char *member, GVariant *arguments) {
  return call(declare.sender, declare.text(0), "com.quor.Event.Producer", member, arguments);
}

Answer FakeSwitch::global_declare_id(const Call &declare, std::uint32_t local_id,
                                     std::uint32_t global_id, std::uint32_t producer_id) {
  return on_producer(declare, "GlobalDeclareId",
                     g_variant_new("(uuu)", local_id, global_id, producer_id));
}

Answer FakeSwitch::declaration_complete(const Call &declare, std::uint32_t local_id,
                                        std::uint32_t global_id) {
  return on_producer(declare, "DeclarationComplete", g_variant_new("(uu)", local_id, global_id));
}

Answer FakeSwitch::subscribe(const Call &declare, const Bytes &expression, std::uint32_t local_id) {
  return on_producer(declare, "Subscribe",
                     g_variant_new("(@ayu)", bytes_variant(expression).get(), local_id));
}

Answer FakeSwitch::refresh_property(const Call &declare, std::uint32_t subscription_id,
                                    std::uint32_t local_id) {
  return on_producer(declare, "RefreshProperty", g_variant_new("(uu)", subscription_id, local_id));
}

Answer FakeSwitch::unsubscribe(const Call &declare, std::uint32_t subscription_id,
                               std::uint32_t local_id) {
  return on_producer(declare, "Unsubscribe", g_variant_new("(uu)", subscription_id, local_id));
}

Answer FakeSwitch::notify(const Call &subscribe, const Bytes &notification, std::uint32_t token) {
  return call(subscribe.sender, subscribe.text(0), "com.quor.Event.Consumer", "Notification",
              g_variant_new("(@ayu)", bytes_variant(notification).get(), token));
}

GVariant *FakeProducer::event_arguments(const Bytes &event, std::uint32_t token) {
  return g_variant_new("(@ayu)", bytes_variant(event).get(), token);
}

Answer FakeProducer::send_event(const std::string &destination, const std::string &path,
                                const Bytes &event, std::uint32_t token) {
  return call(destination, path, "com.quor.Event.Consumer", "Event", event_arguments(event, token));
}

} // namespace varro2::test
