// Who subscribes to one declaration, in the order in which they came.
#pragma once

#include "owning.hpp"
#include "subscriberindex.hpp"

#include <varro2/event.h>
#include <varro2/subscribeexpression.h>

#include <list>
#include <unordered_map>
#include <vector>

namespace varro2 {

using OwnedExpression = Owned<SubscribeExpression, subscribe_expression_free>;

// One subscription. The expression carries its id and its address.
class Subscriber {
 public:
  Subscriber(OwnedExpression expression, std::uint64_t arrival) noexcept
      : expression_{std::move(expression)}, arrival_{arrival} {}

  guint32 id() const noexcept { return subscribe_expression_get_id(expression_.get()); }
  guint32 token() const noexcept {
    return subscribe_expression_get_consumer_token(expression_.get());
  }
  const char *service() const noexcept {
    return subscribe_expression_get_dbus_service(expression_.get());
  }
  const char *object() const noexcept {
    return subscribe_expression_get_dbus_object(expression_.get());
  }
  // Clandestine ones are served but not reported.
  bool counted() const noexcept { return !subscribe_expression_get_clandestine(expression_.get()); }
  bool wants(const Event &event) const noexcept {
    return event_contains(&event, expression_.get());
  }

  const Inspectable &inspectable() const noexcept {
    return *subscribe_expression_get_inspectable(expression_.get());
  }
  // Those that came later have a higher one.
  std::uint64_t arrival() const noexcept { return arrival_; }

  SubscriberIndex::Places places; // the index's own

 private:
  OwnedExpression expression_;
  std::uint64_t arrival_;
};

class Subscribers {
 public:
  // The declaration that is subscribed to, if given, makes the search quicker.
  const Subscriber &add(OwnedExpression expression, const EventDeclaration *declaration = nullptr);

  // Takes the first one with the id out. Whether there was one.
  bool remove(guint32 id);
  void clear();

  // The first one with the id, or nullptr.
  const Subscriber *find(guint32 id) const;

  bool any_counted() const noexcept { return counted_ > 0; }

  // Those that want the event, in the order in which they came; valid until the next change.
  void match(const Event &event, std::vector<const Subscriber *> &matching) const;

 private:
  using List = std::list<Subscriber>;

  List subscribers_;
  std::unordered_map<guint32, List::iterator> first_by_id_;
  SubscriberIndex index_;
  std::uint64_t arrivals_ = 0;
  std::size_t counted_ = 0;
};

} // namespace varro2
