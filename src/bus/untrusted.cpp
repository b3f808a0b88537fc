#include "untrusted.hpp"

#include "log.hpp"
#include "serialize.hpp"

#include <varro2/eventutils.h>

#include <array>
#include <atomic>
#include <mutex>
#include <string>

namespace varro2 {
namespace {

constinit std::atomic<bool> untrusted{false};

// The senders that were named last, by a number of 64 bits that stands for bus and bus name. A bus
// does not use a unique name again, and who comes back with a new one is named anew.
class NamedSenders {
 public:
  // Whether it is the first time.
  bool add(const sd_id128_t &bus, std::string_view name) {
    guint64 code = 0xCBF29CE484222325;
    const auto mix = [&code](guint8 byte) { code = (code ^ byte) * 0x100000001B3; };
    for (const guint8 byte : bus.bytes)
      mix(byte);
    for (const char character : name)
      mix(static_cast<guint8>(character));
    const std::scoped_lock lock{mutex_};
    for (const guint64 known : codes_)
      if (known == code)
        return false;
    codes_[next_] = code;
    next_ = (next_ + 1) % codes_.size();
    return true;
  }

 private:
  std::mutex mutex_;
  std::array<guint64, 64> codes_{};
  std::size_t next_ = 0;
};

constinit NamedSenders named_senders;

bool passes(sd_bus_message *message, PayloadCheck check) {
  if (!g_str_has_prefix(sd_bus_message_get_signature(message, TRUE), "ay"))
    return false;
  const void *data = nullptr;
  std::size_t length = 0;
  if (sd_bus_message_read_array(message, SD_BUS_TYPE_BYTE, &data, &length) < 0 ||
      sd_bus_message_rewind(message, TRUE) < 0)
    return false;
  return check(static_cast<const guint8 *>(data), length);
}

} // namespace

bool peers_are_untrusted() noexcept {
  return untrusted.load(std::memory_order_relaxed);
}

bool is_event(const guint8 *data, std::size_t length) noexcept {
  RecordWalk walk{data, length};
  walk.require_truth_values();
  return walk.record(SERIALIZE_ID_EVENT);
}

bool is_subscription(const guint8 *data, std::size_t length) noexcept {
  if (!is_record<SERIALIZE_ID_SUBSCRIBE_EXPRESSION>(data, length))
    return false;
  guint32 index = 0;
  Reader reader{data, static_cast<guint32>(length), &index};
  reader.u8();
  reader.u32(); // the id
  const std::string service{reader.text()};
  const std::string object{reader.text()};
  return sd_bus_service_name_is_valid(service.c_str()) > 0 &&
         sd_bus_object_path_is_valid(object.c_str()) > 0;
}

void note_malformed_record(sd_bus_message *message) {
  const char *sender = sd_bus_message_get_sender(message);
  if (sender == nullptr)
    sender = "a peer without a name";
  sd_id128_t bus = SD_ID128_NULL;
  sd_bus_get_bus_id(sd_bus_message_get_bus(message), &bus);
  if (named_senders.add(bus, sender))
    VARRO2_WARNING("%sDropped a malformed record from %s", sender);
}

bool is_acceptable(sd_bus_message *message, PayloadCheck check) {
  if (!peers_are_untrusted() || passes(message, check))
    return true;
  note_malformed_record(message);
  return false;
}

int refuse_record(sd_bus_error *error) {
  return sd_bus_error_set(error, SD_BUS_ERROR_INVALID_ARGS, "The record is malformed.");
}

} // namespace varro2

void event_utils_set_untrusted_peers(gboolean untrusted) noexcept {
  varro2::untrusted.store(untrusted != FALSE, std::memory_order_relaxed);
}
