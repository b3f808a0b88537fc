#include "command.hpp"
#include "eventproducer.hpp"
#include "preconditions.hpp"
#include "topictree.hpp"

#include <varro2/eventquery.h>
#include <varro2/query.h>

using namespace varro2;

namespace varro2 {

using QueryRef = Counted<Query, g_object_ref, g_object_unref>;

} // namespace varro2

struct EventQuery final {
  QueryRef query = QueryRef::adopt(query_new());
  OwnedCommands commands{command_source_new_full(nullptr, this, 1, 0)};
};

namespace {

template <GList *(*ask)(Query *) noexcept>
GList *run(EventQuery &handle) {
  return static_cast<GList *>(command_source_run(
      handle.commands.get(),
      [](gpointer, gpointer user_data) noexcept -> gpointer {
        return ask(static_cast<EventQuery *>(user_data)->query.get());
      },
      nullptr));
}

// Consumes the declarations.
GNode *build_tree(GList *declarations) {
  const OwnedList list{declarations};
  TopicTreeBuilder builder;
  for (; declarations; declarations = declarations->next) {
    const OwnedDeclaration declaration{static_cast<EventDeclaration *>(declarations->data)};
    builder.add(*declaration);
  }
  return builder.finish();
}

} // namespace

EventQuery *event_query_new(void) noexcept {
  auto event_query = std::make_unique<EventQuery>();
  queue(*event_query, [](EventQuery &handle) { query_init_dbus(handle.query.get()); });
  return event_query.release();
}

void event_query_free(EventQuery *event_query) noexcept {
  if (event_query)
    queue(*event_query, [](EventQuery &handle) { delete &handle; });
}

GList *event_query_get_declarations(EventQuery *event_query) noexcept {
  VARRO2_EXPECT(event_query != NULL, NULL);
  return run<query_send_get_declarations>(*event_query);
}

GList *event_query_get_declaration_types(EventQuery *event_query) noexcept {
  VARRO2_EXPECT(event_query != NULL, NULL);
  return run<query_send_get_declaration_types>(*event_query);
}

GNode *event_query_get_topic_tree(EventQuery *event_query) noexcept {
  return build_tree(event_query_get_declarations(event_query));
}

void event_query_free_topic_tree(GNode *topic_tree) noexcept {
  VARRO2_ASSERT(topic_tree);
  free_topic_tree(topic_tree);
}

GNode *event_query_get_declaration_type_tree(EventQuery *event_query) noexcept {
  return build_tree(event_query_get_declaration_types(event_query));
}

void event_query_free_declaration_tree(GNode *declaration_tree) noexcept {
  VARRO2_ASSERT(declaration_tree);
  free_topic_tree(declaration_tree);
}
