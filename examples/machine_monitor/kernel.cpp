#include "kernel.hpp"

#include <ifaddrs.h>
#include <net/if.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <fstream>
#include <limits>
#include <set>
#include <sstream>
#include <string_view>

namespace {

std::int32_t to_mib(std::uint64_t bytes) {
  constexpr std::uint64_t largest = std::numeric_limits<std::int32_t>::max();
  return static_cast<std::int32_t>(std::min(bytes >> 20U, largest));
}

// The kernel writes blanks, tabs, line feeds and backslashes of a path as three octal digits.
std::string unescaped(std::string_view path) {
  std::string plain;
  for (std::size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '\\' && i + 3 < path.size()) {
      plain += static_cast<char>(std::stoi(std::string{path.substr(i + 1, 3)}, nullptr, 8));
      i += 3;
    } else {
      plain += path[i];
    }
  }
  return plain;
}

bool is_on_disk(const std::string &type) {
  static const std::set<std::string> others{"tmpfs", "devtmpfs", "ramfs",  "squashfs",
                                            "nfs",   "nfs4",     "cifs",   "smb3",
                                            "9p",    "ceph",     "autofs", "iso9660"};
  return !others.contains(type) && !type.starts_with("fuse");
}

struct Mount {
  std::string device; // "major:minor"
  std::string point;
  std::string type;
};

// "36 35 98:0 /root /point options - type source options", with any number of fields before "-".
std::optional<Mount> parse_mount(const std::string &line) {
  std::istringstream fields{line};
  std::string skipped;
  std::string point;
  Mount mount;
  fields >> skipped >> skipped >> mount.device >> skipped >> point;
  while (fields >> skipped && skipped != "-") {
  }
  if (!(fields >> mount.type))
    return std::nullopt;
  mount.point = unescaped(point);
  return mount;
}

} // namespace

std::optional<ProcessorTimes> read_processor_times() {
  // "cpu user nice system idle iowait irq softirq steal ...", guests being counted in user.
  std::ifstream file{"/proc/stat"};
  std::string name;
  std::uint64_t value[8] = {};
  file >> name;
  for (auto &ticks : value)
    file >> ticks;
  if (!file || name != "cpu")
    return std::nullopt;
  ProcessorTimes times{0, 0};
  for (const auto ticks : value)
    times.total += ticks;
  times.busy = times.total - value[3] - value[4];
  return times;
}

std::optional<Memory> read_memory() {
  std::ifstream file{"/proc/meminfo"};
  std::optional<std::uint64_t> total;
  std::optional<std::uint64_t> available;
  std::string line;
  while (std::getline(file, line) && !(total && available)) {
    std::istringstream fields{line};
    std::string name;
    std::uint64_t kib = 0;
    fields >> name >> kib;
    if (name == "MemTotal:")
      total = kib * 1024;
    else if (name == "MemAvailable:")
      available = kib * 1024;
  }
  if (!total || !available)
    return std::nullopt;
  return Memory{to_mib(*total), to_mib(*available)};
}

std::map<std::string, FileSystem> read_file_systems() {
  std::map<std::string, FileSystem> found;
  std::set<std::string> devices;
  std::ifstream file{"/proc/self/mountinfo"};
  std::string line;
  while (std::getline(file, line)) {
    const auto mount = parse_mount(line);
    struct stat status {};
    struct statvfs space {};
    if (!mount || !is_on_disk(mount->type) || devices.contains(mount->device) ||
        stat(mount->point.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        statvfs(mount->point.c_str(), &space) != 0 || space.f_blocks == 0)
      continue;
    devices.insert(mount->device);
    found[mount->point] = {to_mib(std::uint64_t{space.f_blocks} * space.f_frsize),
                           to_mib(std::uint64_t{space.f_bavail} * space.f_frsize)};
  }
  return found;
}

std::map<std::string, bool> read_network_links() {
  std::map<std::string, bool> found;
  ifaddrs *list = nullptr;
  if (getifaddrs(&list) != 0)
    return found;
  for (const ifaddrs *entry = list; entry; entry = entry->ifa_next)
    found[entry->ifa_name] = (entry->ifa_flags & IFF_UP) && (entry->ifa_flags & IFF_RUNNING);
  freeifaddrs(list);
  return found;
}
