// Memory of one container: handed out piece by piece, never moved, released as a whole. A text that
// was lent stays where it is while more is added.
#pragma once

#include "keptblocks.hpp"
#include "shorttexts.hpp"

#include <glib.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

namespace varro2 {

// Stands for an absent text where there is no arena. Never written to.
inline constexpr char no_text[1] = "";

// How far things moved when the one block of an arena was copied into another. Calculates in
// numbers: what is displaced before it gets a new place need not have been in the block.
struct Displacement {
  guintptr of_texts;
  guintptr of_objects;

  template <typename T>
  void object(T *&pointer) const noexcept {
    if (pointer != nullptr)
      present_object(pointer);
  }
  template <typename T>
  void present_object(T *&pointer) const noexcept {
    pointer = reinterpret_cast<T *>(reinterpret_cast<guintptr>(pointer) + of_objects);
  }
  void text(char *&pointer) const noexcept {
    pointer = reinterpret_cast<char *>(reinterpret_cast<guintptr>(pointer) + of_texts);
  }
};

// Memory behind an object, taken together with it, for its arena to begin with.
struct Room {
  std::size_t size;
  char *at = nullptr; // known once the object's memory was taken
};

// Each block is filled from both ends: objects from the front, aligned, texts from the back. All
// absent texts are the last byte of the first block, a NUL that is never written to.
class Arena {
 public:
  Arena() noexcept = default;
  // Begins with the room, which must live as long as the arena.
  explicit Arena(const Room &room) noexcept {
    if (room.at != nullptr)
      enter_chunk(new (room.at) Chunk{nullptr, 0}, room.size + 1);
  }
  Arena(Arena &&other) noexcept { *this = std::move(other); }
  Arena &operator=(Arena &&other) noexcept {
    std::swap(chunks_, other.chunks_);
    std::swap(at_, other.at_);
    std::swap(end_, other.end_);
    std::swap(absent_, other.absent_);
    return *this;
  }
  ~Arena() {
    for (Chunk *chunk = chunks_; chunk != nullptr;)
      if (Chunk *former = std::exchange(chunk, chunk->next); former->total != 0)
        g_free(former);
  }

  // What a room of so many bytes takes in all.
  static constexpr std::size_t memory_of_room(std::size_t size) noexcept {
    return sizeof(Chunk) + size + 1;
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
    copy_text(end_, value.data(), value.size());
    end_[value.size()] = '\0';
    return end_;
  }
  // Something must be in the arena before the first text that is absent.
  char *text(std::string_view value) {
    return value.empty() ? absent_ : text(value, value.size() + 1);
  }
  bool is_absent(const char *text) const noexcept { return text == absent_; }

  bool is_one_block() const noexcept { return chunks_ != nullptr && chunks_->next == nullptr; }
  std::size_t block_size() const noexcept { return objects_size() + texts_size(); }

  // Fills an empty arena, in which its size was reserved, with a copy of the one block of `source`.
  // Pointers in the copy still point into the source: the displacement says where to.
  Displacement copy_block(const Arena &source) {
    const Displacement displacement{
        reinterpret_cast<guintptr>(absent_) - reinterpret_cast<guintptr>(source.absent_),
        reinterpret_cast<guintptr>(at_) - reinterpret_cast<guintptr>(source.objects())};
    std::memcpy(at_, source.objects(), source.objects_size());
    at_ += source.objects_size();
    end_ -= source.texts_size();
    std::memcpy(end_, source.end_, source.texts_size());
    return displacement;
  }

  static constexpr std::size_t padded(std::size_t size) noexcept {
    return (size + alignment - 1) & ~(alignment - 1);
  }

 private:
  struct Chunk {
    Chunk *next;
    std::size_t total; // of this chunk and those before it; 0 of a room
  };
  static constexpr std::size_t alignment = 8;
  static constexpr std::size_t smallest = 512;
  static constexpr std::size_t largest = 64 * 1024;

  std::size_t room() const noexcept { return static_cast<std::size_t>(end_ - at_); }
  // Of the one block.
  const char *objects() const noexcept { return reinterpret_cast<const char *>(chunks_ + 1); }
  std::size_t objects_size() const noexcept { return static_cast<std::size_t>(at_ - objects()); }
  std::size_t texts_size() const noexcept { return static_cast<std::size_t>(absent_ - end_); }
  void make_room(std::size_t size) {
    if (size > room()) [[unlikely]] {
      const std::size_t total = chunks_ != nullptr ? chunks_->total : 0;
      add_chunk(std::max(padded(size), std::clamp(total / 4, smallest, largest)));
    }
  }
  void add_chunk(std::size_t size) {
    size += absent_ == nullptr ? 1 : 0;
    const std::size_t total = size + (chunks_ != nullptr ? chunks_->total : 0);
    enter_chunk(new (g_malloc(sizeof(Chunk) + size)) Chunk{chunks_, total}, size);
  }
  void enter_chunk(Chunk *chunk, std::size_t size) noexcept {
    chunks_ = chunk;
    at_ = reinterpret_cast<char *>(chunk + 1);
    end_ = at_ + size;
    if (absent_ == nullptr) {
      absent_ = --end_;
      *absent_ = '\0';
    }
  }

  Chunk *chunks_ = nullptr;
  char *at_ = nullptr;
  char *end_ = nullptr;
  char *absent_ = nullptr;
};

// An object of this kind can be made with `new (room) T`. The parameter keeps apart what an object
// and its first member inherit.
template <typename T>
struct WithRoom {
  static void *operator new(std::size_t size) { return take_block(size); }
  static void *operator new(std::size_t size, Room &room) {
    auto *memory = static_cast<char *>(take_block(size + Arena::memory_of_room(room.size)));
    room.at = memory + size;
    return memory;
  }
  static void *operator new(std::size_t, void *place) noexcept { return place; }
  static void operator delete(void *memory) noexcept { give_back_block(memory); }
  static void operator delete(void *memory, Room &) noexcept { give_back_block(memory); }
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
