// The events of a producer, and who gets them.
#include "preconditions.hpp"
#include "producer.hpp"

#include <varro2/error.h>

namespace varro2 {

/* ---- Events ---- */

bool ProducerState::send_event(const Event &event, GError **error) {
  ProducerDeclarationData *data = find(event_get_local_id(&event));
  if (data == nullptr) {
    g_set_error_literal(error, event_error_quark(), EVENT_ERROR_NOT_REGISTERED,
                        "The local declare id of the event is not registered.");
    return false;
  }
  if (event_is_property(&event))
    data->set_cached_event(OwnedEvent{event_copy(&event)});
  send_to_subscribers(event, *data);
  return true;
}

void ProducerState::send_to_subscribers(const Event &event, const ProducerDeclarationData &data) {
  if (!connection)
    return;
  data.subscribers.match(event, matching_);
  if (matching_.empty())
    return;
  if (matching_.size() == 1) {
    send_to(*matching_.front(), event);
    return;
  }
  const auto serialised = BytesRef::adopt(event_serialize(&event));
  for (const Subscriber *subscriber : matching_)
    send_to(*subscriber, serialised);
}

void ProducerState::send_to(const Subscriber &subscriber, const BytesRef &serialised) {
  connection->window().send(subscriber.service(),
                            make_window_call(served_consumer::event, subscriber.object(),
                                             serialised, {subscriber.token()}));
}

void ProducerState::send_to(const Subscriber &subscriber, const Event &event) {
  connection->window().send(
      subscriber.service(),
      make_window_call(served_consumer::event, subscriber.object(), event, subscriber.token()));
}

void ProducerState::send_cached(ProducerDeclarationData &data, guint32 subscription_id) {
  const EventDeclaration *declaration = data.declaration.get();
  if (!event_declaration_is_property(declaration) || !data.cached_event)
    return;
  Event *event = data.cached_event.get();
  const guint32 global_id = event_declaration_get_global_id(declaration);
  // The ids of a former switch mean nothing to the present one.
  const bool outdated = data.cached_ids_outdated && global_id != 0;
  if (outdated || event_get_global_id(event) == 0)
    event_set_global_id(event, global_id);
  if (outdated || event_get_producer_id(event) == 0)
    event_set_producer_id(event, event_declaration_get_producer_id(declaration));
  if (outdated)
    data.cached_ids_outdated = false;
  if (event_get_global_id(event) == 0)
    return;
  VARRO2_ASSERT_AS("producer_handle_property_unlocked", "event_is_complete(event)",
                   event_is_complete(event));
  const Subscriber *subscriber = data.subscribers.find(subscription_id);
  if (subscriber != nullptr && subscriber->wants(*event) && connection)
    send_to(*subscriber, *event);
}

void ProducerState::add_callback_params(guint32 local_id, const CallbackParams &params) {
  ProducerDeclarationData *data = find(local_id);
  if (data == nullptr)
    return;
  OwnedEvent event{event_declaration_generate_event(data->declaration.get())};
  set_event_time_now(event.get());
  inspectable_set_value_as_string(event_get_inspectable(event.get()), params.key, params.value);
  data->set_cached_event(std::move(event));
}

/* ---- Subscribers ---- */

void ProducerState::report_subscribers() {
  if (subscribers_changed_ == nullptr)
    return;
  GArray *local_ids = g_array_new(FALSE, FALSE, sizeof(guint32));
  for (const auto &[local_id, data] : declarations_)
    if (data->subscribers.any_counted())
      g_array_append_val(local_ids, local_id);
  subscribers_changed_(local_ids, user_data_);
  g_array_unref(local_ids);
}

void ProducerState::receive_subscribe(const GByteArray &bytes, guint32 local_id) {
  ProducerDeclarationData *data = find(local_id);
  if (data == nullptr)
    return;
  const bool had_counted = data->subscribers.any_counted();
  const guint32 id =
      data->subscribers
          .add(OwnedExpression{subscribe_expression_deserialize(&bytes)}, data->declaration.get())
          .id();
  if (!had_counted && data->subscribers.any_counted())
    report_subscribers();
  receive_refresh(id, local_id); // looks the declaration up again: the report may have released it
}

void ProducerState::receive_refresh(guint32 subscription_id, guint32 local_id) {
  if (ProducerDeclarationData *data = find(local_id))
    send_cached(*data, subscription_id);
}

void ProducerState::receive_unsubscribe(guint32 subscription_id, guint32 local_id) {
  ProducerDeclarationData *data = find(local_id);
  if (data == nullptr)
    return;
  const bool had_counted = data->subscribers.any_counted();
  data->subscribers.remove(subscription_id);
  if (had_counted && !data->subscribers.any_counted())
    report_subscribers();
}

} // namespace varro2
