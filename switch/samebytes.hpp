// Whether two records are the same.
#pragma once

#include <glib.h>

#include <algorithm>

namespace varro2::switchd {

inline bool have_same_bytes(const GByteArray &one, const GByteArray &other) {
  return one.len == other.len && std::equal(one.data, one.data + one.len, other.data);
}

} // namespace varro2::switchd
