/**
 * @file jsonoptions.h
 * How event_get_json() and event_get_tamlo_json() render an event.
 */
#ifndef VARRO2_JSONOPTIONS_H
#define VARRO2_JSONOPTIONS_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** The settings of a rendering. */
typedef struct JsonOptions JsonOptions;

/** The documents that an event can be rendered as. */
enum {
  JSON_FORMAT_TAMLO = 0, /**< topic path, millisecond timestamp, source, key and data members */
  JSON_FORMAT_ONVIF = 1  /**< "UtcTime", "Source" and "Data" */
};

/**
 * New settings: compact output, only strings in the message, no serial number, the prefixes "tns1"
 * and "tnsquor", the tamlo format.
 *
 * @return the settings, owned by the caller.
 */
VARRO2_API JsonOptions *json_options_new(void) VARRO2_NOEXCEPT;

/** Frees the settings. @param options may be NULL. */
VARRO2_API void json_options_free(JsonOptions *options) VARRO2_NOEXCEPT;

/** Whether the tamlo document is indented by 4 instead of written without white space. */
VARRO2_API void json_options_set_pretty_printing(JsonOptions *options,
                                                 gboolean pretty_printing) VARRO2_NOEXCEPT;

/** @param options is not checked: it must be valid. */
VARRO2_API gboolean json_options_get_pretty_printing(const JsonOptions *options) VARRO2_NOEXCEPT;

/** Whether every value in the message of the tamlo document is a string, whatever its type. */
VARRO2_API void json_options_use_only_strings_in_message(JsonOptions *options,
                                                         gboolean only_strings) VARRO2_NOEXCEPT;

/** @param options is not checked: it must be valid. */
VARRO2_API gboolean json_options_get_if_only_strings_in_message(const JsonOptions *options)
    VARRO2_NOEXCEPT;

/**
 * The device's serial number, written as "serial" in the tamlo document.
 *
 * @param serialnumber is copied; NULL takes the serial number away.
 */
VARRO2_API void json_options_set_serialnumber(JsonOptions *options,
                                              const char *serialnumber) VARRO2_NOEXCEPT;

/** @return the serial number, valid until it is set again; NULL when there is none. */
VARRO2_API const char *json_options_get_serialnumber(const JsonOptions *options) VARRO2_NOEXCEPT;

/**
 * The prefix that is written for topic levels in the name space "tns1".
 *
 * @param ns is copied; NULL is refused and the old prefix stays.
 */
VARRO2_API void json_options_set_onvif_namespace(JsonOptions *options,
                                                 const char *ns) VARRO2_NOEXCEPT;

/** @return the prefix, valid until it is set again. */
VARRO2_API const char *json_options_get_onvif_namespace(const JsonOptions *options) VARRO2_NOEXCEPT;

/**
 * The prefix that is written for topic levels in the name space "tnsquor".
 *
 * @param ns is copied; NULL is refused and the old prefix stays.
 */
VARRO2_API void json_options_set_quor_namespace(JsonOptions *options,
                                                const char *ns) VARRO2_NOEXCEPT;

/** @return the prefix, valid until it is set again. */
VARRO2_API const char *json_options_get_quor_namespace(const JsonOptions *options) VARRO2_NOEXCEPT;

/**
 * The document that event_get_json() renders.
 *
 * @param options is not checked: it must be valid.
 * @param format JSON_FORMAT_TAMLO or JSON_FORMAT_ONVIF; any other number is kept, and the rendering
 *   then fails.
 */
VARRO2_API void json_options_set_format(JsonOptions *options, guint32 format) VARRO2_NOEXCEPT;

/** @param options is not checked: it must be valid. */
VARRO2_API guint32 json_options_get_format(const JsonOptions *options) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
