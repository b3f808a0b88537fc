/**
 * @file eventproducer.h
 * The handle through which an application declares events, sends them and withdraws them again.
 *
 * Every function may be called from any thread. What touches the bus is queued to the thread that
 * iterates the default main context and runs there in the order of the calls; all callbacks run on
 * that thread as well.
 */
#ifndef VARRO2_EVENTPRODUCER_H
#define VARRO2_EVENTPRODUCER_H

#include <varro2/event.h>
#include <varro2/eventdeclaration.h>
#include <varro2/macros.h>
#include <varro2/producer.h>

G_BEGIN_DECLS

/** A producer of events. Opaque. */
typedef struct EventProducer EventProducer;

/** The declaration is complete: the switch knows it and has told of its subscribers. Called once.
 */
typedef ProducerCompleteCallback EventProducerNotifyCallback;

/** The end of an undeclare. @p error is NULL on success; otherwise the callee frees it. */
typedef void (*EventProducerUndeclareCallback)(guint32 local_declare_id, gpointer user_data,
                                               GError *error);

/** The answer to a type added or removed. A type's name is lent for the call; an error is NULL on
 * success, otherwise the callee frees it. */
typedef ProducerUserDeclarationCallback EventProducerTypeCallback;

/**
 * Makes a producer and queues its connection to the bus. The handle can be used at once; a
 * connection that fails is logged at critical level.
 * @param name the producer's name on the bus; copied.
 * @param subscribers_changed called whenever a declaration gains its first subscriber or loses its
 *        last, with the local ids (guint32, lent) that have subscribers; may be NULL.
 * @return a new handle, for event_producer_free(); NULL without a name.
 */
VARRO2_API EventProducer *event_producer_new_full(const char *name,
                                                  ProducerSubscribersChanged subscribers_changed,
                                                  gpointer user_data) VARRO2_NOEXCEPT;

/** event_producer_new_full() without a report of subscribers. */
VARRO2_API EventProducer *event_producer_new(const char *name) VARRO2_NOEXCEPT;

/** Takes leave of the switch and frees the handle, after what was queued before. The handle must
 * not be used afterwards. NULL is ignored. */
VARRO2_API void event_producer_free(EventProducer *event_producer) VARRO2_NOEXCEPT;

/**
 * Declares a kind of event.
 * @param declaration copied. Without the internal flag it must hold a value for "topic0".
 * @param notify called once when the switch has taken the declaration in; may be NULL.
 * @return the local id of the declaration; 0 on failure, which is logged as a warning.
 */
VARRO2_API guint32 event_producer_declare_and_notify(EventProducer *event_producer,
                                                     const EventDeclaration *declaration,
                                                     EventProducerNotifyCallback notify,
                                                     gpointer user_data) VARRO2_NOEXCEPT;

/** event_producer_declare_and_notify() without a callback. */
VARRO2_API guint32 event_producer_declare(EventProducer *event_producer,
                                          const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/** @return TRUE when the switch has given the declaration its global id. */
VARRO2_API gboolean event_producer_declaration_complete(EventProducer *event_producer,
                                                        guint32 local_declare_id) VARRO2_NOEXCEPT;

/**
 * Withdraws a declaration.
 * @param callback called when that is done, or with EVENT_ERROR_NOT_REGISTERED for an unknown id;
 *        may be NULL.
 * @return TRUE when the id was known.
 */
VARRO2_API gboolean event_producer_undeclare_and_notify(EventProducer *event_producer,
                                                        guint32 local_declare_id,
                                                        EventProducerUndeclareCallback callback,
                                                        gpointer user_data) VARRO2_NOEXCEPT;

/** event_producer_undeclare_and_notify() without a callback. */
VARRO2_API gboolean event_producer_undeclare(EventProducer *event_producer,
                                             guint32 local_declare_id) VARRO2_NOEXCEPT;

/**
 * Makes an event of a declaration, for the caller to fill in and send.
 * @return a new event, for event_free(); NULL for an unknown id.
 */
VARRO2_API Event *event_producer_prepare_event(EventProducer *event_producer,
                                               guint32 local_declare_id) VARRO2_NOEXCEPT;

/**
 * Sends a copy of an event to all its subscribers.
 * @param event stays the caller's. Keeps its time when it has one, otherwise goes out with now.
 * @param error may be NULL. EVENT_ERROR_NULL for a missing handle or event,
 *        EVENT_ERROR_NOT_REGISTERED while the switch has given no global id (properties are kept
 *        for later instead), EVENT_ERROR_INCOMPLETE for unset values,
 *        EVENT_ERROR_ERROR_ALREADY_SET in place of an error that was already there.
 * @return TRUE when the event was accepted.
 */
VARRO2_API gboolean event_producer_send_event(EventProducer *event_producer, const Event *event,
                                              GError **error) VARRO2_NOEXCEPT;

/** event_producer_send_event() without an error slot. */
VARRO2_API gboolean event_producer_send_event_async(EventProducer *event_producer,
                                                    const Event *event) VARRO2_NOEXCEPT;

/**
 * Adds a declaration type to the switch, under which others can register.
 * @param type, declaration copied.
 * @param callback called with the switch's answer; may be NULL.
 * @return TRUE when the request was queued.
 */
VARRO2_API gboolean event_producer_add_declaration(EventProducer *event_producer, const char *type,
                                                   const EventDeclaration *declaration,
                                                   EventProducerTypeCallback callback,
                                                   gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Removes a declaration type from the switch.
 * @param type copied.
 * @param callback called with the switch's answer; may be NULL.
 * @return TRUE when the request was queued.
 */
VARRO2_API gboolean event_producer_remove_declaration(EventProducer *event_producer,
                                                      const char *type,
                                                      EventProducerTypeCallback callback,
                                                      gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Declares an event of a type that the system knows, with values for the keys that the type leaves
 * open. After @p type come triples of key (const char *), pointer to the value and value type
 * (int, VALUE_TYPE_*), ended by a NULL key. A pointer to a string value is the string itself.
 * @return the local id of the declaration; 0 on failure, which is logged as a warning.
 */
VARRO2_API guint32 event_producer_register(EventProducer *event_producer, const char *type,
                                           ...) VARRO2_NOEXCEPT G_GNUC_NULL_TERMINATED;

/** event_producer_register() with the callback of event_producer_declare_and_notify(). */
VARRO2_API guint32 event_producer_register_and_notify(EventProducer *event_producer,
                                                      const char *type,
                                                      EventProducerNotifyCallback notify,
                                                      gpointer user_data,
                                                      ...) VARRO2_NOEXCEPT G_GNUC_NULL_TERMINATED;

/** event_producer_register() with the triples in a list: key, pointer to the value, value type as
 * GINT_TO_POINTER(). The list stays the caller's. */
VARRO2_API guint32 event_producer_register_list(EventProducer *event_producer, const char *type,
                                                GList *list) VARRO2_NOEXCEPT;

/** event_producer_register_list() with the callback of event_producer_declare_and_notify(). */
VARRO2_API guint32 event_producer_register_and_notify_list(EventProducer *event_producer,
                                                           const char *type,
                                                           EventProducerNotifyCallback notify,
                                                           gpointer user_data,
                                                           GList *list) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
