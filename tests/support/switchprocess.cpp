#include "switchprocess.hpp"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace varro2::test {
namespace {

constexpr const char *name = "com.quor.Event.Switch";

void require(int status, const char *what) {
  if (status < 0)
    throw std::runtime_error{std::string{what} + ": " + std::strerror(-status)};
}

} // namespace

SwitchProcess::SwitchProcess(std::string program, std::vector<std::string> arguments) {
  command_.push_back(std::move(program));
  command_.insert(command_.end(), arguments.begin(), arguments.end());
  require(sd_bus_open_system(&bus_), "sd_bus_open_system");
  require(sd_bus_match_signal(bus_, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "NameOwnerChanged", nullptr, nullptr),
          "sd_bus_match_signal");
}

// In order, also one that a test has stopped: a sanitizer in it then says what it has lost, and the
// lines that it has reached are counted. It goes on before it ends: the sanitizer stops it to look.
SwitchProcess::~SwitchProcess() {
  if (process_ && process_->running()) {
    process_->signal(SIGCONT);
    process_->signal(SIGTERM);
    const int status = process_->wait();
    const std::string &errors = process_->errors();
    const bool was_cut_off = errors.find("The connection to the message bus ended") != errors.npos;
    EXPECT_EQ(status, was_cut_off ? EXIT_FAILURE : EXIT_SUCCESS) << errors;
    EXPECT_EQ(errors.find("Sanitizer"), errors.npos) << errors;
  }
  process_.reset();
  sd_bus_flush_close_unref(bus_);
}

bool SwitchProcess::owned() const {
  sd_bus_message *reply = nullptr;
  require(sd_bus_call_method(bus_, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                             "org.freedesktop.DBus", "NameHasOwner", nullptr, &reply, "s", name),
          "NameHasOwner");
  int owned = 0;
  sd_bus_message_read(reply, "b", &owned);
  sd_bus_message_unref(reply);
  return owned != 0;
}

void SwitchProcess::wait_for(bool wanted) const {
  const auto deadline = std::chrono::steady_clock::now() + generous;
  while (owned() != wanted) {
    if (std::chrono::steady_clock::now() > deadline)
      throw std::runtime_error{wanted ? "the switch did not take its name: " + process_->errors()
                                      : std::string{"the switch did not leave the bus"}};
    if (wanted && !process_->running())
      throw std::runtime_error{"the switch ended: " + process_->errors()};
    // Every message that was read with the answer above is taken first, then the next one waited
    // for; the bound is for a switch that ends without ever having had the name.
    while (sd_bus_process(bus_, nullptr) > 0) {
    }
    sd_bus_wait(bus_, 20'000);
  }
}

void SwitchProcess::launch() {
  process_ = std::make_unique<ChildProcess>(command_);
}

void SwitchProcess::signal(int signal_number) {
  process_->signal(signal_number);
}

void SwitchProcess::start() {
  launch();
  wait_for(true);
}

void SwitchProcess::end(int signal_number) {
  signal(signal_number);
  process_->wait();
  wait_for(false);
}

void SwitchProcess::restart(int signal_number) {
  end(signal_number);
  start();
}

} // namespace varro2::test
