#include "buserrors.hpp"

#include "protocol.hpp"

#include <varro2/error.h>

#include <cstring>

namespace varro2 {

const sd_bus_error_map event_error_map[] = {
    SD_BUS_ERROR_MAP("com.quor.Event.Error.Null", EVENT_ERROR_NULL),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.DbusFailed", EVENT_ERROR_DBUS_FAILED),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.NoSubscr", EVENT_ERROR_NO_SUBSCR),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.NotRegistered", EVENT_ERROR_NOT_REGISTERED),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.NotMatching", EVENT_ERROR_NOT_MATCHING),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.Incomplete", EVENT_ERROR_INCOMPLETE),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.LookingUpPropState", EVENT_ERROR_LOOKING_UP_PROP_STATE),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.File", EVENT_ERROR_FILE),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.AlreadyExists", EVENT_ERROR_ALREADY_EXISTS),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.ErrorAlreadySet", EVENT_ERROR_ERROR_ALREADY_SET),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.InvalidType", EVENT_ERROR_INVALID_TYPE),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.RegistrationUnknownType",
                     EVENT_ERROR_REGISTRATION_UNKNOWN_TYPE),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.RegistrationPropState",
                     EVENT_ERROR_REGISTRATION_PROP_STATE),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.RegistrationUnknownKey",
                     EVENT_ERROR_REGISTRATION_UNKNOWN_KEY),
    SD_BUS_ERROR_MAP("com.quor.Event.Error.RegistrationUnparsedKey",
                     EVENT_ERROR_REGISTRATION_UNPARSED_KEY),
    SD_BUS_ERROR_MAP_END};

OwnedError new_bus_failure(const sd_bus_error &error, int number) {
  const bool ours = error.name != nullptr && g_str_has_prefix(error.name, event_error_prefix);
  const char *message = error.message != nullptr ? error.message : std::strerror(number);
  return OwnedError{
      g_error_new(event_error_quark(), ours ? number : EVENT_ERROR_DBUS_FAILED, "%s", message)};
}

OwnedError new_bus_failure(int number) {
  const sd_bus_error none = SD_BUS_ERROR_NULL;
  return new_bus_failure(none, number);
}

void set_setup_error(GError **error, int status, const char *message) {
  g_set_error_literal(error, g_quark_from_static_string("libvarro2"), status, message);
}

// Without a daemon in between nobody is named.
bool is_of_the_bus(sd_bus_message *answer) {
  const char *sender = sd_bus_message_get_sender(answer);
  return sender == nullptr || std::strcmp(sender, bus_driver_name) == 0;
}

bool says_nobody_there(sd_bus_message *answer) {
  const sd_bus_error *error = sd_bus_message_get_error(answer);
  return sd_bus_error_has_names(error, SD_BUS_ERROR_SERVICE_UNKNOWN,
                                SD_BUS_ERROR_NAME_HAS_NO_OWNER) > 0 &&
         is_of_the_bus(answer);
}

// NoReply is about a call that may have been delivered; the library's own time-out is one, too.
bool says_not_delivered(sd_bus_message *answer) {
  return sd_bus_message_is_method_error(answer, nullptr) > 0 &&
         sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NO_REPLY) <= 0 &&
         is_of_the_bus(answer);
}

} // namespace varro2
