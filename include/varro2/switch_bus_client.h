/**
 * @file switch_bus_client.h
 * Calls to the event switch, one function per method.
 *
 * The asynchronous ones queue the call and return; a call that cannot be queued is dropped with a
 * warning. Their reply handler may be NULL, runs on the thread of the connection and gets the
 * user data back unchanged. The synchronous ones block for at most 60 seconds and return what
 * sd_bus_call() returned: 0 or more, or a negative errno with `error` filled by sd-bus. A missing
 * bus or payload gives -1 and a critical log line; `error` and the outputs are untouched then.
 *
 * All of them run on the thread of the connection that they are given.
 */
#ifndef VARRO2_SWITCH_BUS_CLIENT_H
#define VARRO2_SWITCH_BUS_CLIENT_H

#include <systemd/sd-bus.h>
#include <varro2/macros.h>

G_BEGIN_DECLS

/**
 * Declares an event.
 *
 * @param object the producer's object path.
 * @param name the producer's name.
 * @param declaration the serialised declaration.
 */
VARRO2_API void com_quor_Event_Switch_Producer_declare_async(sd_bus *bus, const char *object,
                                                             const char *name,
                                                             GByteArray *declaration,
                                                             sd_bus_message_handler_t callback,
                                                             void *user_data) VARRO2_NOEXCEPT;

/** Withdraws a declaration. @param object the producer's object path. */
VARRO2_API void com_quor_Event_Switch_Producer_undeclare_async(sd_bus *bus, const char *object,
                                                               guint32 global_id,
                                                               sd_bus_message_handler_t callback,
                                                               void *user_data) VARRO2_NOEXCEPT;

/**
 * Stores a declaration as a type that other producers can register.
 *
 * @param type the name of the type.
 * @param declaration the serialised declaration.
 */
VARRO2_API void com_quor_Event_Switch_Producer_add_declaration_async(
    sd_bus *bus, const char *type, GByteArray *declaration, sd_bus_message_handler_t callback,
    void *user_data) VARRO2_NOEXCEPT;

/** Removes a stored type. @param type the name of the type. */
VARRO2_API void
com_quor_Event_Switch_Producer_remove_declaration_async(sd_bus *bus, const char *type,
                                                        sd_bus_message_handler_t callback,
                                                        void *user_data) VARRO2_NOEXCEPT;

/** Takes leave of a producer. @param object the producer's object path. */
VARRO2_API void com_quor_Event_Switch_Producer_disconnect_async(sd_bus *bus, const char *object,
                                                                sd_bus_message_handler_t callback,
                                                                void *user_data) VARRO2_NOEXCEPT;

/**
 * Subscribes.
 *
 * @param object the consumer's object path.
 * @param name the consumer's name.
 * @param token the consumer's own number for the subscription.
 * @param subscribe_expression_data the serialised subscribe expression.
 */
VARRO2_API void
com_quor_Event_Switch_Consumer_subscribe_async(sd_bus *bus, const char *object, const char *name,
                                               guint32 token, GByteArray *subscribe_expression_data,
                                               sd_bus_message_handler_t callback,
                                               void *user_data) VARRO2_NOEXCEPT;

/** Ends a subscription. @param object the consumer's object path. */
VARRO2_API void com_quor_Event_Switch_Consumer_unsubscribe_async(sd_bus *bus, const char *object,
                                                                 guint32 token,
                                                                 sd_bus_message_handler_t callback,
                                                                 void *user_data) VARRO2_NOEXCEPT;

/** Asks for the current property values again. @param object the consumer's object path. */
VARRO2_API void com_quor_Event_Switch_Consumer_refresh_property_async(
    sd_bus *bus, const char *object, guint32 token, sd_bus_message_handler_t callback,
    void *user_data) VARRO2_NOEXCEPT;

/** Takes leave of a consumer. @param object the consumer's object path. */
VARRO2_API void com_quor_Event_Switch_Consumer_disconnect_async(sd_bus *bus, const char *object,
                                                                sd_bus_message_handler_t callback,
                                                                void *user_data) VARRO2_NOEXCEPT;

/**
 * Asks for the state of a property. Blocks.
 *
 * @param subscribe_expression_data the serialised subscribe expression.
 * @param error is filled by sd-bus on failure and released by the caller; may be NULL.
 * @param data is set on success to the serialised property state, released with g_free(); NULL
 *   when it is empty.
 * @param length is set on success, in bytes.
 */
VARRO2_API int com_quor_Event_Switch_Consumer_get_property_state(
    sd_bus *bus, GByteArray *subscribe_expression_data, sd_bus_error *error, guint8 **data,
    gsize *length) VARRO2_NOEXCEPT;

/**
 * Asks for all declarations. Blocks.
 *
 * @param error is filled by sd-bus on failure and released by the caller; may be NULL.
 * @param data is set on success to the serialised list, released with g_free(); NULL when it is
 *   empty.
 * @param length is set on success, in bytes.
 */
VARRO2_API int com_quor_Event_Switch_Query_get_all_declarations(sd_bus *bus, sd_bus_error *error,
                                                                guint8 **data,
                                                                gsize *length) VARRO2_NOEXCEPT;

/**
 * Asks for all declaration types. Blocks.
 *
 * @param error is filled by sd-bus on failure and released by the caller; may be NULL.
 * @param reply is set on success to the reply, whose "ay" the caller reads and which the caller
 *   releases with sd_bus_message_unref().
 */
VARRO2_API int
com_quor_Event_Switch_Query_get_declaration_types(sd_bus *bus, sd_bus_error *error,
                                                  sd_bus_message **reply) VARRO2_NOEXCEPT;

/** Makes the switch log its state. Blocks. @param error as above. */
VARRO2_API int com_quor_Event_Switch_debug(sd_bus *bus, sd_bus_error *error) VARRO2_NOEXCEPT;

/** Ends the switch. Blocks. @param error as above. */
VARRO2_API int com_quor_Event_Switch_quit(sd_bus *bus, sd_bus_error *error) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
