#include "samebytes.hpp"
#include "service.hpp"

#include <varro2/notification.h>

#include <cerrno>
#include <cstring>

namespace varro2::switchd {
namespace {

// But for what this switch has written into the former one; the other one is given it as well.
bool is_same(const Subscription &former, SubscribeExpression *expression) {
  subscribe_expression_set_id(expression, former.id);
  subscribe_expression_set_dbus_service(expression, former.consumer.bus_name.c_str());
  subscribe_expression_set_dbus_object(expression, former.consumer.path.c_str());
  subscribe_expression_set_consumer_token(expression, former.token);
  return have_same_bytes(*serialize(*former.expression).get(), *serialize(*expression).get());
}

} // namespace

const sd_bus_vtable Service::consumer_methods_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Subscribe",
                            SD_BUS_ARGS("s", consumer_path, "s", consumer_name, "u", consumer_token,
                                        "ay", subscribe_expression),
                            SD_BUS_NO_RESULT, handle<&Service::subscribe>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Unsubscribe", SD_BUS_ARGS("s", consumer_path, "u", consumer_token),
                            SD_BUS_NO_RESULT, handle<&Service::unsubscribe>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("RefreshProperty", SD_BUS_ARGS("s", consumer_path, "u", consumer_token),
                            SD_BUS_NO_RESULT, handle<&Service::refresh_property>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Disconnect", SD_BUS_ARGS("s", consumer_path), SD_BUS_NO_RESULT,
                            handle<&Service::disconnect_consumer>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("GetPropertyState", SD_BUS_ARGS("ay", subscribe_expression),
                            SD_BUS_RESULT("ay", property_state),
                            handle<&Service::get_property_state>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

int Service::subscribe(sd_bus_message *call, sd_bus_error *error) {
  const char *path = nullptr;
  const char *name = nullptr;
  std::uint32_t token = 0;
  if (const int status = sd_bus_message_read(call, "ssu", &path, &name, &token); status < 0)
    return status;
  if (!is_client_path(path))
    return refuse(error, SD_BUS_ERROR_INVALID_ARGS, "'%.200s' is no object path.", path);
  const BytesRef bytes = read_record(call, SERIALIZE_ID_SUBSCRIBE_EXPRESSION, quotas_, error);
  if (!bytes)
    return -EINVAL;

  const Address consumer{sender_of(call), path};
  OwnedExpression wanted{subscribe_expression_deserialize(bytes.get())};
  const Subscription *former = registry_.find_subscription(consumer, token);
  // As with declarations: it is subscribed for two switches, and must not be without in between.
  if (former != nullptr && is_same(*former, wanted.get())) {
    tell_again(*former);
    return done(call);
  }
  const auto charge = admit(call, {.subscriptions = 1, .bytes = bytes->len + std::strlen(path)},
                            former != nullptr ? &former->charge : nullptr, error);
  if (!charge)
    return -EDQUOT;
  if (former != nullptr)
    cancel(former->id);
  const Subscription &added =
      registry_.subscribe(consumer, name, token, std::move(wanted), *charge);
  quotas_.take(*charge);
  note_change();
  g_info("'%s' (%s%s) subscribed %u", name, consumer.bus_name.c_str(), path, added.id);
  const BytesRef expression = serialize(*added.expression);
  for (const Declaration *declared : registry_.matching(*added.expression)) {
    clients_.subscribe(*declared, expression);
    clients_.notify(added, *declared, NOTIFY_DECLARATION_ADDED);
  }
  return done(call);
}

void Service::tell_again(const Subscription &subscription) {
  for (const Declaration *declared : registry_.matching(*subscription.expression))
    clients_.notify(subscription, *declared, NOTIFY_DECLARATION_ADDED);
  refresh(subscription);
}

void Service::cancel(std::uint32_t subscription_id, const std::string &gone) {
  const Subscription removed = registry_.remove_subscription(subscription_id);
  quotas_.give_back(removed.charge);
  note_change();
  g_info("%s%s ended the subscription %u", removed.consumer.bus_name.c_str(),
         removed.consumer.path.c_str(), subscription_id);
  for (const Declaration *declared : registry_.matching(*removed.expression))
    if (declared->producer.bus_name != gone)
      clients_.unsubscribe(*declared, subscription_id);
}

int Service::unsubscribe(sd_bus_message *call, sd_bus_error *error) {
  const char *path = nullptr;
  std::uint32_t token = 0;
  if (const int status = sd_bus_message_read(call, "su", &path, &token); status < 0)
    return status;
  const Subscription *found = registry_.find_subscription({sender_of(call), path}, token);
  if (found == nullptr)
    return refuse(error, error_no_subscription, "The consumer has no subscription with token %u.",
                  token);
  cancel(found->id);
  return done(call);
}

int Service::refresh_property(sd_bus_message *call, sd_bus_error *error) {
  const char *path = nullptr;
  std::uint32_t token = 0;
  if (const int status = sd_bus_message_read(call, "su", &path, &token); status < 0)
    return status;
  const Subscription *found = registry_.find_subscription({sender_of(call), path}, token);
  if (found == nullptr)
    return refuse(error, error_no_subscription, "The consumer has no subscription with token %u.",
                  token);
  refresh(*found);
  return done(call);
}

void Service::refresh(const Subscription &subscription) {
  for (const Declaration *declared : registry_.matching(*subscription.expression))
    if (event_declaration_is_property(declared->declaration.get()))
      clients_.refresh_property(*declared, subscription.id);
}

int Service::disconnect_consumer(sd_bus_message *call, sd_bus_error *) {
  const char *path = nullptr;
  if (const int status = sd_bus_message_read(call, "s", &path); status < 0)
    return status;
  for (const std::uint32_t id : registry_.subscriptions_of({sender_of(call), path}))
    cancel(id);
  return done(call);
}

int Service::get_property_state(sd_bus_message *call, sd_bus_error *error) {
  const BytesRef bytes = read_record(call, SERIALIZE_ID_SUBSCRIBE_EXPRESSION, quotas_, error);
  if (!bytes)
    return -EINVAL;
  const OwnedExpression expression{subscribe_expression_deserialize(bytes.get())};
  return lookups_.start(call, *expression, error);
}

} // namespace varro2::switchd
