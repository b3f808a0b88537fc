// Finds out which clients are alive when the switch can spare no call for it.
#pragma once

#include "messages.hpp"
#include "pendingcalls.hpp"

#include <cstdint>
#include <functional>
#include <map>
#include <string>

namespace varro2::switchd {

// Pings them from a connection of its own. A bus daemon counts pings that are not answered as it
// counts calls, but here the connection can be given up for a new one, and with it all of them; so
// any number of clients may hang. The bus library of a client answers a ping by itself whenever the
// client reads its messages.
class Scout {
 public:
  // Whether it is still of use to know, and what is told of a client that answers.
  using Wanted = std::function<bool(const std::string &client)>;
  using Alive = std::function<void(const std::string &client)>;

  // Loop and bus outlive the scout; it connects to the same bus when there is somebody to ask for.
  Scout(sd_event *loop, sd_bus *bus, Wanted wanted, Alive alive);
  Scout(const Scout &) = delete;
  Scout &operator=(const Scout &) = delete;
  ~Scout();

  // Pings the client, again and again while that is wanted, until it answers.
  void ask(const std::string &client);
  // Has been asked for somebody in the last seconds.
  bool is_out() const { return timer_ != nullptr; }

 private:
  struct Quest {
    unsigned pings = 0;
    std::uint64_t due = 0; // monotonic microseconds
  };
  using Quests = std::map<std::string, Quest>;

  static int on_tick(sd_event_source *timer, std::uint64_t now, void *self) noexcept;
  void tick();
  void arm();
  bool connect();
  void disconnect();
  void ping(const std::string &client, Quest &quest);
  void answered(const std::string &client, sd_bus_message *answer);

  sd_event *loop_;
  sd_bus *bus_;
  Wanted wanted_;
  Alive alive_;
  Bus own_;            // none while there is nobody to ask for
  PendingCalls pings_; // on own_
  Quests quests_;
  Timer timer_;
  unsigned idle_ticks_ = 0;
  bool complained_ = false;
};

} // namespace varro2::switchd
