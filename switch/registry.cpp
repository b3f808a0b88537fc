#include "registry.hpp"

#include "eventdeclaration.hpp"
#include "preconditions.hpp"
#include "subscribeexpression.hpp"

namespace varro2::switchd {

Producer &Registry::producer(const Address &address, std::string name) {
  Producer &known = producers_[address];
  if (known.id == 0) {
    known.id = producer_ids_.next([this](auto id) { return producer_ids_in_use_.contains(id); });
    producer_ids_in_use_.insert(known.id);
  }
  known.name = std::move(name);
  return known;
}

const Declaration &Registry::declare(const Address &address, std::string name,
                                     OwnedDeclaration declaration, const Charge &charge) {
  Producer &owner = producer(address, std::move(name));
  const std::uint32_t global_id =
      declaration_ids_.next([this](auto id) { return declarations_.contains(id); });
  Declaration &added = declarations_[global_id];
  added.global_id = global_id;
  added.local_id = event_declaration_get_local_id(declaration.get());
  added.producer_id = owner.id;
  added.producer = address;
  added.declaration = std::move(declaration);
  added.charge = charge;
  event_declaration_set_global_id(added.declaration.get(), global_id);
  event_declaration_set_producer_id(added.declaration.get(), owner.id);

  const bool is_new = owner.declarations.emplace(added.local_id, global_id).second;
  VARRO2_ASSERT(is_new);
  declaration_index_.add(global_id, added.declaration->inspectable);
  return added;
}

Declaration Registry::remove_declaration(std::uint32_t global_id) {
  auto node = declarations_.extract(global_id);
  VARRO2_ASSERT(!node.empty());
  Declaration removed = std::move(node.mapped());
  declaration_index_.remove(global_id, removed.declaration->inspectable);
  producers_.at(removed.producer).declarations.erase(removed.local_id);
  return removed;
}

const Declaration *Registry::find_declaration(std::uint32_t global_id) const {
  const auto found = declarations_.find(global_id);
  return found != declarations_.end() ? &found->second : nullptr;
}

const Declaration *Registry::find_declaration(const Address &address,
                                              std::uint32_t local_id) const {
  const auto owner = producers_.find(address);
  if (owner == producers_.end())
    return nullptr;
  const auto declared = owner->second.declarations.find(local_id);
  return declared != owner->second.declarations.end() ? find_declaration(declared->second)
                                                      : nullptr;
}

std::vector<const Declaration *> Registry::matching(const SubscribeExpression &expression) const {
  std::vector<const Declaration *> fitting;
  const auto ask = [&](const Declaration &declaration) {
    if (event_declaration_contains(declaration.declaration.get(), &expression))
      fitting.push_back(&declaration);
  };
  if (const auto candidates = declaration_index_.candidates(expression.inspectable)) {
    for (const std::uint32_t id : *candidates)
      ask(declarations_.at(id));
  } else {
    for (const auto &[id, declaration] : declarations_)
      ask(declaration);
  }
  return fitting;
}

std::vector<const Subscription *> Registry::matching(const EventDeclaration &declaration) const {
  std::vector<const Subscription *> fitting;
  for (const std::uint32_t id : subscription_index_.candidates(declaration.inspectable)) {
    const Subscription &subscription = subscriptions_.at(id);
    if (event_declaration_contains(&declaration, subscription.expression.get()))
      fitting.push_back(&subscription);
  }
  return fitting;
}

std::vector<std::uint32_t> Registry::declarations_of(const Address &address) const {
  std::vector<std::uint32_t> ids;
  if (const auto owner = producers_.find(address); owner != producers_.end())
    for (const auto &[local_id, global_id] : owner->second.declarations)
      ids.push_back(global_id);
  return ids;
}

std::vector<Address> Registry::producers_on(const std::string &bus_name) const {
  std::vector<Address> addresses;
  for (auto at = producers_.lower_bound({bus_name, ""});
       at != producers_.end() && at->first.bus_name == bus_name; ++at)
    addresses.push_back(at->first);
  return addresses;
}

void Registry::forget_producer(const Address &address) {
  const auto known = producers_.find(address);
  if (known == producers_.end())
    return;
  VARRO2_ASSERT(known->second.declarations.empty());
  producer_ids_in_use_.erase(known->second.id);
  producers_.erase(known);
}

std::uint32_t Registry::new_subscription_id() {
  return subscription_ids_.next(
      [this](auto id) { return subscriptions_.contains(id) || reserved_.contains(id); });
}

std::uint32_t Registry::reserve_subscription_id() {
  return *reserved_.insert(new_subscription_id()).first;
}

const Subscription &Registry::subscribe(const Address &consumer, std::string name,
                                        std::uint32_t token, OwnedExpression expression,
                                        const Charge &charge) {
  const std::uint32_t id = new_subscription_id();
  const bool is_new =
      subscription_keys_.emplace(SubscriptionKey{consumer.bus_name, consumer.path, token}, id)
          .second;
  VARRO2_ASSERT(is_new);

  // Whatever the caller wrote there: events go to the object that subscribed and to no other.
  SubscribeExpression *own = expression.get();
  subscribe_expression_set_id(own, id);
  subscribe_expression_set_dbus_service(own, consumer.bus_name.c_str());
  subscribe_expression_set_dbus_object(own, consumer.path.c_str());
  subscribe_expression_set_consumer_token(own, token);

  Subscription &added = subscriptions_[id];
  added.id = id;
  added.token = token;
  added.consumer = consumer;
  added.name = std::move(name);
  added.expression = std::move(expression);
  added.charge = charge;
  subscription_index_.add(id, own->inspectable);
  return added;
}

Subscription Registry::remove_subscription(std::uint32_t id) {
  auto node = subscriptions_.extract(id);
  VARRO2_ASSERT(!node.empty());
  Subscription removed = std::move(node.mapped());
  subscription_index_.remove(id, removed.expression->inspectable);
  subscription_keys_.erase({removed.consumer.bus_name, removed.consumer.path, removed.token});
  return removed;
}

const Subscription *Registry::find_subscription(std::uint32_t id) const {
  const auto found = subscriptions_.find(id);
  return found != subscriptions_.end() ? &found->second : nullptr;
}

const Subscription *Registry::find_subscription(const Address &consumer,
                                                std::uint32_t token) const {
  const auto key = subscription_keys_.find({consumer.bus_name, consumer.path, token});
  return key != subscription_keys_.end() ? find_subscription(key->second) : nullptr;
}

std::vector<std::uint32_t> Registry::subscriptions_of(const Address &consumer) const {
  std::vector<std::uint32_t> ids;
  for (auto at = subscription_keys_.lower_bound({consumer.bus_name, consumer.path, 0});
       at != subscription_keys_.end() && std::get<0>(at->first) == consumer.bus_name &&
       std::get<1>(at->first) == consumer.path;
       ++at)
    ids.push_back(at->second);
  return ids;
}

std::vector<std::uint32_t> Registry::subscriptions_on(const std::string &bus_name) const {
  std::vector<std::uint32_t> ids;
  for (auto at = subscription_keys_.lower_bound({bus_name, "", 0});
       at != subscription_keys_.end() && std::get<0>(at->first) == bus_name; ++at)
    ids.push_back(at->second);
  return ids;
}

} // namespace varro2::switchd
