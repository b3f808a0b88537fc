/**
 * @file consumer_bus_client.h
 * Calls to a consumer's bus object; one function per method.
 *
 * Each queues the call and returns; a call that cannot be queued is dropped with a warning. The
 * reply handler may be NULL, runs on the thread of the connection and gets the user data back
 * unchanged. Parameters common to all:
 *  - bus: the connection, on whose thread the function runs;
 *  - destination: the consumer's bus name;
 *  - object: the consumer's object path;
 *  - token: the consumer's own number for the subscription.
 *
 * These are the bare calls: a bus daemon refuses them beyond its limit of unanswered calls.
 */
#ifndef VARRO2_CONSUMER_BUS_CLIENT_H
#define VARRO2_CONSUMER_BUS_CLIENT_H

#include <systemd/sd-bus.h>
#include <varro2/macros.h>

G_BEGIN_DECLS

/** Delivers an event. @param event the serialised event. */
VARRO2_API void com_quor_Event_Consumer_event_async(sd_bus *bus, const char *destination,
                                                    const char *object, GByteArray *event,
                                                    guint32 token,
                                                    sd_bus_message_handler_t callback,
                                                    void *user_data) VARRO2_NOEXCEPT;

/** Delivers a notification. @param notification the serialised notification. */
VARRO2_API void com_quor_Event_Consumer_notification_async(sd_bus *bus, const char *destination,
                                                           const char *object,
                                                           GByteArray *notification, guint32 token,
                                                           sd_bus_message_handler_t callback,
                                                           void *user_data) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
