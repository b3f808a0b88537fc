// What a producer announces. Its fields stand in the order of its record, except for the timestamp,
// which stays in the process.
#pragma once

#include "inspectable.hpp"
#include "owning.hpp"
#include "serialize.hpp"

#include <varro2/eventdeclaration.h>

#include <array>

struct EventDeclaration final {
  guint32 producer_id = 0;
  guint32 local_id = 0;
  guint32 global_id = 0;
  gboolean property = FALSE;
  EventDeclarationPropertyCallback property_callback = nullptr;
  gpointer property_user_data = nullptr; // the caller's
  Inspectable inspectable{IT_EVENT_DECLARATION};
  varro2::DateTimeRef timestamp{}; // UTC

  // The pointers go along as numbers: the switch hands a declaration back to its own process.
  template <typename Sink>
  void write(Sink &sink) const {
    sink.u8(SERIALIZE_ID_EVENT_DECLARATION);
    sink.u32(producer_id);
    sink.u32(local_id);
    sink.u32(global_id);
    sink.u8(static_cast<guint8>(property));
    sink.pointer(reinterpret_cast<gconstpointer>(property_callback));
    sink.pointer(property_user_data);
    inspectable.write(sink);
  }

  static EventDeclaration read(varro2::Reader &reader);
};

namespace varro2 {

// Marks the key whose value tells the instances of a property apart.
inline constexpr const char *property_state_tag = "property-state";

// Where the files of the types lie: the first folder that has a valid one wins. Only tests, which
// are linked with the objects, can reach this to use folders of their own.
extern std::array<const char *, 2> declaration_folders;

} // namespace varro2
