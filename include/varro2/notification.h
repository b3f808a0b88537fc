/**
 * @file notification.h
 * Tells a consumer that a declaration that fits one of its subscriptions came or went.
 */
#ifndef VARRO2_NOTIFICATION_H
#define VARRO2_NOTIFICATION_H

#include <varro2/eventdeclaration.h>
#include <varro2/macros.h>
#include <varro2/subscribeexpression.h>

G_BEGIN_DECLS

typedef struct Notification Notification;

/** What happened to the declaration. Any other number than 0 travels as 1. */
enum { NOTIFY_DECLARATION_ADDED = 0, NOTIFY_DECLARATION_REMOVED = 1 };

/* ---- Life ---- */

/** @return a new notification of an added declaration, all parts missing, owned by the caller. */
VARRO2_API Notification *notification_new(void) VARRO2_NOEXCEPT;

/** Frees the notification. @param notification may be NULL. */
VARRO2_API void notification_free(Notification *notification) VARRO2_NOEXCEPT;

/** @return a copy of the whole, owned by the caller; the two share the timestamp object. */
VARRO2_API Notification *notification_copy(const Notification *notification) VARRO2_NOEXCEPT;

/* ---- User data and timestamp, as those of an event ---- */

/**
 * Replaces the block of bytes.
 *
 * @param user_data is copied.
 * @param size in bytes, not 0. Blocks above 65535 bytes do not survive the way over the bus.
 */
VARRO2_API void notification_set_user_data(Notification *notification, const void *user_data,
                                           guint size) VARRO2_NOEXCEPT;

/** @return a new copy of the block, released with g_free(); NULL when there is none. */
VARRO2_API void *notification_get_user_data(const Notification *notification) VARRO2_NOEXCEPT;

/** Stores a text together with its NUL. @param string is copied. */
VARRO2_API void notification_set_user_data_string(Notification *notification,
                                                  const char *string) VARRO2_NOEXCEPT;

/** @return a new copy of the block, released with g_free(); NULL when there is none. */
VARRO2_API char *
notification_get_user_data_string(const Notification *notification) VARRO2_NOEXCEPT;

/** When it happened. @param timestamp is shared: the notification takes a reference of its own. */
VARRO2_API void notification_set_timestamp2(Notification *notification,
                                            GDateTime *timestamp) VARRO2_NOEXCEPT;

/** @return the timestamp, owned by the notification; NULL when none is set. */
VARRO2_API GDateTime *notification_get_timestamp2(const Notification *notification) VARRO2_NOEXCEPT;

G_GNUC_BEGIN_IGNORE_DEPRECATIONS
/** The same in seconds and microseconds since 1970, UTC. A time outside the years 1 to 9999 is
 * refused as a missing one would be. */
VARRO2_API void notification_set_timestamp(Notification *notification,
                                           GTimeVal timestamp) VARRO2_NOEXCEPT;

/** @return seconds and microseconds since 1970, UTC; {0, 0} when no timestamp is set, or one that
 * the seconds cannot hold: after January 2038 where a long has 32 bits. */
VARRO2_API GTimeVal notification_get_timestamp(const Notification *notification) VARRO2_NOEXCEPT;
G_GNUC_END_IGNORE_DEPRECATIONS

/* ---- Plain fields: the notification is not checked and must not be NULL ---- */

/** The id of the subscription that fits the declaration. */
VARRO2_API void notification_set_subscription_id(Notification *notification,
                                                 guint32 subscription_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 notification_get_subscription_id(const Notification *notification)
    VARRO2_NOEXCEPT;

/** The id of the declaration. */
VARRO2_API void notification_set_declaration_id(Notification *notification,
                                                guint32 declaration_id) VARRO2_NOEXCEPT;
VARRO2_API guint32 notification_get_declaration_id(const Notification *notification)
    VARRO2_NOEXCEPT;

/** NOTIFY_DECLARATION_ADDED or NOTIFY_DECLARATION_REMOVED. */
VARRO2_API void notification_set_type(Notification *notification, guint32 type) VARRO2_NOEXCEPT;
VARRO2_API guint32 notification_get_type(const Notification *notification) VARRO2_NOEXCEPT;

/** @return the declaration, owned by the notification; NULL when none is set. */
VARRO2_API EventDeclaration *
notification_get_declaration(const Notification *notification) VARRO2_NOEXCEPT;

/** @return the subscription's expression, owned by the notification; NULL when none is set. */
VARRO2_API SubscribeExpression *
notification_get_subscribe_expression(const Notification *notification) VARRO2_NOEXCEPT;

/* ---- Parts ---- */

/** @param declaration is copied. */
VARRO2_API void notification_set_declaration(Notification *notification,
                                             const EventDeclaration *declaration) VARRO2_NOEXCEPT;

/** @param se is copied. */
VARRO2_API void
notification_set_subscribe_expression(Notification *notification,
                                      const SubscribeExpression *se) VARRO2_NOEXCEPT;

/** Whether the type is NOTIFY_DECLARATION_REMOVED. */
VARRO2_API gboolean notification_is_type_deleted(const Notification *notification) VARRO2_NOEXCEPT;

/** A value of the declaration. @return the text, owned by the notification; NULL: no such key. */
VARRO2_API const char *notification_get_value(const Notification *notification,
                                              const char *key) VARRO2_NOEXCEPT;

/** The name space of a key. @return as notification_get_value(). */
VARRO2_API const char *notification_get_name_space(const Notification *notification,
                                                   const char *key) VARRO2_NOEXCEPT;

/** Whether the declaration is meant for the device itself only. */
VARRO2_API gboolean notification_is_internal(const Notification *notification) VARRO2_NOEXCEPT;

/* ---- External forms: expression and declaration must be there ---- */

/** @return the binary form in a new array, owned by the caller. */
VARRO2_API GByteArray *notification_serialize(const Notification *notification) VARRO2_NOEXCEPT;

/** Appends the binary form. A NULL argument aborts. */
VARRO2_API void notification_serialize_internal(const Notification *notification,
                                                GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from the start of the array; a malformed one aborts.
 *
 * @return a new notification, owned by the caller.
 */
VARRO2_API Notification *notification_deserialize(const GByteArray *array) VARRO2_NOEXCEPT;

/**
 * Reads the binary form from where indx stands; a malformed one or a NULL argument aborts.
 *
 * @param indx is moved past what was read.
 * @return a new notification, owned by the caller.
 */
VARRO2_API Notification *notification_deserialize_internal(const GByteArray *array,
                                                           guint32 *indx) VARRO2_NOEXCEPT;

/** Logs the notification at message level. */
VARRO2_API void notification_print(const Notification *notification) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
