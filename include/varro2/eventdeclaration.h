/**
 * @file eventdeclaration.h
 * What a producer announces before it sends events: the keys that its events carry.
 *
 * Each key has a value type and either a fixed value or none; what has none is left for every event
 * to fill. A declaration of a property describes a state that can be asked for.
 *
 * A NULL argument that is not allowed is logged at critical level; the function then changes
 * nothing and returns 0, FALSE or NULL. Functions that name a key return FALSE when it is not
 * there.
 */
#ifndef VARRO2_EVENTDECLARATION_H
#define VARRO2_EVENTDECLARATION_H

#include <varro2/event.h>
#include <varro2/inspectable.h>
#include <varro2/macros.h>
#include <varro2/subscribeexpression.h>
#include <varro2/xmlnode.h>

G_BEGIN_DECLS

typedef struct EventDeclaration EventDeclaration;

/**
 * Fills the current values of a property into an event.
 *
 * @param event is owned by the caller of the callback.
 * @return the event; what is returned is not looked at.
 */
typedef Event *(*EventDeclarationPropertyCallback)(Event *event, gpointer user_data);

/* ---- Life ---- */

/**
 * A new declaration without keys or ids.
 *
 * @param internal whether its events are meant for the device itself only.
 * @return the declaration, owned by the caller.
 */
VARRO2_API EventDeclaration *event_declaration_new(gboolean internal) VARRO2_NOEXCEPT;

/** Frees the declaration. @param declaration may be NULL. */
VARRO2_API void event_declaration_free(EventDeclaration *declaration) VARRO2_NOEXCEPT;

/** @return a copy, owned by the caller, with the same property callback and user data. */
VARRO2_API EventDeclaration *
event_declaration_copy(const EventDeclaration *declaration_src) VARRO2_NOEXCEPT;

/**
 * Loads the declaration of a type from the file "TYPE.xml": from
 * /usr/share/event/declarations.d, or from /etc/event_switch/declarations.d when the first folder
 * has no valid one.
 *
 * @param type a name that is empty, begins with "." or holds "/" is no type.
 * @return a new declaration, owned by the caller; NULL when there is none. Files with mistakes are
 *   reported by warnings, missing ones are not.
 */
VARRO2_API EventDeclaration *event_declaration_new_from_type(const char *type) VARRO2_NOEXCEPT;

/* ---- Content ---- */

/** @return the declaration's own container, owned by the declaration. */
VARRO2_API Inspectable *
event_declaration_get_inspectable(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/**
 * Adds a key whose value every event fills in. A key that is there is replaced.
 *
 * @param value_type VALUE_TYPE_INT to VALUE_TYPE_STRING; others are refused with a critical
 * message.
 * @return whether the key was added.
 */
VARRO2_API gboolean event_declaration_add_key(EventDeclaration *declaration, const char *key,
                                              guint32 value_type) VARRO2_NOEXCEPT;

/**
 * Adds a key that has a value from the start.
 *
 * @param value points to a gint32, gboolean or double, or is the text itself, as value_type says;
 * it is copied.
 * @return whether the key was added.
 */
VARRO2_API gboolean event_declaration_add_key_value(EventDeclaration *declaration, const char *key,
                                                    const void *value,
                                                    guint32 value_type) VARRO2_NOEXCEPT;

/** The producer's own text for the value of a key. @param string is copied. */
VARRO2_API gboolean event_declaration_set_value_user_string(EventDeclaration *declaration,
                                                            const char *key,
                                                            const char *string) VARRO2_NOEXCEPT;

/** The names for display. @param key_nice_name, value_nice_name are copied; NULL: left alone. */
VARRO2_API gboolean event_declaration_set_nice_names(EventDeclaration *declaration, const char *key,
                                                     const char *key_nice_name,
                                                     const char *value_nice_name) VARRO2_NOEXCEPT;

/** The name space of a key. @param name_space is copied; NULL: none. */
VARRO2_API gboolean event_declaration_set_name_space(EventDeclaration *declaration, const char *key,
                                                     const char *name_space) VARRO2_NOEXCEPT;

/** The name of the structured type of a key. @param name is copied; NULL: none. */
VARRO2_API gboolean event_declaration_set_complex_type_name(EventDeclaration *declaration,
                                                            const char *key,
                                                            const char *name) VARRO2_NOEXCEPT;

/** Adds a tag to a key. @param tag is copied. */
VARRO2_API gboolean event_declaration_add_key_tag(EventDeclaration *declaration, const char *key,
                                                  const char *tag) VARRO2_NOEXCEPT;

/** Adds a tag to the declaration. @param tag is copied. @return TRUE. */
VARRO2_API gboolean event_declaration_add_tag(EventDeclaration *declaration,
                                              const char *tag) VARRO2_NOEXCEPT;

/** The id that the producer gave; 0: none. */
VARRO2_API void event_declaration_set_local_id(EventDeclaration *declaration,
                                               guint32 local_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 event_declaration_get_local_id(const EventDeclaration *declaration)
    VARRO2_NOEXCEPT;

/** The id that the switch gave; 0: none. */
VARRO2_API void event_declaration_set_global_id(EventDeclaration *declaration,
                                                guint32 global_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 event_declaration_get_global_id(const EventDeclaration *declaration)
    VARRO2_NOEXCEPT;

/** The id of the producer that declared it; 0: none. */
VARRO2_API void event_declaration_set_producer_id(EventDeclaration *declaration,
                                                  guint32 producer_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 event_declaration_get_producer_id(const EventDeclaration *declaration)
    VARRO2_NOEXCEPT;

/** Whether events of this declaration are meant for the device itself only. */
VARRO2_API gboolean event_declaration_is_internal(const EventDeclaration *declaration)
    VARRO2_NOEXCEPT;

/* ---- Properties ---- */

/**
 * Makes the declaration one of a property and sets its hook. The former hook is replaced, also by
 * none: a property without a hook has the values of its declaration.
 *
 * @param key the key that tells the instances of the property apart, gets the tag "property-state";
 *   may be NULL.
 * @param callback fills in the current values, on the thread that asks for them; may be NULL.
 * @param user_data is handed to the callback, kept as it is and never released.
 * @return TRUE; FALSE when the key is not there.
 */
VARRO2_API gboolean event_declaration_set_property(EventDeclaration *declaration, const char *key,
                                                   EventDeclarationPropertyCallback callback,
                                                   gpointer user_data) VARRO2_NOEXCEPT;

/** Whether this is the declaration of a property. */
VARRO2_API gboolean event_declaration_is_property(const EventDeclaration *declaration)
    VARRO2_NOEXCEPT;

/**
 * An event with the property's current values, as the callback fills them in, and the current time
 * unless the callback set one.
 *
 * @return a new event, owned by the caller; NULL when this is no property or a value is missing.
 */
VARRO2_API Event *
event_declaration_get_property_event(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/* ---- Events and matching ---- */

/** @return a new event of this declaration without timestamp, owned by the caller. */
VARRO2_API Event *
event_declaration_generate_event(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/** Whether events of this declaration can fit the expression. */
VARRO2_API gboolean event_declaration_contains(const EventDeclaration *declaration,
                                               const SubscribeExpression *subscribe_expression)
    VARRO2_NOEXCEPT;

/* ---- External forms ---- */

/** @return the binary form in a new array, owned by the caller. */
VARRO2_API GByteArray *
event_declaration_serialize(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/** Appends the binary form. A NULL argument aborts. */
VARRO2_API void event_declaration_serialize_internal(const EventDeclaration *declaration,
                                                     GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from the start of the array; a malformed one aborts. The callback and its
 * user data mean something only in the process that wrote them.
 *
 * @return a new declaration, owned by the caller.
 */
VARRO2_API EventDeclaration *event_declaration_deserialize(const GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from where indx stands; a malformed one or a NULL argument aborts.
 *
 * @param indx is moved past what was read.
 * @return a new declaration, owned by the caller.
 */
VARRO2_API EventDeclaration *event_declaration_deserialize_internal(const GByteArray *array,
                                                                    guint32 *indx) VARRO2_NOEXCEPT;

/** @return the declaration as a new "declare" element, owned by the caller; without ids. */
VARRO2_API XmlNode *
event_declaration_serialize_xmlnode(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/** @return the same as XML text, newly allocated, released with g_free(). */
VARRO2_API char *
event_declaration_serialize_xml(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/**
 * Reads a declaration from XML text. A key with the tag "property-state" makes it one of a
 * property.
 *
 * @return a new declaration, owned by the caller; NULL, with a warning, when the text is not one.
 */
VARRO2_API EventDeclaration *event_declaration_deserialize_xml(const char *xml) VARRO2_NOEXCEPT;

/**
 * Reads a declaration from a "declare" element.
 *
 * @return a new declaration, owned by the caller; NULL, with a warning, when the element is not
 * one.
 */
VARRO2_API EventDeclaration *
event_declaration_deserialize_xmlnode(const XmlNode *node) VARRO2_NOEXCEPT;

/**
 * Reads a declaration from a file.
 *
 * @return a new declaration, owned by the caller; NULL without a message when the file cannot be
 *   loaded, with a warning when it holds no declaration.
 */
VARRO2_API EventDeclaration *
event_declaration_deserialize_xml_file(const char *path) VARRO2_NOEXCEPT;

/** Logs the declaration at message level. */
VARRO2_API void event_declaration_print(const EventDeclaration *declaration) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
