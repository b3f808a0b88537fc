/**
 * @file subscribeexpression.h
 * Which events a consumer wants: an OR of AND lists of key/value tests.
 *
 * Tests are added to the current, that is the last, AND list. An event matches when all tests of at
 * least one list hold. Around the tests the expression carries where matching events go to.
 */
#ifndef VARRO2_SUBSCRIBEEXPRESSION_H
#define VARRO2_SUBSCRIBEEXPRESSION_H

#include <varro2/inspectable.h>
#include <varro2/macros.h>
#include <varro2/xmlnode.h>

G_BEGIN_DECLS

typedef struct SubscribeExpression SubscribeExpression;

/** @return a new expression without tests, not clandestine, owned by the caller. */
VARRO2_API SubscribeExpression *subscribe_expression_new(void) VARRO2_NOEXCEPT;

/**
 * A new expression without tests.
 *
 * @param clandestine whether producers that report on their subscribers leave this one out.
 * @return the expression, owned by the caller.
 */
VARRO2_API SubscribeExpression *subscribe_expression_new_full(gboolean clandestine) VARRO2_NOEXCEPT;

/** Frees the expression. @param se may be NULL. */
VARRO2_API void subscribe_expression_free(SubscribeExpression *se) VARRO2_NOEXCEPT;

/** @return a copy of the whole expression, owned by the caller. */
VARRO2_API SubscribeExpression *
subscribe_expression_copy(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** The id that the switch gave the subscription; 0: none. */
VARRO2_API void subscribe_expression_set_id(SubscribeExpression *se, guint32 id) VARRO2_NOEXCEPT;
VARRO2_API guint32 subscribe_expression_get_id(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** The token under which the consumer knows the subscription; 0: none. */
VARRO2_API void subscribe_expression_set_consumer_token(SubscribeExpression *se,
                                                        guint32 consumer_token) VARRO2_NOEXCEPT;
VARRO2_API guint32 subscribe_expression_get_consumer_token(const SubscribeExpression *se)
    VARRO2_NOEXCEPT;

/** The bus name that matching events are sent to. @param dbus_service is copied. */
VARRO2_API void subscribe_expression_set_dbus_service(SubscribeExpression *se,
                                                      const char *dbus_service) VARRO2_NOEXCEPT;

/** @return the bus name, empty when none was set; valid until it is set again. */
VARRO2_API const char *
subscribe_expression_get_dbus_service(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** The object path that matching events are sent to. @param dbus_object is copied. */
VARRO2_API void subscribe_expression_set_dbus_object(SubscribeExpression *se,
                                                     const char *dbus_object) VARRO2_NOEXCEPT;

/** @return the object path, empty when none was set; valid until it is set again. */
VARRO2_API const char *
subscribe_expression_get_dbus_object(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** Whether reports on subscribers leave this one out; fixed when the expression was made. */
VARRO2_API gboolean subscribe_expression_get_clandestine(const SubscribeExpression *se)
    VARRO2_NOEXCEPT;

/** @return the expression's own tests, owned by the expression. */
VARRO2_API Inspectable *
subscribe_expression_get_inspectable(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/**
 * The tests as plain records.
 *
 * @return a list of the AND lists, the last one first, each a list of KeyValueRaw; owned by the
 *   caller, released with subscribe_expression_free_raw().
 */
VARRO2_API GList *subscribe_expression_get_raw(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** Releases what subscribe_expression_get_raw() returned. @param raw may be NULL. */
VARRO2_API void subscribe_expression_free_raw(GList *raw) VARRO2_NOEXCEPT;

/** The key has this value. @return whether the test was added. */
VARRO2_API gboolean subscribe_expression_add_key_value(SubscribeExpression *se, const char *key,
                                                       const char *value) VARRO2_NOEXCEPT;

/** The key is absent or has another value. @return whether the test was added. */
VARRO2_API gboolean subscribe_expression_add_key_not_value(SubscribeExpression *se, const char *key,
                                                           const char *value) VARRO2_NOEXCEPT;

/** The key is present. @return whether the test was added. */
VARRO2_API gboolean subscribe_expression_add_key(SubscribeExpression *se,
                                                 const char *key) VARRO2_NOEXCEPT;

/** The key is absent. @return whether the test was added. */
VARRO2_API gboolean subscribe_expression_add_not_key(SubscribeExpression *se,
                                                     const char *key) VARRO2_NOEXCEPT;

/** Some key has this value. @return whether the test was added. */
VARRO2_API gboolean subscribe_expression_add_value(SubscribeExpression *se,
                                                   const char *value) VARRO2_NOEXCEPT;

/** No key has this value. @return whether the test was added. */
VARRO2_API gboolean subscribe_expression_add_not_value(SubscribeExpression *se,
                                                       const char *value) VARRO2_NOEXCEPT;

/**
 * The name space that the key of the first test on it in the current AND list must have.
 *
 * @param name_space is copied; NULL stands for none, which any name space matches.
 * @return FALSE when the current AND list has no test on the key.
 */
VARRO2_API gboolean subscribe_expression_set_name_space(SubscribeExpression *se, const char *key,
                                                        const char *name_space) VARRO2_NOEXCEPT;

/** Closes the current AND list; the tests that follow go into a new one. */
VARRO2_API void subscribe_expression_or(SubscribeExpression *se) VARRO2_NOEXCEPT;

/** @return the binary form in a new array, owned by the caller. */
VARRO2_API GByteArray *
subscribe_expression_serialize(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** Appends the binary form. A NULL argument aborts. */
VARRO2_API void subscribe_expression_serialize_internal(const SubscribeExpression *se,
                                                        GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from the start of the array; a malformed one aborts.
 *
 * @return a new expression, owned by the caller.
 */
VARRO2_API SubscribeExpression *
subscribe_expression_deserialize(const GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from where indx stands; a malformed one or a NULL argument aborts.
 *
 * @param indx is moved past what was read.
 * @return a new expression, owned by the caller.
 */
VARRO2_API SubscribeExpression *
subscribe_expression_deserialize_internal(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** @return the tests as a new "subscribe" element, owned by the caller. */
VARRO2_API XmlNode *
subscribe_expression_serialize_xmlnode(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** @return the tests as XML text, newly allocated, released with g_free(). */
VARRO2_API char *subscribe_expression_serialize_xml(const SubscribeExpression *se) VARRO2_NOEXCEPT;

/**
 * Reads the tests from XML text.
 *
 * @return a new expression, owned by the caller; NULL, with a warning, when the text is not one.
 */
VARRO2_API SubscribeExpression *
subscribe_expression_deserialize_xml(const char *xml) VARRO2_NOEXCEPT;

/**
 * Reads the tests from a "subscribe" element.
 *
 * @return a new expression, owned by the caller; NULL, with a warning, when the element is not one.
 */
VARRO2_API SubscribeExpression *
subscribe_expression_deserialize_xmlnode(const XmlNode *node) VARRO2_NOEXCEPT;

/** Logs the expression at message level. */
VARRO2_API void subscribe_expression_print(const SubscribeExpression *se) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
