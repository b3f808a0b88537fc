// A bus of the test's own, with the real switch.
#pragma once

#include "privatebus.hpp"
#include "switchprocess.hpp"
#include "tool.hpp"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>

namespace varro2::test {

class CommandLine : public ::testing::Test {
 protected:
  CommandLine() {
    switch_.start();
    std::filesystem::create_directories(bus_.folder() + "/types");
  }

  std::string write_file(const std::string &name, const std::string &text) const {
    const std::string path = bus_.folder() + '/' + name;
    std::ofstream{path} << text;
    return path;
  }

  // Runs until the switch says that it has the subscription.
  std::unique_ptr<ChildProcess> subscribed(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), VARRO2);
    const auto count = [this] {
      std::size_t found = 0;
      const std::string &log = switch_.process()->errors();
      for (std::size_t at = log.find("subscribed"); at != std::string::npos;
           at = log.find("subscribed", at + 1))
        ++found;
      return found;
    };
    const std::size_t before = count();
    auto process = std::make_unique<ChildProcess>(arguments);
    EXPECT_TRUE(iterate_until([&] { return count() > before; })) << process->errors();
    return process;
  }

  PrivateBus bus_;
  SwitchProcess switch_{VARRO2_SWITCHD, {"--verbose", "--types-dir=" + bus_.folder() + "/types"}};
};

inline const std::string port_event =
    R"({"values":{"topic0":"Device","topic1":"IO","port":1,"level":2.5,"state":true,"text":"a b"},)"
    R"("namespaces":{"topic0":"tns1","topic1":"tns1"},"tags":{"port":["onvif-source"]}})";

} // namespace varro2::test
