// libmosquitto over its own broker, whose port stands in BENCH_MQTT_PORT: quality of service 1, so
// that each side has the broker's word for each message.
#include "harness.hpp"

#include <mosquitto.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>

namespace {

using namespace bench;

constexpr const char *topic = "bench/event";
constexpr int quality = 1;

void check(int r, const char *what) {
  if (r != MOSQ_ERR_SUCCESS) {
    std::fprintf(stderr, "%s: %s\n", what, mosquitto_strerror(r));
    std::exit(1);
  }
}

template <typename Base>
class Connected : public Base {
 public:
  Connected() {
    mosquitto_lib_init();
    client_ = mosquitto_new(nullptr, true, this);
    check(mosquitto_int_option(client_, MOSQ_OPT_TCP_NODELAY, 1), "no delay");
    check(mosquitto_connect(client_, "127.0.0.1", std::atoi(std::getenv("BENCH_MQTT_PORT")), 60),
          "connect");
  }

  void watch(int descriptor, std::function<void()> readable) override {
    loop_.watch(descriptor, std::move(readable));
  }
  void run() override {
    while (loop_.running)
      turn();
  }
  void quit() override { loop_.running = false; }

 protected:
  void turn() {
    const short wanted = mosquitto_want_write(client_) ? POLLIN | POLLOUT : POLLIN;
    const short ready = loop_.wait(mosquitto_socket(client_), wanted, 1000);
    if (ready & (POLLIN | POLLHUP | POLLERR))
      check(mosquitto_loop_read(client_, 1), "read");
    if (ready & POLLOUT)
      check(mosquitto_loop_write(client_, 1), "write");
    check(mosquitto_loop_misc(client_), "misc");
  }

  mosquitto *client_ = nullptr;
  PollLoop loop_;
};

class Consumer final : public Connected<ConsumerSide> {
 public:
  explicit Consumer(const Options &options) : payload_{options.payload} {
    mosquitto_message_callback_set(
        client_, [](mosquitto *, void *data, const mosquitto_message *message) {
          auto *self = static_cast<Consumer *>(static_cast<Connected<ConsumerSide> *>(data));
          self->received(self->payload_.stamp_of({static_cast<const char *>(message->payload),
                                                  static_cast<size_t>(message->payloadlen)}));
        });
    mosquitto_subscribe_callback_set(client_, [](mosquitto *, void *data, int, int, const int *) {
      auto *self = static_cast<Consumer *>(static_cast<Connected<ConsumerSide> *>(data));
      self->subscribed_ = true;
    });
    check(mosquitto_subscribe(client_, nullptr, topic, quality), "subscribe");
    while (!subscribed_)
      turn();
  }

  std::string address() override { return topic; }

 private:
  Payload payload_;
  bool subscribed_ = false;
};

// The broker hands an event on to all consumers: it is published once.
class Producer final : public Connected<ProducerSide> {
 public:
  explicit Producer(const Options &options) : payload_{options.payload} {}

  bool counts_answers() const override { return false; }

  void send() override {
    payload_.stamp();
    check(mosquitto_publish(client_, nullptr, topic, static_cast<int>(payload_.bytes().size()),
                            payload_.bytes().data(), quality, false),
          "publish");
  }

 private:
  Payload payload_;
};

} // namespace

int main(int argc, char **argv) {
  return run_side(
      argc, argv, [](const Options &options) { return std::make_unique<Consumer>(options); },
      [](const Options &options) { return std::make_unique<Producer>(options); });
}
