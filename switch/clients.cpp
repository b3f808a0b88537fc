#include "clients.hpp"

#include <varro2/notification.h>

#include <algorithm>
#include <functional>
#include <span>

namespace varro2::switchd {
namespace {

using OwnedNotification = Owned<Notification, notification_free>;

// Nearly all that a bus daemon allows a connection (128): the switch makes no other calls that
// wait.
constexpr unsigned unanswered = 112;

} // namespace

BytesRef serialize(const SubscribeExpression &expression) {
  return BytesRef::adopt(subscribe_expression_serialize(&expression));
}

Clients::Clients(sd_event *loop, sd_bus *bus, std::size_t queue_limit)
    : window_{bus,
              {.unanswered = unanswered,
               .queued_bytes = queue_limit,
               .all_queued_bytes = 4 * queue_limit},
              loop},
      scout_{loop, bus, [this](const std::string &client) { return window_.holds_back(client); },
             [this](const std::string &client) { window_.seen_alive(client); }} {
  window_.set_scout([this](const std::string &client) {
    if (!scout_.is_out())
      warn_of_hanging_clients();
    scout_.ask(client);
  });
}

void Clients::warn_of_hanging_clients() const {
  constexpr std::size_t most_named = 8;
  std::vector<std::pair<std::size_t, std::string>> hanging;
  window_.visit_queues([&hanging](const std::string &client, const QueueState &queue) {
    if (queue.unanswered > 0)
      hanging.emplace_back(queue.unanswered, client);
  });
  std::ranges::sort(hanging, std::greater{});
  std::string names;
  for (const auto &[count, client] : std::span{hanging}.first(std::min(hanging.size(), most_named)))
    names += (names.empty() ? "" : ", ") + client + " (" + std::to_string(count) + ")";
  g_warning("%zu clients leave %zu of at most %u calls unanswered, so that the others are pinged "
            "before they get theirs: %s%s",
            hanging.size(), window_.unanswered(), unanswered, names.c_str(),
            hanging.size() > most_named ? ", ..." : "");
}

void Clients::call_producer(const Declaration &declaration, const BusMethod &method,
                            std::initializer_list<std::uint32_t> numbers) {
  const Address &producer = declaration.producer;
  window_.send(producer.bus_name.c_str(),
               make_window_call(method, producer.path.c_str(), {}, numbers));
}

void Clients::global_declare_id(const Declaration &declaration) {
  call_producer(declaration, served_producer::global_declare_id,
                {declaration.local_id, declaration.global_id, declaration.producer_id});
}

void Clients::declaration_complete(const Declaration &declaration) {
  call_producer(declaration, served_producer::declaration_complete,
                {declaration.local_id, declaration.global_id});
}

void Clients::subscribe(const Declaration &declaration, const BytesRef &expression,
                        CallCompletion completion) {
  const Address &producer = declaration.producer;
  window_.send(producer.bus_name.c_str(),
               make_window_call(served_producer::subscribe, producer.path.c_str(), expression,
                                {declaration.local_id}, std::move(completion)));
}

void Clients::refresh_property(const Declaration &declaration, std::uint32_t subscription_id) {
  call_producer(declaration, served_producer::refresh_property,
                {subscription_id, declaration.local_id});
}

void Clients::unsubscribe(const Declaration &declaration, std::uint32_t subscription_id) {
  call_producer(declaration, served_producer::unsubscribe, {subscription_id, declaration.local_id});
}

void Clients::notify(const Subscription &subscription, const Declaration &declaration,
                     std::uint32_t type) {
  const OwnedNotification notification{notification_new()};
  const DateTimeRef now = DateTimeRef::adopt(g_date_time_new_now_utc());
  notification_set_subscription_id(notification.get(), subscription.id);
  notification_set_declaration_id(notification.get(), declaration.global_id);
  notification_set_type(notification.get(), type);
  notification_set_subscribe_expression(notification.get(), subscription.expression.get());
  notification_set_declaration(notification.get(), declaration.declaration.get());
  notification_set_timestamp2(notification.get(), now.get());
  window_.send(subscription.consumer.bus_name.c_str(),
               make_window_call(served_consumer::notification, subscription.consumer.path.c_str(),
                                BytesRef::adopt(notification_serialize(notification.get())),
                                {subscription.token}));
}

} // namespace varro2::switchd
