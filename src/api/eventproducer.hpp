// The producer handle.
#pragma once

#include "command.hpp"
#include "owning.hpp"

#include <varro2/eventproducer_int.h>

#include <mutex>
#include <unordered_map>

namespace varro2 {

using OwnedEvent = Owned<Event, event_free>;
using OwnedDeclaration = Owned<EventDeclaration, event_declaration_free>;
using OwnedParams = Owned<CallbackParams, callback_params_free>;
using OwnedRegisterList = Owned<GList, event_producer_int_free_register_list>;
using ProducerRef = Counted<Producer, g_object_ref, g_object_unref>;

} // namespace varro2

struct EventProducer final {
  EventProducer()
      : commands{command_source_new_full(nullptr, this, 1, 0)}, ids{idgenerator_new()} {}

  varro2::ProducerRef producer; // none until the set-up has run
  varro2::OwnedCommands commands;
  varro2::OwnedIds ids; // of local declaration ids

  // What every event of a declaration starts from, by local id, from declare to the undeclare
  // command. Never locked together with the bus producer.
  std::mutex prepared_lock;
  std::unordered_map<guint32, varro2::OwnedEvent> prepared_events;
};

namespace varro2 {

// Declares what a registration built and hands the property's value to the bus producer. Id 0, of
// a registration that was refused, does nothing; the handle may be missing then.
void declare_registered(EventProducer *event_producer, const EventDeclaration &declaration,
                        const CallbackParams *params, guint32 local_declare_id,
                        EventProducerDeclaredCallback declared_callback,
                        EventProducerNotifyCallback notify, gpointer user_data);

} // namespace varro2
