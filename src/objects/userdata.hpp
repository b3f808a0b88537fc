// The block of bytes that a producer sends along, opaque to everybody between it and the consumer.
#pragma once

#include "serialize.hpp"

#include <cstring>
#include <vector>

namespace varro2 {

class UserData {
 public:
  UserData() = default;
  UserData(const void *bytes, guint32 size)
      : bytes_{static_cast<const guint8 *>(bytes), static_cast<const guint8 *>(bytes) + size} {}
  // With its NUL.
  explicit UserData(const char *string)
      : UserData{string, static_cast<guint32>(std::strlen(string) + 1)} {}

  // For C callers, who release it with g_free(). NULL when there is none.
  void *duplicate() const { return g_memdup2(bytes_.data(), bytes_.size()); }

  // The size field keeps the low 16 bits; all bytes follow it.
  template <typename Sink>
  void write(Sink &sink) const {
    sink.u16(static_cast<guint32>(bytes_.size()));
    sink.blob(bytes_.data(), bytes_.size());
  }

  static UserData read(Reader &reader) {
    const guint32 size = reader.u16();
    return size == 0 ? UserData{} : UserData{reader.blob(size), size};
  }

 private:
  std::vector<guint8> bytes_;
};

} // namespace varro2
