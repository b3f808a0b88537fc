/**
 * @file serialize.h
 * The primitives of the binary form that travels on the bus.
 *
 * Records are written to a growing GByteArray in host byte order and read back through a running
 * index, which every reader moves on by what it consumed. Records are trusted: every broken
 * precondition, reading past the end included, ends the process.
 */
#ifndef VARRO2_SERIALIZE_H
#define VARRO2_SERIALIZE_H

#include <varro2/macros.h>

G_BEGIN_DECLS

/** The byte that opens each object's record. 247 and 248 are kept free. */
enum {
  SERIALIZE_ID_EVENT_DECLARATION = 240,
  SERIALIZE_ID_EVENT = 241,
  SERIALIZE_ID_INSPECTABLE = 242,
  SERIALIZE_ID_ANDLIST = 243,
  SERIALIZE_ID_BUCKET = 244,
  SERIALIZE_ID_KEYVALUE = 245,
  SERIALIZE_ID_SUBSCRIBE_EXPRESSION = 246,
  SERIALIZE_ID_PROPERTY_STATE = 249,
  SERIALIZE_ID_NOTIFICATION = 250
};

/** Appends one list element to the array. Neither is NULL. */
typedef void (*SerializeElement)(gpointer element, GByteArray *array);

/** Reads one list element at the index and moves it on; the result joins the list. */
typedef gpointer (*DeserializeElement)(GByteArray *array, guint32 *indx);

/** A new empty array. The caller frees it with g_byte_array_free() or g_byte_array_unref(). */
VARRO2_API GByteArray *serialize_create_array(void) VARRO2_NOEXCEPT;

/** Appends one byte. The array must not be NULL, here and below. */
VARRO2_API void serialize_8bit(GByteArray *array, guint8 value) VARRO2_NOEXCEPT;

/** Appends two bytes in host order. */
VARRO2_API void serialize_16bit(GByteArray *array, guint16 value) VARRO2_NOEXCEPT;

/** Appends four bytes in host order. */
VARRO2_API void serialize_32bit(GByteArray *array, guint32 value) VARRO2_NOEXCEPT;

/**
 * Appends the eight bytes of a pointer's value, which means something in this process only. The
 * pointer may be NULL and is not looked at.
 */
VARRO2_API void serialize_pointer(GByteArray *array, gconstpointer value) VARRO2_NOEXCEPT;

/**
 * Appends the length in bytes, 16 bits wide, and the bytes without the closing NUL. The string
 * must not be NULL. Of a length above 65535 only the low 16 bits are written, before all the bytes:
 * such a record cannot be read back.
 */
VARRO2_API void serialize_string(GByteArray *array, const char *string) VARRO2_NOEXCEPT;

/** Appends length bytes as they are, without a prefix. data may be NULL when length is 0. */
VARRO2_API void serialize_blob(GByteArray *array, gconstpointer data,
                               guint32 length) VARRO2_NOEXCEPT;

/**
 * Appends the number of elements, 32 bits wide, and each element by the serializer in list order.
 * The list may be NULL (empty), the serializer must not.
 */
VARRO2_API void serialize_glist(GByteArray *array, GList *list,
                                SerializeElement serializer) VARRO2_NOEXCEPT;

/** The byte at *indx. Array and indx must not be NULL, here and below. */
VARRO2_API guint8 deserialize_8bit(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** The two bytes at *indx in host order. */
VARRO2_API guint16 deserialize_16bit(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** The four bytes at *indx in host order. */
VARRO2_API guint32 deserialize_32bit(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** The pointer value at *indx. */
VARRO2_API gpointer deserialize_pointer(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** A new NUL-terminated string, never NULL. The caller frees it with g_free(). */
VARRO2_API char *deserialize_string(const GByteArray *array, guint32 *indx) VARRO2_NOEXCEPT;

/** A new copy of the next length bytes. The caller frees it with g_free(); NULL when length is 0.
 */
VARRO2_API gpointer deserialize_blob(const GByteArray *array, guint32 *indx,
                                     guint32 length) VARRO2_NOEXCEPT;

/**
 * A new list of what the deserializer returned, in the order of reading; NULL for a count of 0. The
 * caller owns the list and its elements. The deserializer must not be NULL.
 */
VARRO2_API GList *deserialize_glist(GByteArray *array, guint32 *indx,
                                    DeserializeElement deserializer) VARRO2_NOEXCEPT;

/**
 * Whether a whole record of the kind stands in the array, for records of unknown origin: what
 * passes can be read without ending the process, and every record written by this library passes.
 * Goes over the bytes once and allocates nothing.
 *
 * Texts need not be UTF-8, and a value need not fit its type. What follows the record is not looked
 * at.
 * @param array    must not be NULL
 * @param index    where the record begins; past the end there is none
 * @param type_id  the byte that opens a record of that kind; for any other byte the result is FALSE
 */
VARRO2_API gboolean serialize_is_valid_record(const GByteArray *array, guint32 index,
                                              guint32 type_id) VARRO2_NOEXCEPT;

G_END_DECLS

#endif
