#include "subscribers.hpp"

#include <algorithm>

namespace varro2 {

namespace {

// Fewer are asked sooner than looked up.
constexpr std::size_t worth_a_search = 10;

} // namespace

const Subscriber &Subscribers::add(OwnedExpression expression,
                                   const EventDeclaration *declaration) {
  const auto added = subscribers_.emplace(subscribers_.end(), std::move(expression), ++arrivals_);
  index_.add(*added, declaration);
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
  index_.remove(*removed);
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
  index_.clear();
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
  if (subscribers_.size() >= worth_a_search && index_.collect(event, matching)) {
    std::sort(matching.begin(), matching.end(), [](const Subscriber *one, const Subscriber *other) {
      return one->arrival() < other->arrival();
    });
    matching.erase(std::unique(matching.begin(), matching.end()), matching.end());
    std::erase_if(matching, [&](const Subscriber *one) { return !one->wants(event); });
    return;
  }
  for (const Subscriber &subscriber : subscribers_)
    if (subscriber.wants(event))
      matching.push_back(&subscriber);
}

} // namespace varro2
