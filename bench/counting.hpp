// Counts what the benchmark program allocates. To be included by one file of a program.
#pragma once

#include <benchmark/benchmark.h>

#include <dlfcn.h>
#include <malloc.h>

#include <cstddef>

extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t items, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);

static std::size_t allocations;

// The library keeps blocks of a malloc that says how large they are.
std::size_t malloc_usable_size(void *memory) noexcept {
  using Function = std::size_t (*)(void *);
  static const auto of_c_library =
      reinterpret_cast<Function>(dlsym(RTLD_NEXT, "malloc_usable_size"));
  return of_c_library(memory);
}
void *malloc(std::size_t size) noexcept {
  ++allocations;
  return __libc_malloc(size);
}
void *calloc(std::size_t items, std::size_t size) noexcept {
  ++allocations;
  return __libc_calloc(items, size);
}
void *realloc(void *memory, std::size_t size) noexcept {
  ++allocations;
  return __libc_realloc(memory, size);
}
}

namespace bench {

// Runs the rounds and reports what one allocates.
template <typename Round>
void measure(benchmark::State &state, Round round) {
  const std::size_t before = allocations;
  for (auto _ : state)
    round();
  state.counters["allocations"] =
      static_cast<double>(allocations - before) / static_cast<double>(state.iterations());
}

} // namespace bench
