// Calls whose answer somebody waits for, and who stops waiting when he goes.
#pragma once

#include "buscall.hpp"

#include <functional>
#include <list>

namespace varro2 {

// Belongs to one thread, the connection's. Handlers are not called any more once this is cleared or
// gone; a handler may do either.
class PendingCalls {
 public:
  // Gets the answer, which may be an error. What it returns is what sd-bus gets.
  using Answered = std::function<int(sd_bus_message *answer)>;

  PendingCalls() = default;
  PendingCalls(const PendingCalls &) = delete;
  PendingCalls &operator=(const PendingCalls &) = delete;

  // Negative: sd-bus did not take the call; the handler is not called.
  int send(sd_bus *bus, sd_bus_message *message, Answered answered, guint64 timeout = call_timeout);

  void clear() noexcept { entries_.clear(); }
  std::size_t size() const noexcept { return entries_.size(); }

 private:
  struct Entry {
    PendingCalls *owner;
    Answered answered;
    std::list<Entry>::iterator place{};
    SlotRef slot{};
  };

  static int dispatch(sd_bus_message *answer, void *user_data, sd_bus_error *error) noexcept;

  std::list<Entry> entries_;
};

} // namespace varro2
