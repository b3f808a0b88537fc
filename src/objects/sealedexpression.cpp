#include "sealedexpression.hpp"

#include <algorithm>
#include <cstring>

namespace varro2 {

namespace {

// Not with tests of any key, nor with and-lists that have no test.
bool can_be_sealed(const Inspectable &tests) noexcept {
  return std::all_of(
      tests.and_lists().begin(), tests.and_lists().end(),
      [](const AndList &and_list) { return and_list.wildcards.empty() && !and_list.keys.empty(); });
}

std::size_t size_of(const char *text) noexcept {
  return std::strlen(text) + 1;
}

} // namespace

SealedExpression::SealedExpression(const Inspectable &tests) {
  if (!can_be_sealed(tests)) {
    unsealed_ = std::make_unique<Inspectable>(tests);
    return;
  }
  std::size_t texts = 0;
  for (const AndList &and_list : tests.and_lists())
    for_each_pair(and_list.keys, [&](const Pair &pair) {
      ++test_count_;
      texts += size_of(pair.value) + size_of(pair.name_space);
    });
  std::size_t at = test_count_ * sizeof(Test);
  block_ = std::make_unique_for_overwrite<char[]>(at + texts);
  const auto put = [&](const char *text) {
    const std::size_t size = size_of(text);
    std::memcpy(block_.get() + at, text, size);
    return static_cast<guint32>(std::exchange(at, at + size));
  };
  auto *test = reinterpret_cast<Test *>(block_.get());
  for (const AndList &and_list : tests.and_lists()) {
    for (const Bucket &bucket : and_list.keys) {
      for (const Pair &pair : bucket)
        *test++ = {pair.key,
                   put(pair.value),
                   put(pair.name_space),
                   pair.value_wildcard != FALSE,
                   pair.negated != FALSE,
                   false,
                   false};
      test[-1].ends_key = true;
    }
    test[-1].ends_and_list = true;
  }
}

bool SealedExpression::fits(const Inspectable &container) const noexcept {
  if (unsealed_)
    return inspectable_contains(&container, unsealed_.get());
  for (const AndList &facts : container.and_lists())
    if (facts.wildcards.empty() && fits(facts))
      return true;
  return false;
}

// Whether one of the and-lists fits.
bool SealedExpression::fits(const AndList &facts) const noexcept {
  const Test *const end = tests() + test_count_;
  bool fitting = true;
  for (const Test *test = tests(); test != end;) {
    const Test *const first = test;
    while (!test++->ends_key) {
    }
    fitting = fitting && fits(facts.keys.find(first->key), {first, test});
    if (test[-1].ends_and_list && std::exchange(fitting, true))
      return true;
  }
  return false;
}

bool SealedExpression::fits(const Bucket *facts, std::span<const Test> of_key) const noexcept {
  if (facts != nullptr && facts->has_one() && of_key.size() == 1)
    return fits_test(facts->first(), condition_of(of_key.front()));
  return fits_tests(facts, of_key, [this](const Test &test) { return condition_of(test); });
}

} // namespace varro2
