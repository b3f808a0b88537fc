#include "eventproducer.hpp"

#include "failure.hpp"
#include "preconditions.hpp"

using namespace varro2;

EventProducer *event_producer_new_full(const char *name,
                                       ProducerSubscribersChanged subscribers_changed,
                                       gpointer user_data) noexcept {
  VARRO2_EXPECT(name != NULL, NULL);
  EventProducer *event_producer = event_producer_int_new_empty();
  event_producer_int_setup(event_producer, name, NULL, subscribers_changed, user_data);
  return event_producer;
}

EventProducer *event_producer_new(const char *name) noexcept {
  return event_producer_new_full(name, NULL, NULL);
}

void event_producer_free(EventProducer *event_producer) noexcept {
  if (event_producer)
    event_producer_int_free(event_producer, NULL, NULL);
}

guint32 event_producer_declare_and_notify(EventProducer *event_producer,
                                          const EventDeclaration *declaration,
                                          EventProducerNotifyCallback notify,
                                          gpointer user_data) noexcept {
  OwnedError error;
  const guint32 local_declare_id =
      event_producer_int_get_decl_id(event_producer, declaration, out_of(error));
  if (local_declare_id == 0) {
    VARRO2_WARNING("%sFailed to declare: %s", error->message);
    return 0;
  }
  event_producer_int_declare(event_producer, declaration, local_declare_id, NULL, notify,
                             user_data);
  return local_declare_id;
}

guint32 event_producer_declare(EventProducer *event_producer,
                               const EventDeclaration *declaration) noexcept {
  return event_producer_declare_and_notify(event_producer, declaration, NULL, NULL);
}

gboolean event_producer_declaration_complete(EventProducer *event_producer,
                                             guint32 local_declare_id) noexcept {
  VARRO2_EXPECT(event_producer != NULL, FALSE);
  return producer_declaration_complete(event_producer->producer.get(), local_declare_id);
}

gboolean event_producer_undeclare_and_notify(EventProducer *event_producer,
                                             guint32 local_declare_id,
                                             EventProducerUndeclareCallback callback,
                                             gpointer user_data) noexcept {
  return event_producer_int_undeclare(event_producer, local_declare_id, callback, user_data);
}

gboolean event_producer_undeclare(EventProducer *event_producer,
                                  guint32 local_declare_id) noexcept {
  return event_producer_undeclare_and_notify(event_producer, local_declare_id, NULL, NULL);
}

Event *event_producer_prepare_event(EventProducer *event_producer,
                                    guint32 local_declare_id) noexcept {
  VARRO2_EXPECT(event_producer != NULL, NULL);
  VARRO2_EXPECT(local_declare_id != 0, NULL);
  const std::scoped_lock lock{event_producer->prepared_lock};
  const auto prepared = event_producer->prepared_events.find(local_declare_id);
  return prepared == event_producer->prepared_events.end() ? NULL
                                                           : event_copy(prepared->second.get());
}

gboolean event_producer_send_event(EventProducer *event_producer, const Event *event,
                                   GError **error) noexcept {
  if (!event_producer) {
    fail(error, EVENT_ERROR_NULL, "NULL object supplied as event producer");
    return FALSE;
  }
  return event_producer_int_send_event(event_producer, event, event ? event_copy(event) : NULL,
                                       NULL, NULL, error);
}

gboolean event_producer_send_event_async(EventProducer *event_producer,
                                         const Event *event) noexcept {
  return event_producer_send_event(event_producer, event, NULL);
}

gboolean event_producer_add_declaration(EventProducer *event_producer, const char *type,
                                        const EventDeclaration *declaration,
                                        EventProducerTypeCallback callback,
                                        gpointer user_data) noexcept {
  VARRO2_EXPECT(event_producer != NULL, FALSE);
  VARRO2_EXPECT(type != NULL, FALSE);
  VARRO2_EXPECT(declaration != NULL, FALSE);
  queue(*event_producer, [type = OwnedText{g_strdup(type)},
                          declaration = OwnedDeclaration{event_declaration_copy(declaration)},
                          callback, user_data](EventProducer &handle) {
    producer_add_declaration(handle.producer.get(), type.get(), declaration.get(), callback,
                             user_data);
  });
  return TRUE;
}

gboolean event_producer_remove_declaration(EventProducer *event_producer, const char *type,
                                           EventProducerTypeCallback callback,
                                           gpointer user_data) noexcept {
  VARRO2_EXPECT(event_producer != NULL, FALSE);
  VARRO2_EXPECT(type != NULL, FALSE);
  queue(*event_producer,
        [type = OwnedText{g_strdup(type)}, callback, user_data](EventProducer &handle) {
          producer_remove_declaration(handle.producer.get(), type.get(), callback, user_data);
        });
  return TRUE;
}
