#include "privatebus.hpp"

#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace varro2::test {
namespace {

std::string make_folder() {
  auto pattern = (std::filesystem::temp_directory_path() / "varro2-bus-XXXXXX").string();
  if (!mkdtemp(pattern.data()))
    throw std::runtime_error{std::string{"mkdtemp: "} + std::strerror(errno)};
  return pattern;
}

void write_configuration(const std::string &folder, const std::string &address) {
  std::ofstream{folder + "/bus.conf"}
      << R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <listen>)"
      << address << R"(</listen>
  <servicedir>)"
      << folder << R"(/services</servicedir>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*" eavesdrop="true"/>
  </policy>
  <limit name="max_replies_per_connection">128</limit>
</busconfig>
)";
}

} // namespace

PrivateBus::PrivateBus()
    : folder_{make_folder()}, address_{"unix:path=" + folder_ + "/socket"},
      // Outlives a crash of this process, unlike the daemon: its session is its own.
      remover_{std::make_unique<ChildProcess>(
          std::vector<std::string>{"setsid", "--fork", "sh", "-c",
                                   R"(exec >/dev/null 2>&1; cat; rm -rf "$1")", "sh", folder_})} {
  std::filesystem::create_directory(folder_ + "/services");
  write_configuration(folder_, address_);
  start();
  setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1);
}

PrivateBus::~PrivateBus() {
  stop();
  unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
  std::filesystem::remove_all(folder_);
}

void PrivateBus::stop() {
  daemon_.reset();
  // A killed daemon leaves its socket behind, one that ends in order does not.
  std::filesystem::remove(folder_ + "/socket");
}

void PrivateBus::start() {
  daemon_ = std::make_unique<ChildProcess>(
      std::vector<std::string>{"dbus-daemon", "--nofork", "--nopidfile", "--print-address",
                               "--config-file=" + folder_ + "/bus.conf"});
  if (!daemon_->read_line())
    throw std::runtime_error{"dbus-daemon did not start: " + daemon_->errors()};
}

void PrivateBus::start_for(const std::string &name, const std::string &program) const {
  std::ofstream{folder_ + "/services/" + name + ".service"} << "[D-BUS Service]\nName=" << name
                                                            << "\nExec=" << program << '\n';
}

} // namespace varro2::test
