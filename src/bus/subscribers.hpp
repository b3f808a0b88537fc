// Who subscribes to one declaration, in the order in which they came.
#pragma once

#include "owning.hpp"
#include "sealedexpression.hpp"
#include "subscriberindex.hpp"

#include <varro2/event.h>
#include <varro2/subscribeexpression.h>

#include <unordered_map>
#include <vector>

namespace varro2 {

using OwnedExpression = Owned<SubscribeExpression, subscribe_expression_free>;

// One subscription: what is kept of its expression, which has its id and its address.
class Subscriber {
 public:
  Subscriber(const SubscribeExpression &expression, std::uint64_t arrival)
      : id_{subscribe_expression_get_id(&expression)},
        token_{subscribe_expression_get_consumer_token(&expression)},
        counted_{!subscribe_expression_get_clandestine(&expression)}, arrival_{arrival},
        expression_{expression} {}

  guint32 id() const noexcept { return id_; }
  guint32 token() const noexcept { return token_; }
  const char *service() const noexcept { return expression_.dbus_service(); }
  const char *object() const noexcept { return expression_.dbus_object(); }
  // Clandestine ones are served but not reported.
  bool counted() const noexcept { return counted_; }
  bool wants(const Event &event) const noexcept {
    return expression_.fits(*event_get_inspectable(&event));
  }
  // Those that came later have a higher one.
  std::uint64_t arrival() const noexcept { return arrival_; }

  SubscriberIndex::Places places; // the index's own

 private:
  guint32 id_;
  guint32 token_;
  bool counted_;
  std::uint64_t arrival_;
  SealedExpression expression_;
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
  // Ids are the switch's: that two share one is not expected, but served.
  using ById = std::unordered_multimap<guint32, Subscriber>;

  static ById::const_iterator first_of(const ById &subscribers, guint32 id);

  ById subscribers_;
  SubscriberIndex index_;
  std::uint64_t arrivals_ = 0;
  std::size_t counted_ = 0;
};

} // namespace varro2
