/**
 * @file keyvalue.h
 * One key with its value: a fact of an event, an open or fixed key of a declaration, or one test of
 * a subscribe expression.
 *
 * These are building blocks: a broken precondition ends the process.
 */
#ifndef VARRO2_KEYVALUE_H
#define VARRO2_KEYVALUE_H

#include <varro2/macros.h>
#include <varro2/xmlnode.h>

G_BEGIN_DECLS

/**
 * A pair. The fields are there to be read; what changes them are the functions below and those of
 * the container that owns the pair. Texts are empty where there is none; those handed as NULL to
 * key_value_new() stay NULL and count as empty.
 */
typedef struct KeyValue {
  GQuark key;              /**< Interned key; of the empty text for any key. Never 0. */
  char *value;             /**< Value as text, empty for any value. Never NULL. */
  GList *tags;             /**< Texts (char *) in order of insertion. */
  guint32 value_type;      /**< VALUE_TYPE_INT to VALUE_TYPE_STRING. */
  gboolean value_settable; /**< Made with an open value: one may be set, again and again. */
  char *value_user_string; /**< The producer's own text for the value. */
  char *key_nice_name;     /**< Display name of the key. */
  char *value_nice_name;   /**< Display name of the value. */
  char *name_space;        /**< Name space of the key. */
  char *complex_type_name; /**< Complex type that the key belongs to. */
  gboolean key_wildcard;   /**< The test applies to any key. */
  gboolean value_wildcard; /**< Any value fits, or the value is still to be set. */
  gboolean negated;        /**< The test must not hold. */
  gboolean evaluated;      /**< Kept for the layout; always FALSE. */
  gboolean paired;         /**< Kept for the layout; always FALSE. */
} KeyValue;

/** A plain copy of a pair for callers; all texts are its own, NULL where there is none. */
typedef struct KeyValueRaw {
  char *key;               /**< NULL for any key. */
  char *value;             /**< NULL for any value. */
  char *name_space;        /**< NULL when empty. */
  char *complex_type_name; /**< NULL when empty. */
  gboolean negated;        /**< The test must not hold. */
  GList *tags;             /**< Texts (char *), the last one first. */
} KeyValueRaw;

/**
 * A new pair, or NULL when both wildcards are set; a wildcard is set when it equals TRUE. The key
 * may be NULL with key_wildcard, the value with value_wildcard: then the empty text takes their
 * place. The other texts may be NULL. Free it with key_value_free().
 */
VARRO2_API KeyValue *key_value_new(const char *key, gboolean key_wildcard, const char *name_space,
                                   const char *key_nice_name, const char *value,
                                   gboolean value_wildcard, const char *value_nice_name,
                                   const char *value_user_string, const char *complex_type_name,
                                   gboolean negated) VARRO2_NOEXCEPT;

/** Frees a pair made by this file's functions, never one lent by a container. NULL is accepted. */
VARRO2_API void key_value_free(KeyValue *key_value) VARRO2_NOEXCEPT;

/** A new pair equal to key_value, with its tags once each. Must not be NULL. */
VARRO2_API KeyValue *key_value_copy(const KeyValue *key_value) VARRO2_NOEXCEPT;

/** Appends a copy of tag unless the pair has it. The tag may be NULL, the pair must not. */
VARRO2_API void key_value_add_tag(KeyValue *key_value, const char *tag) VARRO2_NOEXCEPT;

/** Appends tag, which must come from GLib's allocator and then belongs to the pair. The tag may be
 * NULL, the pair must not. */
VARRO2_API void key_value_give_tag(KeyValue *key_value, char *tag) VARRO2_NOEXCEPT;

/** Whether all but value_settable is equal; tags in any order, and a text that is NULL equals only
 * NULL. Neither pair may be NULL. */
VARRO2_API gboolean key_value_is_equal(const KeyValue *key_value1,
                                       const KeyValue *key_value2) VARRO2_NOEXCEPT;

/**
 * One step of matching: holds the test `containee` against the fact `container`. Sets *fail or
 * *matched to TRUE, or neither, and clears none. The container may be NULL: the key is absent.
 * Neither pair may be for any key. Reads only; any number of threads.
 */
VARRO2_API void key_value_is_contained(const KeyValue *container, const KeyValue *containee,
                                       guint32 *fail, guint32 *matched) VARRO2_NOEXCEPT;

/** Appends the pair's record. Neither may be NULL, nor any text of the pair. */
VARRO2_API void key_value_serialize(const KeyValue *key_value, GByteArray *array) VARRO2_NOEXCEPT;

/** A new pair from the record at *indx, which moves past it. Free it with key_value_free(). */
VARRO2_API KeyValue *key_value_deserialize(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** A new element "keyvalue". The caller frees it with xmlnode_free_tree(). */
VARRO2_API XmlNode *key_value_serialize_xml(const KeyValue *key_value) VARRO2_NOEXCEPT;

/**
 * A new pair from an element "keyvalue", which must not be NULL. Another element gives a warning
 * and NULL, one with both wildcards NULL. Free it with key_value_free().
 */
VARRO2_API KeyValue *key_value_deserialize_xml(const XmlNode *node) VARRO2_NOEXCEPT;

/** A new plain copy. Free it with key_value_free_raw(). Must not be NULL. */
VARRO2_API KeyValueRaw *key_value_get_raw(const KeyValue *key_value) VARRO2_NOEXCEPT;

/** Frees a plain copy with its texts. NULL is accepted. */
VARRO2_API void key_value_free_raw(KeyValueRaw *raw) VARRO2_NOEXCEPT;

/** Logs the pair as one line at message level. Must not be NULL. */
VARRO2_API void key_value_print(const KeyValue *key_value) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
