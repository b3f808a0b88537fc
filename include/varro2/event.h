/**
 * @file event.h
 * One occurrence that a producer sends and consumers receive.
 *
 * An event holds the key/value pairs of the declaration that it was generated from, with their
 * values filled in, the ids of declaration and producer, a timestamp and, where the producer has
 * more to say, a block of bytes.
 *
 * A NULL argument that is not allowed is logged at critical level; the function then changes
 * nothing and returns 0, FALSE or NULL. A text that is lent stays valid until the value of that key
 * is changed or the event is freed.
 */
#ifndef VARRO2_EVENT_H
#define VARRO2_EVENT_H

#include <varro2/inspectable.h>
#include <varro2/jsonoptions.h>
#include <varro2/macros.h>
#include <varro2/subscribeexpression.h>

G_BEGIN_DECLS

typedef struct Event Event;

/* ---- Life ---- */

/** @return a new event without keys, timestamp, user data or ids, owned by the caller. */
VARRO2_API Event *event_new(void) VARRO2_NOEXCEPT;

/** Frees the event. @param event may be NULL. */
VARRO2_API void event_free(Event *event) VARRO2_NOEXCEPT;

/** @return a copy of the whole event, owned by the caller; the two share the timestamp object. */
VARRO2_API Event *event_copy(const Event *event_src) VARRO2_NOEXCEPT;

/* ---- Content ---- */

/** Replaces the keys and tags by a copy of another container's. */
VARRO2_API void event_set_inspectable(Event *event, const Inspectable *inspect) VARRO2_NOEXCEPT;

/** @return the event's own container, owned by the event. */
VARRO2_API Inspectable *event_get_inspectable(const Event *event) VARRO2_NOEXCEPT;

/** Whether the event reports the state of a property. */
VARRO2_API void event_set_property(Event *event, gboolean property) VARRO2_NOEXCEPT;
VARRO2_API gboolean event_is_property(const Event *event) VARRO2_NOEXCEPT;

/** The id of the producer that sent the event; 0: none. */
VARRO2_API void event_set_producer_id(Event *event, guint32 producer_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 event_get_producer_id(const Event *event) VARRO2_NOEXCEPT;

/** The id of the declaration at the switch; 0: none. */
VARRO2_API void event_set_global_id(Event *event, guint32 global_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 event_get_global_id(const Event *event) VARRO2_NOEXCEPT;

/** The id of the declaration at its producer; 0: none. */
VARRO2_API void event_set_local_id(Event *event, guint32 local_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 event_get_local_id(const Event *event) VARRO2_NOEXCEPT;

/** Whether the event is meant for the device itself only. */
VARRO2_API gboolean event_is_internal(const Event *event) VARRO2_NOEXCEPT;

/** Whether the event fits the expression. */
VARRO2_API gboolean event_contains(const Event *container,
                                   const SubscribeExpression *containee) VARRO2_NOEXCEPT;

/** Whether every key has a value. */
VARRO2_API gboolean event_is_complete(const Event *event) VARRO2_NOEXCEPT;

/* ---- Timestamp ---- */

/** When the event happened. @param timestamp is shared: the event takes a reference of its own. */
VARRO2_API void event_set_timestamp2(Event *event, GDateTime *timestamp) VARRO2_NOEXCEPT;

/** @return the timestamp, owned by the event; NULL when none is set. */
VARRO2_API GDateTime *event_get_timestamp2(const Event *event) VARRO2_NOEXCEPT;

G_GNUC_BEGIN_IGNORE_DEPRECATIONS
/** The same in seconds and microseconds since 1970, UTC. A time outside the years 1 to 9999 is
 * refused as a missing one would be. */
VARRO2_API void event_set_timestamp(Event *event, GTimeVal timestamp) VARRO2_NOEXCEPT;

/** @return seconds and microseconds since 1970, UTC; {0, 0} when no timestamp is set, or one that
 * the seconds cannot hold: after January 2038 where a long has 32 bits. */
VARRO2_API GTimeVal event_get_timestamp(const Event *event) VARRO2_NOEXCEPT;
G_GNUC_END_IGNORE_DEPRECATIONS

/* ---- User data ---- */

/**
 * Replaces the producer's own block of bytes.
 *
 * @param user_data is copied.
 * @param size in bytes, not 0. Blocks above 65535 bytes do not survive the way over the bus.
 */
VARRO2_API void event_set_user_data(Event *event, const void *user_data,
                                    guint size) VARRO2_NOEXCEPT;

/** @return a new copy of the block, released with g_free(); NULL when there is none. */
VARRO2_API void *event_get_user_data(const Event *event) VARRO2_NOEXCEPT;

/** Stores a text together with its NUL. @param string is copied. */
VARRO2_API void event_set_user_data_string(Event *event, const char *string) VARRO2_NOEXCEPT;

/** @return a new copy of the block, released with g_free(); NULL when there is none. */
VARRO2_API char *event_get_user_data_string(const Event *event) VARRO2_NOEXCEPT;

/* ---- By key: NULL or FALSE for a key that is not there; texts are owned by the event ---- */

/**
 * Sets the value of a key that was added without one.
 *
 * @param value points to a gint32, gboolean or double, or is the text itself, as the key's value
 *   type says; it is copied.
 * @return FALSE when the key is unknown or was added with its value.
 */
VARRO2_API gboolean event_set_value(Event *event, const char *key,
                                    const void *value) VARRO2_NOEXCEPT;

/** @return the value as text; empty while it is not set. */
VARRO2_API const char *event_get_value(const Event *event, const char *key) VARRO2_NOEXCEPT;

/**
 * Converts a value.
 *
 * @param data receives a gint32, gboolean, double or `const char *` (owned by the event), as the
 *   key's value type says; untouched when the result is FALSE.
 */
VARRO2_API gboolean event_get_typed_value(const Event *event, const char *key,
                                          void *data) VARRO2_NOEXCEPT;

VARRO2_API const char *event_get_name_space(const Event *event, const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_complex_type_name(const Event *event,
                                                   const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_value_user_string(const Event *event,
                                                   const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_key_nice_name(const Event *event, const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_value_nice_name(const Event *event,
                                                 const char *key) VARRO2_NOEXCEPT;

/** @return the position of the key; INSPECTABLE_NO_INDEX when it is not there. */
VARRO2_API guint32 event_get_index(const Event *event, const char *key) VARRO2_NOEXCEPT;

/* ---- By position, from 0: NULL, 0 or FALSE for a position that is not there ---- */

VARRO2_API guint32 event_get_key_count(const Event *event) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_key_at(const Event *event, guint32 position) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_name_space_at(const Event *event,
                                               guint32 position) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_complex_type_name_at(const Event *event,
                                                      guint32 position) VARRO2_NOEXCEPT;
VARRO2_API const char *event_get_value_at(const Event *event, guint32 position) VARRO2_NOEXCEPT;

/** @return VALUE_TYPE_INT to VALUE_TYPE_STRING. */
VARRO2_API guint32 event_get_type_at(const Event *event, guint32 position) VARRO2_NOEXCEPT;

/** As event_get_typed_value(). */
VARRO2_API gboolean event_get_typed_value_at(const Event *event, guint32 position,
                                             void *data) VARRO2_NOEXCEPT;

/** @return FALSE only while a value that the declaration left open is not set. */
VARRO2_API gboolean event_has_value_at(const Event *event, guint32 position) VARRO2_NOEXCEPT;

/* ---- Tags ---- */

/** @return a new list of new texts, released with g_list_free_full() and g_free(); NULL: none. */
VARRO2_API GList *event_get_tags(const Event *event) VARRO2_NOEXCEPT;

/** The tags of one key. @return as event_get_tags(). */
VARRO2_API GList *event_get_tags_at(const Event *event, guint32 position) VARRO2_NOEXCEPT;

VARRO2_API gboolean event_has_tag(const Event *event, const char *tag) VARRO2_NOEXCEPT;
VARRO2_API gboolean event_has_tag_at(const Event *event, guint32 position,
                                     const char *tag) VARRO2_NOEXCEPT;

/** @param tag is copied. @return TRUE. */
VARRO2_API gboolean event_add_tag(Event *event, const char *tag) VARRO2_NOEXCEPT;

/** @param tag is copied. @return FALSE when the key is not there. */
VARRO2_API gboolean event_add_key_tag(Event *event, const char *key,
                                      const char *tag) VARRO2_NOEXCEPT;

/* ---- External forms ---- */

/** @return the binary form in a new array, owned by the caller. */
VARRO2_API GByteArray *event_serialize(const Event *event) VARRO2_NOEXCEPT;

/** Appends the binary form. A NULL argument aborts. */
VARRO2_API void event_serialize_internal(const Event *event, GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from the start of the array; a malformed one aborts.
 *
 * @return a new event, owned by the caller.
 */
VARRO2_API Event *event_deserialize(const GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from where indx stands; a malformed one or a NULL argument aborts.
 *
 * @param indx is moved past what was read.
 * @return a new event, owned by the caller.
 */
VARRO2_API Event *event_deserialize_internal(const GByteArray *array,
                                             guint32 *indx) VARRO2_NOEXCEPT;

/** Logs the event at message level. */
VARRO2_API void event_print(const Event *event) VARRO2_NOEXCEPT;

/**
 * Renders the event in the format that the options name; options may be NULL for the default ones.
 *
 * @return the document, newly allocated, released with free(); NULL when it cannot be rendered.
 */
VARRO2_API char *event_get_json(const Event *event, const JsonOptions *options) VARRO2_NOEXCEPT;

/** The same, always in the tamlo format; here the options must not be NULL. */
VARRO2_API char *event_get_tamlo_json(const Event *event,
                                      const JsonOptions *options) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
