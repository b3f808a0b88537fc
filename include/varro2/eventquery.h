/**
 * @file eventquery.h
 * The handle through which an application lists what is declared, also as a tree of topics.
 *
 * Every function may be called from any thread. The getters wait for the switch's answer, at most a
 * minute; from another thread than that of the default main context they also wait for that thread.
 */
#ifndef VARRO2_EVENTQUERY_H
#define VARRO2_EVENTQUERY_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** A query of the declarations. Opaque. */
typedef struct EventQuery EventQuery;

/** One level of a topic: the data of every node of a tree but the root. All owned by the tree. */
typedef struct TopicNode {
  char *name_space; /**< the first one met that is not empty; may be NULL */
  char *topic;      /**< the topic's value at this level */
  char *nice_name;  /**< the first one met that is not empty; may be NULL */
  GSList *events;   /**< one Event for each topic that ends here, newest first */
  GHashTable *tags; /**< from tag to "true" */
} TopicNode;

/** Makes a query and queues its connection to the bus. A connection that fails is logged as a
 * warning. @return a new handle, for event_query_free(). */
VARRO2_API EventQuery *event_query_new(void) VARRO2_NOEXCEPT;

/** Queues the end of the handle, which must not be used afterwards. NULL is ignored. */
VARRO2_API void event_query_free(EventQuery *event_query) VARRO2_NOEXCEPT;

/** @return a new list of all EventDeclaration that the switch knows, list and elements the
 * caller's; NULL on failure, which is logged as a warning. */
VARRO2_API GList *event_query_get_declarations(EventQuery *event_query) VARRO2_NOEXCEPT;

/** The same for the declaration types, with which events are registered. */
VARRO2_API GList *event_query_get_declaration_types(EventQuery *event_query) VARRO2_NOEXCEPT;

/** @return the topics of all declarations: a new root without data, above nodes whose data are
 * TopicNode; for event_query_free_topic_tree(). On failure, also for a missing handle, the root
 * alone. */
VARRO2_API GNode *event_query_get_topic_tree(EventQuery *event_query) VARRO2_NOEXCEPT;

/** Frees a tree with all its data. A missing tree aborts. */
VARRO2_API void event_query_free_topic_tree(GNode *topic_tree) VARRO2_NOEXCEPT;

/** The same for the declaration types; for event_query_free_declaration_tree(). */
VARRO2_API GNode *event_query_get_declaration_type_tree(EventQuery *event_query) VARRO2_NOEXCEPT;

/** Frees a tree with all its data. A missing tree aborts. */
VARRO2_API void event_query_free_declaration_tree(GNode *declaration_tree) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
