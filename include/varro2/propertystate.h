/**
 * @file propertystate.h
 * One state of a property, and the two expressions that follow the property.
 *
 * A property state is a set of keys with fixed values, one of which is the state key. From it come
 * an expression that matches events of exactly this state, and an inverted one that matches events
 * of the same property in any other state. Once these exist the keys are settled.
 */
#ifndef VARRO2_PROPERTYSTATE_H
#define VARRO2_PROPERTYSTATE_H

#include <varro2/inspectable.h>
#include <varro2/macros.h>
#include <varro2/subscribeexpression.h>
#include <varro2/xmlnode.h>

G_BEGIN_DECLS

typedef struct PropertyState PropertyState;

/** @return a new property state without keys, owned by the caller. */
VARRO2_API PropertyState *property_state_new(void) VARRO2_NOEXCEPT;

/** Frees the property state together with its expressions. @param prop may be NULL. */
VARRO2_API void property_state_free(PropertyState *prop) VARRO2_NOEXCEPT;

/**
 * Adds a key with its value.
 *
 * @param property_state whether this is the state key.
 * @return FALSE when the key is there already, when there is a state key already and this is to be
 *   one, or (with a message) when the expressions have been made.
 */
VARRO2_API gboolean property_state_add_key_value(PropertyState *self, const char *key,
                                                 const char *value,
                                                 gboolean property_state) VARRO2_NOEXCEPT;

/**
 * The name space of a key. Expressions that have been made already stay as they are.
 *
 * @param name_space is copied; NULL stands for none.
 * @return FALSE when there is no such key.
 */
VARRO2_API gboolean property_state_set_name_space(PropertyState *self, const char *key,
                                                  const char *name_space) VARRO2_NOEXCEPT;

/**
 * The expression that matches events of exactly this state. The first call makes both expressions;
 * no key can be added from then on.
 *
 * @return the expression, owned by the property state.
 */
VARRO2_API SubscribeExpression *
property_state_get_subscribe_expression(PropertyState *self) VARRO2_NOEXCEPT;

/**
 * The expression that matches events of this property in any other state. The first call makes both
 * expressions; no key can be added from then on.
 *
 * @return the expression, owned by the property state.
 */
VARRO2_API SubscribeExpression *
property_state_get_inverted_subscribe_expression(PropertyState *self) VARRO2_NOEXCEPT;

/**
 * Makes one of the two expressions from the keys as they are now; settles nothing.
 *
 * @return a new expression, owned by the caller.
 */
VARRO2_API SubscribeExpression *
property_state_to_subscribe_expression(const PropertyState *prop,
                                       gboolean inverted) VARRO2_NOEXCEPT;

/** @return the keys, owned by the property state. */
VARRO2_API Inspectable *property_state_get_inspectable(const PropertyState *prop) VARRO2_NOEXCEPT;

/** @return the binary form in a new array, owned by the caller. */
VARRO2_API GByteArray *property_state_serialize(const PropertyState *prop) VARRO2_NOEXCEPT;

/** Appends the binary form. A NULL argument aborts. */
VARRO2_API void property_state_serialize_internal(const PropertyState *prop,
                                                  GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from the start of the array, and makes the expressions; a malformed one
 * aborts.
 *
 * @return a new property state, owned by the caller.
 */
VARRO2_API PropertyState *property_state_deserialize(const GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from where indx stands, and makes the expressions; a malformed one or a
 * NULL argument aborts.
 *
 * @param indx is moved past what was read.
 * @return a new property state, owned by the caller.
 */
VARRO2_API PropertyState *property_state_deserialize_internal(const GByteArray *array,
                                                              guint32 *indx) VARRO2_NOEXCEPT;

/** @return the keys as a new "property" element, owned by the caller. */
VARRO2_API XmlNode *property_state_serialize_xmlnode(const PropertyState *prop) VARRO2_NOEXCEPT;

/** @return the keys as XML text, newly allocated, released with g_free(). */
VARRO2_API char *property_state_serialize_xml(const PropertyState *prop) VARRO2_NOEXCEPT;

/**
 * Reads the keys from XML text, and makes the expressions.
 *
 * @return a new property state, owned by the caller; NULL, with a warning, when the text is not one
 *   or has not exactly one state key.
 */
VARRO2_API PropertyState *property_state_deserialize_xml(const char *xml) VARRO2_NOEXCEPT;

/**
 * Reads the keys from a "property" element, and makes the expressions.
 *
 * @return a new property state, owned by the caller; NULL, with a warning, when the element is not
 *   one or has not exactly one state key.
 */
VARRO2_API PropertyState *property_state_deserialize_xmlnode(const XmlNode *node) VARRO2_NOEXCEPT;

/** Logs the property state at message level. */
VARRO2_API void property_state_print(const PropertyState *prop) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
