// Interning of keys. GLib's table stands behind one lock of the whole process; the few keys that a
// thread works with are found again in a small cache of its own.
#pragma once

#include <glib.h>

#include <string_view>

namespace varro2 {

// Never 0. The text need not be NUL-terminated.
GQuark intern(std::string_view text);

// The quark of a text that was interned before, else 0: asking for a key must not keep it forever.
GQuark find_interned(const char *text) noexcept;

} // namespace varro2
