#include "subscribers.hpp"

#include <algorithm>

namespace varro2 {

const Subscriber &Subscribers::add(OwnedExpression expression) {
  const auto added = subscribers_.emplace(subscribers_.end(), std::move(expression));
  first_by_id_.try_emplace(added->id(), added);
  counted_ += added->counted();
  return *added;
}

bool Subscribers::remove(guint32 id) {
  const auto found = first_by_id_.find(id);
  if (found == first_by_id_.end())
    return false;
  const auto removed = found->second;
  first_by_id_.erase(found);
  counted_ -= removed->counted();
  const auto after = subscribers_.erase(removed);
  // Ids are the switch's: that two share one is not expected, but served.
  if (first_by_id_.size() < subscribers_.size()) {
    const auto next = std::find_if(after, subscribers_.end(),
                                   [id](const Subscriber &other) { return other.id() == id; });
    if (next != subscribers_.end())
      first_by_id_.emplace(id, next);
  }
  return true;
}

void Subscribers::clear() {
  subscribers_.clear();
  first_by_id_.clear();
  counted_ = 0;
}

const Subscriber *Subscribers::find(guint32 id) const {
  const auto found = first_by_id_.find(id);
  return found != first_by_id_.end() ? &*found->second : nullptr;
}

void Subscribers::match(const Event &event, std::vector<const Subscriber *> &matching) const {
  matching.clear();
  for (const Subscriber &subscriber : subscribers_)
    if (subscriber.wants(event))
      matching.push_back(&subscriber);
}

} // namespace varro2
