// The limit: the same bytes between two programs that have nothing but sd-bus and an sd-event loop.
#include "harness.hpp"

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

using namespace bench;

constexpr const char *path = "/com/quor/Event/Consumer/0x55d0c0ffee10"; // as long as the library's
constexpr const char *interface = "com.quor.Event.Consumer";

int check(int r, const char *what) {
  if (r < 0) {
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(-r));
    std::exit(1);
  }
  return r;
}

template <typename Base>
class Connected : public Base {
 public:
  Connected() {
    check(sd_event_default(&event_), "sd_event_default");
    check(sd_bus_open_system(&bus_), "sd_bus_open_system");
    check(sd_bus_attach_event(bus_, event_, SD_EVENT_PRIORITY_NORMAL), "sd_bus_attach_event");
  }

  void watch(int descriptor, std::function<void()> readable) override {
    check(sd_event_add_io(
              event_, nullptr, descriptor, 1 /* EPOLLIN */,
              [](sd_event_source *, int, uint32_t, void *data) {
                (*static_cast<std::function<void()> *>(data))();
                return 0;
              },
              new std::function<void()>{std::move(readable)}),
          "sd_event_add_io");
  }
  void run() override { check(sd_event_loop(event_), "sd_event_loop"); }
  void quit() override { sd_event_exit(event_, 0); }

 protected:
  sd_event *event_ = nullptr;
  sd_bus *bus_ = nullptr;
};

class Consumer final : public Connected<ConsumerSide> {
 public:
  explicit Consumer(const Options &options) : payload_{options.payload} {
    static const sd_bus_vtable vtable[] = {
        SD_BUS_VTABLE_START(0),
        SD_BUS_METHOD("Event", "ayu", nullptr, on_event, SD_BUS_VTABLE_UNPRIVILEGED),
        SD_BUS_VTABLE_END};
    check(sd_bus_add_object_vtable(bus_, nullptr, path, interface, vtable, this), "vtable");
  }

  std::string address() override {
    const char *name = nullptr;
    check(sd_bus_get_unique_name(bus_, &name), "sd_bus_get_unique_name");
    return name;
  }

 private:
  static int on_event(sd_bus_message *message, void *data, sd_bus_error *) {
    auto *self = static_cast<Consumer *>(data);
    const void *bytes = nullptr;
    size_t length = 0;
    uint32_t token = 0;
    check(sd_bus_message_read_array(message, 'y', &bytes, &length), "read");
    check(sd_bus_message_read_basic(message, 'u', &token), "read");
    self->received(self->payload_.stamp_of({static_cast<const char *>(bytes), length}));
    return sd_bus_reply_method_return(message, nullptr);
  }

  Payload payload_;
};

class Producer final : public Connected<ProducerSide> {
 public:
  explicit Producer(const Options &options)
      : payload_{options.payload}, addresses_{options.addresses} {}

  bool counts_answers() const override { return true; }

  void send() override {
    payload_.stamp();
    for (const std::string &address : addresses_) {
      sd_bus_message *message = nullptr;
      check(
          sd_bus_message_new_method_call(bus_, &message, address.c_str(), path, interface, "Event"),
          "new_method_call");
      check(sd_bus_message_append_array(message, 'y', payload_.bytes().data(),
                                        payload_.bytes().size()),
            "append");
      const uint32_t token = 1;
      check(sd_bus_message_append_basic(message, 'u', &token), "append");
      check(sd_bus_call_async(bus_, nullptr, message, on_answer, this, 60'000'000), "call");
      sd_bus_message_unref(message);
    }
  }

 private:
  static int on_answer(sd_bus_message *message, void *data, sd_bus_error *) {
    check(-sd_bus_message_get_errno(message), "answer");
    static_cast<Producer *>(data)->answered();
    return 0;
  }

  Payload payload_;
  std::vector<std::string> addresses_;
};

} // namespace

int main(int argc, char **argv) {
  return run_side(
      argc, argv, [](const Options &options) { return std::make_unique<Consumer>(options); },
      [](const Options &options) { return std::make_unique<Producer>(options); });
}
