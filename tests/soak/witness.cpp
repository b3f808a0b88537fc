// Watches the bus of the soak: soak_witness LOG. Writes down who is introduced to whom, and when,
// in the order in which the bus passes it on. It shares nothing with the library.
//
// Log, times in nanoseconds; bus names are unique names
//   owner NAME TIME               of the switch; "-" when it has none
//   p NAME PRODUCER               the connection of a producer, by its Declare
//   c NAME CONSUMER               the connection of a consumer, by its Subscribe
//   S SWITCH PRODUCER LOCAL-ID CONSUMER TOKEN TIME   the switch introduces a subscription
//   A ... as above                the producer has answered that, or a later call of the switch
//   N ... as above                it asked for no answer to that, being short of calls
//   R ... as above                the same subscription is to be served again, with a property
#include <fcntl.h>
#include <systemd/sd-bus.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <set>
#include <string>
#include <utility>

namespace {

void require(int status, const char *what) {
  if (status >= 0)
    return;
  std::fprintf(stderr, "soak_witness: %s: %s\n", what, std::strerror(-status));
  std::exit(EXIT_FAILURE);
}

long long now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return time.tv_sec * 1'000'000'000LL + time.tv_nsec;
}

// The address part of an expression's record.
struct Address {
  std::uint32_t id = 0;
  std::string service;
  std::uint32_t token = 0;
};

class Reader {
 public:
  Reader(const void *bytes, std::size_t size)
      : at_{static_cast<const char *>(bytes)}, end_{at_ + size} {}
  void copy(void *target, std::size_t size) {
    if (static_cast<std::size_t>(end_ - at_) < size)
      std::abort();
    std::memcpy(target, at_, size);
    at_ += size;
  }
  std::uint32_t number() {
    std::uint32_t value = 0;
    copy(&value, sizeof value);
    return value;
  }
  std::string text() {
    std::uint16_t size = 0;
    copy(&size, sizeof size);
    std::string value(size, '\0');
    copy(value.data(), size);
    return value;
  }

 private:
  const char *at_;
  const char *end_;
};

Address read_address(const void *bytes, std::size_t size) {
  Reader reader{bytes, size};
  std::uint8_t kind = 0;
  reader.copy(&kind, sizeof kind);
  Address address;
  address.id = reader.number();
  address.service = reader.text();
  reader.text(); // the object path
  address.token = reader.number();
  return address;
}

class Witness {
 public:
  explicit Witness(const char *log)
      : log_{::open(log, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR)} {
    if (log_ < 0)
      require(-errno, log);
  }

  void see(sd_bus_message *message) {
    std::uint8_t type = 0;
    sd_bus_message_get_type(message, &type);
    if (type == SD_BUS_MESSAGE_METHOD_RETURN || type == SD_BUS_MESSAGE_METHOD_ERROR)
      see_answer(message, type == SD_BUS_MESSAGE_METHOD_ERROR);
    else if (sd_bus_message_is_signal(message, nullptr, "NameOwnerChanged"))
      see_owner(message);
    else if (sd_bus_message_is_method_call(message, "com.quor.Event.Switch.Producer", "Declare"))
      see_client(message, 'p');
    else if (sd_bus_message_is_method_call(message, "com.quor.Event.Switch.Consumer", "Subscribe"))
      see_client(message, 'c');
    else if (sd_bus_message_is_method_call(message, "com.quor.Event.Producer", "Subscribe"))
      see_subscribe(message);
    else if (sd_bus_message_is_method_call(message, "com.quor.Event.Producer", "RefreshProperty"))
      see_refresh(message);
  }

 private:
  void line(const char *format, ...) __attribute__((format(printf, 2, 3)));

  void see_owner(sd_bus_message *message) {
    const char *name = nullptr;
    const char *former = nullptr;
    const char *next = nullptr;
    if (sd_bus_message_read(message, "sss", &name, &former, &next) < 0)
      return;
    if (std::strcmp(name, "com.quor.Event.Switch") == 0)
      line("owner %s %lld", *next != '\0' ? next : "-", now());
    else if (*next == '\0')
      seen_.erase(name);
  }

  void see_client(sd_bus_message *message, char kind) {
    const char *sender = sd_bus_message_get_sender(message);
    const char *path = nullptr;
    const char *name = nullptr;
    if (sd_bus_message_read(message, "ss", &path, &name) >= 0 && seen_.insert(sender).second)
      line("%c %s %s", kind, sender, name);
  }

  void see_subscribe(sd_bus_message *message) {
    const void *bytes = nullptr;
    std::size_t size = 0;
    std::uint32_t local_id = 0;
    require(sd_bus_message_read_array(message, 'y', &bytes, &size), "an expression");
    const Address address = read_address(bytes, size);
    require(sd_bus_message_read(message, "u", &local_id), "a local id");
    const std::string sender = sd_bus_message_get_sender(message);
    const std::string about = sender + " " + sd_bus_message_get_destination(message) + " " +
                              std::to_string(local_id) + " " + address.service + " " +
                              std::to_string(address.token);
    std::uint64_t serial = 0;
    sd_bus_message_get_cookie(message, &serial);
    const bool asks = sd_bus_message_get_expect_reply(message) > 0;
    if (asks)
      open_[{sender, serial}] = about;
    else
      unasked_[{sender, sd_bus_message_get_destination(message)}][serial] = about;
    by_id_[{sender, address.id}] = address.service + " " + std::to_string(address.token);
    line("S %s %lld", about.c_str(), now());
    if (!asks)
      line("N %s %lld", about.c_str(), now());
  }

  void see_refresh(sd_bus_message *message) {
    std::uint32_t id = 0;
    std::uint32_t local_id = 0;
    require(sd_bus_message_read(message, "uu", &id, &local_id), "two ids");
    const std::string sender = sd_bus_message_get_sender(message);
    const auto found = by_id_.find({sender, id});
    if (found != by_id_.end())
      line("R %s %s %u %s %lld", sender.c_str(), sd_bus_message_get_destination(message), local_id,
           found->second.c_str(), now());
  }

  void see_answer(sd_bus_message *message, bool failed) {
    const char *receiver = sd_bus_message_get_destination(message);
    std::uint64_t serial = 0;
    if (receiver == nullptr || sd_bus_message_get_reply_cookie(message, &serial) < 0)
      return;
    // Calls to one client are taken in their order: with a later one those before are answered.
    auto &unasked = unasked_[{receiver, sd_bus_message_get_sender(message)}];
    while (!unasked.empty() && unasked.begin()->first < serial) {
      line("A %s %lld", unasked.begin()->second.c_str(), now());
      unasked.erase(unasked.begin());
    }
    const auto found = open_.find({receiver, serial});
    if (found == open_.end())
      return;
    if (!failed)
      line("A %s %lld", found->second.c_str(), now());
    open_.erase(found);
  }

  int log_;
  std::set<std::string> seen_;
  std::map<std::pair<std::string, std::uint64_t>, std::string> open_; // by switch and serial
  // Introductions that ask for no answer: by switch and producer, then by serial.
  std::map<std::pair<std::string, std::string>, std::map<std::uint64_t, std::string>> unasked_;
  std::map<std::pair<std::string, std::uint32_t>, std::string> by_id_; // of the subscription
};

void Witness::line(const char *format, ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, sizeof text - 1, format, arguments);
  va_end(arguments);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof text - 1)
    std::abort();
  text[length] = '\n';
  if (::write(log_, text, static_cast<std::size_t>(length) + 1) < 0)
    std::exit(EXIT_FAILURE);
}

sd_bus *connect() {
  sd_bus *bus = nullptr;
  require(sd_bus_new(&bus), "sd_bus_new");
  require(sd_bus_set_address(bus, std::getenv("DBUS_SYSTEM_BUS_ADDRESS")), "the bus address");
  require(sd_bus_set_bus_client(bus, 1), "sd_bus_set_bus_client");
  require(sd_bus_set_monitor(bus, 1), "sd_bus_set_monitor");
  require(sd_bus_start(bus), "sd_bus_start");
  sd_bus_message *call = nullptr;
  require(sd_bus_message_new_method_call(bus, &call, "org.freedesktop.DBus",
                                         "/org/freedesktop/DBus", "org.freedesktop.DBus.Monitoring",
                                         "BecomeMonitor"),
          "BecomeMonitor");
  // Not the events: they are most of what goes on.
  require(sd_bus_message_append(
              call, "asu", 7, "type='method_call',interface='com.quor.Event.Producer'",
              "type='method_call',interface='com.quor.Event.Switch.Producer',member='Declare'",
              "type='method_call',interface='com.quor.Event.Switch.Consumer',member='Subscribe'",
              "type='method_return',destination='com.quor.Event.Switch'",
              "type='error',destination='com.quor.Event.Switch'",
              "type='signal',member='NameOwnerChanged',arg0='com.quor.Event.Switch'",
              "type='signal',member='NameOwnerChanged',arg2=''", 0U),
          "BecomeMonitor");
  require(sd_bus_call(bus, call, 0, nullptr, nullptr), "BecomeMonitor");
  sd_bus_message_unref(call);
  return bus;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: soak_witness LOG\n");
    return 2;
  }
  Witness witness{argv[1]};
  sd_bus *bus = connect();
  std::puts("ready");
  std::fflush(stdout);
  for (;;) {
    sd_bus_message *message = nullptr;
    const int status = sd_bus_process(bus, &message);
    require(status, "reading");
    if (message != nullptr) {
      witness.see(message);
      sd_bus_message_unref(message);
    }
    if (status == 0)
      require(sd_bus_wait(bus, UINT64_MAX), "waiting");
  }
}
