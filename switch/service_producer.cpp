#include "samebytes.hpp"
#include "service.hpp"

#include <varro2/notification.h>

#include <cerrno>
#include <cstring>

namespace varro2::switchd {
namespace {

int refuse_type(sd_bus_error *error, const Types::Result &result) {
  const char *name = SD_BUS_ERROR_INVALID_ARGS;
  switch (result.outcome) {
  case Types::Outcome::exists:
    name = error_already_exists;
    break;
  case Types::Outcome::unknown:
    name = error_not_registered;
    break;
  case Types::Outcome::file_error:
    name = error_file;
    g_warning("%s", result.text.c_str());
    break;
  case Types::Outcome::done:
  case Types::Outcome::bad_name:
  case Types::Outcome::bad_declaration:
    break;
  }
  return refuse(error, name, "%s", result.text.c_str());
}

// But for the ids that this switch has given; the other one is given them as well.
bool is_same(const Declaration &former, EventDeclaration *declaration) {
  event_declaration_set_global_id(declaration, former.global_id);
  event_declaration_set_producer_id(declaration, former.producer_id);
  return have_same_bytes(
      *BytesRef::adopt(event_declaration_serialize(former.declaration.get())).get(),
      *BytesRef::adopt(event_declaration_serialize(declaration)).get());
}

} // namespace

const sd_bus_vtable Service::producer_methods_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS(
        "Declare", SD_BUS_ARGS("s", producer_path, "s", producer_name, "ay", declaration),
        SD_BUS_NO_RESULT, handle<&Service::declare>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Undeclare", SD_BUS_ARGS("s", producer_path, "u", global_id),
                            SD_BUS_NO_RESULT, handle<&Service::undeclare>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("AddDeclaration", SD_BUS_ARGS("s", type, "ay", declaration),
                            SD_BUS_NO_RESULT, handle<&Service::add_declaration>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RemoveDeclaration", SD_BUS_ARGS("s", type), SD_BUS_NO_RESULT,
                            handle<&Service::remove_declaration>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Disconnect", SD_BUS_ARGS("s", producer_path), SD_BUS_NO_RESULT,
                            handle<&Service::disconnect_producer>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int Service::declare(sd_bus_message *call, sd_bus_error *error) {
  const char *path = nullptr;
  const char *name = nullptr;
  if (const int status = sd_bus_message_read(call, "ss", &path, &name); status < 0)
    return status;
  if (!is_client_path(path))
    return refuse(error, SD_BUS_ERROR_INVALID_ARGS, "'%.200s' is no object path.", path);
  const BytesRef bytes = read_record(call, SERIALIZE_ID_EVENT_DECLARATION, quotas_, error);
  if (!bytes)
    return -EINVAL;
  OwnedDeclaration declaration{event_declaration_deserialize(bytes.get())};
  const Address producer{sender_of(call), path};
  const Declaration *former =
      registry_.find_declaration(producer, event_declaration_get_local_id(declaration.get()));
  // A producer that was slow to hear of two switches declares because of the first and again
  // because of the second; both reach the second. It heard of both before it was called from here,
  // so whatever it has been told since still holds: withdrawing it would lose events.
  if (former != nullptr && is_same(*former, declaration.get())) {
    clients_.global_declare_id(*former);
    clients_.declaration_complete(*former);
    return done(call);
  }
  const auto charge = admit(call, {.declarations = 1, .bytes = bytes->len + strlen(path)},
                            former != nullptr ? &former->charge : nullptr, error);
  if (!charge)
    return -EDQUOT;
  add(producer, name, std::move(declaration), *charge);
  return done(call);
}

void Service::add(const Address &producer, const char *name, OwnedDeclaration declaration,
                  const Charge &charge) {
  const std::uint32_t local_id = event_declaration_get_local_id(declaration.get());
  if (const Declaration *former = registry_.find_declaration(producer, local_id))
    withdraw(former->global_id, ProducerIs::there);

  const Declaration &added = registry_.declare(producer, name, std::move(declaration), charge);
  quotas_.take(charge);
  note_change();
  g_info("'%s' (%s%s) declared %u", name, producer.bus_name.c_str(), producer.path.c_str(),
         added.global_id);
  clients_.global_declare_id(added);
  const auto fitting = registry_.matching(*added.declaration);
  for (const Subscription *subscription : fitting)
    clients_.subscribe(added, serialize(*subscription->expression));
  clients_.declaration_complete(added);
  for (const Subscription *subscription : fitting)
    clients_.notify(*subscription, added, NOTIFY_DECLARATION_ADDED);
}

int Service::undeclare(sd_bus_message *call, sd_bus_error *error) {
  const char *path = nullptr;
  std::uint32_t global_id = 0;
  if (const int status = sd_bus_message_read(call, "su", &path, &global_id); status < 0)
    return status;
  const Declaration *declared = registry_.find_declaration(global_id);
  if (declared == nullptr || declared->producer != Address{sender_of(call), path})
    return refuse(error, error_not_registered, "The producer has no declaration %u.", global_id);
  withdraw(global_id, ProducerIs::there);
  return done(call);
}

void Service::withdraw(std::uint32_t global_id, ProducerIs producer_is) {
  const Declaration removed = registry_.remove_declaration(global_id);
  quotas_.give_back(removed.charge);
  note_change();
  g_info("%s%s withdrew the declaration %u", removed.producer.bus_name.c_str(),
         removed.producer.path.c_str(), global_id);
  for (const Subscription *subscription : registry_.matching(*removed.declaration)) {
    if (producer_is == ProducerIs::there)
      clients_.unsubscribe(removed, subscription->id);
    clients_.notify(*subscription, removed, NOTIFY_DECLARATION_REMOVED);
  }
}

int Service::disconnect_producer(sd_bus_message *call, sd_bus_error *) {
  const char *path = nullptr;
  if (const int status = sd_bus_message_read(call, "s", &path); status < 0)
    return status;
  // A producer that has not declared anything says goodbye as well.
  drop_producer({sender_of(call), path});
  return done(call);
}

void Service::drop_producer(const Address &producer) {
  for (const std::uint32_t global_id : registry_.declarations_of(producer))
    withdraw(global_id, ProducerIs::gone);
  registry_.forget_producer(producer);
}

int Service::add_declaration(sd_bus_message *call, sd_bus_error *error) {
  const char *type = nullptr;
  if (const int status = sd_bus_message_read(call, "s", &type); status < 0)
    return status;
  const BytesRef bytes = read_record(call, SERIALIZE_ID_EVENT_DECLARATION, quotas_, error);
  if (!bytes)
    return -EINVAL;
  const OwnedDeclaration declaration{event_declaration_deserialize(bytes.get())};
  const Types::Result result = types_.add(type, *declaration);
  if (result.outcome != Types::Outcome::done)
    return refuse_type(error, result);
  g_message("%s added the declaration type '%s'", sender_of(call), type);
  return done(call);
}

int Service::remove_declaration(sd_bus_message *call, sd_bus_error *error) {
  const char *type = nullptr;
  if (const int status = sd_bus_message_read(call, "s", &type); status < 0)
    return status;
  const Types::Result result = types_.remove(type);
  if (result.outcome != Types::Outcome::done)
    return refuse_type(error, result);
  g_message("%s removed the declaration type '%s'", sender_of(call), type);
  return done(call);
}

} // namespace varro2::switchd
