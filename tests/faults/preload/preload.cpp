// Stands before the C library in a process under test and fails what the test's plan says.
#include "faultplan.hpp"

#include <dlfcn.h>
#include <fcntl.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <new>

namespace {

using varro2::test::FaultPlan;

FaultPlan *map_plan() {
  const char *path = getenv("VARRO2_FAULTS");
  const int file = path ? open(path, O_RDWR | O_CLOEXEC) : -1;
  if (file < 0)
    return nullptr;
  void *memory = mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  return memory == MAP_FAILED ? nullptr : static_cast<FaultPlan *>(memory);
}

FaultPlan *plan = nullptr;

__attribute__((constructor)) void find_plan() {
  plan = map_plan();
}

// Whether this call is the one; errno is set then.
bool fails(char name) {
  if (!plan)
    return false;
  const int call = ++plan->file_calls;
  if (static_cast<std::size_t>(call) < sizeof plan->names)
    plan->names[call - 1] = name;
  if (call != plan->failing_call)
    return false;
  errno = plan->error_number;
  return true;
}

bool is_file(int descriptor) {
  struct stat status;
  return fstat(descriptor, &status) == 0 && (S_ISREG(status.st_mode) || S_ISDIR(status.st_mode));
}

template <typename Function>
Function *next(Function *, const char *name) {
  return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int open(const char *path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  static const auto real = next(&open, "open");
  return fails('o') ? -1 : real(path, flags, mode);
}

int mkdir(const char *path, mode_t mode) noexcept {
  static const auto real = next(&mkdir, "mkdir");
  return fails('m') ? -1 : real(path, mode);
}

FILE *fopen(const char *path, const char *mode) {
  static const auto real = next(&fopen, "fopen");
  return fails('F') ? nullptr : real(path, mode);
}

ssize_t read(int descriptor, void *data, size_t size) {
  static const auto real = next(&read, "read");
  return is_file(descriptor) && fails('r') ? -1 : real(descriptor, data, size);
}

ssize_t write(int descriptor, const void *data, size_t size) {
  static const auto real = next(&write, "write");
  return is_file(descriptor) && fails('w') ? -1 : real(descriptor, data, size);
}

int fsync(int descriptor) {
  static const auto real = next(&fsync, "fsync");
  return fails('s') ? -1 : real(descriptor);
}

int fchmod(int descriptor, mode_t mode) noexcept {
  static const auto real = next(&fchmod, "fchmod");
  return fails('c') ? -1 : real(descriptor, mode);
}

int rename(const char *from, const char *to) noexcept {
  static const auto real = next(&rename, "rename");
  return fails('R') ? -1 : real(from, to);
}

int unlink(const char *path) noexcept {
  static const auto real = next(&unlink, "unlink");
  return fails('u') ? -1 : real(path);
}

int clock_gettime(clockid_t clock, struct timespec *now) noexcept {
  static const auto real = next(&clock_gettime, "clock_gettime");
  const int result = real(clock, now);
  if (result == 0 && plan && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE))
    now->tv_sec += plan->clock_offset;
  return result;
}

int gettimeofday(struct timeval *now, void *zone) noexcept {
  static const auto real = next(&gettimeofday, "gettimeofday");
  const int result = real(now, zone);
  if (result == 0 && plan)
    now->tv_sec += plan->clock_offset;
  return result;
}
}
