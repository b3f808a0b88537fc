// Runs dbus-broker where no systemd runs: its own launcher wants the journal and a service manager.
//
//   PROGRAM BROKER SOCKET    prints "ready PROCESS_ID"; ends, and the broker with it, on SIGTERM or
//                            when the broker ends
//
// The broker gets a listening socket and its policy from a controller, over a socket pair on which
// both speak D-Bus. The policy here permits everything, as the configuration of the dbus-daemon
// beside it does.
#include <systemd/sd-bus.h>

#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

int check(int r, const char *what) {
  if (r < 0) {
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(r == -1 ? errno : -r));
    std::exit(1);
  }
  return r;
}

int listening_socket(const char *path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (std::strlen(path) >= sizeof address.sun_path)
    check(-ENAMETOOLONG, path);
  std::strcpy(address.sun_path, path);
  const int listening = check(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0), path);
  check(bind(listening, reinterpret_cast<const sockaddr *>(&address), sizeof address), path);
  check(listen(listening, 128), path);
  return listening;
}

pid_t start_broker(const char *program, int controller) {
  const pid_t parent = getpid();
  const pid_t broker = check(fork(), "fork");
  if (broker != 0)
    return broker;
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != parent)
    _exit(1);
  constexpr int inherited = 3;
  check(dup2(controller, inherited), "dup2");
  // The limits of a system bus: 512 MiB and as many of all else as are ever needed.
  execl(program, program, "--controller", "3", "--machine-id", "0123456789abcdef0123456789abcdef",
        "--max-bytes", "536870912", "--max-fds", "4096", "--max-matches", "131072", "--max-objects",
        "16384", nullptr);
  std::perror(program);
  _exit(1);
}

// What one peer may do. The numbers are priorities: the highest rule that fits decides.
#define BATCH "bta(btbs)a(btssssuutt)a(btssssuutt)"

void append_permissions(sd_bus_message *message) {
  check(sd_bus_message_open_container(message, 'r', BATCH), "policy");
  check(sd_bus_message_append(message, "bt", 1, UINT64_C(1)), "connect");
  check(sd_bus_message_append(message, "a(btbs)", 1, 1, UINT64_C(1), 1, ""), "own");
  for (const char *direction : {"send", "receive"})
    check(sd_bus_message_append(message, "a(btssssuutt)", 1, 1, UINT64_C(1), "", "", "", "", 0U, 0U,
                                UINT64_C(0), UINT64_MAX),
          direction);
  check(sd_bus_message_close_container(message), "policy");
}

void append_policy(sd_bus_message *message) {
  constexpr const char *contents = "a(u(" BATCH "))a(buu(" BATCH "))a(ss)bs";
  constexpr std::uint32_t everybody = UINT32_MAX;
  check(sd_bus_message_open_container(message, 'v', (std::string{"("} + contents + ")").c_str()),
        "policy");
  check(sd_bus_message_open_container(message, 'r', contents), "policy");
  check(sd_bus_message_open_container(message, 'a', "(u(" BATCH "))"), "policy");
  check(sd_bus_message_open_container(message, 'r', "u(" BATCH ")"), "policy");
  check(sd_bus_message_append(message, "u", everybody), "policy");
  append_permissions(message);
  check(sd_bus_message_close_container(message), "policy");
  check(sd_bus_message_close_container(message), "policy");
  check(sd_bus_message_append(message, "a(buu(" BATCH "))", 0), "groups");
  check(sd_bus_message_append(message, "a(ss)bs", 0, 0, "system"), "labels");
  check(sd_bus_message_close_container(message), "policy");
  check(sd_bus_message_close_container(message), "policy");
}

void add_listener(sd_bus *controller, int listening) {
  sd_bus_message *message = nullptr;
  check(sd_bus_message_new_method_call(controller, &message, nullptr, "/org/bus1/DBus/Broker",
                                       "org.bus1.DBus.Broker", "AddListener"),
        "AddListener");
  check(sd_bus_message_append(message, "oh", "/org/bus1/DBus/Listener/0", listening), "listener");
  append_policy(message);
  sd_bus_error error = SD_BUS_ERROR_NULL;
  if (sd_bus_call(controller, message, 0, &error, nullptr) < 0) {
    std::fprintf(stderr, "AddListener: %s: %s\n", error.name, error.message);
    std::exit(1);
  }
  sd_bus_message_unref(message);
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s BROKER SOCKET\n", argv[0]);
    return 2;
  }
  int pair[2];
  check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair), "socketpair");
  const pid_t broker = start_broker(argv[1], pair[1]);
  close(pair[1]);

  sd_bus *controller = nullptr;
  check(sd_bus_new(&controller), "sd_bus_new");
  check(sd_bus_set_fd(controller, pair[0], pair[0]), "sd_bus_set_fd");
  check(sd_bus_start(controller), "sd_bus_start");
  const int listening = listening_socket(argv[2]);
  add_listener(controller, listening);
  close(listening);
  std::printf("ready %d\n", static_cast<int>(broker));
  std::fflush(stdout);

  // The broker tells its controller little, and nothing that would have to be answered.
  while (check(sd_bus_wait(controller, UINT64_MAX), "sd_bus_wait") >= 0)
    for (int r = 1; r > 0;) {
      r = sd_bus_process(controller, nullptr);
      if (r < 0 || sd_bus_is_open(controller) <= 0)
        return 0;
    }
}
