#include "keptblocks.hpp"

#include "preconditions.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <dlfcn.h>
#include <malloc.h>

namespace varro2 {
namespace {

// In bytes that can be used. What is smaller malloc keeps for a thread itself, in less time. What
// is larger takes so long to fill that it does not matter where it comes from; and a thread that
// frees events must not sit on much memory: it keeps 16 KiB at the most.
constexpr std::size_t smallest = 1033;
constexpr std::size_t largest = 4096;

constexpr bool is_worth_keeping(std::size_t size) noexcept {
  return blocks_are_kept && size >= smallest && size <= largest;
}

// A sender needs two blocks at a time. The others are for whoever handles events of several kinds.
constexpr guint32 most = 4;

struct Kept {
  void *block;
  std::size_t size;
};

// Has no destructor, so it can still be asked when destructors run that come after the thread's
// end.
struct Blocks {
  std::array<Kept, most> kept; // the last one was freed last
  guint32 count;
  bool open;   // this thread keeps blocks
  bool closed; // it has kept them, and ends

  void remove(guint32 at) noexcept {
    std::copy(kept.begin() + at + 1, kept.begin() + count, kept.begin() + at);
    --count;
  }
};

constinit thread_local Blocks blocks{};

struct UntilThreadEnds {
  ~UntilThreadEnds() {
    blocks.open = false;
    blocks.closed = true;
    free_kept_blocks();
  }
};

// A malloc that was put before the C library's may leave that one's malloc_usable_size in charge,
// which does not know its blocks.
bool malloc_tells_sizes() {
  Dl_info of_malloc{};
  Dl_info of_size{};
  return dladdr(reinterpret_cast<const void *>(&malloc), &of_malloc) != 0 &&
         dladdr(reinterpret_cast<const void *>(&malloc_usable_size), &of_size) != 0 &&
         of_malloc.dli_fbase == of_size.dli_fbase;
}

[[gnu::noinline]] bool open() {
  static const bool sizes_are_told = malloc_tells_sizes();
  if (blocks.closed || !sizes_are_told)
    return false;
  [[maybe_unused]] static thread_local UntilThreadEnds until_thread_ends;
  return blocks.open = true;
}

// A kept event must not sit in a much larger block than it needs.
bool fits(const Kept &kept, std::size_t size) noexcept {
  return kept.size >= size && kept.size - size <= size / 8;
}

} // namespace

void *take_block(std::size_t size) {
  if (is_worth_keeping(size)) {
    Blocks &own = blocks;
    for (guint32 at = own.count; at-- > 0;)
      if (fits(own.kept[at], size)) {
        void *block = own.kept[at].block;
        own.remove(at);
        return block;
      }
  }
  return g_malloc(size);
}

void give_back_block(void *block) noexcept {
  const bool keeps = blocks_are_kept && (blocks.open || open());
  const std::size_t size = keeps ? malloc_usable_size(block) : 0;
  if (!is_worth_keeping(size)) {
    g_free(block);
    return;
  }
  Blocks &own = blocks;
  // As malloc would say.
  for (guint32 at = 0; at < own.count; ++at)
    VARRO2_ASSERT(own.kept[at].block != block);
  if (own.count == most) {
    g_free(own.kept[0].block);
    own.remove(0);
  }
  own.kept[own.count++] = {block, size};
}

void free_kept_blocks() noexcept {
  while (blocks.count > 0)
    g_free(blocks.kept[--blocks.count].block);
}

} // namespace varro2
