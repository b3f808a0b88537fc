// Two ends of one connection in one process, without a bus daemon: what the near end calls, the
// far end keeps until the test answers it.
#pragma once

#include "buscall.hpp"

#include <deque>
#include <string>
#include <vector>

namespace varro2::test {

class DirectBus {
 public:
  DirectBus();
  ~DirectBus();
  DirectBus(const DirectBus &) = delete;
  DirectBus &operator=(const DirectBus &) = delete;

  sd_bus *near() const { return near_.get(); }
  sd_bus *far() const { return far_.get(); }

  // Moves everything that is under way.
  void run();
  // Only what the far end reads and writes: for a near end that a loop drives.
  void run_far();

  // What has arrived and is not answered, oldest first.
  std::size_t size() const { return calls_.size(); }
  std::string receiver(std::size_t index) const;
  guint32 number(std::size_t index) const; // the first number behind the payload
  bool wants_answer(std::size_t index) const;

  void answer(std::size_t index);
  void answer_twice(std::size_t index);
  void answer_error(std::size_t index, const char *name);
  void answer_far(std::size_t index); // which the near end has not read yet
  void hang_up();
  void hang_up_far();

 private:
  static int keep(sd_bus_message *message, void *self, sd_bus_error *error) noexcept;
  MessageRef take(std::size_t index);

  BusRef near_;
  BusRef far_;
  std::deque<MessageRef> calls_;
};

} // namespace varro2::test
