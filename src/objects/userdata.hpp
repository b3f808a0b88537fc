// The block of bytes that a producer sends along, opaque to everybody between it and the consumer.
#pragma once

#include "owning.hpp"
#include "serialize.hpp"

#include <cstring>

namespace varro2 {

class UserData {
 public:
  UserData() = default;
  UserData(const void *bytes, guint32 size) {
    if (size == 0)
      return;
    block_.reset(static_cast<guint8 *>(g_malloc(sizeof size + size)));
    std::memcpy(block_.get(), &size, sizeof size);
    std::memcpy(block_.get() + sizeof size, bytes, size);
  }
  // With its NUL.
  explicit UserData(const char *string)
      : UserData{string, static_cast<guint32>(std::strlen(string) + 1)} {}

  UserData(const UserData &other) : UserData{other.bytes(), other.size()} {}
  UserData(UserData &&other) noexcept = default;
  UserData &operator=(UserData other) noexcept {
    block_.swap(other.block_);
    return *this;
  }
  ~UserData() = default;

  // For C callers, who release it with g_free(). NULL when there is none.
  void *duplicate() const { return g_memdup2(bytes(), size()); }

  // The size field keeps the low 16 bits; all bytes follow it.
  template <typename Sink>
  void write(Sink &sink) const {
    sink.u16(size());
    sink.blob(bytes(), size());
  }

  static UserData read(Reader &reader) {
    const guint32 size = reader.u16();
    return size == 0 ? UserData{} : UserData{reader.blob(size), size};
  }

 private:
  guint32 size() const noexcept {
    guint32 size = 0;
    if (block_)
      std::memcpy(&size, block_.get(), sizeof size);
    return size;
  }
  const guint8 *bytes() const noexcept { return block_ ? block_.get() + sizeof(guint32) : nullptr; }

  // The size, then the bytes: most events have none, and all have room for this.
  OwnedBytes block_;
};

} // namespace varro2
