#include "subscribers.hpp"

#include <algorithm>

namespace varro2 {

namespace {

// Fewer are asked sooner than looked up.
constexpr std::size_t worth_a_search = 10;

bool came_before(const Subscriber *one, const Subscriber *other) {
  return one->arrival() < other->arrival();
}

// Those that hang on one test mostly stand in their order already.
void sort(std::vector<const Subscriber *> &subscribers) {
  if (!std::is_sorted(subscribers.begin(), subscribers.end(), came_before))
    std::sort(subscribers.begin(), subscribers.end(), came_before);
}

// For its places in the index, which say nothing of its id.
Subscriber &changeable(const Subscriber &subscriber) {
  return const_cast<Subscriber &>(subscriber);
}

} // namespace

const Subscriber &Subscribers::add(OwnedExpression expression,
                                   const EventDeclaration *declaration) {
  Subscriber &added = changeable(*subscribers_.emplace(*expression, ++arrivals_));
  index_.add(added, *subscribe_expression_get_inspectable(expression.get()), declaration);
  counted_ += added.counted();
  return added;
}

Subscribers::ById::const_iterator Subscribers::first_of(const ById &subscribers, guint32 id) {
  const auto [begin, end] = subscribers.equal_range(id);
  const auto first = std::min_element(
      begin, end, [](const auto &one, const auto &other) { return came_before(&one, &other); });
  return first != end ? first : subscribers.end();
}

bool Subscribers::remove(guint32 id) {
  const auto found = first_of(subscribers_, id);
  if (found == subscribers_.end())
    return false;
  counted_ -= found->counted();
  index_.remove(changeable(*found));
  subscribers_.erase(found);
  return true;
}

void Subscribers::clear() {
  index_.clear();
  subscribers_.clear();
  counted_ = 0;
}

const Subscriber *Subscribers::find(guint32 id) const {
  const auto found = first_of(subscribers_, id);
  return found != subscribers_.end() ? &*found : nullptr;
}

void Subscribers::match(const Event &event, std::vector<const Subscriber *> &matching) const {
  matching.clear();
  if (subscribers_.size() >= worth_a_search && index_.collect(event, matching)) {
    sort(matching);
    matching.erase(std::unique(matching.begin(), matching.end()), matching.end());
    std::erase_if(matching, [&](const Subscriber *one) { return !one->wants(event); });
    return;
  }
  for (const Subscriber &subscriber : subscribers_)
    if (subscriber.wants(event))
      matching.push_back(&subscriber);
  sort(matching);
}

} // namespace varro2
