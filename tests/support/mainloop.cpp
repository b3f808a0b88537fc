#include "mainloop.hpp"

#include <glib.h>

#include <algorithm>
#include <cstdlib>

namespace varro2::test {

namespace {

// A run with a fault in the code, which is expected to wait in vain, is told to give up sooner.
std::chrono::milliseconds with_patience(std::chrono::milliseconds limit) {
  const char *seconds = std::getenv("VARRO2_TEST_PATIENCE");
  return seconds
             ? std::min<std::chrono::milliseconds>(limit, std::chrono::seconds{std::atoi(seconds)})
             : limit;
}

} // namespace

::testing::AssertionResult iterate_until(const std::function<bool()> &condition,
                                         std::chrono::milliseconds limit) {
  limit = with_patience(limit);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  GSource *tick = g_timeout_source_new(5);
  g_source_set_callback(
      tick, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
  g_source_attach(tick, nullptr);
  bool holds = condition();
  while (!holds && std::chrono::steady_clock::now() < deadline) {
    g_main_context_iteration(nullptr, TRUE);
    holds = condition();
  }
  g_source_destroy(tick);
  g_source_unref(tick);
  if (holds)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "the condition did not hold within " << limit.count() << " ms";
}

void iterate_pending() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

} // namespace varro2::test
