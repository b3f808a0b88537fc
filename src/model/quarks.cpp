#include "quarks.hpp"

#include "shorttexts.hpp"

#include <array>
#include <cstring>
#include <string>

namespace varro2 {
namespace {

struct Entry {
  const char *text; // GLib's own copy, which lives as long as the process
  guint32 length;
  GQuark quark;
};

// Mixes the length with the first and the last bytes, which overlap in a short text.
guint64 hash_of(std::string_view text) noexcept {
  const auto load = [&text]<typename T>(T first) {
    T last = 0;
    std::memcpy(&first, text.data(), sizeof(T));
    std::memcpy(&last, text.data() + text.size() - sizeof(T), sizeof(T));
    return guint64{first} + guint64{last} * 31;
  };
  const guint64 bytes = text.size() >= sizeof(guint64)   ? load(guint64{})
                        : text.size() >= sizeof(guint32) ? load(guint32{})
                        : text.empty()                   ? 0
                                                         : load(guint8{});
  return (bytes + text.size()) * 0x9E3779B97F4A7C15u;
}

Entry &entry_of(std::string_view text) noexcept {
  static thread_local constinit std::array<Entry, 128> cache{};
  return cache[static_cast<std::size_t>(hash_of(text) >> 57)];
}

bool holds(const Entry &entry, std::string_view text) noexcept {
  return entry.quark != 0 && entry.length == text.size() &&
         equal_text(entry.text, text.data(), text.size());
}

GQuark remember(Entry &entry, std::string_view text, GQuark quark) noexcept {
  entry = {g_quark_to_string(quark), static_cast<guint32>(text.size()), quark};
  return quark;
}

} // namespace

GQuark intern(std::string_view text) {
  Entry &entry = entry_of(text);
  if (holds(entry, text))
    return entry.quark;
  // A key ends at its first NUL, which only a broken record can hold.
  const std::string key{text.substr(0, text.find('\0'))};
  const GQuark quark = g_quark_from_string(key.c_str());
  return key.size() == text.size() ? remember(entry, text, quark) : quark;
}

GQuark find_interned(const char *text) noexcept {
  const std::string_view view{text};
  Entry &entry = entry_of(view);
  if (holds(entry, view))
    return entry.quark;
  const GQuark quark = g_quark_try_string(text);
  return quark != 0 ? remember(entry, view, quark) : 0;
}

} // namespace varro2
