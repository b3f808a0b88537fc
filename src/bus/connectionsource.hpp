// Lets a GLib main loop drive a connection that has its loop object for itself.
#pragma once

#include "owning.hpp"

#include <systemd/sd-bus.h>

namespace varro2 {

// Polls the connection's own descriptor, past the loop object, which would have to be asked by
// system calls whether it has anything to do. The loop object, attached to the connection, only
// closes it after a failure to read. The connection stays the caller's too; the source is the
// caller's and not attached yet. None when the connection reads and writes at different
// descriptors.
GSource *connection_source_new(sd_bus *bus);

} // namespace varro2
