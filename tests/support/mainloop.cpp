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

::testing::AssertionResult result_of(bool holds, std::chrono::milliseconds limit) {
  if (holds)
    return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "the condition did not hold within " << limit.count() << " ms";
}

// In the default main context, as often as the callback says.
class Timer {
 public:
  Timer(std::chrono::milliseconds time, GSourceFunc callback, gpointer data)
      : source_{g_timeout_source_new(static_cast<guint>(time.count()))} {
    g_source_set_callback(source_, callback, data, nullptr);
    g_source_attach(source_, nullptr);
  }
  ~Timer() {
    g_source_destroy(source_);
    g_source_unref(source_);
  }
  Timer(const Timer &) = delete;
  Timer &operator=(const Timer &) = delete;

 private:
  GSource *source_;
};

} // namespace

::testing::AssertionResult iterate_until(const std::function<bool()> &condition,
                                         std::chrono::milliseconds limit) {
  limit = with_patience(limit);
  const auto deadline = std::chrono::steady_clock::now() + limit;
  const Timer tick{std::chrono::milliseconds{5},
                   [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr};
  bool holds = condition();
  while (!holds && std::chrono::steady_clock::now() < deadline) {
    g_main_context_iteration(nullptr, TRUE);
    holds = condition();
  }
  return result_of(holds, limit);
}

// What holds only when the limit has woken the loop up does not count.
::testing::AssertionResult iterate_undisturbed_until(const std::function<bool()> &condition,
                                                     std::chrono::milliseconds limit) {
  limit = with_patience(limit);
  bool is_over = false;
  const Timer end{limit,
                  [](gpointer over) -> gboolean {
                    *static_cast<bool *>(over) = true;
                    return G_SOURCE_REMOVE;
                  },
                  &is_over};
  while (!condition() && !is_over)
    g_main_context_iteration(nullptr, TRUE);
  return result_of(!is_over, limit);
}

void iterate_pending() {
  while (g_main_context_iteration(nullptr, FALSE)) {
  }
}

} // namespace varro2::test
