/**
 * @file producer_bus_client.h
 * Calls to a producer's bus object, made by the switch; one function per method.
 *
 * Each queues the call and returns; a call that cannot be queued is dropped with a warning. The
 * reply handler may be NULL, runs on the thread of the connection and gets the user data back
 * unchanged. Parameters common to all:
 *  - bus: the connection, on whose thread the function runs;
 *  - destination: the producer's bus name;
 *  - object: the producer's object path;
 *  - local_id: the producer's own number for the declaration.
 */
#ifndef VARRO2_PRODUCER_BUS_CLIENT_H
#define VARRO2_PRODUCER_BUS_CLIENT_H

#include <systemd/sd-bus.h>
#include <varro2/macros.h>

G_BEGIN_DECLS

/** Tells the ids that the switch gave a declaration and its producer. */
VARRO2_API void com_quor_Event_Producer_global_declare_id_async(
    sd_bus *bus, const char *destination, const char *object, guint32 local_id, guint32 global_id,
    guint32 producer_id, sd_bus_message_handler_t callback, void *user_data) VARRO2_NOEXCEPT;

/** Tells that the declaration is in force and all its subscriptions have been handed over. */
VARRO2_API void com_quor_Event_Producer_declaration_complete_async(
    sd_bus *bus, const char *destination, const char *object, guint32 local_id, guint32 global_id,
    sd_bus_message_handler_t callback, void *user_data) VARRO2_NOEXCEPT;

/**
 * Hands a subscription over.
 *
 * @param subscribe_expression_data the serialised expression, with subscription id and address.
 */
VARRO2_API void com_quor_Event_Producer_subscribe_async(
    sd_bus *bus, const char *destination, const char *object, GByteArray *subscribe_expression_data,
    guint32 local_id, sd_bus_message_handler_t callback, void *user_data) VARRO2_NOEXCEPT;

/** Asks for the current value of a property to be sent to one subscription again. */
VARRO2_API void com_quor_Event_Producer_refresh_property_async(
    sd_bus *bus, const char *destination, const char *object, guint32 subscription_id,
    guint32 local_id, sd_bus_message_handler_t callback, void *user_data) VARRO2_NOEXCEPT;

/** Takes a subscription back. */
VARRO2_API void com_quor_Event_Producer_unsubscribe_async(sd_bus *bus, const char *destination,
                                                          const char *object,
                                                          guint32 subscription_id, guint32 local_id,
                                                          sd_bus_message_handler_t callback,
                                                          void *user_data) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
