#include "serialize.hpp"

namespace {

template <typename T>
void append(GByteArray *array, T value) {
  g_byte_array_append(array, reinterpret_cast<const guint8 *>(&value), sizeof value);
}

} // namespace

GByteArray *serialize_create_array(void) noexcept {
  return g_byte_array_new();
}

void serialize_8bit(GByteArray *array, guint8 value) noexcept {
  VARRO2_ASSERT(array != NULL);
  append(array, value);
}

void serialize_16bit(GByteArray *array, guint16 value) noexcept {
  VARRO2_ASSERT(array != NULL);
  append(array, value);
}

void serialize_32bit(GByteArray *array, guint32 value) noexcept {
  VARRO2_ASSERT(array != NULL);
  append(array, value);
}

void serialize_pointer(GByteArray *array, gconstpointer value) noexcept {
  VARRO2_ASSERT(array != NULL);
  append(array, static_cast<guint64>(reinterpret_cast<guintptr>(value)));
}

void serialize_string(GByteArray *array, const char *string) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(string != NULL);
  const std::size_t length = std::strlen(string);
  append(array, static_cast<guint16>(length));
  g_byte_array_append(array, reinterpret_cast<const guint8 *>(string), static_cast<guint>(length));
}

void serialize_blob(GByteArray *array, gconstpointer data, guint32 length) noexcept {
  VARRO2_ASSERT(array != NULL);
  if (length != 0)
    g_byte_array_append(array, static_cast<const guint8 *>(data), length);
}

void serialize_glist(GByteArray *array, GList *list, SerializeElement serializer) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(serializer != NULL);
  append(array, static_cast<guint32>(g_list_length(list)));
  for (GList *at = list; at != nullptr; at = at->next)
    serializer(at->data, array);
}

guint8 deserialize_8bit(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  return varro2::Reader{array, indx}.u8();
}

guint16 deserialize_16bit(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  return varro2::Reader{array, indx}.u16();
}

guint32 deserialize_32bit(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  return varro2::Reader{array, indx}.u32();
}

gpointer deserialize_pointer(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  return varro2::Reader{array, indx}.pointer();
}

char *deserialize_string(const GByteArray *array, guint32 *indx) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  const std::string_view text = varro2::Reader{array, indx}.text();
  char *copy = static_cast<char *>(g_malloc(text.size() + 1));
  text.copy(copy, text.size());
  copy[text.size()] = '\0';
  return copy;
}

gpointer deserialize_blob(const GByteArray *array, guint32 *indx, guint32 length) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  return g_memdup2(varro2::Reader{array, indx}.blob(length), length);
}

GList *deserialize_glist(GByteArray *array, guint32 *indx,
                         DeserializeElement deserializer) noexcept {
  VARRO2_ASSERT(array != NULL);
  VARRO2_ASSERT(indx != NULL);
  VARRO2_ASSERT(deserializer != NULL);
  GQueue elements = G_QUEUE_INIT;
  for (guint32 count = varro2::Reader{array, indx}.u32(); count > 0; --count)
    g_queue_push_tail(&elements, deserializer(array, indx));
  return elements.head;
}
