#include "producer.hpp"

#include "buserrors.hpp"
#include "preconditions.hpp"

#include <cerrno>

void ProducerDeclarationData::set_cached_event(varro2::OwnedEvent event) {
  VARRO2_ASSERT_AS("declaration_data_set_cached_event", "event_is_complete(event)",
                   event_is_complete(event.get()));
  cached_event = std::move(event);
  cached_ids_outdated = false;
}

namespace varro2 {

namespace {

void producer_online_handler(gpointer user_data) noexcept {
  locked(static_cast<Producer *>(user_data))->switch_online();
}

void producer_offline_handler(gpointer user_data) noexcept {
  locked(static_cast<Producer *>(user_data))->switch_offline();
}

constexpr ServedInterface served_producer_object{
    .interface = producer_interface,
    .vtable = producer_vtable,
    .filter = nullptr,
    .online = producer_online_handler,
    .offline = producer_offline_handler,
    .register_failure = "Failed to register producer server",
    .watch_failure = "Producer failed to watch bus driver",
    .explain = false};

// Error answers come with an empty error argument: the error stands in the message alone.
OwnedError error_of(sd_bus_message *answer) {
  const sd_bus_error *error = sd_bus_message_get_error(answer);
  const int number = sd_bus_error_get_errno(error);
  return number > 0 ? new_bus_failure(*error, number) : nullptr;
}

// A plain declaration has no hook, and taking one away would make it a property.
void remove_property_hook(EventDeclaration *declaration) {
  if (event_declaration_is_property(declaration))
    event_declaration_set_property(declaration, nullptr, nullptr, nullptr);
}

} // namespace

ProducerState::ProducerState(Producer *producer)
    : BusObject{"/com/quor/Event/Producer/", producer}, producer_{producer} {}

void ProducerState::set_application(const char *producer_name, ProducerSubscribersChanged callback,
                                    gpointer user_data) {
  name = producer_name;
  subscribers_changed_ = callback;
  user_data_ = user_data;
}

bool ProducerState::init_dbus(GError **error) {
  if (!connect_object(*this, producer_, served_producer_object, error))
    return false;
  send_all_declarations();
  return true;
}

void ProducerState::prepare_free() {
  subscribers_changed_ = nullptr;
  for (const auto &[local_id, data] : declarations_)
    remove_property_hook(data->declaration.get());
}

/* ---- Declarations ---- */

ProducerDeclarationData *ProducerState::find(guint32 local_id) const {
  const auto found = declarations_.find(local_id);
  return found != declarations_.end() ? found->second.get() : nullptr;
}

void ProducerState::allocate(guint32 local_id, EventDeclaration *declaration,
                             ProducerCompleteCallback complete_cb, gpointer complete_data) {
  auto data = std::make_unique<ProducerDeclarationData>();
  data->declaration = {declaration, event_declaration_free};
  data->complete_cb = complete_cb;
  data->complete_data = complete_data;
  event_declaration_set_local_id(declaration, local_id);
  declarations_.emplace(local_id, std::move(data));
}

std::unique_ptr<ProducerDeclarationData> ProducerState::release(guint32 local_id) {
  auto node = declarations_.extract(local_id);
  if (node.empty())
    return nullptr;
  std::unique_ptr<ProducerDeclarationData> data = std::move(node.mapped());
  const bool had_counted = data->subscribers.any_counted();
  data->subscribers.clear();
  remove_property_hook(data->declaration.get());
  data->complete_cb = nullptr;
  data->complete_data = nullptr;
  data->released_under = switches_gone_;
  if (had_counted)
    report_subscribers();
  return data;
}

void ProducerState::declare(guint32 local_id) {
  ProducerDeclarationData *data = find(local_id);
  if (data == nullptr)
    return;
  VARRO2_ASSERT_AS("producer_send_declare", "event_declaration_get_local_id(declaration) != 0",
                   event_declaration_get_local_id(data->declaration.get()) != 0);
  const std::shared_ptr<EventDeclaration> declaration = data->declaration;
  OwnedEvent event{event_declaration_get_property_event(declaration.get())};
  data = find(local_id); // the property hook may have undeclared it
  if (data == nullptr || data->declaration != declaration)
    return;
  if (!event) {
    send_declaration(local_id, *data);
    return;
  }
  data->set_cached_event(std::move(event));
  send_declaration(local_id, *data);
  data = find(local_id); // in a full queue another call gives way, and who waited for it is told
  if (data != nullptr && data->declaration == declaration)
    send_to_subscribers(*data->cached_event, *data);
}

void ProducerState::send_declaration(guint32 local_id, ProducerDeclarationData &data) {
  if (data.sent || !connection)
    return;
  const auto bytes = BytesRef::adopt(event_declaration_serialize(data.declaration.get()));
  const auto message =
      build_switch_call(bus(), switch_producer::declare, path.c_str(), name.c_str(), bytes.get());
  data.sent = true;
  data.attempt = ++attempts_;
  connection->call_switch(
      message, bytes->len,
      [this, local_id, attempt = data.attempt](CallEnd end, sd_bus_message *answer) {
        if (found_no_switch(end, answer))
          locked(producer_)->note_undelivered(local_id, attempt);
      });
}

// There was no switch to take the declaration: the next one gets it. An answer to an earlier
// sending says nothing about the present one.
void ProducerState::note_undelivered(guint32 local_id, std::uint64_t attempt) {
  ProducerDeclarationData *data = find(local_id);
  if (data != nullptr && data->attempt == attempt)
    data->sent = false;
}

// Survives a callback that changes the table.
void ProducerState::send_all_declarations() {
  for (auto next = declarations_.begin(); next != declarations_.end();) {
    const guint32 local_id = next->first;
    send_declaration(local_id, *next->second);
    next = declarations_.upper_bound(local_id);
  }
}

void ProducerState::undeclare(guint32 global_id) {
  if (connection)
    connection->call_switch(
        build_switch_call(bus(), switch_producer::undeclare, path.c_str(), global_id));
}

// An id of a switch that has gone since is none of the present one's, or another declaration's.
void ProducerState::undeclare(const ProducerDeclarationData &released) {
  const guint32 global_id = event_declaration_get_global_id(released.declaration.get());
  if (global_id != 0 && released.released_under == switches_gone_)
    undeclare(global_id);
}

void ProducerState::disconnect() {
  if (connection)
    connection->take_leave(build_switch_call(bus(), switch_producer::disconnect, path.c_str()));
}

/* ---- The switch ---- */

void ProducerState::receive_global_id(guint32 local_id, guint32 global_id, guint32 producer_id) {
  const ProducerDeclarationData *data = find(local_id);
  if (data == nullptr) {
    undeclare(global_id);
    return;
  }
  event_declaration_set_global_id(data->declaration.get(), global_id);
  event_declaration_set_producer_id(data->declaration.get(), producer_id);
}

void ProducerState::receive_complete(guint32 local_id, guint32 global_id) {
  ProducerDeclarationData *data = find(local_id);
  if (data == nullptr) {
    undeclare(global_id);
    return;
  }
  // Cleared first: the callback may release the declaration.
  const ProducerCompleteCallback callback = std::exchange(data->complete_cb, nullptr);
  if (callback != nullptr)
    callback(local_id, data->complete_data);
}

void ProducerState::switch_online() {
  send_all_declarations();
}

void ProducerState::switch_offline() {
  connection->forget_switch();
  ++switches_gone_;
  bool had_counted = false;
  for (const auto &[local_id, data] : declarations_) {
    had_counted = had_counted || data->subscribers.any_counted();
    data->subscribers.clear();
    event_declaration_set_global_id(data->declaration.get(), 0);
    event_declaration_set_producer_id(data->declaration.get(), 0);
    data->sent = false;
    data->cached_ids_outdated = true;
  }
  if (had_counted)
    report_subscribers();
}

/* ---- Declaration types ---- */

void ProducerState::add_type(const char *type, const EventDeclaration &declaration,
                             ProducerUserDeclarationCallback callback, gpointer user_data) {
  MessageRef message;
  const auto bytes = BytesRef::adopt(event_declaration_serialize(&declaration));
  if (connection)
    message = build_switch_call(bus(), switch_producer::add_declaration, type, bytes.get());
  request_type(std::move(message), bytes->len, {type, callback, user_data});
}

void ProducerState::remove_type(const char *type, ProducerUserDeclarationCallback callback,
                                gpointer user_data) {
  MessageRef message;
  if (connection)
    message = build_switch_call(bus(), switch_producer::remove_declaration, type);
  request_type(std::move(message), 0, {type, callback, user_data});
}

// Without a connection there is no message, and the failure is all the answer that there will be.
void ProducerState::request_type(MessageRef message, std::size_t size, TypeRequest request) {
  if (!message) {
    request.answer(new_bus_failure(ENOTCONN));
    return;
  }
  connection->call_switch(
      std::move(message), size,
      [this, request = std::move(request)](CallEnd end, sd_bus_message *answer) {
        const LockedProducer held{producer_};
        if (end == CallEnd::answered)
          request.answer(error_of(answer));
        else if (end == CallEnd::dropped)
          request.answer(new_bus_failure(EHOSTUNREACH));
      });
}

void ProducerState::TypeRequest::answer(OwnedError error) const {
  if (callback != nullptr)
    callback(type.c_str(), user_data, error.release());
}

} // namespace varro2
