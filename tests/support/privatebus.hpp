// A message bus of the test's own: never the machine's.
#pragma once

#include "childprocess.hpp"

#include <memory>
#include <string>

namespace varro2::test {

// Starts a dbus-daemon on a socket in a temporary folder and points DBUS_SYSTEM_BUS_ADDRESS at it.
// Make one before the first connection. Everybody may do everything on it, within the limits that
// a system bus has by default (128 calls without an answer per connection). The daemon and the
// folder go away with the object, and also when the test crashes.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus &) = delete;
  PrivateBus &operator=(const PrivateBus &) = delete;

  const std::string &address() const { return address_; }
  const std::string &folder() const { return folder_; }
  pid_t pid() const { return daemon_ ? daemon_->pid() : -1; }

  // For what happens when the bus goes away; start() brings it back at the same address.
  void stop();
  void start();

  // From now on the bus starts the program, the path of one without arguments, for calls to a name
  // that nobody has.
  void start_for(const std::string &name, const std::string &program) const;

 private:
  std::string folder_;
  std::string address_;
  std::unique_ptr<ChildProcess> remover_; // takes the folder away when its input ends
  std::unique_ptr<ChildProcess> daemon_;
};

} // namespace varro2::test
