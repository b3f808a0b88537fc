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

// How far things moved when the one block of an arena was copied into another.
struct Displacement {
  std::ptrdiff_t of_texts;
  std::ptrdiff_t of_objects;

  template <typename T>
  void object(T *&pointer) const noexcept {
    if (pointer != nullptr)
      pointer = reinterpret_cast<T *>(reinterpret_cast<char *>(pointer) + of_objects);
  }
  // All texts lie in the block, but for the empty one.
  void text(char *&pointer) const noexcept { pointer += pointer != no_text ? of_texts : 0; }
};

// Each block is filled from both ends: objects from the front, aligned, texts from the back.
class Arena {
 public:
  Arena() noexcept = default;
  Arena(Arena &&other) noexcept { *this = std::move(other); }
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
    if (size > room())
      add_chunk(size);
  }

  // Aligned for everything that a container stores.
  template <typename T>
  T *allocate(std::size_t count = 1) {
    static_assert(alignof(T) <= alignment);
    const std::size_t size = padded(count * sizeof(T));
    make_room(size);
    return reinterpret_cast<T *>(std::exchange(at_, at_ + size));
  }

  // A NUL-terminated copy with room for at least `capacity` bytes, the NUL included.
  char *text(std::string_view value, std::size_t capacity) {
    make_room(capacity);
    end_ -= capacity;
    value.copy(end_, value.size());
    end_[value.size()] = '\0';
    return end_;
  }
  char *text(std::string_view value) {
    return value.empty() ? const_cast<char *>(no_text) : text(value, value.size() + 1);
  }

  bool is_one_block() const noexcept { return chunks_ != nullptr && chunks_->next == nullptr; }

  // A copy of the one block of `source`, without the room that is left in it. Pointers in the copy
  // still point into the source: the displacement says where to.
  static Arena copy_block(const Arena &source, Displacement &displacement) {
    const char *const objects = reinterpret_cast<const char *>(source.chunks_ + 1);
    const auto objects_size = static_cast<std::size_t>(source.at_ - objects);
    const auto texts_size = static_cast<std::size_t>(objects + source.chunks_->size - source.end_);
    Arena copy;
    copy.add_chunk(objects_size + texts_size);
    std::memcpy(copy.at_, objects, objects_size);
    copy.end_ -= texts_size;
    std::memcpy(copy.end_, source.end_, texts_size);
    displacement = {copy.end_ - source.end_, copy.at_ - objects};
    copy.at_ += objects_size;
    return copy;
  }

  static constexpr std::size_t padded(std::size_t size) noexcept {
    return (size + alignment - 1) & ~(alignment - 1);
  }

 private:
  struct Chunk {
    Chunk *next;
    std::size_t size;
    std::size_t total; // of this chunk and those before it
  };
  static constexpr std::size_t alignment = 8;
  static constexpr std::size_t smallest = 512;
  static constexpr std::size_t largest = 64 * 1024;

  std::size_t room() const noexcept { return static_cast<std::size_t>(end_ - at_); }
  void make_room(std::size_t size) {
    if (size > room()) [[unlikely]] {
      const std::size_t total = chunks_ != nullptr ? chunks_->total : 0;
      add_chunk(std::max(padded(size), std::clamp(total / 4, smallest, largest)));
    }
  }
  void add_chunk(std::size_t size) {
    auto *chunk = static_cast<Chunk *>(g_malloc(sizeof(Chunk) + size));
    *chunk = {chunks_, size, size + (chunks_ != nullptr ? chunks_->total : 0)};
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
  void displace(Displacement displacement) noexcept { displacement.object(data_); }

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
