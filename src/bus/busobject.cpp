#include "busobject.hpp"

#include "buserrors.hpp"

#include <cstring>

namespace varro2 {

namespace {

std::string unique_path(const char *prefix, gconstpointer object) {
  const OwnedText path{g_strdup_printf("%s%p", prefix, object)};
  return path.get();
}

bool fail(GError **error, int status, const char *message, bool explain) {
  std::string text = message;
  if (explain)
    text.append(": ").append(std::strerror(status)); // the negative number, as it stands
  set_setup_error(error, status, text.c_str());
  return false;
}

} // namespace

BusObject::BusObject(const char *prefix, gconstpointer object)
    : path{unique_path(prefix, object)} {}

bool connect_object(BusObject &object, gpointer instance, const ServedInterface &served,
                    GError **error) {
  auto connection = Connection::open(error);
  if (!connection)
    return false;
  int r = connection->serve(object.path.c_str(), served.interface, served.vtable, instance);
  if (r >= 0 && served.filter != nullptr)
    r = connection->filter(served.filter, instance);
  if (r < 0)
    return fail(error, r, served.register_failure, served.explain);
  r = connection->watch_switch(served.online, served.offline, instance);
  if (r < 0)
    return fail(error, r, served.watch_failure, served.explain);
  object.connection = std::move(connection);
  return true;
}

} // namespace varro2
