// What the bus part does about peers that are not trusted.
#pragma once

#include "recordwalk.hpp"

#include <systemd/sd-bus.h>

namespace varro2 {

// Whether what comes from the bus may be malformed. From any thread.
bool peers_are_untrusted() noexcept;

// What the bytes at the front of a message are to be.
using PayloadCheck = bool (*)(const guint8 *data, std::size_t length) noexcept;

template <guint32 type_id>
bool is_record(const guint8 *data, std::size_t length) noexcept {
  return RecordWalk{data, length}.record(type_id);
}
// No byte at all is an empty list.
inline bool is_declaration_list(const guint8 *data, std::size_t length) noexcept {
  return length == 0 || RecordWalk{data, length}.declaration_list();
}
// An event whose values can all be read by their types: whoever asks for the truth value of some
// other text would end with it.
bool is_event(const guint8 *data, std::size_t length) noexcept;
// An expression that says where its events go. A call to anywhere else cannot even be built.
bool is_subscription(const guint8 *data, std::size_t length) noexcept;

// Names the sender of a bad record in the log, each sender once.
void note_malformed_record(sd_bus_message *message);

// Whether the message, at which nobody has read yet, can be read as its handler will do it. Always
// so when peers are trusted. The sender of one that cannot is noted.
bool is_acceptable(sd_bus_message *message, PayloadCheck check);

// Makes a call end with InvalidArgs; the result is what a handler returns.
int refuse_record(sd_bus_error *error);

} // namespace varro2
