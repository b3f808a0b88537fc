#include "messages.hpp"

#include "untrusted.hpp"

#include <cstdarg>
#include <cstring>
#include <string>
#include <string_view>

namespace varro2::switchd {

int refuse(sd_bus_error *error, const char *name, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const OwnedText text{g_strdup_vprintf(format, arguments)};
  va_end(arguments);
  g_info("Refused a call: %s", text.get());
  return sd_bus_error_set(error, name, text.get());
}

const char *sender_of(sd_bus_message *message) {
  const char *sender = sd_bus_message_get_sender(message);
  return sender != nullptr ? sender : "";
}

bool is_client_path(const char *path) {
  return sd_bus_object_path_is_valid(path) > 0 && std::strlen(path) <= G_MAXUINT16;
}

namespace {

// GLib's table of names never shrinks.
void count_if_new(void *new_names, std::string_view key) noexcept {
  constexpr std::size_t counts_as_one = 64;
  if (g_quark_try_string(std::string{key.substr(0, key.find('\0'))}.c_str()) == 0)
    static_cast<Holding *>(new_names)->names += 1 + key.size() / counts_as_one;
}

bool charge_for_names(sd_bus_message *message, const Holding &new_names, Quotas &quotas,
                      sd_bus_error *error) {
  const std::optional<uid_t> user = quotas.user_of(message);
  if (user && quotas.admits(message, {*user, new_names})) {
    quotas.take({*user, new_names});
    return true;
  }
  if (user)
    refuse(error, SD_BUS_ERROR_LIMITS_EXCEEDED,
           "The user %u has brought in as many new names of keys as it may.", *user);
  else
    refuse(error, SD_BUS_ERROR_ACCESS_DENIED, "The user of %s cannot be found out.",
           sender_of(message));
  return false;
}

} // namespace

BytesRef read_record(sd_bus_message *message, std::uint8_t kind, Quotas &quotas,
                     sd_bus_error *error) {
  const void *data = nullptr;
  std::size_t size = 0;
  if (const int status = sd_bus_message_read_array(message, 'y', &data, &size); status < 0) {
    sd_bus_error_set_errno(error, status);
    return {};
  }
  // The readers of the library end the process at a malformed record.
  RecordWalk walk{static_cast<const guint8 *>(data), size};
  Holding new_names;
  walk.visit_keys(count_if_new, &new_names);
  if (!walk.record(kind)) {
    note_malformed_record(message);
    refuse(error, SD_BUS_ERROR_INVALID_ARGS, "The bytes of '%s' are no record of the kind %u.",
           sd_bus_message_get_member(message), unsigned{kind});
    return {};
  }
  if (new_names.names > 0 && !charge_for_names(message, new_names, quotas, error))
    return {};
  BytesRef bytes = new_bytes();
  g_byte_array_append(bytes.get(), static_cast<const guint8 *>(data), static_cast<guint>(size));
  return bytes;
}

int answer(sd_bus_message *call, const GByteArray &bytes) {
  Message reply;
  int status = sd_bus_message_new_method_return(call, reply.out());
  if (status >= 0)
    status = sd_bus_message_append_array(reply.get(), 'y', bytes.data, bytes.len);
  if (status >= 0)
    status = sd_bus_send(nullptr, reply.get(), nullptr);
  return status < 0 ? status : handled;
}

int done(sd_bus_message *call) {
  const int status = sd_bus_reply_method_return(call, nullptr);
  return status < 0 ? status : handled;
}

} // namespace varro2::switchd
