// Memory of one container: handed out piece by piece, never moved, released as a whole. A text that
// was lent stays where it is while more is added.
#pragma once

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

namespace varro2 {

// What every absent text points to, so that it needs no memory. Never written to.
inline constexpr char no_text[1] = "";

class Arena {
 public:
  Arena() noexcept = default;
  Arena(Arena &&other) noexcept
      : chunks_{std::exchange(other.chunks_, nullptr)}, at_{std::exchange(other.at_, nullptr)},
        end_{std::exchange(other.end_, nullptr)} {}
  Arena &operator=(Arena &&other) noexcept {
    std::swap(chunks_, other.chunks_);
    std::swap(at_, other.at_);
    std::swap(end_, other.end_);
    return *this;
  }
  ~Arena() {
    for (Chunk *chunk = chunks_; chunk != nullptr;)
      g_free(std::exchange(chunk, chunk->next));
  }

  // Makes the next `size` bytes come from one block.
  void reserve(std::size_t size) {
    if (size > static_cast<std::size_t>(end_ - at_))
      add_chunk(size);
  }

  // Aligned for everything that a container stores. Room is taken in multiples of the alignment.
  template <typename T>
  T *allocate(std::size_t count = 1) {
    static_assert(alignof(T) <= alignment);
    return static_cast<T *>(take(padded(count * sizeof(T))));
  }

  // A NUL-terminated copy with room for at least `capacity` bytes, the NUL included.
  char *text(std::string_view value, std::size_t capacity) {
    char *copy = static_cast<char *>(take(padded(capacity)));
    value.copy(copy, value.size());
    copy[value.size()] = '\0';
    return copy;
  }
  char *text(std::string_view value) {
    return value.empty() ? const_cast<char *>(no_text) : text(value, value.size() + 1);
  }

  static constexpr std::size_t padded(std::size_t size) noexcept {
    return (size + alignment - 1) & ~(alignment - 1);
  }

 private:
  struct Chunk {
    Chunk *next;
    std::size_t size;
  };
  static constexpr std::size_t alignment = 8;
  static constexpr std::size_t smallest = 512;
  static constexpr std::size_t largest = 64 * 1024;

  void *take(std::size_t size) {
    if (size > static_cast<std::size_t>(end_ - at_)) {
      const std::size_t grown = chunks_ != nullptr ? 2 * chunks_->size : smallest;
      add_chunk(std::max(size, std::min(grown, largest)));
    }
    return std::exchange(at_, at_ + size);
  }
  void add_chunk(std::size_t size) {
    auto *chunk = static_cast<Chunk *>(g_malloc(sizeof(Chunk) + size));
    chunk->next = chunks_;
    chunk->size = size;
    chunks_ = chunk;
    at_ = reinterpret_cast<char *>(chunk + 1);
    end_ = at_ + size;
  }

  Chunk *chunks_ = nullptr;
  char *at_ = nullptr;
  char *end_ = nullptr;
};

// A growing array inside an arena, which keeps its memory; so it can be copied as it is.
template <typename T>
class ArenaVector {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  void reserve(Arena &arena, guint32 capacity) {
    if (capacity <= capacity_)
      return;
    T *grown = arena.allocate<T>(capacity);
    if (size_ != 0)
      std::memcpy(static_cast<void *>(grown), data_, size_ * sizeof(T));
    data_ = grown;
    capacity_ = capacity;
  }
  T &push_back(Arena &arena, const T &value) {
    if (size_ == capacity_)
      reserve(arena, capacity_ == 0 ? 4 : 2 * capacity_);
    return data_[size_++] = value;
  }
  void clear() noexcept { size_ = 0; }

  T *begin() noexcept { return data_; }
  T *end() noexcept { return data_ + size_; }
  const T *begin() const noexcept { return data_; }
  const T *end() const noexcept { return data_ + size_; }
  T &operator[](guint32 position) noexcept { return data_[position]; }
  const T &operator[](guint32 position) const noexcept { return data_[position]; }
  T &back() noexcept { return data_[size_ - 1]; }
  const T &back() const noexcept { return data_[size_ - 1]; }
  guint32 size() const noexcept { return size_; }
  bool empty() const noexcept { return size_ == 0; }

 private:
  T *data_ = nullptr;
  guint32 size_ = 0;
  guint32 capacity_ = 0;
};

} // namespace varro2
