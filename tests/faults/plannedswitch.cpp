#include "plannedswitch.hpp"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <stdexcept>

namespace varro2::test {
namespace {

FaultPlan *make_plan(const std::string &file) {
  const int descriptor = open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (descriptor < 0 || ftruncate(descriptor, sizeof(FaultPlan)) != 0)
    throw std::runtime_error{file + ": " + std::strerror(errno)};
  void *memory =
      mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, descriptor, 0);
  close(descriptor);
  if (memory == MAP_FAILED)
    throw std::runtime_error{file + ": " + std::strerror(errno)};
  return new (memory) FaultPlan;
}

// The sanitizer's run-time library need not be the first one loaded for the little that is put
// before it.
std::string sanitizer_options() {
  const char *options = getenv("ASAN_OPTIONS");
  return std::string{options ? options : ""} + ":verify_asan_link_order=0";
}

} // namespace

SharedPlan::SharedPlan(const std::string &file) : plan_{make_plan(file)} {
  setenv("VARRO2_FAULTS", file.c_str(), 1);
}

SharedPlan::~SharedPlan() {
  unsetenv("VARRO2_FAULTS");
  munmap(plan_, sizeof(FaultPlan));
}

void SharedPlan::fail(int call, int error_number) {
  plan_->failing_call = call;
  plan_->error_number = error_number;
  plan_->file_calls = 0;
  std::ranges::fill(plan_->names, '\0');
}

PlannedSwitch::PlannedSwitch()
    : switch_{"env",
              {"LD_PRELOAD=" VARRO2_PRELOAD, "ASAN_OPTIONS=" + sanitizer_options(), VARRO2_SWITCHD,
               "--types-dir=" + own_types(), "--system-types-dir=" + bus_.folder() + "/none"}} {
  switch_.start();
}

} // namespace varro2::test
