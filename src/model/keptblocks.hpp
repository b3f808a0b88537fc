// A few blocks that a thread has freed, kept for what it makes next. An event of a few keys is too
// large for what malloc itself keeps for a thread, and takes its slow road twice.
#pragma once

#include <cstddef>

#ifdef __has_feature
#define VARRO2_HAS_FEATURE(feature) __has_feature(feature)
#else
#define VARRO2_HAS_FEATURE(feature) 0
#endif

// A sanitizer has to see when a block ends.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) ||                               \
    VARRO2_HAS_FEATURE(address_sanitizer) || VARRO2_HAS_FEATURE(thread_sanitizer) ||               \
    VARRO2_HAS_FEATURE(memory_sanitizer)
#define VARRO2_KEEPS_BLOCKS 0
#else
#define VARRO2_KEEPS_BLOCKS 1
#endif

#undef VARRO2_HAS_FEATURE

namespace varro2 {

inline constexpr bool blocks_are_kept = VARRO2_KEEPS_BLOCKS;

// From GLib's allocator: ends the process when there is no memory.
void *take_block(std::size_t size);

// Frees it, now or later. From any thread, at any time in the thread's life and after it.
void give_back_block(void *block) noexcept;

// What this thread keeps goes back to the allocator: before memory is counted.
void free_kept_blocks() noexcept;

} // namespace varro2
