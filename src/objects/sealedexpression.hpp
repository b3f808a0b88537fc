// A subscribe expression as those keep it who only match with it and deliver to its address: in one
// block of memory, a fraction of what the expression takes that can still be changed.
#pragma once

#include "condition.hpp"
#include "inspectable.hpp"

#include <varro2/subscribeexpression.h>

#include <memory>

namespace varro2 {

class SealedExpression {
 public:
  explicit SealedExpression(const SubscribeExpression &expression);

  // The same verdict as of the expression.
  bool fits(const Inspectable &container) const noexcept;

  const char *dbus_service() const noexcept;
  const char *dbus_object() const noexcept;

 private:
  struct Test : Condition {
    Test(const Pair &pair, bool is_last) noexcept
        : Condition{pair}, key{pair.key}, ends_and_list{is_last} {}

    GQuark key;
    bool ends_and_list;
  };

  const Test *tests() const noexcept { return reinterpret_cast<const Test *>(block_.get()); }
  bool fits(const AndList &facts) const noexcept;

  std::unique_ptr<char[]> block_;         // the tests, then the texts, those of the address first
  std::unique_ptr<Inspectable> unsealed_; // what is too rare to be sealed stays as it was
  guint32 test_count_ = 0;
};

} // namespace varro2
