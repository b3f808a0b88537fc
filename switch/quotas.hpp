// What each user of the machine may hold in the switch, all its connections together.
#pragma once

#include <sys/types.h>
#include <systemd/sd-bus.h>

#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace varro2::switchd {

// What a user holds, or may hold at the most.
struct Holding {
  std::size_t declarations = 0;
  std::size_t subscriptions = 0;
  std::size_t bytes = 0; // of declarations and subscriptions
  std::size_t calls = 0; // that wait for an answer
  // Of keys, which nobody had used before. They stay in the memory of the process for good, so they
  // are never given back. A long one counts for each 64 bytes that it has begun.
  std::size_t names = 0;

  Holding &operator+=(const Holding &other);
  Holding &operator-=(const Holding &other);
  bool operator==(const Holding &) const = default;
};

// Room for 200 producers of 50 declarations and 200 consumers of 20 subscriptions under one user,
// and not for much more, on a machine with 64 MiB: those have 3 MB of records. In memory a record
// takes some three times its size, and ten times when it is all of the shortest pairs.
inline constexpr Holding usual_limits{.declarations = 12'000,
                                      .subscriptions = 6'000,
                                      .bytes = 4 * 1024 * 1024,
                                      .calls = 256,
                                      .names = 8192};

// Who holds something.
struct Charge {
  uid_t user = 0;
  Holding amount;
};

class Quotas {
 public:
  explicit Quotas(const Holding &limits) : limits_{limits} {}

  // The user behind the sender of a call; nothing when it cannot be found out, as when the sender
  // has left. The bus is asked once for each sender.
  std::optional<uid_t> user_of(sd_bus_message *call);

  // Whether there is room for the charge once `former` of the same user is given back. If not, user
  // and sender are named in the log, for each sender and limit once. Of bytes a user may have no
  // more than is left for the others, of twice what one may have: all users together stay below
  // that, and there is always some room for who comes next.
  bool admits(sd_bus_message *call, const Charge &charge, const Holding &former = {});

  void take(const Charge &charge);
  void give_back(const Charge &charge);

  void forget_client(const std::string &bus_name) { clients_.erase(bus_name); }
  const std::map<uid_t, Holding> &holdings() const { return holdings_; }
  const Holding &limits() const { return limits_; }

  struct Client {
    uid_t user = 0;
    pid_t process = 0;     // 0: not known
    unsigned reported = 0; // a bit for each limit
  };
  // Nothing for one whose user nobody has asked for.
  const Client *find_client(const std::string &bus_name) const {
    const auto found = clients_.find(bus_name);
    return found != clients_.end() ? &found->second : nullptr;
  }

 private:
  std::size_t limit_of(uid_t user, std::size_t Holding::*member) const;

  struct Limit {
    const char *what;
    std::size_t Holding::*member;
  };
  static const Limit all_limits_[];

  Holding limits_;
  std::map<uid_t, Holding> holdings_;
  Holding all_;                           // of all users together
  std::map<std::string, Client> clients_; // by bus name
};

} // namespace varro2::switchd
