/**
 * @file asyncproducer.h
 * Event producers (eventproducer.h) for applications that want every result through a callback.
 *
 * No call waits for the bus or for the main-context thread. All callbacks run on that thread, in
 * the order of the calls that caused them. A handle made here may be handed to the functions of
 * eventproducer.h once its setup callback has been called.
 */
#ifndef VARRO2_ASYNCPRODUCER_H
#define VARRO2_ASYNCPRODUCER_H

#include <varro2/eventproducer.h>
#include <varro2/eventproducer_int.h>

G_BEGIN_DECLS

/**
 * Makes a producer and queues its whole set-up.
 * @param name copied.
 * @param setup_callback told of the end; may be NULL, then a failure is logged at critical level.
 * @param subscribers_changed as in event_producer_new_full(); may be NULL.
 * @param user_data for both callbacks.
 * @return a new handle, for async_producer_free(); NULL without a name.
 */
VARRO2_API EventProducer *async_producer_new(const char *name,
                                             EventProducerSetupCallback setup_callback,
                                             ProducerSubscribersChanged subscribers_changed,
                                             gpointer user_data) VARRO2_NOEXCEPT;

/** Queues the end of a handle. @p done_callback may be NULL; it marks the end and gets the former
 * address. A NULL handle is ignored. */
VARRO2_API void async_producer_free(EventProducer *event_producer,
                                    EventProducerDoneCallback done_callback,
                                    gpointer user_data) VARRO2_NOEXCEPT;

/**
 * Declares a kind of event.
 * @param declaration copied.
 * @param declared_callback called just before the declaration goes to the switch; may be NULL.
 * @param notify called once when the switch has taken the declaration in; may be NULL.
 * @param user_data for both callbacks.
 * @param error may be NULL; as for event_producer_int_get_decl_id().
 * @return the local id of the declaration; 0 on failure, which is not logged.
 */
VARRO2_API guint32 async_producer_declare(EventProducer *event_producer,
                                          const EventDeclaration *declaration,
                                          EventProducerDeclaredCallback declared_callback,
                                          EventProducerNotifyCallback notify, gpointer user_data,
                                          GError **error) VARRO2_NOEXCEPT;

/** Declares an event of a type that the system knows: event_producer_register() with the callbacks
 * and the error slot of async_producer_declare(). The triples follow @p error. */
VARRO2_API guint32 async_producer_register(EventProducer *event_producer, const char *type,
                                           EventProducerDeclaredCallback declared_callback,
                                           EventProducerNotifyCallback notify, gpointer user_data,
                                           GError **error,
                                           ...) VARRO2_NOEXCEPT G_GNUC_NULL_TERMINATED;

/** async_producer_register() with the triples of event_producer_register_list(). */
VARRO2_API guint32 async_producer_register_list(EventProducer *event_producer, const char *type,
                                                EventProducerDeclaredCallback declared_callback,
                                                EventProducerNotifyCallback notify,
                                                gpointer user_data, GList *list,
                                                GError **error) VARRO2_NOEXCEPT;

/** async_producer_register() with the triples as made by
 * event_producer_int_parse_register_valist(). The list stays the caller's. */
VARRO2_API guint32 async_producer_register_string_list(
    EventProducer *event_producer, const char *type,
    EventProducerDeclaredCallback declared_callback, EventProducerNotifyCallback notify,
    gpointer user_data, GList *list, GError **error) VARRO2_NOEXCEPT;

/** Withdraws a declaration. @p callback may be NULL; it gets EVENT_ERROR_NOT_REGISTERED for an
 * unknown id. */
VARRO2_API void async_producer_undeclare(EventProducer *event_producer, guint32 local_declare_id,
                                         EventProducerUndeclareCallback callback,
                                         gpointer user_data) VARRO2_NOEXCEPT;

/** event_producer_prepare_event(), answered at once. Until the declaration was recorded on the
 * main-context thread there is no event. */
VARRO2_API Event *async_producer_prepare_event(EventProducer *event_producer,
                                               guint32 local_declare_id) VARRO2_NOEXCEPT;

/**
 * Sends a copy of an event, as it is now.
 * @param event stays the caller's; its address comes back in the callback.
 * @param send_callback gets every failure that event_producer_send_event() reports; may be NULL.
 */
VARRO2_API void async_producer_send_event(EventProducer *event_producer, const Event *event,
                                          EventProducerSendCallback send_callback,
                                          gpointer user_data) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
