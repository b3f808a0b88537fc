// One row per exported function: what it does with each of its pointers when that one is NULL, and
// who releases what it returns. A row calls the function once with everything in place and once per
// pointer without it; the address sanitizer sees what is then released twice, late or never.
//
//   ROW(event_get_value, lent, NULLS(refused("event != NULL"), refused("key != NULL")),
//       of.event(), "text")
#pragma once

#include "objects.hpp"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <tuple>
#include <type_traits>
#include <vector>

namespace varro2::test {

// What a call without one of its pointers comes to.
struct Null {
  enum class Kind {
    accepted,  // it is a value like another
    refused,   // a critical line with the expression, and the neutral result
    aborts,    // the process ends with the expression
    warned,    // a warning, and the neutral result
    critical,  // a critical line of its own, and the neutral result
    fails,     // the code and message in the error slot, and the neutral result
    neutral,   // the neutral result without a word
    unchecked, // the caller answers for it: nobody looks, and nothing is tried here
  };
  Kind kind;
  const char *text = "";
  int code = 0;
  const char *function = nullptr; // that reports it; otherwise the one called
  bool has_result = false;        // there is a result all the same
};

inline Null refused(const char *expression, const char *function = nullptr) {
  return {Null::Kind::refused, expression, 0, function};
}
inline Null refused_inside(const char *function, const char *expression) {
  return {Null::Kind::refused, expression, 0, function, true};
}
inline Null aborts(const char *expression, const char *function = nullptr) {
  return {Null::Kind::aborts, expression, 0, function};
}
inline Null warned(const char *line) {
  return {Null::Kind::warned, line};
}
inline Null critical(const char *line) {
  return {Null::Kind::critical, line};
}
inline Null fails(int code, const char *message) {
  return {Null::Kind::fails, message, code};
}
inline constexpr Null accepted{Null::Kind::accepted};
inline constexpr Null neutral{Null::Kind::neutral};
inline constexpr Null unchecked{Null::Kind::unchecked};

// What a function returns and who releases it.
struct Result {
  void (*release)(gconstpointer) = nullptr; // by the caller
  bool may_be_null = false;                 // also when everything is in place
  guint64 neutral = 0;
};

template <typename Function>
struct OnlyParameter;
template <typename R, typename T>
struct OnlyParameter<R (*)(T)> {
  using type = T;
};
template <typename R, typename T>
struct OnlyParameter<R (*)(T) noexcept> {
  using type = T;
};

// Newly made: the caller's, released with this function.
template <auto release_function>
inline constexpr Result given{[](gconstpointer object) {
  release_function(static_cast<typename OnlyParameter<decltype(release_function)>::type>(
      const_cast<gpointer>(object)));
}};
template <auto release_function>
inline constexpr Result given_or_null{given<release_function>.release, true};
inline constexpr Result lent{}; // belongs to an argument, or is a number
inline constexpr Result lent_or_null{nullptr, true};
inline constexpr Result nothing{nullptr, true}; // no result, or a number that may be 0
constexpr Result otherwise(guint64 number) {
  return {nullptr, true, number};
}

struct Outcome {
  gconstpointer pointer = nullptr;
  guint64 number = 0;
};

inline constexpr std::size_t none_is_null = static_cast<std::size_t>(-1);

struct Function {
  const char *name;
  std::size_t pointers;
  std::function<Outcome(Objects &, std::size_t null_at)> call;
};

// A lent text must be there while its owner is.
void read(const char *text);

// Makes the call with the pointer of that number taken away.
template <typename R, typename... P, typename Arguments>
Function describe(const char *name, R (*function)(P...) noexcept, Arguments arguments) {
  const auto call = [=](Objects &of, std::size_t null_at) -> Outcome {
    std::tuple<P...> given = arguments(of, [](P... each) { return std::tuple<P...>{each...}; });
    std::size_t at = 0;
    const auto take_away = [&](auto &argument) {
      if constexpr (std::is_pointer_v<std::remove_reference_t<decltype(argument)>>)
        if (at++ == null_at) {
          if constexpr (!std::is_function_v<
                            std::remove_pointer_t<std::remove_reference_t<decltype(argument)>>>)
            of.keep_after_all(argument);
          argument = nullptr;
        }
    };
    std::apply([&](auto &...each) { (take_away(each), ...); }, given);
    if constexpr (std::is_void_v<R>) {
      std::apply(function, given);
      return {};
    } else {
      const R result = std::apply(function, given);
      if constexpr (std::is_same_v<R, const char *>)
        read(result);
      if constexpr (std::is_pointer_v<R>)
        return {result, result != nullptr};
      else if constexpr (std::is_integral_v<R>)
        return {nullptr, static_cast<guint64>(result)};
      else
        return {nullptr, static_cast<guint64>(result.tv_sec | result.tv_usec)};
    }
  };
  return {name, (std::size_t{std::is_pointer_v<P>} + ... + 0), call};
}

// The whole call comes to nothing else than `whole` in the surroundings of a test.
void check_row(const Function &function, const Result &result, const std::vector<Null> &nulls,
               const Null &whole = accepted);
// A call that is refused although all its pointers are there.
void check_refusal(const Function &function, const Result &result, const Null &refusal);

} // namespace varro2::test

#define NULLS(...)                                                                                 \
  std::vector<::varro2::test::Null> {                                                              \
    __VA_ARGS__                                                                                    \
  }

#define VARRO2_DESCRIBE(function, ...)                                                             \
  ::varro2::test::describe(                                                                        \
      #function, &::function,                                                                      \
      []([[maybe_unused]] ::varro2::test::Objects &of, auto take) { return take(__VA_ARGS__); })

#define ROW(function, result, nulls, ...)                                                          \
  TEST(Ownership, function) {                                                                      \
    ::varro2::test::check_row(VARRO2_DESCRIBE(function, __VA_ARGS__), result, nulls);              \
  }

#define ROW_WHERE(function, result, whole, nulls, ...)                                             \
  TEST(Ownership, function) {                                                                      \
    ::varro2::test::check_row(VARRO2_DESCRIBE(function, __VA_ARGS__), result, nulls, whole);       \
  }

// The name tells the refusals of one function apart.
#define REFUSAL(function, name, result, refusal, ...)                                              \
  TEST(Refusal, function##_##name) {                                                               \
    ::varro2::test::check_refusal(VARRO2_DESCRIBE(function, __VA_ARGS__), result, refusal);        \
  }
