// What the library logs is formatted and thrown away; that a caller broke a precondition is a fault
// of the target or of the library, and ends the process.
#include "target.hpp"

#include <cstdio>
#include <cstdlib>
#include <iterator>

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

// Only a fuzzer gets through so many inputs that this matters.
#if __has_feature(address_sanitizer)
#define VARRO2_FINDS_LEAKS
#include <sanitizer/allocator_interface.h>
#endif

namespace {

#ifdef VARRO2_FINDS_LEAKS
// GLib's table of interned texts moves to a larger place after each 2,048 texts and leaves the old
// one to those who may still read it: that is no leak. What has such a size is held here.
constexpr std::size_t step_of_table = 2048 * sizeof(char *);
const volatile void *held[1024];
std::size_t held_count = 0;

void on_malloc(const volatile void *memory, std::size_t size) {
  if (size != 0 && size % step_of_table == 0 && held_count < std::size(held))
    held[held_count++] = memory;
}

void on_free(const volatile void *memory) {
  for (std::size_t at = held_count; at > 0; --at)
    if (held[at - 1] == memory) {
      held[at - 1] = held[--held_count];
      return;
    }
}

// GLib makes the first table when it is loaded, before anything else of this program runs.
__attribute__((no_sanitize("address", "undefined"))) void install_hooks(int, char **, char **) {
  __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free);
}
__attribute__((section(".preinit_array"), used)) void (*const install)(int, char **,
                                                                       char **) = install_hooks;
#endif

void on_log(const gchar *, GLogLevelFlags level, const gchar *message, gpointer) {
  if ((level & (G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR)) == 0)
    return;
  std::fprintf(stderr, "CRITICAL: %s\n", message);
  std::abort();
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  g_log_set_default_handler(on_log, nullptr);
  return 0;
}
