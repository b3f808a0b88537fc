#include "buscall.hpp"
#include "buserrors.hpp"
#include "busobject.hpp"
#include "log.hpp"
#include "owning.hpp"
#include "preconditions.hpp"

#include <varro2/eventdeclaration.h>
#include <varro2/query.h>
#include <varro2/serialize.h>
#include <varro2/switch_bus_client.h>

#include <memory>
#include <mutex>

using namespace varro2;

struct Query {
  GObject parent_instance;
};

namespace {

struct QueryState {
  std::recursive_mutex mutex;             // guards the rest, for the whole of each operation
  std::unique_ptr<Connection> connection; // none before it is opened, or when that failed

  explicit QueryState(Query *) {}
  // Nothing that was sent is still under way: every call has had its answer.
  void retire() {
    const std::scoped_lock lock{mutex};
    connection.reset();
  }
  sd_bus *bus() const noexcept { return connection ? connection->bus() : nullptr; }
};

using QueryClass = ObjectClass<Query, QueryState>;
using LockedQuery = Locked<Query, QueryState>;

// An answer without a single byte is a list of nothing.
GList *read_declarations(const guint8 *data, gsize length) {
  if (length == 0)
    return NULL;
  const BytesRef bytes = new_bytes();
  g_byte_array_append(bytes.get(), data, static_cast<guint>(length));
  guint32 indx = 0;
  return deserialize_glist(bytes.get(), &indx,
                           [](GByteArray *array, guint32 *at) noexcept -> gpointer {
                             return event_declaration_deserialize_internal(array, at);
                           });
}

} // namespace

GType query_get_type(void) noexcept {
  return QueryClass::get_type("Query");
}

Query *query_new(void) noexcept {
  return static_cast<Query *>(g_object_new(query_get_type(), NULL));
}

gint32 query_init_dbus(Query *query) noexcept {
  VARRO2_EXPECT(query != NULL, 0);
  const LockedQuery self{query};
  self->connection = Connection::open(NULL);
  if (!self->connection)
    VARRO2_WARNING("%sFailed to connect to the bus for Query object");
  return 0;
}

GList *query_send_get_declarations(Query *query) noexcept {
  VARRO2_EXPECT(query != NULL, NULL);
  const LockedQuery self{query};
  BusError error;
  OwnedBytes data;
  gsize length = 0;
  const int r = com_quor_Event_Switch_Query_get_all_declarations(self->bus(), error.get(),
                                                                 out_of(data), &length);
  if (r < 0) {
    VARRO2_WARNING("%sCould not get event declarations: %s", new_bus_failure(*error, -r)->message);
    return NULL;
  }
  return read_declarations(data.get(), length);
}

GList *query_send_get_declaration_types(Query *query) noexcept {
  VARRO2_EXPECT(query != NULL, NULL);
  const LockedQuery self{query};
  BusError error;
  MessageRef reply;
  const int r =
      com_quor_Event_Switch_Query_get_declaration_types(self->bus(), error.get(), reply.out());
  if (r < 0) {
    VARRO2_WARNING("%sCould not get event declaration types: %s",
                   new_bus_failure(*error, -r)->message);
    return NULL;
  }
  const ByteView bytes = read_bytes(__func__, reply.get());
  return read_declarations(bytes.data, bytes.length);
}
