#include "allocations.hpp"

#include "keptblocks.hpp"

#include <atomic>
#include <dlfcn.h>
#include <malloc.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define SANITIZED 1
extern "C" {
std::size_t __sanitizer_get_allocated_size(const volatile void *memory);
int __sanitizer_install_malloc_and_free_hooks(void (*on_malloc)(const volatile void *, std::size_t),
                                              void (*on_free)(const volatile void *));
}
#endif

namespace {

constinit thread_local std::size_t count = 0;
constinit std::atomic<std::size_t> held = 0;

} // namespace

#ifdef SANITIZED

// A sanitizer has an allocator of its own, which calls these.
namespace {

void on_malloc(const volatile void *, std::size_t size) {
  ++count;
  held += size;
}
void on_free(const volatile void *memory) {
  if (memory != nullptr)
    held -= __sanitizer_get_allocated_size(memory);
}
[[maybe_unused]] const int installed =
    __sanitizer_install_malloc_and_free_hooks(on_malloc, on_free);

} // namespace

#else

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t items, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void __libc_free(void *memory);

static std::size_t (*usable_size_of_c_library)(void *) = nullptr;

static std::size_t usable_size(void *memory) {
  if (usable_size_of_c_library == nullptr) [[unlikely]]
    usable_size_of_c_library =
        reinterpret_cast<std::size_t (*)(void *)>(dlsym(RTLD_NEXT, "malloc_usable_size"));
  return usable_size_of_c_library(memory);
}
static void *counted(void *memory) {
  ++count;
  held += memory != nullptr ? usable_size(memory) : 0;
  return memory;
}
static void forget(void *memory) {
  held -= memory != nullptr ? usable_size(memory) : 0;
}

// Whose malloc says how large a block is keeps some: this one's blocks are the C library's.
std::size_t malloc_usable_size(void *memory) noexcept {
  return usable_size(memory);
}
void *malloc(std::size_t size) {
  return counted(__libc_malloc(size));
}
void *calloc(std::size_t items, std::size_t size) {
  return counted(__libc_calloc(items, size));
}
void *realloc(void *memory, std::size_t size) {
  forget(memory);
  return counted(__libc_realloc(memory, size));
}
void free(void *memory) {
  forget(memory);
  __libc_free(memory);
}

} // extern "C"

#endif

std::size_t varro2::test::allocation_count() {
  return count;
}

std::size_t varro2::test::bytes_held() {
  free_kept_blocks();
  return held;
}
