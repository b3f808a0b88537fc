#include "subscribers.hpp"

#include <algorithm>
#include <tuple>

namespace varro2 {

namespace {

// Fewer are asked sooner than looked up.
constexpr std::size_t worth_a_search = 10;

bool came_before(const Subscriber *one, const Subscriber *other) {
  return one->arrival() < other->arrival();
}

} // namespace

const Subscriber &Subscribers::add(OwnedExpression expression,
                                   const EventDeclaration *declaration) {
  const guint32 id = subscribe_expression_get_id(expression.get());
  Subscriber &added = subscribers_
                          .emplace(std::piecewise_construct, std::forward_as_tuple(id),
                                   std::forward_as_tuple(*expression, ++arrivals_))
                          ->second;
  index_.add(added, *subscribe_expression_get_inspectable(expression.get()), declaration);
  counted_ += added.counted();
  return added;
}

Subscribers::ById::const_iterator Subscribers::first_of(const ById &subscribers, guint32 id) {
  const auto [begin, end] = subscribers.equal_range(id);
  const auto first = std::min_element(begin, end, [](const auto &one, const auto &other) {
    return came_before(&one.second, &other.second);
  });
  return first != end ? first : subscribers.end();
}

bool Subscribers::remove(guint32 id) {
  const auto found = first_of(subscribers_, id);
  if (found == subscribers_.end())
    return false;
  counted_ -= found->second.counted();
  index_.remove(const_cast<Subscriber &>(found->second));
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
  return found != subscribers_.end() ? &found->second : nullptr;
}

void Subscribers::match(const Event &event, std::vector<const Subscriber *> &matching) const {
  matching.clear();
  if (subscribers_.size() >= worth_a_search && index_.collect(event, matching)) {
    std::sort(matching.begin(), matching.end(), came_before);
    matching.erase(std::unique(matching.begin(), matching.end()), matching.end());
    std::erase_if(matching, [&](const Subscriber *one) { return !one->wants(event); });
    return;
  }
  for (const auto &[id, subscriber] : subscribers_)
    if (subscriber.wants(event))
      matching.push_back(&subscriber);
  std::sort(matching.begin(), matching.end(), came_before);
}

} // namespace varro2
