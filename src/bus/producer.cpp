#include "producer.hpp"

#include "preconditions.hpp"

using namespace varro2;

GType producer_get_type(void) noexcept {
  return ProducerClass::get_type("Producer");
}

Producer *producer_new(const char *name, ProducerSubscribersChanged subscribers_changed,
                       gpointer user_data) noexcept {
  VARRO2_EXPECT(name != NULL, nullptr);
  auto *producer = static_cast<Producer *>(g_object_new(producer_get_type(), nullptr));
  locked(producer)->set_application(name, subscribers_changed, user_data);
  return producer;
}

gboolean producer_init_dbus(Producer *producer, GError **error) noexcept {
  VARRO2_EXPECT(producer != NULL, FALSE);
  VARRO2_ASSERT(error != NULL && *error == NULL);
  return locked(producer)->init_dbus(error);
}

void producer_prepare_free(Producer *producer) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->prepare_free();
}

/* ---- Declarations ---- */

void producer_allocate_decl_data(Producer *producer, guint32 local_id,
                                 EventDeclaration *declaration,
                                 ProducerCompleteCallback complete_cb,
                                 gpointer complete_data) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(declaration != NULL);
  const LockedProducer self{producer};
  const ProducerDeclarationData *declared = self->find(local_id);
  VARRO2_ASSERT(declared == NULL);
  self->allocate(local_id, declaration, complete_cb, complete_data);
}

void producer_send_declare(Producer *producer, guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->declare(local_id);
}

gboolean producer_declaration_complete(Producer *producer, guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL, FALSE);
  const LockedProducer self{producer};
  const ProducerDeclarationData *data = self->find(local_id);
  return data != nullptr && event_declaration_get_global_id(data->declaration.get()) != 0;
}

ProducerDeclarationData *producer_release_declare_id(Producer *producer,
                                                     guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL, nullptr);
  return locked(producer)->release(local_id).release();
}

void producer_send_undeclare(Producer *producer,
                             ProducerDeclarationData *declaration_data) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(declaration_data != NULL);
  const LockedProducer self{producer};
  const std::unique_ptr<ProducerDeclarationData> data{declaration_data};
  self->undeclare(*data);
}

void producer_add_callback_params(Producer *producer, guint32 local_id,
                                  const CallbackParams *params) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(params != NULL);
  locked(producer)->add_callback_params(local_id, *params);
}

/* ---- Events ---- */

Event *producer_prepare_event(Producer *producer, guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL, nullptr);
  const LockedProducer self{producer};
  const ProducerDeclarationData *data = self->find(local_id);
  return data != nullptr ? event_declaration_generate_event(data->declaration.get()) : nullptr;
}

void producer_fill_global_event_data(Producer *producer, Event *event) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(event != NULL);
  const LockedProducer self{producer};
  const ProducerDeclarationData *data = self->find(event_get_local_id(event));
  if (data == nullptr)
    return;
  const EventDeclaration *declaration = data->declaration.get();
  event_set_global_id(event, event_declaration_get_global_id(declaration));
  event_set_producer_id(event, event_declaration_get_producer_id(declaration));
}

gboolean producer_send_event(Producer *producer, const Event *event, GError **error) noexcept {
  VARRO2_EXPECT(producer != NULL, FALSE);
  VARRO2_EXPECT(event != NULL, FALSE);
  VARRO2_ASSERT(error == NULL || *error == NULL);
  return locked(producer)->send_event(*event, error);
}

/* ---- The switch ---- */

void producer_send_disconnect(Producer *producer) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->disconnect();
}

void producer_add_declaration(Producer *producer, const char *type,
                              const EventDeclaration *declaration,
                              ProducerUserDeclarationCallback callback,
                              gpointer user_data) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(type != NULL);
  VARRO2_EXPECT(declaration != NULL);
  locked(producer)->add_type(type, *declaration, callback, user_data);
}

void producer_remove_declaration(Producer *producer, const char *type,
                                 ProducerUserDeclarationCallback callback,
                                 gpointer user_data) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(type != NULL);
  locked(producer)->remove_type(type, callback, user_data);
}

void producer_receive_global_declare_id(Producer *producer, guint32 local_id, guint32 global_id,
                                        guint32 producer_id) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->receive_global_id(local_id, global_id, producer_id);
}

void producer_receive_declaration_complete(Producer *producer, guint32 local_id,
                                           guint32 global_id) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->receive_complete(local_id, global_id);
}

void producer_receive_subscribe(Producer *producer, GByteArray *bytes, guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL);
  VARRO2_EXPECT(bytes != NULL);
  locked(producer)->receive_subscribe(*bytes, local_id);
}

void producer_receive_refresh_property(Producer *producer, guint32 subscription_id,
                                       guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->receive_refresh(subscription_id, local_id);
}

void producer_receive_unsubscribe(Producer *producer, guint32 subscription_id,
                                  guint32 local_id) noexcept {
  VARRO2_EXPECT(producer != NULL);
  locked(producer)->receive_unsubscribe(subscription_id, local_id);
}
