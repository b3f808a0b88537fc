#include "clients.hpp"

#include <varro2/consumer_bus_client.h>
#include <varro2/notification.h>
#include <varro2/producer_bus_client.h>

namespace varro2::switchd {

using OwnedNotification = Owned<Notification, notification_free>;

BytesRef serialize(const SubscribeExpression &expression) {
  return BytesRef::adopt(subscribe_expression_serialize(&expression));
}

void Clients::global_declare_id(const Declaration &declaration) const {
  com_quor_Event_Producer_global_declare_id_async(
      bus_, declaration.producer.bus_name.c_str(), declaration.producer.path.c_str(),
      declaration.local_id, declaration.global_id, declaration.producer_id, nullptr, nullptr);
}

void Clients::declaration_complete(const Declaration &declaration) const {
  com_quor_Event_Producer_declaration_complete_async(
      bus_, declaration.producer.bus_name.c_str(), declaration.producer.path.c_str(),
      declaration.local_id, declaration.global_id, nullptr, nullptr);
}

void Clients::subscribe(const Declaration &declaration, const BytesRef &expression) const {
  subscribe(declaration, expression, nullptr, nullptr);
}

void Clients::subscribe(const Declaration &declaration, const BytesRef &expression,
                        sd_bus_message_handler_t answered, void *user_data) const {
  com_quor_Event_Producer_subscribe_async(bus_, declaration.producer.bus_name.c_str(),
                                          declaration.producer.path.c_str(), expression.get(),
                                          declaration.local_id, answered, user_data);
}

void Clients::refresh_property(const Declaration &declaration,
                               std::uint32_t subscription_id) const {
  com_quor_Event_Producer_refresh_property_async(bus_, declaration.producer.bus_name.c_str(),
                                                 declaration.producer.path.c_str(), subscription_id,
                                                 declaration.local_id, nullptr, nullptr);
}

void Clients::unsubscribe(const Declaration &declaration, std::uint32_t subscription_id) const {
  com_quor_Event_Producer_unsubscribe_async(bus_, declaration.producer.bus_name.c_str(),
                                            declaration.producer.path.c_str(), subscription_id,
                                            declaration.local_id, nullptr, nullptr);
}

void Clients::notify(const Subscription &subscription, const Declaration &declaration,
                     std::uint32_t type) const {
  const OwnedNotification notification{notification_new()};
  const DateTimeRef now = DateTimeRef::adopt(g_date_time_new_now_utc());
  notification_set_subscription_id(notification.get(), subscription.id);
  notification_set_declaration_id(notification.get(), declaration.global_id);
  notification_set_type(notification.get(), type);
  notification_set_subscribe_expression(notification.get(), subscription.expression.get());
  notification_set_declaration(notification.get(), declaration.declaration.get());
  notification_set_timestamp2(notification.get(), now.get());
  const BytesRef bytes = BytesRef::adopt(notification_serialize(notification.get()));
  com_quor_Event_Consumer_notification_async(bus_, subscription.consumer.bus_name.c_str(),
                                             subscription.consumer.path.c_str(), bytes.get(),
                                             subscription.token, nullptr, nullptr);
}

} // namespace varro2::switchd
