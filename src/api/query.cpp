#include "buscall.hpp"
#include "buserrors.hpp"
#include "log.hpp"
#include "owning.hpp"
#include "preconditions.hpp"

#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>
#include <varro2/query.h>
#include <varro2/serialize.h>
#include <varro2/switch_bus_client.h>

#include <mutex>
#include <new>

using namespace varro2;

// A GObject instance: what C++ must construct and destroy lies in the private data.
struct Query {
  GObject parent_instance;
};

namespace {

struct QueryClass {
  GObjectClass parent_class;
};

struct QueryPrivate {
  std::recursive_mutex mutex; // guards the rest, for the whole of each operation
  sd_bus *bus = nullptr;      // none when connecting failed
  GSource *source = nullptr;  // drives the connection

  ~QueryPrivate() {
    const std::scoped_lock lock{mutex};
    if (bus && source)
      disconnect_from_bus_and_detach_events(source, bus);
  }
};

gint private_offset;
gpointer query_parent_class;

QueryPrivate &private_of(gpointer query) {
  return *static_cast<QueryPrivate *>(G_STRUCT_MEMBER_P(query, private_offset));
}

void query_finalize(GObject *object) noexcept {
  private_of(object).~QueryPrivate();
  G_OBJECT_CLASS(query_parent_class)->finalize(object);
}

void query_class_init(gpointer query_class, gpointer) noexcept {
  query_parent_class = g_type_class_peek_parent(query_class);
  g_type_class_adjust_private_offset(query_class, &private_offset);
  G_OBJECT_CLASS(query_class)->finalize = query_finalize;
}

void query_instance_init(GTypeInstance *instance, gpointer) noexcept {
  new (&private_of(instance)) QueryPrivate;
}

GType register_query() {
  const GType type =
      g_type_register_static_simple(G_TYPE_OBJECT, "Query", sizeof(QueryClass), query_class_init,
                                    sizeof(Query), query_instance_init, GTypeFlags{});
  private_offset = g_type_add_instance_private(type, sizeof(QueryPrivate));
  return type;
}

GList *read_declarations(const guint8 *data, gsize length) {
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
  static const GType type = register_query();
  return type;
}

Query *query_new(void) noexcept {
  return static_cast<Query *>(g_object_new(query_get_type(), NULL));
}

gint32 query_init_dbus(Query *query) noexcept {
  VARRO2_ASSERT(query != NULL);
  QueryPrivate &self = private_of(query);
  const std::scoped_lock lock{self.mutex};
  if (connect_to_bus_and_attach_events(&self.source, &self.bus, NULL) < 0)
    VARRO2_WARNING("%sFailed to connect to the bus for Query object");
  return 0;
}

GList *query_send_get_declarations(Query *query) noexcept {
  VARRO2_ASSERT(query != NULL);
  QueryPrivate &self = private_of(query);
  const std::scoped_lock lock{self.mutex};
  BusError error;
  OwnedBytes data;
  gsize length = 0;
  const int r = com_quor_Event_Switch_Query_get_all_declarations(self.bus, error.get(),
                                                                 out_of(data), &length);
  if (r < 0) {
    VARRO2_WARNING("%sCould not get event declarations: %s", new_bus_failure(*error, -r)->message);
    return NULL;
  }
  return read_declarations(data.get(), length);
}

GList *query_send_get_declaration_types(Query *query) noexcept {
  VARRO2_ASSERT(query != NULL);
  QueryPrivate &self = private_of(query);
  const std::scoped_lock lock{self.mutex};
  BusError error;
  MessageRef reply;
  const int r =
      com_quor_Event_Switch_Query_get_declaration_types(self.bus, error.get(), reply.out());
  if (r < 0) {
    VARRO2_WARNING("%sCould not get event declaration types: %s",
                   new_bus_failure(*error, -r)->message);
    return NULL;
  }
  const ByteView bytes = read_bytes(__func__, reply.get());
  return read_declarations(bytes.data, bytes.length);
}
