#include "pendingcalls.hpp"

namespace varro2 {

int PendingCalls::send(sd_bus *bus, sd_bus_message *message, Answered answered, guint64 timeout) {
  entries_.push_back(Entry{.owner = this, .answered = std::move(answered)});
  const auto entry = std::prev(entries_.end());
  entry->place = entry;
  const int r = sd_bus_call_async(bus, entry->slot.out(), message, dispatch, &*entry, timeout);
  if (r < 0)
    entries_.erase(entry);
  return r;
}

int PendingCalls::dispatch(sd_bus_message *answer, void *user_data, sd_bus_error *) noexcept {
  auto *entry = static_cast<Entry *>(user_data);
  // Out of the list first: the handler may be the end of its owner.
  std::list<Entry> finished;
  finished.splice(finished.begin(), entry->owner->entries_, entry->place);
  return entry->answered(answer);
}

} // namespace varro2
