#include "switchstatus.hpp"

#include "failure.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace varro2::cli {
namespace {

constexpr std::uint64_t patience = 10 * G_USEC_PER_SEC;

// A member that is missing or of another kind reads as 0, empty or false: a later switch may tell
// other things.
std::int64_t number(const json_t *object, const char *name) {
  return json_integer_value(json_object_get(object, name));
}

std::optional<std::int64_t> known_number(const json_t *object, const char *name) {
  const json_t *value = json_object_get(object, name);
  return json_is_integer(value) ? std::optional{std::int64_t{json_integer_value(value)}}
                                : std::nullopt;
}

std::string text(const json_t *object, const char *name) {
  const char *value = json_string_value(json_object_get(object, name));
  return value != nullptr ? value : "";
}

template <typename Read>
void each(const json_t *object, const char *name, const Read &read) {
  std::size_t index = 0;
  json_t *element = nullptr;
  json_array_foreach(json_object_get(object, name), index, element) read(element);
}

StatusHolding holding_in(const json_t *json) {
  return {number(json, "declarations"), number(json, "subscriptions"), number(json, "bytes"),
          number(json, "calls")};
}

void read_producer(const json_t *producer, StatusClient &client) {
  each(producer, "declarations", [&](const json_t *json) {
    StatusDeclaration declaration;
    declaration.id = number(json, "id");
    declaration.producer = number(producer, "id");
    declaration.producer_name = text(producer, "name");
    declaration.topic = text(json, "topic");
    declaration.property = json_is_true(json_object_get(json, "property"));
    declaration.internal = json_is_true(json_object_get(json, "internal"));
    declaration.subscribers = number(json, "subscribers");
    client.declarations.push_back(std::move(declaration));
  });
}

void read_consumer(const json_t *consumer, StatusClient &client) {
  each(consumer, "subscriptions", [&](const json_t *json) {
    StatusSubscription subscription;
    subscription.id = number(json, "id");
    subscription.consumer_name = text(consumer, "name");
    subscription.expression = text(json, "expression");
    each(json, "matches",
         [&](const json_t *id) { subscription.matches.push_back(json_integer_value(id)); });
    client.subscriptions.push_back(std::move(subscription));
  });
}

StatusClient client_in(const json_t *json) {
  StatusClient client;
  client.bus_name = text(json, "name");
  client.pid = known_number(json, "pid");
  client.uid = known_number(json, "uid");
  each(json, "producers", [&](const json_t *producer) { read_producer(producer, client); });
  each(json, "consumers", [&](const json_t *consumer) { read_consumer(consumer, client); });
  const json_t *queue = json_object_get(json, "queue");
  client.unanswered = number(queue, "unanswered");
  client.waiting = number(queue, "waiting");
  client.waiting_bytes = number(queue, "waiting_bytes");
  client.dropped = number(queue, "dropped");
  client.overdue = number(queue, "overdue");
  return client;
}

SwitchStatus status_in(OwnedJson json) {
  SwitchStatus status;
  status.version = text(json.get(), "version");
  status.truncated = json_is_true(json_object_get(json.get(), "truncated"));
  each(json.get(), "clients",
       [&](const json_t *client) { status.clients.push_back(client_in(client)); });
  each(json.get(), "users", [&](const json_t *user) {
    status.users.push_back({number(user, "uid"), holding_in(user)});
  });
  status.limits = holding_in(json_object_get(json.get(), "limits"));
  status.json = std::move(json);
  return status;
}

std::string reason_for(const sd_bus_error &error, int status) {
  if (sd_bus_error_has_name(&error, SD_BUS_ERROR_ACCESS_DENIED))
    return "the switch tells who holds what only to root and to its own user";
  if (sd_bus_error_has_names(&error, SD_BUS_ERROR_UNKNOWN_METHOD, SD_BUS_ERROR_UNKNOWN_INTERFACE,
                             SD_BUS_ERROR_UNKNOWN_OBJECT))
    return "this switch is an older one that does not tell who holds what";
  // That is what the bus says; an answer that takes too long has no such name.
  if (sd_bus_error_has_name(&error, SD_BUS_ERROR_NO_REPLY))
    throw Failure{"the switch left the bus without an answer"};
  if (status == -ETIMEDOUT)
    throw Failure{"the switch did not answer within 10 seconds"};
  return std::string{"the switch does not tell who holds what: "} +
         (error.message != nullptr ? error.message : std::strerror(-status));
}

} // namespace

std::int64_t SwitchStatus::total(const char *name) const {
  return number(json_object_get(json.get(), "totals"), name);
}

std::optional<SwitchStatus> ask_status(const Session &session, std::string *reason) {
  sd_bus_error error = SD_BUS_ERROR_NULL;
  sd_bus_message *answer = nullptr;
  const OwnedMessage question =
      session.new_call_to_switch("com.quor.Event.Switch.Status", "GetStatus");
  const int status = sd_bus_call(session.bus(), question.get(), patience, &error, &answer);
  const OwnedMessage owner{answer};
  const Owned<sd_bus_error, sd_bus_error_free> error_owner{&error};
  if (status < 0) {
    *reason = reason_for(error, status);
    return {};
  }
  const char *written = nullptr;
  OwnedJson json;
  if (sd_bus_message_read(answer, "s", &written) >= 0)
    json.reset(json_loads(written, 0, nullptr));
  if (!json_is_object(json.get())) {
    *reason = "what the switch tells about itself cannot be read";
    return {};
  }
  return status_in(std::move(json));
}

} // namespace varro2::cli
