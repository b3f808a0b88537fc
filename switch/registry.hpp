// Who declared what and who subscribed to what. Plain data: it knows no bus and sends nothing.
#pragma once

#include "index.hpp"
#include "owning.hpp"
#include "quotas.hpp"

#include <varro2/eventdeclaration.h>
#include <varro2/subscribeexpression.h>

#include <compare>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace varro2::switchd {

using OwnedDeclaration = Owned<EventDeclaration, event_declaration_free>;
using OwnedExpression = Owned<SubscribeExpression, subscribe_expression_free>;

// An object of a client: the unique name of its connection, and its path there.
struct Address {
  std::string bus_name;
  std::string path;

  auto operator<=>(const Address &) const = default;
};

// Hands out ids from 1, in order; 0 and ids in use are passed over once the counter has wrapped.
class IdCounter {
 public:
  explicit IdCounter(std::uint32_t last = 0) noexcept : last_{last} {}

  template <typename InUse>
  std::uint32_t next(const InUse &in_use) {
    do
      ++last_;
    while (last_ == 0 || in_use(last_));
    return last_;
  }

 private:
  std::uint32_t last_;
};

struct Declaration {
  std::uint32_t global_id = 0;
  std::uint32_t local_id = 0;
  std::uint32_t producer_id = 0;
  Address producer;
  OwnedDeclaration declaration; // carries the three ids
  Charge charge;
};

struct Subscription {
  std::uint32_t id = 0;
  std::uint32_t token = 0;
  Address consumer;
  std::string name;
  OwnedExpression expression; // carries id, address and token
  Charge charge;
};

struct Producer {
  std::uint32_t id = 0;
  std::string name;
  std::map<std::uint32_t, std::uint32_t> declarations; // local id to global id
};

// Declarations and subscriptions do not change once they are in, so those that match are found
// again whenever they are needed: kept, they would take memory by the product of both numbers, and
// nobody's share limits that. References stay valid until their record is removed.
class Registry {
 public:
  // The producer must not have a declaration with this local id. A producer that is not known yet
  // gets its id.
  const Declaration &declare(const Address &address, std::string name, OwnedDeclaration declaration,
                             const Charge &charge = {});
  // The record as it was. The id must be known.
  Declaration remove_declaration(std::uint32_t global_id);
  const Declaration *find_declaration(std::uint32_t global_id) const;
  const Declaration *find_declaration(const Address &address, std::uint32_t local_id) const;
  // What fits each other, in order of arrival.
  std::vector<const Declaration *> matching(const SubscribeExpression &expression) const;
  std::vector<const Subscription *> matching(const EventDeclaration &declaration) const;

  // The global ids, in the order of the local ones; empty for a producer that is not known.
  std::vector<std::uint32_t> declarations_of(const Address &address) const;
  std::vector<Address> producers_on(const std::string &bus_name) const;
  // The producer must have no declarations any more, or not be known.
  void forget_producer(const Address &address);

  // The consumer must not have a subscription with this token.
  const Subscription &subscribe(const Address &consumer, std::string name, std::uint32_t token,
                                OwnedExpression expression, const Charge &charge = {});
  // The record as it was. The id must be known.
  Subscription remove_subscription(std::uint32_t id);
  const Subscription *find_subscription(std::uint32_t id) const;
  const Subscription *find_subscription(const Address &consumer, std::uint32_t token) const;
  std::vector<std::uint32_t> subscriptions_of(const Address &consumer) const;
  std::vector<std::uint32_t> subscriptions_on(const std::string &bus_name) const;

  // A subscription id for a subscription that the registry does not hold.
  std::uint32_t reserve_subscription_id();
  void release_subscription_id(std::uint32_t id) { reserved_.erase(id); }

  const std::map<Address, Producer> &producers() const { return producers_; }
  const std::map<std::uint32_t, Declaration> &declarations() const { return declarations_; }
  const std::map<std::uint32_t, Subscription> &subscriptions() const { return subscriptions_; }

 private:
  using SubscriptionKey = std::tuple<std::string, std::string, std::uint32_t>;

  Producer &producer(const Address &address, std::string name);
  std::uint32_t new_subscription_id();

  IdCounter producer_ids_;
  IdCounter declaration_ids_;
  IdCounter subscription_ids_;
  std::map<Address, Producer> producers_;
  std::map<std::uint32_t, Declaration> declarations_;
  std::map<std::uint32_t, Subscription> subscriptions_;
  FactIndex declaration_index_;
  TestIndex subscription_index_;
  std::map<SubscriptionKey, std::uint32_t> subscription_keys_; // bus name, path, token
  std::set<std::uint32_t> producer_ids_in_use_;
  std::set<std::uint32_t> reserved_;
};

inline std::uint32_t id_of(const Declaration &declared) {
  return declared.global_id;
}
inline std::uint32_t id_of(const Subscription &subscription) {
  return subscription.id;
}

template <typename Record>
std::vector<std::uint32_t> ids_of(const std::vector<const Record *> &records) {
  std::vector<std::uint32_t> ids;
  ids.reserve(records.size());
  for (const Record *record : records)
    ids.push_back(id_of(*record));
  return ids;
}

// The registry as the lines of a table, for an operator.
std::vector<std::string> describe(const Registry &registry);

} // namespace varro2::switchd
