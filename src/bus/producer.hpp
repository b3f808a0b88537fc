// The state behind a Producer. All its functions run with the lock held.
#pragma once

#include "busobject.hpp"
#include "subscribers.hpp"

#include <varro2/producer.h>

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace varro2 {

using OwnedEvent = Owned<Event, event_free>;

} // namespace varro2

struct Producer {
  GObject parent;
};

struct ProducerDeclarationData final {
  // Shared with whoever runs its property hook: the hook may undeclare it.
  std::shared_ptr<EventDeclaration> declaration;
  bool sent = false;                              // to the switch that is there now
  std::uint64_t attempt = 0;                      // which sending that was
  std::uint64_t released_under = 0;               // which switch there was when it was released
  ProducerCompleteCallback complete_cb = nullptr; // none once called
  gpointer complete_data = nullptr;
  varro2::OwnedEvent cached_event{}; // the last complete one of a property
  bool cached_ids_outdated = false;  // they are of a switch that has gone
  varro2::Subscribers subscribers{};

  void set_cached_event(varro2::OwnedEvent event);
};

namespace varro2 {

class ProducerState final : public BusObject {
 public:
  explicit ProducerState(Producer *producer);
  void retire() { Connection::retire(std::move(connection)); }

  bool init_dbus(GError **error);
  void prepare_free();
  void set_application(const char *producer_name, ProducerSubscribersChanged callback,
                       gpointer user_data);

  void allocate(guint32 local_id, EventDeclaration *declaration,
                ProducerCompleteCallback complete_cb, gpointer complete_data);
  std::unique_ptr<ProducerDeclarationData> release(guint32 local_id);
  ProducerDeclarationData *find(guint32 local_id) const;

  void declare(guint32 local_id);
  void undeclare(guint32 global_id);
  void undeclare(const ProducerDeclarationData &released);
  bool send_event(const Event &event, GError **error);
  void disconnect();
  void add_type(const char *type, const EventDeclaration &declaration,
                ProducerUserDeclarationCallback callback, gpointer user_data);
  void remove_type(const char *type, ProducerUserDeclarationCallback callback, gpointer user_data);
  void add_callback_params(guint32 local_id, const CallbackParams &params);

  void receive_global_id(guint32 local_id, guint32 global_id, guint32 producer_id);
  void receive_complete(guint32 local_id, guint32 global_id);
  void receive_subscribe(const GByteArray &bytes, guint32 local_id);
  void receive_refresh(guint32 subscription_id, guint32 local_id);
  void receive_unsubscribe(guint32 subscription_id, guint32 local_id);

  void switch_online();
  void switch_offline();

 private:
  // Who waits for the answer about a declaration type.
  struct TypeRequest {
    std::string type;
    ProducerUserDeclarationCallback callback;
    gpointer user_data;

    void answer(OwnedError error) const;
  };

  void send_declaration(guint32 local_id, ProducerDeclarationData &data);
  void note_undelivered(guint32 local_id, std::uint64_t attempt);
  void send_all_declarations();
  void send_to_subscribers(const Event &event, const ProducerDeclarationData &data);
  void send_to(const Subscriber &subscriber, const BytesRef &serialised);
  void send_to(const Subscriber &subscriber, const Event &event);
  void send_cached(ProducerDeclarationData &data, guint32 subscription_id);
  void report_subscribers();
  void request_type(MessageRef message, std::size_t size, TypeRequest request);

  Producer *producer_; // the object that this is part of
  ProducerSubscribersChanged subscribers_changed_ = nullptr;
  gpointer user_data_ = nullptr;
  std::map<guint32, std::unique_ptr<ProducerDeclarationData>> declarations_; // by local id
  std::uint64_t attempts_ = 0;
  std::uint64_t switches_gone_ = 0;
  std::vector<const Subscriber *> matching_; // kept for its memory
};

using ProducerClass = ObjectClass<Producer, ProducerState>;
using LockedProducer = Locked<Producer, ProducerState>;

// For one operation.
inline LockedProducer locked(Producer *producer) {
  return LockedProducer{producer};
}

extern const sd_bus_vtable producer_vtable[];

} // namespace varro2
