/**
 * @file inspectable.h
 * The container behind every object of the event model: pairs, grouped by key into buckets, buckets
 * into and-lists, and for subscribe expressions several and-lists joined by OR.
 *
 * These are building blocks: a NULL argument, a wrong type of container and a broken record end the
 * process. An unknown key is no mistake: getters give NULL, setters FALSE.
 *
 * Lookups by key see the current (newest) and-list and the first pair of the key there. Positions
 * run over the keys of the current and-list in order of insertion and hold until the next key is
 * added. A text that is lent stays valid until that pair is changed or the container is freed, also
 * when other keys are added or set meanwhile.
 *
 * Functions on a `const Inspectable *` only read: several threads may call them on one container.
 */
#ifndef VARRO2_INSPECTABLE_H
#define VARRO2_INSPECTABLE_H

#include <varro2/keyvalue.h>
#include <varro2/macros.h>
#include <varro2/xmlnode.h>

G_BEGIN_DECLS

typedef struct Inspectable Inspectable;

/** What a container is the content of. */
enum { IT_EVENT_DECLARATION = 0, IT_EVENT = 1, IT_SUBSCRIBE_EXPRESSION = 2, IT_PROPERTY_STATE = 3 };

/** The position that inspectable_get_index() gives for an unknown key. */
#define INSPECTABLE_NO_INDEX 0xFFFFFFFFu

/* ---- Life ---- */

/** A new container with one empty and-list. Free it with inspectable_free(). */
VARRO2_API Inspectable *inspectable_new(guint32 type) VARRO2_NOEXCEPT;

/** Frees a container made by this file's functions, never one that an object lends. NULL is
 * accepted. */
VARRO2_API void inspectable_free(Inspectable *inspect) VARRO2_NOEXCEPT;

/** A new deep copy of source as a container of new_type. */
VARRO2_API Inspectable *inspectable_copy(const Inspectable *source,
                                         guint32 new_type) VARRO2_NOEXCEPT;

/**
 * Opens a new and-list, joined to the ones before by OR. Only for subscribe expressions; for others
 * a warning and FALSE.
 */
VARRO2_API gboolean inspectable_or(Inspectable *inspect) VARRO2_NOEXCEPT;

/* ---- Adding and changing ---- */

/**
 * Adds a pair to the current and-list and returns TRUE. The key may be NULL with key_wildcard, the
 * value with value_wildcard; not both wildcards. Any key is for subscribe expressions only. In a
 * declaration a key that is there is replaced and keeps its place; in an event or property state
 * the key must be new; in a subscribe expression the tests of a key add up.
 */
VARRO2_API gboolean inspectable_add_key_value(Inspectable *inspect, const char *key,
                                              gboolean key_wildcard, const char *value,
                                              gboolean value_wildcard,
                                              gboolean negated) VARRO2_NOEXCEPT;

/**
 * Sets the value of an open key of an event or declaration from the value at `value`, read by the
 * key's type: gint32, gboolean or double by address, a text itself. FALSE when the key is unknown
 * or was never open.
 */
VARRO2_API gboolean inspectable_set_value(Inspectable *inspect, const char *key,
                                          gconstpointer value) VARRO2_NOEXCEPT;

/** The same from a text that is stored as it is. */
VARRO2_API gboolean inspectable_set_value_as_string(Inspectable *inspect, const char *key,
                                                    const char *value) VARRO2_NOEXCEPT;

/** Sets the producer's own text for a value, NULL for none. Declarations only. */
VARRO2_API gboolean inspectable_set_value_user_string(Inspectable *inspect, const char *key,
                                                      const char *user_string) VARRO2_NOEXCEPT;

/** Sets the display names that are not NULL. Declarations only. */
VARRO2_API gboolean inspectable_set_nice_names(Inspectable *inspect, const char *key,
                                               const char *key_nice_name,
                                               const char *value_nice_name) VARRO2_NOEXCEPT;

/** Sets a key's name space, NULL for none. Not for events. */
VARRO2_API gboolean inspectable_set_name_space(Inspectable *inspect, const char *key,
                                               const char *name_space) VARRO2_NOEXCEPT;

/** Sets a key's complex type name, NULL for none. Not for events. */
VARRO2_API gboolean inspectable_set_complex_type_name(Inspectable *inspect, const char *key,
                                                      const char *name) VARRO2_NOEXCEPT;

/** Sets the value type, VALUE_TYPE_INT to VALUE_TYPE_STRING, of a key that must be there.
 * Declarations only. Returns TRUE. */
VARRO2_API gboolean inspectable_set_value_type(Inspectable *inspect, const char *key,
                                               guint32 value_type) VARRO2_NOEXCEPT;

/** Sets the internal flag and returns TRUE. */
VARRO2_API gboolean inspectable_set_internal(Inspectable *inspect,
                                             gboolean internal) VARRO2_NOEXCEPT;

/** Adds a tag to a key unless the key has it. Not for subscribe expressions. */
VARRO2_API gboolean inspectable_add_key_tag(Inspectable *inspect, const char *key,
                                            const char *tag) VARRO2_NOEXCEPT;

/** Appends a tag to the object's own and returns TRUE. Declarations and events only. */
VARRO2_API gboolean inspectable_add_tag(Inspectable *inspect, const char *tag) VARRO2_NOEXCEPT;

/* ---- Reading by key: what is lent belongs to the container, NULL for an unknown key ---- */

/** The first pair of the key. It can be given tags by key_value_add_tag() and key_value_give_tag();
 * everything else of it is changed through the container only. */
VARRO2_API KeyValue *inspectable_get_key_value(const Inspectable *inspect,
                                               const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_value(const Inspectable *inspect,
                                             const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_name_space(const Inspectable *inspect,
                                                  const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_complex_type_name(const Inspectable *inspect,
                                                         const char *key) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_value_user_string(const Inspectable *inspect,
                                                         const char *key) VARRO2_NOEXCEPT;
/** Events only. */
VARRO2_API const char *inspectable_get_key_nice_name(const Inspectable *inspect,
                                                     const char *key) VARRO2_NOEXCEPT;
/** Events only. */
VARRO2_API const char *inspectable_get_value_nice_name(const Inspectable *inspect,
                                                       const char *key) VARRO2_NOEXCEPT;

/* ---- The object's own ---- */

VARRO2_API gboolean inspectable_get_internal(const Inspectable *inspect) VARRO2_NOEXCEPT;

/** A new list of copies of the object's tags, the last one first. The caller frees both. */
VARRO2_API GList *inspectable_get_tags(const Inspectable *inspect) VARRO2_NOEXCEPT;

VARRO2_API gboolean inspectable_has_tag(const Inspectable *inspect,
                                        const char *tag) VARRO2_NOEXCEPT;

/* ---- Reading by position, from 0. Events and property states, where nothing else is said. A
 *      position that is not there gives NULL, 0 or FALSE. A declaration that was read from its
 *      binary form answers as if it had no keys until one is added. ---- */

VARRO2_API guint32 inspectable_get_key_count(const Inspectable *inspect) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_key_at(const Inspectable *inspect,
                                              guint32 position) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_value_at(const Inspectable *inspect,
                                                guint32 position) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_name_space_at(const Inspectable *inspect,
                                                     guint32 position) VARRO2_NOEXCEPT;
VARRO2_API const char *inspectable_get_complex_type_name_at(const Inspectable *inspect,
                                                            guint32 position) VARRO2_NOEXCEPT;

/** A new list of copies of the key's tags, the last one first. The caller frees both. */
VARRO2_API GList *inspectable_get_tags_at(const Inspectable *inspect,
                                          guint32 position) VARRO2_NOEXCEPT;

VARRO2_API gboolean inspectable_has_tag_at(const Inspectable *inspect, guint32 position,
                                           const char *tag) VARRO2_NOEXCEPT;

/** Whether any key has the tag. Declarations too. */
VARRO2_API gboolean inspectable_has_keyvalue_with_tag(const Inspectable *inspect,
                                                      const char *tag) VARRO2_NOEXCEPT;

/** The position of the key, or INSPECTABLE_NO_INDEX. Events only. */
VARRO2_API guint32 inspectable_get_index(const Inspectable *inspect,
                                         const char *key) VARRO2_NOEXCEPT;

/** Whether the key there has its value: FALSE only while an open one is unset. Events only. */
VARRO2_API gboolean inspectable_has_value_at(const Inspectable *inspect,
                                             guint32 position) VARRO2_NOEXCEPT;

/** The value type, VALUE_TYPE_INT to VALUE_TYPE_STRING. Events only. */
VARRO2_API guint32 inspectable_get_type_at(const Inspectable *inspect,
                                           guint32 position) VARRO2_NOEXCEPT;

/**
 * Converts the value by its type and stores it at `out`: a gint32, gboolean, double, or const char
 * * (lent). FALSE leaves `out` untouched. A boolean that is neither "1" nor "0" ends the process.
 * Events only.
 */
VARRO2_API gboolean inspectable_get_typed_value_at(const Inspectable *inspect, guint32 position,
                                                   gpointer out) VARRO2_NOEXCEPT;

/* ---- Matching ---- */

/**
 * Whether the container (an event or declaration) satisfies the tests of containee (a subscribe
 * expression): all tests of at least one of its and-lists. Values are compared as texts; an empty
 * name space of a test fits any; an open value of a declaration fits any plain test.
 */
VARRO2_API gboolean inspectable_contains(const Inspectable *container,
                                         const Inspectable *containee) VARRO2_NOEXCEPT;

/** Whether two containers of one type hold the same, in any order of and-lists and tags. */
VARRO2_API gboolean inspectable_is_equal(const Inspectable *inspect1,
                                         const Inspectable *inspect2) VARRO2_NOEXCEPT;

/** Whether every open key has got its value. Events and declarations only. */
VARRO2_API gboolean inspectable_is_complete(const Inspectable *inspect) VARRO2_NOEXCEPT;

/* ---- External forms ---- */

/** Appends the container's record. */
VARRO2_API void inspectable_serialize_internal(const Inspectable *inspect,
                                               GByteArray *array) VARRO2_NOEXCEPT;

/** A new container from the record at *indx, which moves past it. */
VARRO2_API Inspectable *inspectable_deserialize_internal(const GByteArray *array,
                                                         guint32 *indx) VARRO2_NOEXCEPT;

/** A new element without a name, for the caller to name and free with xmlnode_free_tree(). */
VARRO2_API XmlNode *inspectable_serialize_xml(const Inspectable *insp) VARRO2_NOEXCEPT;

/** A new container from the children of node, or NULL after a warning that says why. */
VARRO2_API Inspectable *inspectable_deserialize_xml(const XmlNode *node,
                                                    guint32 type) VARRO2_NOEXCEPT;

/** Logs every pair and tag at message level. */
VARRO2_API void inspectable_print(const Inspectable *inspect) VARRO2_NOEXCEPT;

/**
 * A new list with one list of KeyValueRaw for each and-list: the last and-list first, in each the
 * tests for any key first and the last added of either kind before the ones added earlier. Free it
 * with inspectable_free_raw().
 */
VARRO2_API GList *inspectable_get_raw(const Inspectable *inspect) VARRO2_NOEXCEPT;

/** Frees what inspectable_get_raw() gave. NULL is accepted. */
VARRO2_API void inspectable_free_raw(GList *raw) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
