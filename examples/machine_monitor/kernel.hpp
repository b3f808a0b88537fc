// What the kernel says about this machine.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

struct ProcessorTimes {
  std::uint64_t busy;  // ticks since the machine started, all processors together
  std::uint64_t total; // likewise, idle ones included
};

struct Memory {
  std::int32_t total_mib;
  std::int32_t available_mib;
};

struct FileSystem {
  std::int32_t size_mib;
  std::int32_t free_mib; // for users other than root
  bool operator==(const FileSystem &) const = default;
};

std::optional<ProcessorTimes> read_processor_times();
std::optional<Memory> read_memory();

// By mount point, each file system once. Left out are those that keep nothing on a disk and those
// on the network, which may answer late or never.
std::map<std::string, FileSystem> read_file_systems();

// By interface: whether the link is up and has a carrier.
std::map<std::string, bool> read_network_links();
