#include "event.hpp"
#include "preconditions.hpp"

#include <varro2/eventutils.h>

void set_event_time_now(Event *event) noexcept {
  VARRO2_EXPECT(event != NULL);
  varro2::stamp_now_if_unset(*event);
}
