#include "sealedexpression.hpp"

#include <algorithm>
#include <cstring>
#include <new>
#include <span>

namespace varro2 {

namespace {

// Not with tests of any key, nor with and-lists that have no test.
bool can_be_sealed(const Inspectable &content) noexcept {
  return std::all_of(
      content.and_lists().begin(), content.and_lists().end(),
      [](const AndList &and_list) { return and_list.wildcards.empty() && !and_list.keys.empty(); });
}

std::size_t size_of(const char *text) noexcept {
  return std::strlen(text) + 1;
}

const char *put(char *&at, const char *text) noexcept {
  const std::size_t size = size_of(text);
  std::memcpy(at, text, size);
  return std::exchange(at, at + size);
}

} // namespace

SealedExpression::SealedExpression(const SubscribeExpression &expression) {
  const Inspectable &content = *subscribe_expression_get_inspectable(&expression);
  const char *service = subscribe_expression_get_dbus_service(&expression);
  const char *object = subscribe_expression_get_dbus_object(&expression);
  std::size_t texts = size_of(service) + size_of(object);
  if (!can_be_sealed(content)) {
    unsealed_ = std::make_unique<Inspectable>(content);
  } else {
    for (const AndList &and_list : content.and_lists())
      for_each_pair(and_list.keys, [&](const Pair &pair) {
        ++test_count_;
        texts += size_of(pair.value) + size_of(pair.name_space);
      });
  }
  block_ = std::make_unique_for_overwrite<char[]>(test_count_ * sizeof(Test) + texts);
  char *at = block_.get() + test_count_ * sizeof(Test);
  put(at, service);
  put(at, object);
  if (unsealed_)
    return;
  auto *place = reinterpret_cast<Test *>(block_.get());
  for (const AndList &and_list : content.and_lists()) {
    for_each_pair(and_list.keys, [&](const Pair &pair) {
      Test *test = new (place++) Test{pair, false};
      test->value = put(at, pair.value);
      test->name_space = put(at, pair.name_space);
    });
    place[-1].ends_and_list = true;
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

// Whether one of the and-lists fits. The tests of a key stand together.
bool SealedExpression::fits(const AndList &facts) const noexcept {
  const Test *const end = tests() + test_count_;
  bool fitting = true;
  for (const Test *test = tests(); test != end;) {
    const Test *after = test + 1;
    while (!after[-1].ends_and_list && after->key == test->key)
      ++after;
    fitting = fitting && fits_tests(facts.keys.find(test->key), std::span{test, after});
    if (after[-1].ends_and_list && std::exchange(fitting, true))
      return true;
    test = after;
  }
  return false;
}

const char *SealedExpression::dbus_service() const noexcept {
  return block_.get() + test_count_ * sizeof(Test);
}

const char *SealedExpression::dbus_object() const noexcept {
  const char *service = dbus_service();
  return service + size_of(service);
}

} // namespace varro2
