// The source by which a GLib main loop drives the event loop object of one connection.
#pragma once

#include <glib.h>
#include <systemd/sd-event.h>

namespace varro2 {

// Not attached yet; the caller owns the reference. The source takes its own reference on the loop.
GSource *bus_source_new(sd_event *event);

} // namespace varro2
