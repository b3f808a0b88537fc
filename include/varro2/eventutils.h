/**
 * @file eventutils.h
 * Helpers that all objects share: value types, XML attributes, tag lists, and what the bus objects
 * have in common.
 */
#ifndef VARRO2_EVENTUTILS_H
#define VARRO2_EVENTUTILS_H

#include <systemd/sd-bus.h>
#include <varro2/event.h>
#include <varro2/macros.h>
#include <varro2/xmlnode.h>

G_BEGIN_DECLS

/* ---- Value types ---- */

/** How a value's text is to be read. Values are always stored as text; 0 is never a valid type. */
typedef enum {
  VALUE_TYPE_INT = 1,    /**< gint32 by address; decimal text */
  VALUE_TYPE_BOOL = 2,   /**< gboolean by address; "1" or "0" */
  VALUE_TYPE_DOUBLE = 3, /**< double by address; six decimals with a point, in every locale */
  VALUE_TYPE_STRING = 4  /**< the text itself */
} ValueType;

/**
 * The text in which a typed value is stored.
 * @param value  the address of the value, or the text itself for VALUE_TYPE_STRING (where NULL
 * gives NULL)
 * @param type   a ValueType
 * @return a new text, to be released with g_free(); NULL for any other type
 */
VARRO2_API char *event_utils_value_type_to_string(gconstpointer value,
                                                  guint32 type) VARRO2_NOEXCEPT;

/* ---- XML attributes ----
 * Missing nodes and names abort. What is empty, FALSE or a string is not written, and an attribute
 * that is not there reads as empty, FALSE or a string. */

/** The attribute's text, which belongs to the node; empty when there is none, never NULL. */
VARRO2_API const char *xml_get_attribute(const XmlNode *node, const char *name) VARRO2_NOEXCEPT;

/** Adds the attribute unless value is NULL or empty. */
VARRO2_API void xml_set_attribute(XmlNode *node, const char *name,
                                  const char *value) VARRO2_NOEXCEPT;

/** TRUE only for the text "true" in any ASCII case. */
VARRO2_API gboolean xml_get_boolean(const XmlNode *node, const char *name) VARRO2_NOEXCEPT;

/** Adds the attribute with the text "true" only when value is TRUE exactly. */
VARRO2_API void xml_set_boolean(XmlNode *node, const char *name, gboolean value) VARRO2_NOEXCEPT;

/** Reads "int", "integer", "bool", "boolean", "double" and "float" in any ASCII case; everything
 * else is VALUE_TYPE_STRING. */
VARRO2_API guint32 xml_get_value_type(const XmlNode *node, const char *name) VARRO2_NOEXCEPT;

/** Adds the attribute as "int", "bool" or "double"; nothing for any other type. */
VARRO2_API void xml_set_value_type(XmlNode *node, const char *name, guint32 type) VARRO2_NOEXCEPT;

/* ---- Tag lists and documents ---- */

/** Whether two lists of texts hold the same texts equally often, in whatever order. NULL is the
 * empty list; entries may be NULL and then equal each other. */
VARRO2_API gboolean event_utils_tag_list_is_equal(const GList *list1,
                                                  const GList *list2) VARRO2_NOEXCEPT;

/**
 * Reads a document into an object, which the caller owns.
 * @param xml   the document
 * @param type  0: EventDeclaration, 2: SubscribeExpression, 3: PropertyState; any other aborts
 * @return NULL, after a warning, when the text is no XML or not such an object
 */
VARRO2_API gpointer event_utils_deserialize_xml(const char *xml, guint32 type) VARRO2_NOEXCEPT;

/* ---- The bus ---- */

/** Called when the switch comes or goes. Runs on the thread of the default main context. */
typedef void (*BusWatcherCallback)(gpointer user_data);

/** Who wants to know when the switch comes and goes. Lives as long as the connection watched. */
typedef struct {
  BusWatcherCallback online;  /**< may be NULL */
  BusWatcherCallback offline; /**< may be NULL */
  gpointer user_data;         /**< handed to either, not owned */
} BusWatcher;

/**
 * Opens a connection of its own to the system bus and has the default main context drive it.
 * @param source  is set on success to the attached source, which the main context owns
 * @param bus     is set on success to the connection, which the caller owns, in a pair with the
 *                source: disconnect_from_bus_and_detach_events() releases both
 * @param error   may be NULL; gets the domain "libvarro2" and the negative errno as its code
 * @return 0 or more, or the negative errno of the step that failed
 */
VARRO2_API gint32 connect_to_bus_and_attach_events(GSource **source, sd_bus **bus,
                                                   GError **error) VARRO2_NOEXCEPT;

/** Flushes, closes and releases the connection, then the source. Waits while the bus daemon does
 * not read. Runs on the thread of the default main context; NULL aborts. */
VARRO2_API void disconnect_from_bus_and_detach_events(GSource *source, sd_bus *bus) VARRO2_NOEXCEPT;

/**
 * Has the watcher called when the switch comes and goes.
 * @param watcher  is kept by the connection, not owned
 * @return 0 or more, or a negative errno
 */
VARRO2_API gint32 watch_bus_driver(sd_bus *bus, BusWatcher *watcher) VARRO2_NOEXCEPT;

/**
 * Says whether what comes from the bus may be malformed. FALSE is the default: a malformed record
 * ends the process. With TRUE every record is checked before it is read; a call with a bad one is
 * answered with org.freedesktop.DBus.Error.InvalidArgs, a bad answer counts as a failure of the
 * call, and each sender is named in the log once. So is an event with a truth value that is neither
 * "0" nor "1". A switch that takes the name over from another without a gap is seen as one that
 * left and one that came.
 *
 * Holds for all handles of the process, from the next message on. From any thread.
 */
VARRO2_API void event_utils_set_untrusted_peers(gboolean untrusted) VARRO2_NOEXCEPT;

/** What has become of the calls to consumers and to the switch, over all handles of the process. */
typedef struct {
  guint64 answered;   /**< so many were answered, be it by an error */
  guint64 dropped;    /**< so many were never made: their receiver left or left too much waiting */
  guint64 unanswered; /**< so many are on the way now */
  guint64 waiting;    /**< so many wait for others to be answered now */
} SendCounters;

/** Fills the counters in, each as it is at some moment during the call. From any thread.
 * @param counters  must not be NULL */
VARRO2_API void event_utils_get_send_counters(SendCounters *counters) VARRO2_NOEXCEPT;

/** A key and the text of its value, handed along a registration. */
typedef struct {
  char *key;   /**< owned */
  char *value; /**< owned */
} CallbackParams;

/** Copies both texts, which may be NULL. @return a new record, owned by the caller. */
VARRO2_API CallbackParams *callback_params_new(const char *key, const char *value) VARRO2_NOEXCEPT;

/** Frees the record and its texts. @param params  may be NULL */
VARRO2_API void callback_params_free(CallbackParams *params) VARRO2_NOEXCEPT;

/** Gives the event the present time unless it has a time already. */
VARRO2_API void set_event_time_now(Event *event) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
