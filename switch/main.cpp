// varro2-switchd, the event switch.
#include "journal.hpp"
#include "service.hpp"

#include <varro2/eventutils.h>

#include <systemd/sd-daemon.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace varro2::switchd {
namespace {

constexpr const char *bus_name = "com.quor.Event.Switch";
constexpr std::uint64_t microseconds_per_second = 1'000'000;

struct Options {
  OwnedText bus_address;
  OwnedText types_folder;
  OwnedText system_types_folder;
  // Far below the 60 seconds after which the caller gives up.
  int property_state_limit = 5;
  Holding per_user = usual_limits;
  bool verbose = false;
  bool version = false;
};

// Puts the reason on the standard error stream when the command line is not understood.
bool read(Options &options, int argc, char **argv) {
  gchar *address = nullptr;
  gchar *types = nullptr;
  gchar *system_types = nullptr;
  gint64 declarations = static_cast<gint64>(usual_limits.declarations);
  gint64 subscriptions = static_cast<gint64>(usual_limits.subscriptions);
  gint64 bytes = static_cast<gint64>(usual_limits.bytes);
  gint64 calls = static_cast<gint64>(usual_limits.calls);
  gint64 names = static_cast<gint64>(usual_limits.names);
  gboolean verbose = FALSE;
  gboolean version = FALSE;
  const GOptionEntry entries[] = {
      {"bus-address", 0, 0, G_OPTION_ARG_STRING, &address,
       "Serve on this message bus (default: the system bus)", "ADDRESS"},
      {"types-dir", 0, 0, G_OPTION_ARG_FILENAME, &types,
       "Folder of the declaration types that clients add "
       "(default: /etc/event_switch/declarations.d)",
       "FOLDER"},
      {"system-types-dir", 0, 0, G_OPTION_ARG_FILENAME, &system_types,
       "Folder of the declaration types that come with the system, only read "
       "(default: /usr/share/event/declarations.d)",
       "FOLDER"},
      {"property-state-timeout", 0, 0, G_OPTION_ARG_INT, &options.property_state_limit,
       "How long producers have to tell a property's state, in seconds (default: 5)", "SECONDS"},
      {"max-declarations", 0, 0, G_OPTION_ARG_INT64, &declarations,
       "Declarations that one user may have (default: 12000)", "NUMBER"},
      {"max-subscriptions", 0, 0, G_OPTION_ARG_INT64, &subscriptions,
       "Subscriptions that one user may have (default: 6000)", "NUMBER"},
      {"max-bytes", 0, 0, G_OPTION_ARG_INT64, &bytes,
       "Bytes that they may have together (default: 4194304)", "NUMBER"},
      {"max-calls", 0, 0, G_OPTION_ARG_INT64, &calls,
       "Calls of one user that may wait for an answer (default: 256)", "NUMBER"},
      {"max-names", 0, 0, G_OPTION_ARG_INT64, &names,
       "Names of keys new to the switch that one user may bring in (default: 8192)", "NUMBER"},
      {"verbose", 'v', 0, G_OPTION_ARG_NONE, &verbose, "Log every change of the registry", nullptr},
      {"version", 0, 0, G_OPTION_ARG_NONE, &version, "Print the version and end", nullptr},
      {nullptr, 0, 0, G_OPTION_ARG_NONE, nullptr, nullptr, nullptr}};
  const Owned<GOptionContext, g_option_context_free> context{g_option_context_new(nullptr)};
  g_option_context_set_summary(
      context.get(), "Keeps the registry of declared events and of subscriptions to them.");
  g_option_context_add_main_entries(context.get(), entries, nullptr);
  OwnedError error;
  const bool understood = g_option_context_parse(context.get(), &argc, &argv, out_of(error));
  options.bus_address.reset(address);
  options.types_folder.reset(types);
  options.system_types_folder.reset(system_types);
  options.per_user = {.declarations = static_cast<std::size_t>(declarations),
                      .subscriptions = static_cast<std::size_t>(subscriptions),
                      .bytes = static_cast<std::size_t>(bytes),
                      .calls = static_cast<std::size_t>(calls),
                      .names = static_cast<std::size_t>(names)};
  options.verbose = verbose;
  options.version = version;
  if (!understood)
    std::fprintf(stderr, "varro2-switchd: %s\n", error->message);
  else if (argc > 1)
    std::fprintf(stderr, "varro2-switchd: '%s' is not understood\n", argv[1]);
  else if (options.property_state_limit < 1 || options.property_state_limit > 55)
    std::fprintf(stderr, "varro2-switchd: --property-state-timeout is from 1 to 55\n");
  else if (std::min({declarations, subscriptions, bytes, calls, names}) < 0)
    std::fprintf(stderr, "varro2-switchd: a limit is 0 or more\n");
  else
    return true;
  return false;
}

int open_bus(const char *address, Bus &bus) {
  if (address == nullptr)
    return sd_bus_open_system_with_description(bus.out(), "varro2-switchd");
  int status = sd_bus_new(bus.out());
  if (status >= 0)
    status = sd_bus_set_address(bus.get(), address);
  if (status >= 0)
    status = sd_bus_set_bus_client(bus.get(), TRUE);
  if (status >= 0)
    status = sd_bus_start(bus.get());
  return status;
}

int on_hangup(sd_event_source *, const signalfd_siginfo *, void *service) noexcept {
  static_cast<const Service *>(service)->check_types();
  return 0;
}

// Handled by the loop, so they have to be blocked everywhere else. Without a handler sd-event ends
// the loop with the given value.
int handle_signals(sd_event *loop, Service &service) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP})
    sigaddset(&signals, number);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  int status = sd_event_add_signal(loop, nullptr, SIGTERM, nullptr, nullptr);
  if (status >= 0)
    status = sd_event_add_signal(loop, nullptr, SIGINT, nullptr, nullptr);
  if (status >= 0)
    status = sd_event_add_signal(loop, nullptr, SIGHUP, on_hangup, &service);
  return status;
}

int fail(const char *what, int status) {
  g_critical("%s: %s", what, g_strerror(-status));
  return EXIT_FAILURE;
}

int run_loop(sd_event *loop, sd_bus *bus) {
  sd_notify(0, "READY=1\nSTATUS=Serving");
  g_message("Serving as %s", bus_name);
  const int status = sd_event_loop(loop);
  sd_notify(0, "STOPPING=1\nSTATUS=Leaving the bus");
  if (status != 0 || sd_bus_is_ready(bus) <= 0) {
    g_critical("The connection to the message bus ended");
    return EXIT_FAILURE;
  }
  sd_bus_release_name(bus, bus_name);
  g_message("Left the bus");
  return EXIT_SUCCESS;
}

int run(const Options &options) {
  EventLoop loop;
  if (const int status = sd_event_default(loop.out()); status < 0)
    return fail("Could not make the event loop", status);
  Bus bus;
  if (const int status = open_bus(options.bus_address.get(), bus); status < 0)
    return fail("Could not connect to the message bus", status);

  Types types{options.system_types_folder ? options.system_types_folder.get()
                                          : "/usr/share/event/declarations.d",
              options.types_folder ? options.types_folder.get()
                                   : "/etc/event_switch/declarations.d"};
  Service::Limits limits;
  limits.per_user = options.per_user;
  limits.property_state =
      static_cast<std::uint64_t>(options.property_state_limit) * microseconds_per_second;
  Service service{loop.get(), bus.get(), std::move(types), limits};

  int status = handle_signals(loop.get(), service);
  if (status >= 0)
    status = sd_bus_attach_event(bus.get(), loop.get(), SD_EVENT_PRIORITY_NORMAL);
  // The name is released in order before the connection goes.
  if (status >= 0)
    status = sd_bus_set_close_on_exit(bus.get(), FALSE);
  if (status >= 0)
    status = sd_bus_set_exit_on_disconnect(bus.get(), TRUE);
  if (status >= 0)
    status = service.serve();
  if (status >= 0)
    status = sd_event_set_watchdog(loop.get(), TRUE);
  if (status < 0)
    return fail("Could not set the switch up", status);
  status = sd_bus_request_name(bus.get(), bus_name, 0);
  if (status == -EEXIST) {
    g_critical("The name %s is taken: another switch is running on this bus", bus_name);
    return EXIT_FAILURE;
  }
  if (status < 0)
    return fail("Could not get the name com.quor.Event.Switch", status);
  const int result = run_loop(loop.get(), bus.get());
  sd_bus_flush(bus.get());
  sd_bus_close(bus.get());
  return result;
}

} // namespace
} // namespace varro2::switchd

int main(int argc, char **argv) {
  using namespace varro2::switchd;
  Options options;
  if (!read(options, argc, argv))
    return EXIT_FAILURE;
  if (options.version) {
    std::puts("varro2-switchd " VARRO2_VERSION);
    return EXIT_SUCCESS;
  }
  write_log_to_standard_error(options.verbose);
  event_utils_set_untrusted_peers(TRUE);
  return run(options);
}
