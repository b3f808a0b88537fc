// The calls that the switch makes to producers and consumers. It makes them from here only.
#pragma once

#include "registry.hpp"
#include "scout.hpp"
#include "sendwindow.hpp"

#include <systemd/sd-bus.h>

namespace varro2::switchd {

// An expression as it goes to producers, which all get the same bytes.
BytesRef serialize(const SubscribeExpression &expression);

// All calls go through one window, as the library's own do: a client that does not answer keeps
// nobody else waiting, and what it is owed waits for it, in order and up to a limit.
class Clients {
 public:
  // The limit is for what waits for one client, in bytes; all together get about four times as
  // much.
  Clients(sd_event *loop, sd_bus *bus, std::size_t queue_limit);

  void global_declare_id(const Declaration &declaration);
  void declaration_complete(const Declaration &declaration);
  // The completion is for those who wait for the answer: the producer sends a property's event
  // ahead of it.
  void subscribe(const Declaration &declaration, const BytesRef &expression,
                 CallCompletion completion = {});
  void refresh_property(const Declaration &declaration, std::uint32_t subscription_id);
  void unsubscribe(const Declaration &declaration, std::uint32_t subscription_id);

  // The type is NOTIFY_DECLARATION_ADDED or NOTIFY_DECLARATION_REMOVED; the time is now.
  void notify(const Subscription &subscription, const Declaration &declaration, std::uint32_t type);

  // The client has left the bus: nothing waits for it any more.
  void forget(const std::string &bus_name) { window_.forget(bus_name.c_str()); }

  const SendWindow &window() const { return window_; }

 private:
  void warn_of_hanging_clients() const;
  void call_producer(const Declaration &declaration, const BusMethod &method,
                     std::initializer_list<std::uint32_t> numbers);

  SendWindow window_;
  Scout scout_;
};

} // namespace varro2::switchd
