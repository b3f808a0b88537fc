// From errors on the bus to the library's own.
#pragma once

#include "owning.hpp"

#include <systemd/sd-bus.h>

namespace varro2 {

// Every code that has a name on the bus, in the order of the codes; ends as sd-bus wants it.
extern const sd_bus_error_map event_error_map[];

// An error that sd-bus fills in.
class BusError {
 public:
  BusError() = default;
  BusError(const BusError &) = delete;
  BusError &operator=(const BusError &) = delete;
  ~BusError() { sd_bus_error_free(&error_); }

  sd_bus_error *get() noexcept { return &error_; }
  const sd_bus_error &operator*() const noexcept { return error_; }

 private:
  sd_bus_error error_ = SD_BUS_ERROR_NULL;
};

// The error for the caller. number is the positive errno that sd-bus derived from the bus error:
// the code, when the name is one of the event system's.
OwnedError new_bus_failure(const sd_bus_error &error, int number);

// What is reported for a call that was not made. number is a positive errno.
OwnedError new_bus_failure(int number);

// The error of setting a connection up. status is the negative errno.
void set_setup_error(GError **error, int status, const char *message);

// Whether it is the bus that answers, and not who was called.
bool is_of_the_bus(sd_bus_message *answer);

// Whether the bus says that nobody owns the name that was called.
bool says_nobody_there(sd_bus_message *answer);

// Whether the bus says that it could not deliver the call, for whatever reason: also that it failed
// to start a service for it.
bool says_not_delivered(sd_bus_message *answer);

} // namespace varro2
