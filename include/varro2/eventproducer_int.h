/**
 * @file eventproducer_int.h
 * What the two faces of an event producer (eventproducer.h, asyncproducer.h) are built from.
 *
 * Misuse of these functions aborts, unless one says otherwise.
 */
#ifndef VARRO2_EVENTPRODUCER_INT_H
#define VARRO2_EVENTPRODUCER_INT_H

#include <stdarg.h>

#include <varro2/eventproducer.h>
#include <varro2/eventutils.h>

G_BEGIN_DECLS

/** The end of the set-up. @p error is NULL on success; otherwise the callee frees it. */
typedef void (*EventProducerSetupCallback)(EventProducer *event_producer, gpointer user_data,
                                           GError *error);

/** Called on the main-context thread just before the declaration goes to the switch. */
typedef void (*EventProducerDeclaredCallback)(guint32 local_declare_id, gpointer user_data);

/** The end of a send. @p event is the caller's pointer as it was passed and is not looked at.
 * @p error is NULL on success; otherwise the callee frees it. */
typedef void (*EventProducerSendCallback)(guint32 local_declare_id, Event *event,
                                          gpointer user_data, GError *error);

/** The end of a handle. @p event_producer is its former address, already freed. The bus has read
 * all that the handle sent, so that the process may end. */
typedef void (*EventProducerDoneCallback)(EventProducer *event_producer, gpointer user_data);

/** @return a new handle that event_producer_int_setup() must complete. */
VARRO2_API EventProducer *event_producer_int_new_empty(void) VARRO2_NOEXCEPT;

/**
 * Gives the handle its bus object and queues the connection.
 * @param name copied.
 * @param setup_callback told of the end; may be NULL, then a failure is logged at critical level.
 * @param subscribers_changed may be NULL.
 * @param user_data for both callbacks.
 */
VARRO2_API void event_producer_int_setup(EventProducer *event_producer, const char *name,
                                         EventProducerSetupCallback setup_callback,
                                         ProducerSubscribersChanged subscribers_changed,
                                         gpointer user_data) VARRO2_NOEXCEPT;

/** Silences the handle's callbacks at once and queues its end. @p done_callback may be NULL. */
VARRO2_API void event_producer_int_free(EventProducer *event_producer,
                                        EventProducerDoneCallback done_callback,
                                        gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Checks a declaration and reserves a local id for it. Nothing aborts.
 * @param error may be NULL. EVENT_ERROR_ERROR_ALREADY_SET, EVENT_ERROR_NULL or
 *        EVENT_ERROR_INCOMPLETE.
 * @return the id; 0 on failure.
 */
VARRO2_API guint32 event_producer_int_get_decl_id(EventProducer *event_producer,
                                                  const EventDeclaration *declaration,
                                                  GError **error) VARRO2_NOEXCEPT;

/**
 * Records a declaration under a reserved id and queues it for the switch. Id 0 does nothing.
 * @param declaration copied.
 * @param declared_callback, notify may be NULL.
 */
VARRO2_API void event_producer_int_declare(EventProducer *event_producer,
                                           const EventDeclaration *declaration,
                                           guint32 local_declare_id,
                                           EventProducerDeclaredCallback declared_callback,
                                           EventProducerNotifyCallback notify,
                                           gpointer user_data) VARRO2_NOEXCEPT;

/** Takes a declaration out at once and queues the message to the switch. A missing handle or id 0
 * is a soft failure. @p callback may be NULL. @return TRUE when the id was known. */
VARRO2_API gboolean event_producer_int_undeclare(EventProducer *event_producer,
                                                 guint32 local_declare_id,
                                                 EventProducerUndeclareCallback callback,
                                                 gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Checks, stamps and queues an event.
 * @param event the caller's pointer, for the callback alone; may be NULL, which is an error of its
 *        own (EVENT_ERROR_NULL).
 * @param event_copy what is sent; taken over. NULL only together with @p event.
 * @param send_callback told of the end, also of a failed check; may be NULL.
 * @param error may be NULL.
 * @return TRUE when the event was accepted.
 */
VARRO2_API gboolean event_producer_int_send_event(EventProducer *event_producer, const Event *event,
                                                  Event *event_copy,
                                                  EventProducerSendCallback send_callback,
                                                  gpointer user_data,
                                                  GError **error) VARRO2_NOEXCEPT;

/**
 * Reads triples of key, pointer to the value and value type up to a NULL key.
 * @return a new list of key (owned), value as text (owned) and value type (GINT_TO_POINTER()) in
 *         turn, for event_producer_int_free_register_list(); NULL when there is no triple.
 */
VARRO2_API GList *event_producer_int_parse_register_valist(va_list arguments) VARRO2_NOEXCEPT;

/** The same from a list of key, pointer to the value and value type, which stays the caller's. */
VARRO2_API GList *event_producer_int_convert_to_string_list(GList *list) VARRO2_NOEXCEPT;

/** Frees a list made by one of the two above. */
VARRO2_API void event_producer_int_free_register_list(GList *list) VARRO2_NOEXCEPT;

/**
 * Builds the declaration of a type with values filled in.
 * @param type a missing one is a soft failure that fills no slot.
 * @param list as made by event_producer_int_parse_register_valist(); only read.
 * @param declaration must point to NULL; receives a new declaration, or stays NULL on failure.
 * @param params must point to NULL; receives the value of the property key for
 *        callback_params_free(), or NULL. To be ignored on failure.
 * @param error may be NULL. EVENT_ERROR_ERROR_ALREADY_SET or EVENT_ERROR_REGISTRATION_*.
 */
VARRO2_API void event_producer_int_register_list(const char *type, GList *list,
                                                 EventDeclaration **declaration,
                                                 CallbackParams **params,
                                                 GError **error) VARRO2_NOEXCEPT;

/** event_producer_register_and_notify_list() with the triples as made by
 * event_producer_int_parse_register_valist(). The list stays the caller's. */
VARRO2_API guint32 event_producer_register_and_notify_string_list(
    EventProducer *event_producer, const char *type, EventProducerNotifyCallback notify,
    gpointer user_data, GList *list) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
