// Lets a GLib main loop drive the loop object of a connection.
#pragma once

#include "owning.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace varro2 {

// The loop object may have anything besides the connection. Both stay the caller's too; the source
// is the caller's and not attached yet.
GSource *bus_source_new(sd_event *event, sd_bus *bus);

// One dispatch goes on with the messages that are there, but lets the main loop's other sources run
// after this many.
inline constexpr int messages_per_dispatch = 64;

struct MessagesRead {
  int count;
  int status; // negative: the errno of the failure that was the end of it
};

// Takes the messages that are there already, without a turn of the loop for each: a turn costs more
// system calls than a message. Ends early when a handler destroys the source.
MessagesRead read_on(GSource *source, sd_bus *bus, int at_most);

} // namespace varro2
