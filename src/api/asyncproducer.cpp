#include "eventproducer.hpp"

#include "preconditions.hpp"

#include <varro2/asyncproducer.h>

using namespace varro2;

EventProducer *async_producer_new(const char *name, EventProducerSetupCallback setup_callback,
                                  ProducerSubscribersChanged subscribers_changed,
                                  gpointer user_data) noexcept {
  VARRO2_EXPECT(name != NULL, NULL);
  EventProducer *event_producer = event_producer_int_new_empty();
  queue(*event_producer, [name = OwnedText{g_strdup(name)}, setup_callback, subscribers_changed,
                          user_data](EventProducer &handle) {
    event_producer_int_setup(&handle, name.get(), setup_callback, subscribers_changed, user_data);
  });
  return event_producer;
}

void async_producer_free(EventProducer *event_producer, EventProducerDoneCallback done_callback,
                         gpointer user_data) noexcept {
  if (!event_producer)
    return;
  queue(*event_producer, [done_callback, user_data](EventProducer &handle) {
    event_producer_int_free(&handle, done_callback, user_data);
  });
}

guint32 async_producer_declare(EventProducer *event_producer, const EventDeclaration *declaration,
                               EventProducerDeclaredCallback declared_callback,
                               EventProducerNotifyCallback notify, gpointer user_data,
                               GError **error) noexcept {
  const guint32 local_declare_id =
      event_producer_int_get_decl_id(event_producer, declaration, error);
  if (local_declare_id == 0)
    return 0;
  queue(*event_producer,
        [declaration = OwnedDeclaration{event_declaration_copy(declaration)}, declared_callback,
         notify, user_data, local_declare_id](EventProducer &handle) {
          event_producer_int_declare(&handle, declaration.get(), local_declare_id,
                                     declared_callback, notify, user_data);
        });
  return local_declare_id;
}

guint32 async_producer_register_string_list(EventProducer *event_producer, const char *type,
                                            EventProducerDeclaredCallback declared_callback,
                                            EventProducerNotifyCallback notify, gpointer user_data,
                                            GList *list, GError **error) noexcept {
  OwnedDeclaration declaration;
  OwnedParams params;
  event_producer_int_register_list(type, list, out_of(declaration), out_of(params), error);
  if (!declaration)
    return 0;
  VARRO2_ASSERT(error == NULL || *error == NULL);
  const guint32 local_declare_id =
      event_producer_int_get_decl_id(event_producer, declaration.get(), error);
  if (local_declare_id == 0)
    return 0;
  queue(*event_producer,
        [declaration = std::move(declaration), params = std::move(params), declared_callback,
         notify, user_data, local_declare_id](EventProducer &handle) {
          declare_registered(&handle, *declaration, params.get(), local_declare_id,
                             declared_callback, notify, user_data);
        });
  return local_declare_id;
}

guint32 async_producer_register_list(EventProducer *event_producer, const char *type,
                                     EventProducerDeclaredCallback declared_callback,
                                     EventProducerNotifyCallback notify, gpointer user_data,
                                     GList *list, GError **error) noexcept {
  const OwnedRegisterList texts{event_producer_int_convert_to_string_list(list)};
  return async_producer_register_string_list(event_producer, type, declared_callback, notify,
                                             user_data, texts.get(), error);
}

guint32 async_producer_register(EventProducer *event_producer, const char *type,
                                EventProducerDeclaredCallback declared_callback,
                                EventProducerNotifyCallback notify, gpointer user_data,
                                GError **error, ...) noexcept {
  va_list arguments;
  va_start(arguments, error);
  const OwnedRegisterList texts{event_producer_int_parse_register_valist(arguments)};
  va_end(arguments);
  return async_producer_register_string_list(event_producer, type, declared_callback, notify,
                                             user_data, texts.get(), error);
}

void async_producer_undeclare(EventProducer *event_producer, guint32 local_declare_id,
                              EventProducerUndeclareCallback callback,
                              gpointer user_data) noexcept {
  VARRO2_EXPECT(event_producer != NULL);
  VARRO2_EXPECT(local_declare_id != 0);
  queue(*event_producer, [local_declare_id, callback, user_data](EventProducer &handle) {
    event_producer_int_undeclare(&handle, local_declare_id, callback, user_data);
  });
}

Event *async_producer_prepare_event(EventProducer *event_producer,
                                    guint32 local_declare_id) noexcept {
  return event_producer_prepare_event(event_producer, local_declare_id);
}

void async_producer_send_event(EventProducer *event_producer, const Event *event,
                               EventProducerSendCallback send_callback,
                               gpointer user_data) noexcept {
  VARRO2_EXPECT(event_producer != NULL);
  queue(*event_producer, [event, copy = OwnedEvent{event ? event_copy(event) : nullptr},
                          send_callback, user_data](EventProducer &handle) mutable {
    event_producer_int_send_event(&handle, event, copy.release(), send_callback, user_data, NULL);
  });
}
