// How the switch does with many clients: until everybody is introduced, for one more, in memory.
//
// Producers and consumers are the library's own, each on a connection of its own, all in this
// process; the switch and a message bus run beside it. The last table needs no bus.
#include "registry.hpp"

#include <varro2/varro2.h>

#include <glib/gstdio.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace varro2::switchd;

constexpr int producer_count = 200;
constexpr int declarations_each = 50;
constexpr int consumer_count = 200;
constexpr int subscriptions_each = 20;
constexpr int declaration_count = producer_count * declarations_each;
constexpr int subscription_count = consumer_count * subscriptions_each;

double milliseconds_since(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>{Clock::now() - start}.count();
}

[[noreturn]] void fail(const char *what) {
  std::fprintf(stderr, "switch_scale: %s\n", what);
  std::exit(EXIT_FAILURE);
}

OwnedDeclaration device(int serial) {
  OwnedDeclaration declaration{event_declaration_new(FALSE)};
  EventDeclaration *const d = declaration.get();
  event_declaration_add_key_value(d, "topic0", "Device", VALUE_TYPE_STRING);
  event_declaration_add_key_value(d, "topic1", "Sensor", VALUE_TYPE_STRING);
  event_declaration_add_key_value(d, "serial", std::to_string(serial).c_str(), VALUE_TYPE_STRING);
  event_declaration_add_key_value(d, "unit", "degree", VALUE_TYPE_STRING);
  event_declaration_add_key(d, "value", VALUE_TYPE_DOUBLE);
  event_declaration_add_key(d, "count", VALUE_TYPE_INT);
  return declaration;
}

OwnedExpression wants(int serial) {
  OwnedExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), "topic0", "Device");
  subscribe_expression_add_key_value(expression.get(), "serial", std::to_string(serial).c_str());
  return expression;
}

// Each matches one declaration.
int serial_for(int subscription) {
  return subscription * (declaration_count / subscription_count);
}

// ---- The bus and the switch

pid_t spawn(const std::vector<std::string> &command) {
  std::vector<char *> arguments;
  for (const std::string &word : command)
    arguments.push_back(const_cast<char *>(word.c_str()));
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    execvp(arguments.front(), arguments.data());
    _exit(127);
  }
  return child;
}

class Machine {
 public:
  explicit Machine(const std::string &switch_program) : folder_{g_dir_make_tmp(nullptr, nullptr)} {
    const std::string socket = folder_ + "/socket";
    std::ofstream{folder_ + "/bus.conf"}
        << "<busconfig><listen>unix:path=" << socket
        << "</listen><auth>EXTERNAL</auth><policy context='default'><allow user='*'/>"
           "<allow own='*'/><allow send_destination='*'/><allow receive_sender='*'/></policy>"
           "<limit name='max_replies_per_connection'>128</limit>"
           "<limit name='max_connections_per_user'>1000</limit></busconfig>";
    bus_ =
        spawn({"dbus-daemon", "--nofork", "--nopidfile", "--config-file=" + folder_ + "/bus.conf"});
    wait_until([&] { return g_file_test(socket.c_str(), G_FILE_TEST_EXISTS); });
    g_setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + socket).c_str(), TRUE);
    switch_ = spawn({switch_program});
  }
  ~Machine() {
    for (const pid_t child : {switch_, bus_}) {
      kill(child, SIGTERM);
      waitpid(child, nullptr, 0);
    }
    for (const char *file : {"/bus.conf", "/socket"})
      g_unlink((folder_ + file).c_str());
    g_rmdir(folder_.c_str());
  }
  Machine(const Machine &) = delete;
  Machine &operator=(const Machine &) = delete;

  std::size_t switch_kilobytes() const {
    std::ifstream status{"/proc/" + std::to_string(switch_) + "/status"};
    std::size_t size = 0;
    for (std::string word; status >> word;)
      if (word == "VmRSS:" && status >> size)
        break;
    return size;
  }

 private:
  template <typename Condition>
  static void wait_until(Condition condition) {
    const auto start = Clock::now();
    while (!condition()) {
      if (milliseconds_since(start) > 10'000)
        fail("the message bus does not start");
      std::this_thread::sleep_for(std::chrono::milliseconds{1});
    }
  }

  std::string folder_;
  pid_t bus_ = -1;
  pid_t switch_ = -1;
};

template <typename Condition>
void iterate_until(Condition condition) {
  const auto start = Clock::now();
  while (!condition()) {
    if (milliseconds_since(start) > 300'000)
      fail("not everybody is introduced within five minutes");
    g_main_context_iteration(nullptr, TRUE);
  }
}

// ---- Clients

int introductions = 0; // notifications that arrived

void subscribe(EventConsumer *consumer, int serial) {
  event_consumer_subscribe_full(
      consumer, wants(serial).get(), [](Event *event, gpointer) { event_free(event); },
      [](Notification *notification, gpointer) {
        notification_free(notification);
        ++introductions;
      },
      nullptr);
}

struct Declared {
  EventProducer *producer;
  guint32 local_id;
};

void wait_until_declared(const std::vector<Declared> &all) {
  std::size_t next = 0;
  iterate_until([&] {
    while (next < all.size() &&
           event_producer_declaration_complete(all[next].producer, all[next].local_id))
      ++next;
    return next == all.size();
  });
}

void measure_bus(const std::string &switch_program) {
  const Machine machine{switch_program};
  std::vector<EventProducer *> producers;
  std::vector<EventConsumer *> consumers;
  std::vector<Declared> declared;

  auto start = Clock::now();
  for (int at = 0; at < producer_count; ++at) {
    producers.push_back(event_producer_new("producer"));
    for (int which = 0; which < declarations_each; ++which)
      declared.push_back(
          {producers.back(),
           event_producer_declare(producers.back(), device(at * declarations_each + which).get())});
  }
  wait_until_declared(declared);
  std::printf("%d producers, %d declarations: %.0f ms; switch %zu kB\n", producer_count,
              declaration_count, milliseconds_since(start), machine.switch_kilobytes());

  start = Clock::now();
  for (int at = 0; at < consumer_count; ++at) {
    consumers.push_back(event_consumer_new("consumer"));
    for (int which = 0; which < subscriptions_each; ++which)
      subscribe(consumers.back(), serial_for(at * subscriptions_each + which));
  }
  iterate_until([] { return introductions == subscription_count; });
  std::printf("%d consumers, %d subscriptions, each introduced: %.0f ms; switch %zu kB\n",
              consumer_count, subscription_count, milliseconds_since(start),
              machine.switch_kilobytes());

  constexpr int more = 500;
  start = Clock::now();
  for (int at = 0; at < more; ++at) {
    EventProducer *producer = producers[static_cast<std::size_t>(at % producer_count)];
    wait_until_declared(
        {{producer, event_producer_declare(producer, device(declaration_count + at).get())}});
  }
  std::printf("one more declaration, until complete: %.3f ms\n", milliseconds_since(start) / more);

  start = Clock::now();
  for (int at = 0; at < more; ++at) {
    const int expected = introductions + 1;
    subscribe(consumers[static_cast<std::size_t>(at % consumer_count)], declaration_count + at);
    iterate_until([expected] { return introductions == expected; });
  }
  std::printf("one more subscription, until notified: %.3f ms\n", milliseconds_since(start) / more);
}

// ---- The registry alone

void measure_registry() {
  std::printf("\nsubscriptions that do not match   one declaration   one subscription\n");
  for (const int others : {0, 1'000, 4'000, 16'000, 64'000}) {
    Registry registry;
    const Address producer{":1.1", "/p"};
    const Address consumer{":1.2", "/c"};
    std::uint32_t next = 1;
    for (int at = 0; at < others; ++at)
      registry.subscribe(consumer, "c", next++, wants(1'000'000 + at));
    constexpr int rounds = 2'000;
    double declaring = 0;
    double subscribing = 0;
    for (int round = 0; round < rounds; ++round) {
      OwnedDeclaration declaration = device(round);
      event_declaration_set_local_id(declaration.get(), next++);
      auto start = Clock::now();
      registry.declare(producer, "p", std::move(declaration));
      declaring += milliseconds_since(start);
      OwnedExpression expression = wants(round);
      start = Clock::now();
      registry.subscribe(consumer, "c", next++, std::move(expression));
      subscribing += milliseconds_since(start);
    }
    std::printf("%31d   %12.2f us   %13.2f us\n", others, 1000 * declaring / rounds,
                1000 * subscribing / rounds);
  }
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 2)
    fail("the program of the switch is wanted as the argument");
  // Four hundred connections, each with its own loop.
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
  measure_registry();
  std::printf("\n");
  measure_bus(argv[1]);
}
