/**
 * @file query.h
 * The bus object behind an event query: a connection of its own and the two calls to the switch.
 *
 * All functions but query_get_type() and query_new() run on the thread of the default main context.
 * A missing object aborts.
 */
#ifndef VARRO2_QUERY_H
#define VARRO2_QUERY_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** A counted object (GObject), released with g_object_unref(). */
typedef struct Query Query;

/** The object's type, registered on first use. Any thread. */
VARRO2_API GType query_get_type(void) VARRO2_NOEXCEPT;

/** @return a new object, not yet connected. */
VARRO2_API Query *query_new(void) VARRO2_NOEXCEPT;

/** Connects to the bus. A failure is logged as a warning and leaves the object unconnected.
 * @return always 0. */
VARRO2_API gint32 query_init_dbus(Query *query) VARRO2_NOEXCEPT;

/** Asks the switch for all declarations and waits for the answer, at most a minute.
 * @return a new list of EventDeclaration, list and elements the caller's; NULL on failure, which is
 *         logged as a warning. */
VARRO2_API GList *query_send_get_declarations(Query *query) VARRO2_NOEXCEPT;

/** The same for the declaration types. */
VARRO2_API GList *query_send_get_declaration_types(Query *query) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
