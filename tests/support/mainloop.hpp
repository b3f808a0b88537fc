// Waiting for a condition while the default main context runs.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>

namespace varro2::test {

// Long enough for a sanitizer build on a busy machine: reaching it means that the condition will
// never hold.
inline constexpr std::chrono::seconds generous{60};

// Iterates the default main context until the condition holds. The condition is asked after every
// iteration and at least every few milliseconds, so it may depend on other threads and processes.
// Use as ASSERT_TRUE(iterate_until([&] { ... })).
[[nodiscard]] ::testing::AssertionResult iterate_until(const std::function<bool()> &condition,
                                                       std::chrono::milliseconds limit = generous);

// The same where only the main loop can make the condition hold. Nothing else wakes it up
// meanwhile, so it shows whether the loop wakes up by itself for what the condition is about.
[[nodiscard]] ::testing::AssertionResult
iterate_undisturbed_until(const std::function<bool()> &condition,
                          std::chrono::milliseconds limit = generous);

// Runs what is ready now and returns; never waits.
void iterate_pending();

} // namespace varro2::test
