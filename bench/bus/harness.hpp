// What the programs of the side-by-side bus benchmark have in common. Each program is one peer and
// plays one side of a run: it obeys lines on its standard input and reports on its standard output.
//
//   consumer: "expect N"    prints "waiting", then "done {...}" when N events have come
//   producer: "send N"      sends N events as fast as it may
//             "rate N R"    sends N events, R a second
//             "report"      prints "used {...}": the processor time since it was told to send
//
// At the end of its input a program ends.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bench {

// The bytes of an event, with the time at which it was sent as 20 digits somewhere inside.
class Payload {
 public:
  explicit Payload(std::string bytes);

  const std::string &bytes() const { return bytes_; }
  void stamp();
  // When an event of these bytes was sent, in nanoseconds of the monotonic clock.
  std::uint64_t stamp_of(std::string_view bytes) const;

 private:
  std::string bytes_;
  std::size_t stamp_at_;
};

inline constexpr std::string_view stamp_place = "00000000000000000000";

std::uint64_t now_in_nanoseconds();
std::string stamp_text(std::uint64_t nanoseconds);
std::uint64_t stamp_number(std::string_view text);

// One side of a run, as each peer writes it.
class Side {
 public:
  virtual ~Side() = default;

  virtual void watch(int descriptor, std::function<void()> readable) = 0;
  virtual void run() = 0; // until quit()
  virtual void quit() = 0;
};

class ConsumerSide : public Side {
 public:
  // What a producer must know to reach this consumer.
  virtual std::string address() = 0;
  // To be called for each event, with the time at which it was sent.
  std::function<void(std::uint64_t stamp)> received;
};

class ProducerSide : public Side {
 public:
  // Sends one event to every consumer.
  virtual void send() = 0;
  // Whether `answered` is called for each answer of each consumer. If not, the peer has a window of
  // its own.
  virtual bool counts_answers() const = 0;
  std::function<void()> answered;
};

// The command line of a program:
//   PROGRAM consumer [--credits DESCRIPTOR]...
//   PROGRAM producer [--credits DESCRIPTOR] [ADDRESS...]
struct Options {
  bool is_producer = false;
  // Where the first consumer tells each producer that a bunch of events has come.
  std::vector<int> credits;
  std::vector<std::string> addresses;
  std::string payload; // contents of the file named by BENCH_PAYLOAD
};

int run_side(int argc, char **argv,
             const std::function<std::unique_ptr<ConsumerSide>(const Options &)> &make_consumer,
             const std::function<std::unique_ptr<ProducerSide>(const Options &)> &make_producer);

// For loops that take descriptors one by one.
class PollLoop {
 public:
  void watch(int descriptor, std::function<void()> readable);
  // Waits once: for the watched descriptors, and for one of the peer's with its own conditions and
  // time-out (milliseconds). What the peer's descriptor is ready for.
  short wait(int descriptor, short conditions, int timeout);
  bool running = true;

 private:
  struct Watch {
    int descriptor;
    std::function<void()> readable;
  };
  std::vector<Watch> watches_;
};

} // namespace bench
