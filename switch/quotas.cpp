#include "quotas.hpp"

#include "messages.hpp"

#include <algorithm>

namespace varro2::switchd {
namespace {

using Credentials = Counted<sd_bus_creds, sd_bus_creds_ref, sd_bus_creds_unref>;

} // namespace

const Quotas::Limit Quotas::all_limits_[] = {{"declarations", &Holding::declarations},
                                             {"subscriptions", &Holding::subscriptions},
                                             {"bytes", &Holding::bytes},
                                             {"waiting calls", &Holding::calls},
                                             {"new names of keys", &Holding::names}};

Holding &Holding::operator+=(const Holding &other) {
  declarations += other.declarations;
  subscriptions += other.subscriptions;
  bytes += other.bytes;
  calls += other.calls;
  names += other.names;
  return *this;
}

Holding &Holding::operator-=(const Holding &other) {
  declarations -= other.declarations;
  subscriptions -= other.subscriptions;
  bytes -= other.bytes;
  calls -= other.calls;
  names -= other.names;
  return *this;
}

std::optional<uid_t> Quotas::user_of(sd_bus_message *call) {
  const std::string sender = sender_of(call);
  if (const auto known = clients_.find(sender); known != clients_.end())
    return known->second.user;
  Credentials credentials;
  uid_t user = 0;
  int status =
      sd_bus_query_sender_creds(call, SD_BUS_CREDS_EUID | SD_BUS_CREDS_PID, credentials.out());
  if (status >= 0)
    status = sd_bus_creds_get_euid(credentials.get(), &user);
  if (status < 0)
    return std::nullopt;
  Client &client = clients_[sender];
  client.user = user;
  // A bus need not tell it, and there is none in another name space.
  if (sd_bus_creds_get_pid(credentials.get(), &client.process) < 0)
    client.process = 0;
  return user;
}

bool Quotas::admits(sd_bus_message *call, const Charge &charge, const Holding &former) {
  Holding holding = charge.amount;
  if (const auto found = holdings_.find(charge.user); found != holdings_.end())
    holding += found->second;
  holding -= former;
  unsigned bit = 1;
  for (const auto &[what, member] : all_limits_) {
    // Who stays below a limit is not refused for another one that is over.
    const std::size_t limit = limit_of(charge.user, member);
    if (charge.amount.*member > 0 && holding.*member > limit) {
      Client &client = clients_[sender_of(call)];
      if ((client.reported & bit) == 0)
        g_warning("The user %u holds all the %s allowed (%zu): refused %s of %s (process %d)",
                  charge.user, what, limit, sd_bus_message_get_member(call), sender_of(call),
                  client.process);
      client.reported |= bit;
      return false;
    }
    bit <<= 1;
  }
  return true;
}

// With what the others have, so much that as much again is left.
std::size_t Quotas::limit_of(uid_t user, std::size_t Holding::*member) const {
  const std::size_t limit = limits_.*member;
  if (member != &Holding::bytes)
    return limit;
  std::size_t of_others = all_.*member;
  if (const auto found = holdings_.find(user); found != holdings_.end())
    of_others -= found->second.*member;
  return limit - std::min(limit, of_others / 2);
}

void Quotas::take(const Charge &charge) {
  all_ += charge.amount;
  holdings_[charge.user] += charge.amount;
}

void Quotas::give_back(const Charge &charge) {
  const auto found = holdings_.find(charge.user);
  if (found == holdings_.end())
    return;
  found->second -= charge.amount;
  all_ -= charge.amount;
  if (found->second == Holding{})
    holdings_.erase(found);
}

} // namespace varro2::switchd
