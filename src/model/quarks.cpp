#include "quarks.hpp"

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

Entry &entry_of(std::string_view text) noexcept {
  static thread_local constinit std::array<Entry, 128> cache{};
  guint32 hash = static_cast<guint32>(text.size());
  for (const char c : text)
    hash = hash * 31 + static_cast<unsigned char>(c);
  return cache[(hash ^ (hash >> 7)) % cache.size()];
}

bool holds(const Entry &entry, std::string_view text) noexcept {
  return entry.quark != 0 && entry.length == text.size() &&
         std::memcmp(entry.text, text.data(), text.size()) == 0;
}

GQuark remember(Entry &entry, std::string_view text, GQuark quark) noexcept {
  entry = {g_quark_to_string(quark), static_cast<guint32>(text.size()), quark};
  return quark;
}

} // namespace

GQuark intern(std::string_view text) {
  // A key ends at its first NUL, which only a broken record can hold.
  text = text.substr(0, text.find('\0'));
  Entry &entry = entry_of(text);
  if (holds(entry, text))
    return entry.quark;
  return remember(entry, text, g_quark_from_string(std::string{text}.c_str()));
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
