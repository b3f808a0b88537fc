// Reading and writing records without a call per byte.
//
// An object lists its fields once, in a template `write(sink)`: run over a SizeSink it yields the
// size of the record, over an ArraySink the bytes.
#pragma once

#include "owning.hpp"
#include "preconditions.hpp"
#include "shorttexts.hpp"

#include <varro2/serialize.h>

#include <cstring>
#include <string_view>

namespace varro2 {

class SizeSink {
 public:
  void u8(guint32) noexcept { size_ += 1; }
  void u16(guint32) noexcept { size_ += 2; }
  void u32(guint32) noexcept { size_ += 4; }
  void pointer(gconstpointer) noexcept { size_ += 8; }
  void blob(gconstpointer, std::size_t length) noexcept { size_ += length; }
  void text(std::string_view value) noexcept { size_ += 2 + value.size(); }
  void text(const char *string) noexcept {
    VARRO2_ASSERT_AS("serialize_string", "string != NULL", string != nullptr);
    text(std::string_view{string});
  }
  std::size_t size() const noexcept { return size_; }

 private:
  std::size_t size_ = 0;
};

// Fills memory that is large enough: its size was counted before.
class ArraySink {
 public:
  explicit ArraySink(guint8 *at) noexcept : at_{at} {}

  void u8(guint32 value) noexcept { *at_++ = static_cast<guint8>(value); }
  void u16(guint32 value) noexcept { put(static_cast<guint16>(value)); }
  void u32(guint32 value) noexcept { put(value); }
  void pointer(gconstpointer value) noexcept {
    put(static_cast<guint64>(reinterpret_cast<guintptr>(value)));
  }
  void blob(gconstpointer data, std::size_t length) noexcept {
    if (length != 0)
      std::memcpy(at_, data, length);
    at_ += length;
  }
  // Only the low 16 bits of the length are kept, before all the bytes.
  void text(std::string_view value) noexcept {
    u16(static_cast<guint32>(value.size()));
    copy_text(reinterpret_cast<char *>(at_), value.data(), value.size());
    at_ += value.size();
  }
  void text(const char *string) noexcept {
    VARRO2_ASSERT_AS("serialize_string", "string != NULL", string != nullptr);
    text(std::string_view{string});
  }
  guint8 *position() const noexcept { return at_; }

 private:
  template <typename T>
  void put(T value) noexcept {
    std::memcpy(at_, &value, sizeof value);
    at_ += sizeof value;
  }

  guint8 *at_;
};

template <typename T>
std::size_t record_size(const T &object) {
  SizeSink sink;
  object.write(sink);
  return sink.size();
}

// Grows the array once, by exactly the size of the record.
template <typename T>
void append_record(GByteArray *array, const T &object) {
  const guint old_length = array->len;
  g_byte_array_set_size(array, old_length + static_cast<guint>(record_size(object)));
  ArraySink sink{array->data + old_length};
  object.write(sink);
}

// A new array that holds the record and nothing else.
template <typename T>
BytesRef new_record(const T &object) {
  const auto size = static_cast<guint>(record_size(object));
  auto array = BytesRef::adopt(g_byte_array_sized_new(size));
  g_byte_array_set_size(array.get(), size);
  ArraySink sink{array->data};
  object.write(sink);
  return array;
}

// Reads at a running index that belongs to the caller. Every step past the end aborts.
class Reader {
 public:
  Reader(const GByteArray *array, guint32 *indx) noexcept
      : data_{array->data}, length_{array->len}, index_{indx} {}
  // A view of other memory, for a record embedded in another.
  Reader(const guint8 *data, guint32 length, guint32 *indx) noexcept
      : data_{data}, length_{length}, index_{indx} {}

  guint8 u8() noexcept { return get<guint8>(); }
  guint16 u16() noexcept { return get<guint16>(); }
  guint32 u32() noexcept { return get<guint32>(); }
  gpointer pointer() noexcept { return reinterpret_cast<gpointer>(get<guint64>()); }

  // Lent from the record: not NUL-terminated.
  std::string_view text() noexcept {
    const guint32 length = u16();
    VARRO2_ASSERT_AS("deserialize_string", "array->len >= *indx + length", fits(length));
    return {reinterpret_cast<const char *>(take(length)), length};
  }
  const guint8 *blob(guint32 length) noexcept {
    require_size(length);
    return take(length);
  }
  // For read_group(): true, or aborts.
  bool text(std::string_view &value) noexcept {
    value = text();
    return true;
  }
  // Calls read(reader), which returns false where a text is not wholly there, for a group of fields
  // that take so many bytes without those of the texts. Where all is there the reader looks at the
  // end of the record for each text only. Else the group is read once more, by one that looks each
  // time and says what is missing.
  template <typename Read>
  void read_group(guint32 size_without_texts, Read read) {
    if (const guint32 left = remaining(); left >= size_without_texts) [[likely]] {
      Group group{data_ + *index_, left - size_without_texts};
      if (read(group)) [[likely]] {
        *index_ = static_cast<guint32>(group.position() - data_);
        return;
      }
    }
    read(*this);
  }
  guint32 remaining() const noexcept { return *index_ < length_ ? length_ - *index_ : 0; }

 private:
  class Group {
   public:
    Group(const guint8 *at, guint32 left_for_texts) noexcept
        : at_{at}, left_for_texts_{left_for_texts} {}
    guint8 u8() noexcept { return *at_++; }
    guint16 u16() noexcept {
      guint16 value = 0;
      std::memcpy(&value, at_, sizeof value);
      at_ += sizeof value;
      return value;
    }
    bool text(std::string_view &value) noexcept {
      const guint16 length = u16();
      if (length > left_for_texts_) [[unlikely]]
        return false;
      left_for_texts_ -= length;
      value = {reinterpret_cast<const char *>(at_), length};
      at_ += length;
      return true;
    }
    const guint8 *position() const noexcept { return at_; }

   private:
    const guint8 *at_;
    guint32 left_for_texts_;
  };

  bool fits(guint32 size) const noexcept { return length_ >= guint64{*index_} + size; }
  void require_size(guint32 size) const noexcept {
    VARRO2_ASSERT_AS("deserialize_size", "array->len >= *indx + size", fits(size));
  }
  const guint8 *take(guint32 size) noexcept {
    const guint8 *at = data_ + *index_;
    *index_ += size;
    return at;
  }
  template <typename T>
  T get() noexcept {
    require_size(sizeof(T));
    T value;
    std::memcpy(&value, take(sizeof(T)), sizeof value);
    return value;
  }

  const guint8 *data_;
  guint32 length_;
  guint32 *index_;
};

} // namespace varro2
