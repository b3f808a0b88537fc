// The calls that the switch makes to producers and consumers. It makes them from here only.
#pragma once

#include "registry.hpp"

#include <systemd/sd-bus.h>

namespace varro2::switchd {

// An expression as it goes to producers, which all get the same bytes.
BytesRef serialize(const SubscribeExpression &expression);

// Nothing is done with the answers, so none is asked for: a client that does not answer takes no
// place in the bus daemon's table of open calls, and the others are served.
class Clients {
 public:
  explicit Clients(sd_bus *bus) noexcept : bus_{bus} {}

  void global_declare_id(const Declaration &declaration) const;
  void declaration_complete(const Declaration &declaration) const;
  void subscribe(const Declaration &declaration, const BytesRef &expression) const;
  void refresh_property(const Declaration &declaration, std::uint32_t subscription_id) const;
  void unsubscribe(const Declaration &declaration, std::uint32_t subscription_id) const;
  // The one call whose answer matters: the producer sends the property's event ahead of it.
  void subscribe(const Declaration &declaration, const BytesRef &expression,
                 sd_bus_message_handler_t answered, void *user_data) const;

  // The type is NOTIFY_DECLARATION_ADDED or NOTIFY_DECLARATION_REMOVED; the time is now.
  void notify(const Subscription &subscription, const Declaration &declaration,
              std::uint32_t type) const;

 private:
  sd_bus *bus_;
};

} // namespace varro2::switchd
