// The tests of a subscribe expression as those keep them who only match with it: in one block of
// memory, a fraction of what the expression takes that can still be changed.
#pragma once

#include "condition.hpp"
#include "inspectable.hpp"

#include <memory>
#include <span>

namespace varro2 {

class SealedExpression {
 public:
  explicit SealedExpression(const Inspectable &tests);

  // The same verdict as of the expression.
  bool fits(const Inspectable &container) const noexcept;

 private:
  // Its texts lie behind the tests, so far from the start of the block.
  struct Test {
    GQuark key;
    guint32 value;
    guint32 name_space;
    bool value_wildcard;
    bool negated;
    bool ends_key; // the tests of a key stand together
    bool ends_and_list;
  };

  const Test *tests() const noexcept { return reinterpret_cast<const Test *>(block_.get()); }
  Condition condition_of(const Test &test) const noexcept {
    return {block_.get() + test.value, block_.get() + test.name_space, test.value_wildcard,
            test.negated};
  }
  bool fits(const AndList &facts) const noexcept;
  bool fits(const Bucket *facts, std::span<const Test> of_key) const noexcept;

  std::unique_ptr<char[]> block_;
  std::unique_ptr<Inspectable> unsealed_; // what is too rare to be sealed stays as it was
  guint32 test_count_ = 0;
};

} // namespace varro2
