// Reports this machine as events: the processor's load and the memory every second, file systems
// and network links as properties whenever they change.
#include "../eventtext.hpp"
#include "monitor.hpp"

#include <glib-unix.h>

#include <fcntl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string_view>

namespace {

constexpr const char *usage = R"(usage: machine_monitor

Sends events under the topic tns1:Monitoring: Processor and Memory once a second,
FileSystem and NetworkLink when they change. Ends on SIGINT or SIGTERM.
)";

// The kernel sends a message here whenever a link changes. Without such a socket the readings of
// each second must do.
int open_link_reports() {
  const int reports = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  if (reports < 0)
    return -1;
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK;
  if (bind(reports, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
    return reports;
  close(reports);
  return -1;
}

gboolean on_link_report(gint reports, GIOCondition, gpointer monitor) {
  // Only that something changed matters; an overflow of the socket says so too.
  char message[8192];
  while (recv(reports, message, sizeof message, 0) > 0) {
  }
  static_cast<Monitor *>(monitor)->look_at_links();
  return G_SOURCE_CONTINUE;
}

// The kernel marks this file as exceptional whenever something is mounted or unmounted.
gboolean on_mount_report(gint, GIOCondition, gpointer monitor) {
  static_cast<Monitor *>(monitor)->look_at_file_systems();
  return G_SOURCE_CONTINUE;
}

gboolean on_second(gpointer monitor) {
  static_cast<Monitor *>(monitor)->tick();
  return G_SOURCE_CONTINUE;
}

gboolean on_signal(gpointer loop) {
  g_main_loop_quit(static_cast<GMainLoop *>(loop));
  return G_SOURCE_CONTINUE;
}

} // namespace

int main(int argc, char **argv) {
  if (argc > 1) {
    const bool help = std::string_view{argv[1]} == "--help";
    if (!help)
      std::fprintf(stderr, "machine_monitor: unknown argument '%s'\n\n", argv[1]);
    std::fputs(usage, help ? stdout : stderr);
    return help ? 0 : 2;
  }
  GMainLoop *loop = g_main_loop_new(nullptr, FALSE);
  Monitor monitor;
  const int link_reports = open_link_reports();
  const int mount_reports = open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  const guint second = g_timeout_add_seconds(1, on_second, &monitor);
  const guint links =
      link_reports < 0 ? 0 : g_unix_fd_add(link_reports, G_IO_IN, on_link_report, &monitor);
  const guint mounts =
      mount_reports < 0 ? 0 : g_unix_fd_add(mount_reports, G_IO_PRI, on_mount_report, &monitor);
  g_unix_signal_add(SIGINT, on_signal, loop);
  g_unix_signal_add(SIGTERM, on_signal, loop);
  g_main_loop_run(loop);

  for (const guint source : {second, links, mounts})
    if (source)
      g_source_remove(source);
  // The loop runs on until everything that was sent has left.
  monitor.leave([loop] { g_main_loop_quit(loop); });
  g_main_loop_run(loop);
  print_line("total", monitor.ledger().summary());
  for (const int reports : {link_reports, mount_reports})
    if (reports >= 0)
      close(reports);
  g_main_loop_unref(loop);
  return 0;
}
