#include "quotas.hpp"

#include "messages.hpp"

namespace varro2::switchd {
namespace {

using Credentials = Counted<sd_bus_creds, sd_bus_creds_ref, sd_bus_creds_unref>;

} // namespace

const Quotas::Limit Quotas::all_limits_[] = {{"declarations", &Holding::declarations},
                                             {"subscriptions", &Holding::subscriptions},
                                             {"bytes", &Holding::bytes},
                                             {"waiting calls", &Holding::calls}};

Holding &Holding::operator+=(const Holding &other) {
  declarations += other.declarations;
  subscriptions += other.subscriptions;
  bytes += other.bytes;
  calls += other.calls;
  return *this;
}

Holding &Holding::operator-=(const Holding &other) {
  declarations -= other.declarations;
  subscriptions -= other.subscriptions;
  bytes -= other.bytes;
  calls -= other.calls;
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
    if (charge.amount.*member > 0 && holding.*member > limits_.*member) {
      unsigned &reported = clients_[sender_of(call)].reported;
      if ((reported & bit) == 0)
        g_warning("The user %u holds all the %s allowed (%zu): refused %s of %s", charge.user, what,
                  limits_.*member, sd_bus_message_get_member(call), sender_of(call));
      reported |= bit;
      return false;
    }
    bit <<= 1;
  }
  return true;
}

void Quotas::take(const Charge &charge) {
  holdings_[charge.user] += charge.amount;
}

void Quotas::give_back(const Charge &charge) {
  const auto found = holdings_.find(charge.user);
  if (found == holdings_.end())
    return;
  found->second -= charge.amount;
  if (found->second == Holding{})
    holdings_.erase(found);
}

} // namespace varro2::switchd
