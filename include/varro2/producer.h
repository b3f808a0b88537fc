/**
 * @file producer.h
 * The bus object behind an event producer.
 *
 * A Producer is a GObject: made by producer_new(), released with g_object_unref() on the thread of
 * the default main context. It owns its connection, its declarations and the subscriptions to them.
 * Its lock is held during each operation and while its callbacks run; callbacks may call back into
 * it. What sends on the bus (producer_init_dbus(), `producer_send_*`, producer_add_declaration(),
 * producer_remove_declaration(), `producer_receive_*`) runs on the thread of the default main
 * context, everything else on any thread.
 */
#ifndef VARRO2_PRODUCER_H
#define VARRO2_PRODUCER_H

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>
#include <varro2/macros.h>

G_BEGIN_DECLS

typedef struct Producer Producer;

/** What a producer holds for one declaration. */
typedef struct ProducerDeclarationData ProducerDeclarationData;

/**
 * Which declarations have subscribers that are not clandestine. Runs on any thread that changed it.
 *
 * @param local_ids guint32 elements, each local id once; valid during the call.
 */
typedef void (*ProducerSubscribersChanged)(GArray *local_ids, gpointer user_data);

/** The switch has the declaration and all its subscriptions have been handed over. */
typedef void (*ProducerCompleteCallback)(guint32 local_id, gpointer user_data);

/**
 * The answer to producer_add_declaration() or producer_remove_declaration().
 *
 * @param type the name of the declaration type; valid during the call.
 * @param error NULL on success; otherwise owned by the callback.
 */
typedef void (*ProducerUserDeclarationCallback)(const char *type, gpointer user_data,
                                                GError *error);

/** @return the GObject type "Producer". */
VARRO2_API GType producer_get_type(void) VARRO2_NOEXCEPT;

/**
 * A producer that is not connected yet.
 *
 * @param name is copied and served as the property Name.
 * @param subscribers_changed may be NULL.
 * @return the producer; the caller owns one reference.
 */
VARRO2_API Producer *producer_new(const char *name, ProducerSubscribersChanged subscribers_changed,
                                  gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Connects, serves the bus object and sends the declarations that are there already.
 *
 * @param error is required and empty.
 * @return FALSE, with *error set in the domain "libvarro2" and a negative errno as its code, when
 *   that failed. The producer can be used and released all the same.
 */
VARRO2_API gboolean producer_init_dbus(Producer *producer, GError **error) VARRO2_NOEXCEPT;

/** Stops the reports on subscribers and the property hooks, before the last reference is dropped.
 */
VARRO2_API void producer_prepare_free(Producer *producer) VARRO2_NOEXCEPT;

/**
 * Records a declaration, not sent yet. A local id that is in use aborts.
 *
 * @param declaration is taken over.
 * @param complete_cb is called once; may be NULL.
 */
VARRO2_API void producer_allocate_decl_data(Producer *producer, guint32 local_id,
                                            EventDeclaration *declaration,
                                            ProducerCompleteCallback complete_cb,
                                            gpointer complete_data) VARRO2_NOEXCEPT;

/**
 * Sends the declaration unless it was sent to the present switch. A property's current event is
 * fetched first and goes to the subscribers that are there. An unknown id does nothing.
 */
VARRO2_API void producer_send_declare(Producer *producer, guint32 local_id) VARRO2_NOEXCEPT;

/** @return whether the declaration exists and has its global id. */
VARRO2_API gboolean producer_declaration_complete(Producer *producer,
                                                  guint32 local_id) VARRO2_NOEXCEPT;

/**
 * Takes the declaration and its subscriptions out.
 *
 * @return what producer_send_undeclare() takes over; NULL when the id is unknown.
 */
VARRO2_API ProducerDeclarationData *producer_release_declare_id(Producer *producer,
                                                                guint32 local_id) VARRO2_NOEXCEPT;

/**
 * Sends Undeclare if the declaration has its global id, and frees what was released.
 *
 * @param declaration_data is taken over; not NULL.
 */
VARRO2_API void producer_send_undeclare(Producer *producer,
                                        ProducerDeclarationData *declaration_data) VARRO2_NOEXCEPT;

/** @return a new event made from the declaration, owned by the caller; NULL: unknown id. */
VARRO2_API Event *producer_prepare_event(Producer *producer, guint32 local_id) VARRO2_NOEXCEPT;

/** Gives the event the global id and the producer id of its declaration, if that is known. */
VARRO2_API void producer_fill_global_event_data(Producer *producer, Event *event) VARRO2_NOEXCEPT;

/**
 * Sends the event to all matching subscribers, in the order in which they came; a property event is
 * kept as the current one.
 *
 * @param error may be NULL, else is empty; gets EVENT_ERROR_NOT_REGISTERED.
 * @return whether the event's local id is known.
 */
VARRO2_API gboolean producer_send_event(Producer *producer, const Event *event,
                                        GError **error) VARRO2_NOEXCEPT;

/** Takes leave of the switch. */
VARRO2_API void producer_send_disconnect(Producer *producer) VARRO2_NOEXCEPT;

/**
 * Asks the switch to store a declaration type.
 *
 * @param callback gets the answer; may be NULL.
 */
VARRO2_API void producer_add_declaration(Producer *producer, const char *type,
                                         const EventDeclaration *declaration,
                                         ProducerUserDeclarationCallback callback,
                                         gpointer user_data) VARRO2_NOEXCEPT;

/** Asks the switch to remove a declaration type. @param callback as above. */
VARRO2_API void producer_remove_declaration(Producer *producer, const char *type,
                                            ProducerUserDeclarationCallback callback,
                                            gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Makes a property's current event from its declaration and one more value, stamped now. It must
 * be complete then. An unknown id does nothing.
 *
 * @param params is read only.
 */
VARRO2_API void producer_add_callback_params(Producer *producer, guint32 local_id,
                                             const CallbackParams *params) VARRO2_NOEXCEPT;

/** Served GlobalDeclareId: stores both ids; an unknown local id is answered by Undeclare. */
VARRO2_API void producer_receive_global_declare_id(Producer *producer, guint32 local_id,
                                                   guint32 global_id,
                                                   guint32 producer_id) VARRO2_NOEXCEPT;

/** Served DeclarationComplete: runs the callback; an unknown local id is answered by Undeclare. */
VARRO2_API void producer_receive_declaration_complete(Producer *producer, guint32 local_id,
                                                      guint32 global_id) VARRO2_NOEXCEPT;

/** Served Subscribe. @param bytes the serialised subscribe expression. */
VARRO2_API void producer_receive_subscribe(Producer *producer, GByteArray *bytes,
                                           guint32 local_id) VARRO2_NOEXCEPT;

/** Served RefreshProperty: sends the property's current event to the subscription again. */
VARRO2_API void producer_receive_refresh_property(Producer *producer, guint32 subscription_id,
                                                  guint32 local_id) VARRO2_NOEXCEPT;

/** Served Unsubscribe. */
VARRO2_API void producer_receive_unsubscribe(Producer *producer, guint32 subscription_id,
                                             guint32 local_id) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
