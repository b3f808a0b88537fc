// Who subscribes to one declaration, in the order in which they came.
#pragma once

#include "owning.hpp"
#include "sealedexpression.hpp"
#include "subscriberindex.hpp"

#include <varro2/event.h>
#include <varro2/subscribeexpression.h>

#include <unordered_set>
#include <vector>

namespace varro2 {

using OwnedExpression = Owned<SubscribeExpression, subscribe_expression_free>;

// One subscription: what is kept of its expression, which has its id and its address. Consumers
// subscribe more than once, so that the address is shared.
class Subscriber {
 public:
  Subscriber(const SubscribeExpression &expression, std::uint64_t arrival)
      : id_{subscribe_expression_get_id(&expression)},
        token_{subscribe_expression_get_consumer_token(&expression)}, arrival_{arrival},
        service_{g_ref_string_new_intern(subscribe_expression_get_dbus_service(&expression))},
        object_{g_ref_string_new_intern(subscribe_expression_get_dbus_object(&expression))},
        tests_{*subscribe_expression_get_inspectable(&expression)},
        counted_{!subscribe_expression_get_clandestine(&expression)} {}

  guint32 id() const noexcept { return id_; }
  guint32 token() const noexcept { return token_; }
  const char *service() const noexcept { return service_.get(); }
  const char *object() const noexcept { return object_.get(); }
  // Clandestine ones are served but not reported.
  bool counted() const noexcept { return counted_; }
  bool wants(const Event &event) const noexcept {
    return tests_.fits(*event_get_inspectable(&event));
  }
  // Those that came later have a higher one.
  std::uint64_t arrival() const noexcept { return arrival_; }

  SubscriberIndex::Places places; // the index's own

 private:
  guint32 id_;
  guint32 token_;
  std::uint64_t arrival_;
  SharedText service_;
  SharedText object_;
  SealedExpression tests_;
  bool counted_;
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
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(guint32 id) const noexcept { return id; }
    std::size_t operator()(const Subscriber &subscriber) const noexcept { return subscriber.id(); }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const Subscriber &one, const Subscriber &other) const noexcept {
      return one.id() == other.id();
    }
    bool operator()(const Subscriber &one, guint32 id) const noexcept { return one.id() == id; }
    bool operator()(guint32 id, const Subscriber &one) const noexcept { return one.id() == id; }
  };
  // Ids are the switch's: that two share one is not expected, but served.
  using ById = std::unordered_multiset<Subscriber, Hash, Equal>;

  static ById::const_iterator first_of(const ById &subscribers, guint32 id);

  ById subscribers_;
  SubscriberIndex index_;
  std::uint64_t arrivals_ = 0;
  std::size_t counted_ = 0;
};

} // namespace varro2
