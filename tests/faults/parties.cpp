#include "parties.hpp"

#include <stdlib.h>

#include <filesystem>

namespace varro2::test {
namespace {

std::string text_of(GError *error) {
  std::string text = error ? error->message : "";
  g_clear_error(&error);
  return text;
}

} // namespace

std::size_t open_descriptors() {
  return static_cast<std::size_t>(
      std::distance(std::filesystem::directory_iterator{"/proc/self/fd"}, {}));
}

Sender::Sender(const std::string &address) : producer_{event_producer_int_new_empty()} {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  event_producer_int_setup(
      producer_, "sender",
      [](EventProducer *, gpointer data, GError *error) {
        static_cast<Sender *>(data)->setup_error_ = text_of(error);
        static_cast<Sender *>(data)->set_up_ = true;
      },
      [](GArray *ids, gpointer data) {
        const auto *first = reinterpret_cast<guint32 *>(ids->data);
        static_cast<Sender *>(data)->subscribed_ = {first, first + ids->len};
      },
      this);
  EXPECT_TRUE(iterate_until([this] { return set_up_; }));
  greeting_ = event_producer_declare(producer_, greeting().get());
  door_ = event_producer_declare(producer_, door().get());
}

Sender::~Sender() {
  end();
  EXPECT_TRUE(iterate_until([this] { return done_; }));
}

bool Sender::greet(gint32 count) {
  const HeldEvent event = prepared_greeting(producer_, greeting_, "again", count);
  return event_producer_send_event(producer_, event.get(), nullptr);
}

bool Sender::open_door() {
  return send_door(producer_, door_, TRUE);
}

void Sender::withdraw() {
  for (guint32 *id : {&greeting_, &door_})
    if (const guint32 declared = std::exchange(*id, 0))
      event_producer_undeclare(producer_, declared);
}

void Sender::end() {
  if (producer_)
    event_producer_int_free(
        std::exchange(producer_, nullptr),
        [](EventProducer *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done_);
}

Receiver::Receiver(const std::string &address) : consumer_{event_consumer_int_new_empty()} {
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  event_consumer_int_setup(
      consumer_, "receiver",
      [](EventConsumer *, gpointer data, GError *error) {
        static_cast<Receiver *>(data)->setup_error_ = text_of(error);
        static_cast<Receiver *>(data)->set_up_ = true;
      },
      this);
  EXPECT_TRUE(iterate_until([this] { return set_up_; }));
  const auto on_greeting = [](Event *received, gpointer data) {
    const HeldEvent event{received};
    gint32 count = 0;
    event_get_typed_value(event.get(), "count", &count);
    static_cast<Receiver *>(data)->greetings_.push_back(count);
  };
  const auto on_door = [](Event *received, gpointer data) {
    const HeldEvent event{received};
    gboolean open = FALSE;
    event_get_typed_value(event.get(), "open", &open);
    static_cast<Receiver *>(data)->saw_open_door_ = open;
  };
  tokens_.push_back(
      event_consumer_subscribe(consumer_, wants("topic0", "Greeting").get(), on_greeting, this));
  tokens_.push_back(
      event_consumer_subscribe(consumer_, wants("topic0", "Door").get(), on_door, this));
}

Receiver::~Receiver() {
  end();
  EXPECT_TRUE(iterate_until([this] { return done_; }));
}

void Receiver::unsubscribe() {
  for (const guint32 token : std::exchange(tokens_, {}))
    event_consumer_unsubscribe(consumer_, token, nullptr);
}

void Receiver::end() {
  if (consumer_)
    event_consumer_int_free(
        std::exchange(consumer_, nullptr),
        [](EventConsumer *, gpointer flag) { *static_cast<bool *>(flag) = true; }, &done_);
}

} // namespace varro2::test
