#include "preconditions.hpp"
#include "protocol.hpp"
#include "untrusted.hpp"

#include <varro2/eventutils.h>

#include <cerrno>

using namespace varro2;

namespace {

constexpr const char *owner_changed_rule =
    "type='signal',sender='org.freedesktop.DBus',path='/org/freedesktop/DBus',"
    "interface='org.freedesktop.DBus',member='NameOwnerChanged',arg0='com.quor.Event.Switch'";

void call_watcher(BusWatcherCallback callback, gpointer user_data) {
  if (callback != nullptr)
    callback(user_data);
}

int driver_name_owner_changed(sd_bus_message *m, void *user_data, sd_bus_error *) noexcept {
  const auto *watcher = static_cast<const BusWatcher *>(user_data);
  // Any peer can send a signal straight at this connection.
  if (g_strcmp0(sd_bus_message_get_sender(m), bus_driver_name) != 0)
    return 0;
  const char *name = nullptr;
  const char *old_owner = nullptr;
  const char *new_owner = nullptr;
  const int r = sd_bus_message_read(m, "sss", &name, &old_owner, &new_owner);
  VARRO2_ASSERT(r >= 0);
  VARRO2_ASSERT_AS(__func__, "name == DBUS_SERVICE_SWITCH",
                   g_strcmp0(name, switch_address.service) == 0);
  const bool was_there = *old_owner != '\0';
  const bool is_there = *new_owner != '\0';
  if (peers_are_untrusted() && was_there && is_there) {
    // Handed over without a gap: the new switch knows nothing of what the former one was told.
    call_watcher(watcher->offline, watcher->user_data);
    // Who is told of the first may end the connection, and the watcher with it.
    if (sd_bus_is_open(sd_bus_message_get_bus(m)) > 0)
      call_watcher(watcher->online, watcher->user_data);
    return 0;
  }
  if (was_there == is_there)
    g_assertion_message_expr(nullptr, __FILE__, __LINE__, __func__, nullptr);
  call_watcher(is_there ? watcher->online : watcher->offline, watcher->user_data);
  return 0;
}

} // namespace

gint32 watch_bus_driver(sd_bus *bus, BusWatcher *watcher) noexcept {
  VARRO2_ASSERT(bus);
  VARRO2_ASSERT(watcher);
  int r = 0;
  do {
    r = sd_bus_add_match(bus, nullptr, owner_changed_rule, driver_name_owner_changed, watcher);
  } while (r == -EINTR);
  return r;
}
