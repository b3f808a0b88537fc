// Failures for the caller's error slot.
#pragma once

#include "owning.hpp"

#include <varro2/error.h>

namespace varro2 {

inline OwnedError new_error(EventErrorCode code, const char *message) {
  return OwnedError{g_error_new_literal(event_error_quark(), code, message)};
}

// The slot may be missing; an error that it held gives way.
inline void fail(GError **slot, OwnedError error) {
  g_clear_error(slot);
  g_propagate_error(slot, error.release());
}

inline void fail(GError **slot, EventErrorCode code, const char *message) {
  fail(slot, new_error(code, message));
}

// A slot that holds an error already makes the call fail; the former error is lost on purpose.
inline bool fail_if_slot_is_taken(GError **slot) {
  if (!slot || !*slot)
    return false;
  fail(slot, EVENT_ERROR_ERROR_ALREADY_SET, "Error object already set");
  return true;
}

} // namespace varro2
