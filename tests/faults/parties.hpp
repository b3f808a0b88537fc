// A producer and a consumer of the library's, each with all that it does in one life.
#pragma once

#include "live.hpp"

#include <set>
#include <string>
#include <vector>

namespace varro2::test {

std::size_t open_descriptors(); // of this process

// Declares a greeting and a door as soon as it is made.
class Sender {
 public:
  // Connects through the address, and returns when that has ended.
  explicit Sender(const std::string &address);
  ~Sender();
  Sender(const Sender &) = delete;
  Sender &operator=(const Sender &) = delete;

  bool connected() const { return setup_error_.empty(); }
  const std::string &setup_error() const { return setup_error_; }
  bool has_both_subscribers() const { return subscribed_.size() == 2; }
  bool has_no_subscribers() const { return subscribed_.empty(); }

  bool greet(gint32 count);
  bool open_door();
  void withdraw(); // undeclares both
  void end();      // frees the handle
  bool ended() const { return producer_ == nullptr && done_; }

 private:
  EventProducer *producer_;
  bool set_up_ = false;
  bool done_ = false;
  std::string setup_error_;
  guint32 greeting_ = 0;
  guint32 door_ = 0;
  std::set<guint32> subscribed_;
};

// Subscribes to greetings and doors as soon as it is made.
class Receiver {
 public:
  explicit Receiver(const std::string &address);
  ~Receiver();
  Receiver(const Receiver &) = delete;
  Receiver &operator=(const Receiver &) = delete;

  bool connected() const { return setup_error_.empty(); }
  const std::string &setup_error() const { return setup_error_; }

  const std::vector<gint32> &greetings() const { return greetings_; } // their counts
  bool saw_open_door() const { return saw_open_door_; }
  void unsubscribe();
  void end();
  bool ended() const { return consumer_ == nullptr && done_; }

 private:
  EventConsumer *consumer_;
  bool set_up_ = false;
  bool done_ = false;
  std::string setup_error_;
  std::vector<guint32> tokens_;
  std::vector<gint32> greetings_;
  bool saw_open_door_ = false;
};

} // namespace varro2::test
