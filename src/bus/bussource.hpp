// The source by which a GLib main loop drives the event loop object of one connection.
#pragma once

#include <glib.h>
#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

namespace varro2 {

// Not attached yet; the caller owns the reference. The source takes its own references on the loop
// and on the connection that it is for.
GSource *bus_source_new(sd_event *event, sd_bus *bus);

// Nobody else gets at the loop object: all that it ever has to do is the connection's.
void bus_source_set_sole(GSource *source);

} // namespace varro2
