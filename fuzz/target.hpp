// What every fuzz target includes. A target says what must hold with VARRO2_ASSERT, which ends the
// process as a fault of the library does.
#pragma once

#include "owning.hpp"
#include "preconditions.hpp"

#include <varro2/varro2.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

namespace varro2::fuzz {

using EventOwner = Owned<Event, event_free>;
using DeclarationOwner = Owned<EventDeclaration, event_declaration_free>;
using ExpressionOwner = Owned<SubscribeExpression, subscribe_expression_free>;
using StateOwner = Owned<PropertyState, property_state_free>;
using NotificationOwner = Owned<Notification, notification_free>;
using InspectableOwner = Owned<Inspectable, inspectable_free>;
using KeyValueOwner = Owned<KeyValue, key_value_free>;
using XmlOwner = Owned<XmlNode, xmlnode_free_tree>;

// In memory of exactly this size, so that a step past the end is seen.
inline BytesRef exact_array(const std::uint8_t *data, std::size_t size) {
  auto *copy = static_cast<guint8 *>(g_malloc(size + (size == 0)));
  if (size != 0)
    std::memcpy(copy, data, size);
  return BytesRef::adopt(g_byte_array_new_take(copy, size));
}

// The input as a C string in memory of its own, up to the first NUL.
inline OwnedText exact_text(const std::uint8_t *data, std::size_t size) {
  return OwnedText{size == 0 ? g_strdup("")
                             : g_strndup(reinterpret_cast<const char *>(data), size)};
}

inline bool same_bytes(const GByteArray *one, const GByteArray *other) {
  return one->len == other->len &&
         (one->len == 0 || std::memcmp(one->data, other->data, one->len) == 0);
}

inline std::vector<std::string> texts_of(const GList *list) {
  std::vector<std::string> texts;
  for (; list != nullptr; list = list->next)
    texts.emplace_back(static_cast<const char *>(list->data));
  return texts;
}

// The texts of a list that is handed over, first one first.
inline std::vector<std::string> taken_texts(GList *list) {
  const OwnedStringList owner{list};
  return texts_of(list);
}

// The input as a file in memory, gone with its descriptor.
class MemoryFile {
 public:
  MemoryFile(const std::uint8_t *data, std::size_t size) : descriptor_{memfd_create("input", 0)} {
    VARRO2_ASSERT(::write(descriptor_, data, size) == static_cast<ssize_t>(size));
  }
  MemoryFile(const MemoryFile &) = delete;
  MemoryFile &operator=(const MemoryFile &) = delete;
  ~MemoryFile() { ::close(descriptor_); }
  std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

 private:
  int descriptor_;
};

// Takes an input apart into choices. Where it ends, every choice is the first one.
class Choices {
 public:
  Choices(const std::uint8_t *data, std::size_t size) : at_{data}, end_{data + size} {}

  bool at_end() const { return at_ == end_; }
  std::uint8_t byte() { return at_ == end_ ? std::uint8_t{0} : *at_++; }
  unsigned below(unsigned limit) { return byte() % limit; }
  bool flag() { return (byte() & 1) != 0; }
  std::uint32_t number() {
    std::uint32_t value = 0;
    for (int count = 0; count < 4; ++count)
      value = value << 8 | byte();
    return value;
  }
  template <typename T, std::size_t size>
  const T &one_of(const T (&all)[size]) {
    static_assert(size <= 256);
    return all[below(size)];
  }
  // Mostly one of the words, else bytes of any kind but NUL.
  template <std::size_t size>
  std::string text(const char *const (&words)[size]) {
    const std::uint8_t choice = byte();
    if (choice < 0xE0)
      return words[choice % size];
    std::string text;
    for (unsigned length = choice & 0x1F; length > 0 && !at_end(); --length)
      if (const std::uint8_t character = byte())
        text += static_cast<char>(character);
    return text;
  }

 private:
  const std::uint8_t *at_;
  const std::uint8_t *end_;
};

} // namespace varro2::fuzz
