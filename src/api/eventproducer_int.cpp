#include "eventproducer.hpp"

#include "failure.hpp"
#include "preconditions.hpp"
#include "producer.hpp"

using namespace varro2;

namespace {

using OwnedRecord = std::unique_ptr<ProducerDeclarationData>;

bool may_be_declared(const EventDeclaration &declaration) {
  if (event_declaration_is_internal(&declaration))
    return true;
  const Inspectable *inspect = event_declaration_get_inspectable(&declaration);
  return inspectable_get_value(inspect, "topic0") != nullptr;
}

// The error that keeps an event from being sent; without one the copy is stamped, ready to go.
OwnedError check_and_stamp(EventProducer &handle, const Event *event, Event *copy) {
  if (!event)
    return new_error(EVENT_ERROR_NULL, "NULL object supplied as event");
  producer_fill_global_event_data(handle.producer.get(), copy);
  // The last event of a property is kept for subscribers to come, whether the switch is there or
  // not.
  if (event_get_global_id(copy) == 0 && !event_is_property(copy))
    return new_error(EVENT_ERROR_NOT_REGISTERED,
                     "The event has not been declared to the event switch. (The connection to the "
                     "switch is likely to be broken)");
  if (!event_is_complete(copy))
    return new_error(EVENT_ERROR_INCOMPLETE, "The event has keys with unset values");
  set_event_time_now(copy);
  return nullptr;
}

void run_event_producer_int_undeclare(EventProducer &handle, guint32 local_declare_id,
                                      OwnedRecord record, EventProducerUndeclareCallback callback,
                                      gpointer user_data) {
  OwnedError error;
  if (record) {
    producer_send_undeclare(handle.producer.get(), record.release());
    idgenerator_release(handle.ids.get(), local_declare_id);
    const std::scoped_lock lock{handle.prepared_lock};
    const bool result = handle.prepared_events.erase(local_declare_id) != 0;
    VARRO2_ASSERT(result);
  } else {
    error = new_error(EVENT_ERROR_NOT_REGISTERED, "Could not find the declaration to undeclare.");
  }
  if (callback)
    callback(local_declare_id, user_data, error.release());
}

} // namespace

EventProducer *event_producer_int_new_empty(void) noexcept {
  return std::make_unique<EventProducer>().release();
}

void event_producer_int_setup(EventProducer *event_producer, const char *name,
                              EventProducerSetupCallback setup_callback,
                              ProducerSubscribersChanged subscribers_changed,
                              gpointer user_data) noexcept {
  VARRO2_ASSERT(event_producer != NULL);
  VARRO2_ASSERT(name != NULL);
  event_producer->producer = ProducerRef::adopt(producer_new(name, subscribers_changed, user_data));
  queue(*event_producer, [setup_callback, user_data](EventProducer &handle) {
    OwnedError error;
    producer_init_dbus(handle.producer.get(), out_of(error));
    report_setup(handle, std::move(error), setup_callback, user_data);
  });
}

void event_producer_int_free(EventProducer *event_producer, EventProducerDoneCallback done_callback,
                             gpointer user_data) noexcept {
  VARRO2_ASSERT(event_producer != NULL);
  producer_prepare_free(event_producer->producer.get());
  queue(*event_producer, [event_producer, done_callback, user_data](EventProducer &handle) {
    producer_send_disconnect(handle.producer.get());
    delete &handle;
    if (done_callback)
      done_callback(event_producer, user_data);
  });
}

guint32 event_producer_int_get_decl_id(EventProducer *event_producer,
                                       const EventDeclaration *declaration,
                                       GError **error) noexcept {
  if (fail_if_slot_is_taken(error))
    return 0;
  if (!event_producer) {
    fail(error, EVENT_ERROR_NULL, "NULL object supplied as event producer");
    return 0;
  }
  if (!declaration) {
    fail(error, EVENT_ERROR_NULL, "NULL object supplied as declaration");
    return 0;
  }
  if (!may_be_declared(*declaration)) {
    fail(error, EVENT_ERROR_INCOMPLETE, "External event is missing topic");
    return 0;
  }
  return idgenerator_reserve(event_producer->ids.get());
}

void event_producer_int_declare(EventProducer *event_producer, const EventDeclaration *declaration,
                                guint32 local_declare_id,
                                EventProducerDeclaredCallback declared_callback,
                                EventProducerNotifyCallback notify, gpointer user_data) noexcept {
  if (local_declare_id == 0)
    return;
  VARRO2_ASSERT(event_producer != NULL);
  VARRO2_ASSERT(declaration != NULL);
  Producer *producer = event_producer->producer.get();
  producer_allocate_decl_data(producer, local_declare_id, event_declaration_copy(declaration),
                              notify, user_data);
  OwnedEvent event{producer_prepare_event(producer, local_declare_id)};
  VARRO2_ASSERT(event != NULL);
  {
    const std::scoped_lock lock{event_producer->prepared_lock};
    const bool inserted =
        event_producer->prepared_events.try_emplace(local_declare_id, std::move(event)).second;
    VARRO2_ASSERT_AS(__func__,
                     "g_hash_table_lookup(event_producer->prepared_events, "
                     "GINT_TO_POINTER(local_decl_id)) == NULL",
                     inserted);
  }
  queue(*event_producer, [local_declare_id, declared_callback, user_data](EventProducer &handle) {
    if (declared_callback)
      declared_callback(local_declare_id, user_data);
    producer_send_declare(handle.producer.get(), local_declare_id);
  });
}

gboolean event_producer_int_undeclare(EventProducer *event_producer, guint32 local_declare_id,
                                      EventProducerUndeclareCallback callback,
                                      gpointer user_data) noexcept {
  VARRO2_EXPECT(event_producer != NULL, FALSE);
  VARRO2_EXPECT(local_declare_id != 0, FALSE);
  // Released here, so that the result is known at once and no further subscriber is served.
  OwnedRecord record{producer_release_declare_id(event_producer->producer.get(), local_declare_id)};
  const bool found = record != nullptr;
  queue(*event_producer, [local_declare_id, record = std::move(record), callback,
                          user_data](EventProducer &handle) mutable {
    run_event_producer_int_undeclare(handle, local_declare_id, std::move(record), callback,
                                     user_data);
  });
  return found;
}

gboolean event_producer_int_send_event(EventProducer *event_producer, const Event *event,
                                       Event *event_copy, EventProducerSendCallback send_callback,
                                       gpointer user_data, GError **error) noexcept {
  VARRO2_ASSERT(event_producer != NULL);
  OwnedEvent copy{event_copy};
  OwnedError failure;
  if (error && *error) {
    g_clear_error(error);
    failure = new_error(EVENT_ERROR_ERROR_ALREADY_SET, "Error object already set");
  } else {
    failure = check_and_stamp(*event_producer, event, copy.get());
  }
  VARRO2_ASSERT(error == NULL || *error == NULL);
  if (failure)
    g_propagate_error(error, g_error_copy(failure.get()));
  const bool accepted = failure == nullptr;

  if (!send_callback) {
    if (accepted)
      queue_quietly(*event_producer, [copy = std::move(copy)](EventProducer &handle) {
        producer_send_event(handle.producer.get(), copy.get(), nullptr);
      });
    return accepted;
  }
  // Queued after a failure as well: whoever waits for the callback must hear of it.
  queue(*event_producer, [event = const_cast<Event *>(event), copy = std::move(copy), send_callback,
                          user_data, failure = std::move(failure)](EventProducer &handle) mutable {
    if (!failure)
      producer_send_event(handle.producer.get(), copy.get(), out_of(failure));
    send_callback(copy ? event_get_local_id(copy.get()) : 0, event, user_data, failure.release());
  });
  return accepted;
}
