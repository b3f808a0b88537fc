// Opening and closing a connection as callers see it.
#include "buscall.hpp"
#include "buserrors.hpp"
#include "bussource.hpp"
#include "preconditions.hpp"

#include <varro2/eventutils.h>

using namespace varro2;

namespace {

using LoopRef = Counted<sd_event, sd_event_ref, sd_event_unref>;

int fail(GError **error, int status, const char *message) {
  set_setup_error(error, status, message);
  return status;
}

} // namespace

gint32 connect_to_bus_and_attach_events(GSource **source, sd_bus **bus, GError **error) noexcept {
  VARRO2_ASSERT(source);
  VARRO2_ASSERT(bus);
  BusRef connection;
  int r = sd_bus_open_system(connection.out());
  if (r < 0)
    return fail(error, r, "Failed to connect to bus");
  LoopRef loop;
  r = sd_event_new(loop.out());
  if (r < 0)
    return fail(error, r, "Failed to get the default sd_event");
  if (sd_bus_get_event(connection.get()) == nullptr) {
    r = sd_bus_attach_event(connection.get(), loop.get(), SD_EVENT_PRIORITY_NORMAL);
    if (r < 0)
      return fail(error, r, "Failed to link sd_bus with sd_event");
  }
  // From here on the connection is the caller's, also when the next step fails.
  *bus = connection.release();
  r = sd_bus_error_add_map(event_error_map);
  if (r < 0)
    return fail(error, r, "Failed to register event errors to sd-bus");
  const auto attached = SourceRef::adopt(bus_source_new(loop.get(), *bus));
  g_source_attach(attached.get(), nullptr);
  *source = attached.get();
  return r;
}

void disconnect_from_bus_and_detach_events(GSource *source, sd_bus *bus) noexcept {
  VARRO2_ASSERT(source);
  VARRO2_ASSERT(bus);
  sd_bus_flush(bus);
  sd_bus_close(bus);
  sd_bus_unref(bus);
  g_source_destroy(source);
}
