// Any bytes as a record of any kind: what the walk accepts can be read to the end and used, and
// what was read is written as it was.
//
// The first byte says what the others are to be, and how many bytes stand before them.
#include "recordwalk.hpp"
#include "untrusted.hpp"
#include "use.hpp"

namespace varro2::fuzz {
namespace {

constexpr guint32 kinds[] = {SERIALIZE_ID_EVENT_DECLARATION,
                             SERIALIZE_ID_EVENT,
                             SERIALIZE_ID_INSPECTABLE,
                             SERIALIZE_ID_ANDLIST,
                             SERIALIZE_ID_BUCKET,
                             SERIALIZE_ID_KEYVALUE,
                             SERIALIZE_ID_SUBSCRIBE_EXPRESSION,
                             SERIALIZE_ID_PROPERTY_STATE,
                             SERIALIZE_ID_NOTIFICATION};
constexpr unsigned declaration_list = 9;
constexpr unsigned subscription = 10;

void check_list(const GByteArray *array) {
  if (!is_declaration_list(array->data, array->len) || array->len == 0)
    return;
  guint32 end = 0;
  const guint32 count = deserialize_32bit(array, &end);
  for (guint32 read = 0; read < count; ++read)
    end = check_record(array, end, SERIALIZE_ID_EVENT_DECLARATION);
  VARRO2_ASSERT(end <= array->len);
}

void check_subscription(const GByteArray *array) {
  if (is_subscription(array->data, array->len))
    check_record(array, 0, SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2::fuzz;
  if (size == 0)
    return 0;
  const unsigned kind = data[0] & 0x0F;
  const guint32 before = data[0] >> 4;
  if (kind > subscription || size <= before)
    return 0;
  // The byte that is taken for the kind stands there instead of the bytes before the record.
  const std::string padding(before, '\xF1');
  std::string bytes = padding;
  bytes.append(reinterpret_cast<const char *>(data) + 1, size - 1);
  const bool in_list = kind == declaration_list || kind == subscription;
  const std::size_t skipped = in_list ? before : 0;
  const auto array = exact_array(reinterpret_cast<const std::uint8_t *>(bytes.data()) + skipped,
                                 bytes.size() - skipped);
  if (kind == declaration_list)
    check_list(array.get());
  else if (kind == subscription)
    check_subscription(array.get());
  else if (serialize_is_valid_record(array.get(), before, kinds[kind]))
    check_record(array.get(), before, kinds[kind]);
  return 0;
}
