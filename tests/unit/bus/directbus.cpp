#include "directbus.hpp"

#include <gtest/gtest.h>
#include <sys/socket.h>

namespace varro2::test {

DirectBus::DirectBus() {
  int ends[2];
  EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends), 0);
  EXPECT_GE(sd_bus_new(near_.out()), 0);
  EXPECT_GE(sd_bus_set_fd(near_.get(), ends[0], ends[0]), 0);
  EXPECT_GE(sd_bus_new(far_.out()), 0);
  EXPECT_GE(sd_bus_set_fd(far_.get(), ends[1], ends[1]), 0);
  EXPECT_GE(sd_bus_set_server(far_.get(), 1, sd_id128_t{.bytes = {1, 2, 3}}), 0);
  EXPECT_GE(sd_bus_set_anonymous(far_.get(), 1), 0);
  EXPECT_GE(sd_bus_add_filter(far_.get(), nullptr, keep, this), 0);
  EXPECT_GE(sd_bus_start(near_.get()), 0);
  EXPECT_GE(sd_bus_start(far_.get()), 0);
  run();
}

DirectBus::~DirectBus() {
  calls_.clear();
  sd_bus_close(near_.get());
  sd_bus_close(far_.get());
}

void DirectBus::run() {
  bool moved = true;
  while (moved) {
    moved = false;
    for (sd_bus *bus : {near_.get(), far_.get()})
      while (bus != nullptr && sd_bus_process(bus, nullptr) > 0)
        moved = true;
  }
}

void DirectBus::run_far() {
  while (sd_bus_process(far_.get(), nullptr) > 0) {
  }
}

int DirectBus::keep(sd_bus_message *message, void *self, sd_bus_error *) noexcept {
  static_cast<DirectBus *>(self)->calls_.push_back(MessageRef::share(message));
  return 1;
}

std::string DirectBus::receiver(std::size_t index) const {
  return sd_bus_message_get_destination(calls_.at(index).get());
}

guint32 DirectBus::number(std::size_t index) const {
  sd_bus_message *message = calls_.at(index).get();
  EXPECT_GE(sd_bus_message_rewind(message, 1), 0);
  if (sd_bus_message_has_signature(message, "ayu"))
    sd_bus_message_skip(message, "ay");
  guint32 number = 0;
  EXPECT_GE(sd_bus_message_read_basic(message, SD_BUS_TYPE_UINT32, &number), 0);
  return number;
}

bool DirectBus::wants_answer(std::size_t index) const {
  return sd_bus_message_get_expect_reply(calls_.at(index).get()) > 0;
}

MessageRef DirectBus::take(std::size_t index) {
  MessageRef message = calls_.at(index);
  calls_.erase(calls_.begin() + static_cast<std::ptrdiff_t>(index));
  return message;
}

void DirectBus::answer(std::size_t index) {
  answer_far(index);
  run();
}

void DirectBus::answer_twice(std::size_t index) {
  const MessageRef call = take(index);
  for (int time = 0; time < 2; ++time)
    EXPECT_GE(sd_bus_reply_method_return(call.get(), nullptr), 0);
  run();
}

void DirectBus::answer_far(std::size_t index) {
  EXPECT_GE(sd_bus_reply_method_return(take(index).get(), nullptr), 0);
}

void DirectBus::answer_error(std::size_t index, const char *name) {
  EXPECT_GE(sd_bus_reply_method_errorf(take(index).get(), name, "said no"), 0);
  run();
}

void DirectBus::hang_up_far() {
  calls_.clear();
  sd_bus_close(far_.get());
}

void DirectBus::hang_up() {
  hang_up_far();
  while (sd_bus_process(near_.get(), nullptr) >= 0) {
  }
}

} // namespace varro2::test
