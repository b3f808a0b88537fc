#include "live.hpp"

namespace varro2::test {

bool Failure::is(int code, const std::string &text) const {
  return error_ && error_->domain == event_error_quark() && error_->code == code &&
         error_->message == text;
}

ProducerHandle::ProducerHandle(const char *name)
    : producer_{event_producer_new_full(
          name,
          [](GArray *ids, gpointer self) {
            const auto *first = reinterpret_cast<guint32 *>(ids->data);
            static_cast<ProducerHandle *>(self)->reports_.emplace_back(first, first + ids->len);
          },
          this)} {}

ProducerHandle::~ProducerHandle() {
  free();
}

void ProducerHandle::free() {
  if (!producer_)
    return;
  bool done = false;
  event_producer_int_free(
      std::exchange(producer_, nullptr),
      [](auto *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done);
  EXPECT_TRUE(iterate_until([&] { return done; }));
}

ConsumerHandle::ConsumerHandle(const char *name) : consumer_{event_consumer_new(name)} {}

ConsumerHandle::~ConsumerHandle() {
  free();
}

void ConsumerHandle::free() {
  if (!consumer_)
    return;
  bool done = false;
  event_consumer_int_free(
      std::exchange(consumer_, nullptr),
      [](auto *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done);
  EXPECT_TRUE(iterate_until([&] { return done; }));
}

void Inbox::on_event(Event *event, gpointer inbox) {
  static_cast<Inbox *>(inbox)->events.emplace_back(event);
}

void Inbox::on_notification(Notification *notification, gpointer inbox) {
  static_cast<Inbox *>(inbox)->notifications.emplace_back(notification);
}

void Inbox::on_secure_event(Event *event, guint32 uid, gpointer inbox) {
  static_cast<Inbox *>(inbox)->uids.push_back(uid);
  on_event(event, inbox);
}

void Inbox::on_secure_notification(Notification *notification, guint32 uid, gpointer inbox) {
  static_cast<Inbox *>(inbox)->uids.push_back(uid);
  on_notification(notification, inbox);
}

HeldDeclaration greeting() {
  HeldDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", "Greeting", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration.get(), "text", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration.get(), "count", VALUE_TYPE_INT);
  return declaration;
}

wire::AndList greeting_pairs() {
  return {
      {"topic0", "Greeting"}, wire::open("text", wire::string), wire::open("count", wire::integer)};
}

wire::AndList greeting_pairs(const std::string &text, int count) {
  return {{"topic0", "Greeting"}, {"text", text}, {"count", std::to_string(count), wire::integer}};
}

HeldDeclaration door() {
  HeldDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", "Door", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration.get(), "open", VALUE_TYPE_BOOL);
  event_declaration_set_property(declaration.get(), "open", nullptr, nullptr);
  return declaration;
}

wire::AndList door_pairs(bool open) {
  wire::Pair state{"open", open ? "1" : "0", wire::boolean};
  state.tags = {"property-state"};
  return {{"topic0", "Door"}, state};
}

HeldExpression wants(const char *key, const char *value) {
  HeldExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), key, value);
  return expression;
}

HeldEvent prepared_greeting(EventProducer *producer, guint32 local_id, const char *text,
                            gint32 count) {
  HeldEvent event{event_producer_prepare_event(producer, local_id)};
  event_set_value(event.get(), "text", text);
  event_set_value(event.get(), "count", &count);
  return event;
}

bool send_door(EventProducer *producer, guint32 local_id, gboolean open) {
  const HeldEvent event{event_producer_prepare_event(producer, local_id)};
  event_set_value(event.get(), "open", &open);
  return event_producer_send_event(producer, event.get(), nullptr);
}

Live::Declared Live::declare(const ProducerHandle &producer, const EventDeclaration *declaration) {
  const auto before = switch_.count("Declare");
  const guint32 local_id = event_producer_declare(producer.get(), declaration);
  EXPECT_NE(local_id, 0U);
  EXPECT_TRUE(switch_.wait_for("Declare", before + 1));
  return {local_id, local_id + 100, switch_.calls("Declare").at(before)};
}

void Live::identify(const Declared &declared) {
  const auto named = switch_.global_declare_id(declared.declare, declared.local_id,
                                               declared.global_id, producer_id);
  EXPECT_EQ(named.error_name, "");
  EXPECT_EQ(named.signature, "");
  const auto completed =
      switch_.declaration_complete(declared.declare, declared.local_id, declared.global_id);
  EXPECT_EQ(completed.error_name, "");
  EXPECT_EQ(completed.signature, "");
}

Live::Declared Live::declare_fully(const ProducerHandle &producer,
                                   const EventDeclaration *declaration) {
  const auto declared = declare(producer, declaration);
  identify(declared);
  return declared;
}

void Live::subscribe(const Declared &declared, const ForeignPeer &peer, const std::string &object,
                     std::uint32_t subscription_id, std::uint32_t token, const wire::AndList &tests,
                     bool clandestine) {
  const auto answer = switch_.subscribe(
      declared.declare,
      wire::subscription({subscription_id, peer.unique_name(), object, token, clandestine},
                         {tests}),
      declared.local_id);
  EXPECT_EQ(answer.error_name, "");
  EXPECT_EQ(answer.signature, "");
}

void Live::TearDown() {
  iterate_pending();
  if (expect_quiet_log_) {
    EXPECT_EQ(log_.texts(), std::vector<std::string>{});
  }
}

} // namespace varro2::test
