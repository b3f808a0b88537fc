#include "objects.hpp"

#include "fakeswitch.hpp"
#include "mainloop.hpp"
#include "privatebus.hpp"

#include <cstdlib>

namespace varro2::test {
namespace {

Bytes bytes_of(const GByteArray *array) {
  return {array->data, array->data + array->len};
}

void append_declaration(gpointer declaration, GByteArray *array) {
  event_declaration_serialize_internal(static_cast<EventDeclaration *>(declaration), array);
}

// One bus and one switch for all rows that need them.
class Connected {
 public:
  static const Connected &get() {
    static const Connected connected;
    return connected;
  }
  void use() const { setenv("DBUS_SYSTEM_BUS_ADDRESS", bus_.address().c_str(), 1); }

 private:
  Connected() {
    Objects of;
    GList *declarations = g_list_append(nullptr, of.declaration());
    GByteArray *list = of.bytes();
    serialize_glist(list, declarations, append_declaration);
    g_list_free(declarations);
    switch_.answer_bytes("GetAllDeclarations", bytes_of(list));
    switch_.answer_bytes("GetDeclarationTypes", bytes_of(list));
    switch_.answer_bytes("GetPropertyState",
                         bytes_of(of.record<property_state_serialize_internal>(of.state())));
    switch_.come();
  }

  PrivateBus bus_;
  FakeSwitch switch_;
};

void use_no_bus() {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/varro2/bus", 1);
}

// Frees a handle and waits until the loop has done it.
template <auto free_function, typename Handle>
void free_and_wait(Handle *handle) {
  bool done = false;
  free_function(
      handle, [](Handle *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done);
  EXPECT_TRUE(iterate_until([&] { return done; }));
}

} // namespace

Objects::~Objects() {
  for (const Gift &gift : gifts_)
    gift.release();
  for (auto release = releases_.rbegin(); release != releases_.rend(); ++release)
    (*release)();
  g_clear_error(&error_slot);
  settle();
}

void Objects::keep_after_all(gconstpointer object) {
  for (Gift &gift : gifts_)
    if (object && gift.object == object)
      releases_.push_back(gift.release);
  std::erase_if(gifts_, [&](const Gift &gift) { return gift.object == object; });
}

void Objects::settle() {
  iterate_pending();
}

EventDeclaration *Objects::new_declaration(gboolean internal) {
  return keep(event_declaration_new(internal), event_declaration_free);
}

EventDeclaration *Objects::declaration() {
  EventDeclaration *declaration = new_declaration(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "door", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "text", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "count", VALUE_TYPE_INT);
  event_declaration_set_name_space(declaration, "text", "ns");
  event_declaration_set_complex_type_name(declaration, "text", "complex");
  event_declaration_set_value_user_string(declaration, "text", "user string");
  event_declaration_set_nice_names(declaration, "text", "Text", "Value");
  event_declaration_add_key_tag(declaration, "text", "tag");
  event_declaration_add_tag(declaration, "tag");
  event_declaration_set_local_id(declaration, 1);
  event_declaration_set_global_id(declaration, 2);
  event_declaration_set_producer_id(declaration, 3);
  return declaration;
}

EventDeclaration *Objects::property_declaration() {
  EventDeclaration *declaration = new_declaration(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "door", VALUE_TYPE_STRING);
  event_declaration_add_key_value(declaration, "open", "yes", VALUE_TYPE_STRING);
  event_declaration_set_property(declaration, "open", nullptr, nullptr);
  return declaration;
}

EventDeclaration *Objects::internal_declaration() {
  EventDeclaration *declaration = new_declaration(TRUE);
  event_declaration_add_key(declaration, "text", VALUE_TYPE_STRING);
  return declaration;
}

Event *Objects::event() {
  Event *event = keep(event_declaration_generate_event(declaration()), event_free);
  const gint32 count = 3;
  event_set_value(event, "text", "open");
  event_set_value(event, "count", &count);
  event_set_timestamp2(event, time());
  event_set_user_data_string(event, "user data");
  event_set_property(event, TRUE);
  return event;
}

SubscribeExpression *Objects::expression() {
  SubscribeExpression *expression =
      keep(subscribe_expression_new_full(TRUE), subscribe_expression_free);
  subscribe_expression_add_key(expression, "text");
  subscribe_expression_set_dbus_service(expression, ":1.1");
  subscribe_expression_set_dbus_object(expression, "/consumer");
  subscribe_expression_set_id(expression, 4);
  subscribe_expression_set_consumer_token(expression, 5);
  return expression;
}

PropertyState *Objects::state() {
  PropertyState *state = keep(property_state_new(), property_state_free);
  property_state_add_key_value(state, "port", "1", FALSE);
  property_state_add_key_value(state, "active", "1", TRUE);
  return state;
}

Notification *Objects::notification() {
  Notification *notification = keep(notification_new(), notification_free);
  EventDeclaration *told = declaration();
  inspectable_set_internal(event_declaration_get_inspectable(told), TRUE);
  const gchar *text = "open";
  inspectable_set_value(event_declaration_get_inspectable(told), "text", text);
  notification_set_declaration(notification, told);
  notification_set_subscribe_expression(notification, expression());
  notification_set_timestamp2(notification, time());
  notification_set_user_data_string(notification, "user data");
  notification_set_subscription_id(notification, 4);
  notification_set_declaration_id(notification, 2);
  notification_set_type(notification, NOTIFY_DECLARATION_REMOVED);
  return notification;
}

Inspectable *Objects::container(guint32 type) {
  Inspectable *container =
      keep(inspectable_copy(event_get_inspectable(event()), type), inspectable_free);
  inspectable_set_internal(container, TRUE);
  return container;
}

KeyValue *Objects::pair() {
  KeyValue *pair = keep(key_value_new("text", FALSE, "ns", "Text", "open", FALSE, "Value",
                                      "user string", "complex", FALSE),
                        key_value_free);
  key_value_add_tag(pair, "tag");
  return pair;
}

JsonOptions *Objects::options() {
  JsonOptions *options = keep(json_options_new(), json_options_free);
  json_options_set_serialnumber(options, "serial");
  json_options_set_pretty_printing(options, TRUE);
  json_options_set_format(options, JSON_FORMAT_ONVIF);
  return options;
}

IdGenerator *Objects::generator() {
  return keep(idgenerator_new(), idgenerator_free);
}

GDateTime *Objects::time() {
  return keep(g_date_time_new_from_unix_utc(1'700'000'000), g_date_time_unref);
}

XmlNode *Objects::node(const char *xml) {
  return keep(xmlnode_parse_string(xml), xmlnode_free_tree);
}

GByteArray *Objects::bytes() {
  return keep(g_byte_array_new(), g_byte_array_unref);
}

GList *Objects::texts(const char *first) {
  return keep(g_list_append(nullptr, g_strdup(first)), free_string_list);
}

EventProducer *Objects::producer() {
  if (!producer_) {
    use_no_bus();
    producer_ =
        keep(event_producer_new("producer"), free_and_wait<event_producer_int_free, EventProducer>);
    settle();
  }
  return producer_;
}

EventProducer *Objects::given_producer() {
  use_no_bus();
  EventProducer *producer =
      give(event_producer_new("producer"), free_and_wait<event_producer_int_free, EventProducer>);
  settle();
  return producer;
}

guint32 Objects::declared() {
  const guint32 id = event_producer_declare(producer(), declaration());
  settle();
  return id;
}

EventConsumer *Objects::consumer() {
  if (!consumer_) {
    use_no_bus();
    consumer_ =
        keep(event_consumer_new("consumer"), free_and_wait<event_consumer_int_free, EventConsumer>);
    settle();
  }
  return consumer_;
}

EventConsumer *Objects::given_consumer() {
  use_no_bus();
  EventConsumer *consumer =
      give(event_consumer_new("consumer"), free_and_wait<event_consumer_int_free, EventConsumer>);
  settle();
  return consumer;
}

guint32 Objects::subscribed() {
  const guint32 token = event_consumer_subscribe(
      connected_consumer(), expression(), [](Event *event, gpointer) { event_free(event); },
      nullptr);
  settle();
  return token;
}

EventQuery *Objects::given_query() {
  use_no_bus();
  EventQuery *query = give<EventQuery>(event_query_new(), event_query_free);
  settle();
  return query;
}

EventQuery *Objects::query() {
  use_no_bus();
  EventQuery *query = keep(event_query_new(), event_query_free);
  settle();
  return query;
}

Producer *Objects::bus_producer() {
  if (!bus_producer_)
    bus_producer_ = keep<Producer>(producer_new("producer", nullptr, nullptr),
                                   [](Producer *producer) { g_object_unref(producer); });
  return bus_producer_;
}

guint32 Objects::bus_declared() {
  producer_allocate_decl_data(bus_producer(), 1, event_declaration_copy(declaration()), nullptr,
                              nullptr);
  return 1;
}

Consumer *Objects::bus_consumer() {
  if (!bus_consumer_)
    bus_consumer_ = keep<Consumer>(consumer_new("consumer"),
                                   [](Consumer *consumer) { g_object_unref(consumer); });
  return bus_consumer_;
}

guint32 Objects::bus_subscribed() {
  consumer_prepare_subscribe(
      bus_consumer(), 1, expression(), [](Event *event, gpointer) { event_free(event); },
      [](Notification *notification, gpointer) { notification_free(notification); }, nullptr,
      SUBSCRIPTION_TYPE_NORMAL);
  return 1;
}

Query *Objects::bus_query() {
  return keep<Query>(query_new(), [](Query *query) { g_object_unref(query); });
}

EventProducer *Objects::connected_producer() {
  Connected::get().use();
  EventProducer *producer =
      keep(event_producer_new("producer"), free_and_wait<event_producer_int_free, EventProducer>);
  settle();
  return producer;
}

EventConsumer *Objects::connected_consumer() {
  if (!connected_consumer_) {
    Connected::get().use();
    connected_consumer_ =
        keep(event_consumer_new("consumer"), free_and_wait<event_consumer_int_free, EventConsumer>);
    settle();
  }
  return connected_consumer_;
}

EventQuery *Objects::connected_query() {
  Connected::get().use();
  EventQuery *query = keep<EventQuery>(event_query_new(), event_query_free);
  settle();
  return query;
}

Producer *Objects::connectable_bus_producer() {
  Producer *producer = bus_producer();
  Connected::get().use();
  return producer;
}

Producer *Objects::connected_bus_producer() {
  Producer *producer = connectable_bus_producer();
  GError *error = nullptr;
  EXPECT_TRUE(producer_init_dbus(producer, &error));
  return producer;
}

Consumer *Objects::connectable_bus_consumer() {
  Consumer *consumer = bus_consumer();
  Connected::get().use();
  return consumer;
}

Consumer *Objects::connected_bus_consumer() {
  Consumer *consumer = connectable_bus_consumer();
  GError *error = nullptr;
  EXPECT_TRUE(consumer_init_dbus(consumer, &error));
  return consumer;
}

Query *Objects::connectable_bus_query() {
  Query *query = bus_query();
  Connected::get().use();
  return query;
}

Query *Objects::connected_bus_query() {
  Query *query = connectable_bus_query();
  query_init_dbus(query);
  return query;
}

GError **Objects::taken_error() {
  g_set_error(&error_slot, g_quark_from_static_string("earlier"), 77, "earlier");
  return &error_slot;
}

EventDeclaration **Objects::declaration_slot() {
  releases_.push_back([this] { event_declaration_free(declaration_); });
  return &declaration_;
}

CallbackParams **Objects::params_slot() {
  releases_.push_back([this] { callback_params_free(params_); });
  return &params_;
}

sd_bus *Objects::bus() {
  sd_bus **slot = bus_slot();
  GError *error = nullptr;
  connect_to_bus_and_attach_events(&source_, slot, &error);
  EXPECT_EQ(error, nullptr) << error->message;
  return bus_;
}

sd_bus **Objects::bus_slot() {
  Connected::get().use();
  releases_.push_back([this] {
    if (bus_)
      disconnect_from_bus_and_detach_events(source_, bus_);
  });
  return &bus_;
}

} // namespace varro2::test
