#include "lookups.hpp"

#include <varro2/propertystate.h>

#include <algorithm>
#include <ctime>

namespace varro2::switchd {
namespace {

using OwnedEvent = Owned<::Event, event_free>;
using OwnedState = Owned<PropertyState, property_state_free>;

constexpr const char *object_path = "/com/quor/Event/Switch/PropertyState";
constexpr const char *consumer_interface = "com.quor.Event.Consumer";
constexpr const char *state_tag = "property-state";

// An expression cannot be made clandestine later, so its record is written anew with the flag set.
BytesRef clandestine_record(const SubscribeExpression &expression, std::uint32_t id,
                            const char *bus_name) {
  BytesRef bytes = BytesRef::adopt(serialize_create_array());
  serialize_8bit(bytes.get(), SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
  serialize_32bit(bytes.get(), id);
  serialize_string(bytes.get(), bus_name);
  serialize_string(bytes.get(), object_path);
  serialize_32bit(bytes.get(), id);
  serialize_8bit(bytes.get(), TRUE);
  inspectable_serialize_internal(subscribe_expression_get_inspectable(&expression), bytes.get());
  return bytes;
}

// The keys of an event as a property state; nothing when not exactly one of them is the state key.
OwnedState state_of(const ::Event &event) {
  OwnedState state{property_state_new()};
  std::size_t state_keys = 0;
  const guint32 count = event_get_key_count(&event);
  for (guint32 position = 0; position < count; ++position) {
    const char *key = event_get_key_at(&event, position);
    const char *value = event_get_value_at(&event, position);
    const char *name_space = event_get_name_space_at(&event, position);
    const bool is_state = event_has_tag_at(&event, position, state_tag);
    state_keys += is_state;
    if (!property_state_add_key_value(state.get(), key, value, is_state))
      return nullptr;
    if (name_space != nullptr && *name_space != '\0')
      property_state_set_name_space(state.get(), key, name_space);
  }
  return state_keys == 1 ? std::move(state) : nullptr;
}

} // namespace

const sd_bus_vtable Lookups::methods_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Event", SD_BUS_ARGS("ay", event, "u", consumer_token),
                            SD_BUS_NO_RESULT, on_event, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Notification", SD_BUS_ARGS("ay", notification, "u", consumer_token),
                            SD_BUS_NO_RESULT, on_notification, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

Lookups::Lookups(sd_event *loop, sd_bus *bus, Registry &registry, Clients &clients, Quotas &quotas,
                 std::uint64_t limit)
    : loop_{loop}, bus_{bus}, registry_{registry}, clients_{clients}, quotas_{quotas}, limit_{
                                                                                           limit} {}

int Lookups::serve() {
  return sd_bus_add_object_vtable(bus_, nullptr, object_path, consumer_interface, methods_, this);
}

int Lookups::start(sd_bus_message *call, const SubscribeExpression &expression,
                   sd_bus_error *error) {
  const std::optional<uid_t> user = quotas_.user_of(call);
  if (!user || !quotas_.admits(call, {*user, one_call}))
    return refuse(error, SD_BUS_ERROR_LIMITS_EXCEEDED, "Too many calls of the user wait.");
  std::vector<const Declaration *> properties = registry_.matching(expression);
  std::erase_if(properties, [](const Declaration *declaration) {
    return !event_declaration_is_property(declaration->declaration.get());
  });
  if (properties.empty())
    return refuse(error, error_property_state, "No declared property matches the expression.");

  const std::uint32_t id = registry_.reserve_subscription_id();
  Lookup &lookup = lookups_[id];
  lookup.owner = this;
  lookup.id = id;
  lookup.call = Message::share(call);
  lookup.user = *user;
  quotas_.take({*user, one_call});
  sd_event_source *timer = nullptr;
  const int status =
      sd_event_add_time_relative(loop_, &timer, CLOCK_MONOTONIC, limit_, 0, on_limit, &lookup);
  lookup.timer.reset(timer);
  if (status < 0) {
    end(lookup);
    return sd_bus_error_set_errno(error, status);
  }
  ask(lookup, properties, expression);
  return handled;
}

void Lookups::ask(Lookup &lookup, const std::vector<const Declaration *> &declarations,
                  const SubscribeExpression &expression) {
  const char *own_name = nullptr;
  sd_bus_get_unique_name(bus_, &own_name);
  const BytesRef bytes = clandestine_record(expression, lookup.id, own_name);
  // Counts as one more, so that calls which end at once do not end the lookup before all are made.
  lookup.unanswered = declarations.size() + 1;
  for (const Declaration *declaration : declarations)
    lookup.asked.push_back(declaration->global_id);
  const std::uint32_t id = lookup.id;
  // The lookup may be decided before an answer comes.
  for (const Declaration *declaration : declarations)
    clients_.subscribe(*declaration, bytes,
                       [this, id](CallEnd, auto *answer) { answered(id, answer); });
  answered(id, nullptr);
}

int Lookups::on_event(sd_bus_message *message, void *self, sd_bus_error *error) noexcept {
  auto *lookups = static_cast<Lookups *>(self);
  const BytesRef bytes = read_record(message, SERIALIZE_ID_EVENT, lookups->quotas_, error);
  if (!bytes)
    return -EINVAL;
  std::uint32_t token = 0;
  if (const int status = sd_bus_message_read(message, "u", &token); status < 0)
    return status;
  // Decided lookups are not found any more; peers that were not asked have nothing to say.
  const auto found = lookups->lookups_.find(token);
  if (found != lookups->lookups_.end() && lookups->is_asked(found->second, sender_of(message))) {
    const OwnedEvent event{event_deserialize(bytes.get())};
    lookups->receive(found->second, *event);
  }
  return done(message);
}

int Lookups::on_notification(sd_bus_message *message, void *, sd_bus_error *) noexcept {
  return done(message);
}

bool Lookups::is_asked(const Lookup &lookup, const std::string &bus_name) const {
  return std::any_of(lookup.asked.begin(), lookup.asked.end(), [&](std::uint32_t global_id) {
    const Declaration *declaration = registry_.find_declaration(global_id);
    return declaration != nullptr && declaration->producer.bus_name == bus_name;
  });
}

void Lookups::receive(Lookup &lookup, const ::Event &event) {
  const OwnedState state = state_of(event);
  if (!state)
    return;
  const BytesRef bytes = BytesRef::adopt(property_state_serialize(state.get()));
  answer(lookup.call.get(), *bytes.get());
  end(lookup);
}

void Lookups::answered(std::uint32_t id, sd_bus_message *answer) {
  if (const sd_bus_error *error = answer != nullptr ? sd_bus_message_get_error(answer) : nullptr)
    g_info("A producer could not be asked for a property's state: %s", error->message);
  const auto found = lookups_.find(id);
  if (found != lookups_.end() && --found->second.unanswered == 0)
    fail(found->second, "No producer knows the state of the property.");
}

int Lookups::on_limit(sd_event_source *, std::uint64_t, void *data) noexcept {
  auto *lookup = static_cast<Lookup *>(data);
  lookup->owner->fail(*lookup, "The producer did not tell the state of the property in time.");
  return 0;
}

void Lookups::fail(Lookup &lookup, const char *why) {
  sd_bus_reply_method_errorf(lookup.call.get(), error_property_state, "%s", why);
  end(lookup);
}

// Out of the table first: a full queue takes a call only for giving up older ones, and those may be
// what this lookup waits for, or others.
void Lookups::end(Lookup &lookup) {
  const auto ended = lookups_.extract(lookup.id);
  quotas_.give_back({lookup.user, one_call});
  for (const std::uint32_t global_id : lookup.asked)
    if (const Declaration *declaration = registry_.find_declaration(global_id))
      clients_.unsubscribe(*declaration, lookup.id);
  registry_.release_subscription_id(lookup.id);
}

void Lookups::drop_caller(const std::string &bus_name) {
  std::vector<std::uint32_t> ids;
  for (const auto &[id, lookup] : lookups_)
    if (sender_of(lookup.call.get()) == bus_name)
      ids.push_back(id);
  for (const std::uint32_t id : ids)
    if (const auto left = lookups_.find(id); left != lookups_.end())
      end(left->second);
}

} // namespace varro2::switchd
