/**
 * @file error.h
 * The error domain and its codes.
 *
 * The library and the switch share the numbers; on the bus each code travels as the error name
 * "com.quor.Event.Error." followed by the name given beside it.
 */
#ifndef VARRO2_ERROR_H
#define VARRO2_ERROR_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** Codes in the domain event_error_quark(). 0 and 3 are never used. */
typedef enum {
  EVENT_ERROR_NULL = 1,                       /**< "Null": a required object was NULL. */
  EVENT_ERROR_DBUS_FAILED = 2,                /**< "DbusFailed": a bus call failed. */
  EVENT_ERROR_NO_SUBSCR = 4,                  /**< "NoSubscr": unknown subscription token. */
  EVENT_ERROR_NOT_REGISTERED = 5,             /**< "NotRegistered": unknown to the switch. */
  EVENT_ERROR_NOT_MATCHING = 6,               /**< "NotMatching": event and declaration differ. */
  EVENT_ERROR_INCOMPLETE = 7,                 /**< "Incomplete": required values are missing. */
  EVENT_ERROR_LOOKING_UP_PROP_STATE = 8,      /**< "LookingUpPropState": no property state. */
  EVENT_ERROR_FILE = 9,                       /**< "File": file access failed. */
  EVENT_ERROR_ALREADY_EXISTS = 10,            /**< "AlreadyExists": the object exists. */
  EVENT_ERROR_ERROR_ALREADY_SET = 11,         /**< "ErrorAlreadySet": the slot held an error. */
  EVENT_ERROR_INVALID_TYPE = 12,              /**< "InvalidType": invalid subscription type. */
  EVENT_ERROR_REGISTRATION_UNKNOWN_TYPE = 13, /**< "RegistrationUnknownType". */
  EVENT_ERROR_REGISTRATION_PROP_STATE = 14,   /**< "RegistrationPropState". */
  EVENT_ERROR_REGISTRATION_UNKNOWN_KEY = 15,  /**< "RegistrationUnknownKey". */
  EVENT_ERROR_REGISTRATION_UNPARSED_KEY = 16  /**< "RegistrationUnparsedKey". */
} EventErrorCode;

/** The domain of the codes above, for g_error_matches(). Any thread. */
static inline GQuark event_error_quark(void) {
  return g_quark_from_static_string("event-error-quark");
}

G_END_DECLS

#endif
