// crowd NUMBER TOPIC: so many consumers, each on a connection of its own, that subscribe to a
// topic, answer every call and count the notifications. Prints "ready" when all have subscribed,
// and "notified COUNT" whenever all have got some more.
#include <varro2/serialize.h>
#include <varro2/subscribeexpression.h>

#include <systemd/sd-bus.h>
#include <systemd/sd-event.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

unsigned notified = 0;

int on_message(sd_bus_message *message, void *, sd_bus_error *) noexcept {
  if (sd_bus_message_is_method_call(message, "com.quor.Event.Consumer", "Notification") <= 0)
    return 0;
  ++notified;
  sd_bus_reply_method_return(message, nullptr);
  return 1;
}

sd_bus *subscriber(sd_event *loop, GByteArray *expression) {
  sd_bus *bus = nullptr;
  sd_bus_message *call = nullptr;
  sd_bus_error error = SD_BUS_ERROR_NULL;
  if (sd_bus_open_system(&bus) < 0 || sd_bus_add_filter(bus, nullptr, on_message, nullptr) < 0 ||
      sd_bus_message_new_method_call(bus, &call, "com.quor.Event.Switch", "/com/quor/Event/Switch",
                                     "com.quor.Event.Switch.Consumer", "Subscribe") < 0 ||
      sd_bus_message_append(call, "ssu", "/crowd", "one of many", 1u) < 0 ||
      sd_bus_message_append_array(call, 'y', expression->data, expression->len) < 0 ||
      sd_bus_call(bus, call, 0, &error, nullptr) < 0) {
    std::fprintf(stderr, "crowd: %s\n", error.message);
    std::exit(EXIT_FAILURE);
  }
  sd_bus_message_unref(call);
  sd_bus_attach_event(bus, loop, SD_EVENT_PRIORITY_NORMAL);
  return bus;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 3)
    return 2;
  sd_event *loop = nullptr;
  sd_event_default(&loop);
  SubscribeExpression *wanted = subscribe_expression_new();
  subscribe_expression_add_key_value(wanted, "topic0", argv[2]);
  GByteArray *expression = subscribe_expression_serialize(wanted);
  std::vector<sd_bus *> all;
  for (int left = std::atoi(argv[1]); left > 0; --left)
    all.push_back(subscriber(loop, expression));
  std::puts("ready");
  std::fflush(stdout);
  for (unsigned told = 0; sd_event_run(loop, UINT64_MAX) >= 0;)
    if (notified >= told + all.size()) {
      told = notified - notified % static_cast<unsigned>(all.size());
      std::printf("notified %u\n", told);
      std::fflush(stdout);
    }
}
