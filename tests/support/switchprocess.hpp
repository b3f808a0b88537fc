// The real switch, in a process of its own.
#pragma once

#include "childprocess.hpp"

#include <memory>
#include <string>
#include <vector>

typedef struct sd_bus sd_bus;

namespace varro2::test {

// Needs a PrivateBus that outlives it. Starting and ending wait until the bus says that the
// switch's name has, or no longer has, an owner; meanwhile the default main context does not run.
class SwitchProcess {
 public:
  explicit SwitchProcess(std::string program, std::vector<std::string> arguments = {});
  ~SwitchProcess();
  SwitchProcess(const SwitchProcess &) = delete;
  SwitchProcess &operator=(const SwitchProcess &) = delete;

  void start();
  void end(int signal_number); // with SIGKILL, SIGTERM, ...
  void restart(int signal_number);

  // The two halves of start() and end(), for tests that iterate the main context meanwhile.
  void launch();
  void signal(int signal_number);
  bool owned() const; // the name has an owner

  ChildProcess *process() { return process_.get(); }

 private:
  void wait_for(bool owned) const;

  std::vector<std::string> command_;
  sd_bus *bus_ = nullptr;
  std::unique_ptr<ChildProcess> process_;
};

} // namespace varro2::test
