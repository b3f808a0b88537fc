#include "eventconsumer.hpp"

#include "preconditions.hpp"

#include <varro2/asyncconsumer.h>

using namespace varro2;

EventConsumer *async_consumer_new(const char *name, EventConsumerSetupCallback setup_callback,
                                  gpointer user_data) noexcept {
  VARRO2_EXPECT(name != NULL, NULL);
  EventConsumer *event_consumer = event_consumer_int_new_empty();
  queue(*event_consumer,
        [name = OwnedText{g_strdup(name)}, setup_callback, user_data](EventConsumer &handle) {
          event_consumer_int_setup(&handle, name.get(), setup_callback, user_data);
        });
  return event_consumer;
}

void async_consumer_free(EventConsumer *event_consumer, EventConsumerDoneCallback done_callback,
                         gpointer user_data) noexcept {
  if (!event_consumer)
    return;
  queue(*event_consumer, [done_callback, user_data](EventConsumer &handle) {
    event_consumer_int_free(&handle, done_callback, user_data);
  });
}

guint32 async_consumer_subscribe(EventConsumer *event_consumer,
                                 const SubscribeExpression *subscribe_expression,
                                 EventConsumerSubscribedCallback subscribed_callback,
                                 EventConsumerEventCallback event_callback,
                                 EventConsumerNotificationCallback notification_callback,
                                 gpointer user_data, guint32 subscription_type,
                                 GError **error) noexcept {
  const guint32 token = event_consumer_int_generate_token(event_consumer, subscribe_expression,
                                                          event_callback, subscription_type, error);
  if (token == 0)
    return 0;
  queue(*event_consumer,
        [token, subscribe_expression, subscribed_callback, event_callback, notification_callback,
         subscription_type, user_data](EventConsumer &handle) {
          event_consumer_int_subscribe(&handle, token, subscribe_expression, subscribed_callback,
                                       event_callback, notification_callback, subscription_type,
                                       user_data);
        });
  return token;
}

void async_consumer_refresh(EventConsumer *event_consumer, guint32 token,
                            EventConsumerTokenCallback callback, gpointer user_data) noexcept {
  VARRO2_ASSERT(event_consumer != NULL);
  queue(*event_consumer, [token, callback, user_data](EventConsumer &handle) {
    event_consumer_int_refresh(&handle, token, callback, user_data, NULL);
  });
}

void async_consumer_unsubscribe(EventConsumer *event_consumer, guint32 token,
                                EventConsumerTokenCallback callback, gpointer user_data) noexcept {
  VARRO2_ASSERT(event_consumer != NULL);
  queue(*event_consumer, [token, callback, user_data](EventConsumer &handle) {
    event_consumer_int_unsubscribe(&handle, token, callback, user_data, NULL);
  });
}
