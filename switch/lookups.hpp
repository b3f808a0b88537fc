// Property states that clients asked for and that producers have not told yet.
#pragma once

#include "clients.hpp"
#include "messages.hpp"
#include "quotas.hpp"
#include "registry.hpp"

#include <varro2/event.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace varro2::switchd {

// The state of a property is known to its producer only. The switch subscribes to it clandestinely,
// with an object of its own as the consumer: a producer sends a property's last event ahead of its
// answer to the subscription, so the state is known, or known to be absent, when the answer comes.
// The first event with a state decides. The loop is never held up.
class Lookups {
 public:
  // The limit in microseconds is for all the producers of one lookup together; it ends a lookup
  // well before the caller, who waits for it, gives up.
  Lookups(sd_event *loop, sd_bus *bus, Registry &registry, Clients &clients, Quotas &quotas,
          std::uint64_t limit);
  Lookups(const Lookups &) = delete;
  Lookups &operator=(const Lookups &) = delete;

  // Serves the object to which producers send the events.
  int serve();

  // Answers the call now or later; the result is what a handler returns.
  int start(sd_bus_message *call, const SubscribeExpression &expression, sd_bus_error *error);
  // What a waiting call counts for its user.
  static constexpr Holding one_call{.calls = 1};

  // Nobody waits for the answers to this caller any more.
  void drop_caller(const std::string &bus_name);

  std::size_t size() const { return lookups_.size(); }

 private:
  struct Lookup {
    Lookups *owner = nullptr;
    std::uint32_t id = 0; // subscription id and token
    Message call;
    uid_t user = 0; // of the caller
    Timer timer;
    std::vector<std::uint32_t> asked; // global ids
    std::size_t unanswered = 0;
  };

  static const sd_bus_vtable methods_[];
  static int on_event(sd_bus_message *message, void *self, sd_bus_error *error) noexcept;
  static int on_notification(sd_bus_message *message, void *self, sd_bus_error *error) noexcept;
  static int on_limit(sd_event_source *timer, std::uint64_t now, void *data) noexcept;

  void ask(Lookup &lookup, const std::vector<const Declaration *> &declarations,
           const SubscribeExpression &expression);
  bool is_asked(const Lookup &lookup, const std::string &bus_name) const;
  void answered(std::uint32_t id, sd_bus_message *answer);
  void receive(Lookup &lookup, const ::Event &event);
  void fail(Lookup &lookup, const char *why);
  void end(Lookup &lookup);

  sd_event *loop_;
  sd_bus *bus_;
  Registry &registry_;
  Clients &clients_;
  Quotas &quotas_;
  std::uint64_t limit_;
  std::map<std::uint32_t, Lookup> lookups_;
};

} // namespace varro2::switchd
