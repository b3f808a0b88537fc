// One occurrence. Its fields stand in the order of its record.
#pragma once

#include "inspectable.hpp"
#include "owning.hpp"
#include "serialize.hpp"
#include "timestamp.hpp"
#include "userdata.hpp"

#include <varro2/event.h>

struct Event final : varro2::WithRoom<Event> {
  Inspectable inspectable{IT_EVENT};
  varro2::UserData user_data{};
  varro2::Timestamp timestamp{};
  guint32 global_id = 0;
  guint32 local_id = 0;
  guint32 producer_id = 0;
  gboolean property = FALSE;

  template <typename Sink>
  void write(Sink &sink) const {
    sink.u8(SERIALIZE_ID_EVENT);
    inspectable.write(sink);
    user_data.write(sink);
    varro2::write_timestamp(sink, timestamp);
    sink.u32(global_id);
    sink.u32(local_id);
    sink.u32(producer_id);
    sink.u8(static_cast<guint8>(property));
  }

  static Event *read_new(const GByteArray &array, guint32 &indx);
};

namespace varro2 {

// Both together put an event's record anywhere. Its size in bytes.
std::size_t record_size_of(const Event &event);
void write_record(const Event &event, guint8 *to);

// The current time, unless whoever filled the event in knows better.
void stamp_now_if_unset(Event &event);

} // namespace varro2
