// What the handlers of incoming calls share: owners of bus objects, payloads, refusals.
#pragma once

#include "owning.hpp"
#include "quotas.hpp"

#include <varro2/serialize.h>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdint>

namespace varro2::switchd {

using Bus = Counted<sd_bus, sd_bus_ref, sd_bus_unref>;
using Message = Counted<sd_bus_message, sd_bus_message_ref, sd_bus_message_unref>;
using EventLoop = Counted<sd_event, sd_event_ref, sd_event_unref>;
using Timer = Owned<sd_event_source, sd_event_source_disable_unref>;

inline constexpr const char *error_no_subscription = "com.quor.Event.Error.NoSubscr";
inline constexpr const char *error_not_registered = "com.quor.Event.Error.NotRegistered";
inline constexpr const char *error_property_state = "com.quor.Event.Error.LookingUpPropState";
inline constexpr const char *error_file = "com.quor.Event.Error.File";
inline constexpr const char *error_already_exists = "com.quor.Event.Error.AlreadyExists";

// What a handler returns for a call that it answers: after 0 sd-bus goes on looking for a handler
// and answers that there is none.
inline constexpr int handled = 1;

// Makes the call end with this bus error; the result is what a handler returns.
int refuse(sd_bus_error *error, const char *name, const char *format, ...) G_GNUC_PRINTF(3, 4);

// The unique name of the caller.
const char *sender_of(sd_bus_message *message);

// Whether a text can be the path of a client's object. A call to any other path cannot be made, and
// a path that is too long does not survive in an expression's record.
bool is_client_path(const char *path);

// Takes the next "ay" of a call, which is to hold a record of the given kind. One that cannot be
// read is refused, with the sender named in the log once, and nothing comes back; so is one with
// more new names of keys than its sender's user may still bring in. Those that pass are charged.
BytesRef read_record(sd_bus_message *message, std::uint8_t kind, Quotas &quotas,
                     sd_bus_error *error);

// Answers a call with one "ay". This and done() return what a handler returns.
int answer(sd_bus_message *call, const GByteArray &bytes);

// Answers a call with nothing.
int done(sd_bus_message *call);

} // namespace varro2::switchd
