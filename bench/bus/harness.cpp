#include "harness.hpp"

#include <poll.h>
#include <sys/resource.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <iterator>
#include <sstream>

namespace bench {

namespace {

// The first consumer gives each producer a credit for so many events of each. With many at a time a
// producer that has a send window of its own would make them all while the bus has nothing to do.
constexpr std::uint64_t events_per_credit = 8;
// How far a producer may be ahead of what it has credit for.
constexpr std::uint64_t events_ahead = 4 * events_per_credit;

// A peer that counts answers keeps to the same limits as the library's send window.
constexpr std::uint64_t unanswered_per_consumer = 8;
constexpr std::uint64_t unanswered_limit = 96;

[[noreturn]] void fail(const char *what) {
  std::perror(what);
  std::exit(1);
}

// Of this process, in seconds.
double processor_time() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Calls for each whole line that stands in the standard input, and at its end.
class Commands {
 public:
  Commands(Side &side, std::function<void(std::istringstream)> obey)
      : side_{side}, obey_{std::move(obey)} {
    side.watch(STDIN_FILENO, [this] { read_lines(); });
  }

 private:
  void read_lines() {
    char buffer[512];
    const ssize_t length = read(STDIN_FILENO, buffer, sizeof buffer);
    if (length <= 0) {
      side_.quit();
      return;
    }
    text_.append(buffer, static_cast<std::size_t>(length));
    for (std::size_t end; (end = text_.find('\n')) != std::string::npos;) {
      std::istringstream line{text_.substr(0, end)};
      text_.erase(0, end + 1);
      obey_(std::move(line));
    }
  }

  Side &side_;
  std::function<void(std::istringstream)> obey_;
  std::string text_;
};

class ConsumerRun {
 public:
  ConsumerRun(ConsumerSide &side, const std::vector<int> &credits)
      : credits_{credits}, commands_{side, [this](std::istringstream line) { expect(line); }} {
    side.received = [this](std::uint64_t stamp) { count(stamp); };
  }

 private:
  void expect(std::istringstream &line) {
    std::string word;
    line >> word >> expected_;
    received_ = 0;
    latencies_.clear();
    latencies_.reserve(expected_);
    std::puts("waiting");
    std::fflush(stdout);
    used_ = processor_time();
  }

  void count(std::uint64_t stamp) {
    const std::uint64_t now = now_in_nanoseconds();
    if (received_++ == 0)
      begun_ = now;
    latencies_.push_back(now - stamp);
    if (!credits_.empty() && received_ % (events_per_credit * credits_.size()) == 0)
      give_credits();
    if (received_ == expected_)
      report(now);
  }

  void give_credits() {
    for (const int producer : credits_)
      if (write(producer, "", 1) != 1)
        fail("credits");
  }

  void report(std::uint64_t now) {
    const double used = processor_time() - used_;
    std::sort(latencies_.begin(), latencies_.end());
    const auto part = [this](double share) {
      return static_cast<double>(latencies_[static_cast<std::size_t>(
                 share * static_cast<double>(latencies_.size() - 1))]) /
             1e3;
    };
    std::printf("done {\"events\": %zu, \"processor\": %.9f, \"wall\": %.9f, "
                "\"latency_50\": %.3f, \"latency_95\": %.3f, \"latency_99\": %.3f}\n",
                latencies_.size(), used, static_cast<double>(now - begun_) / 1e9, part(0.5),
                part(0.95), part(0.99));
    std::fflush(stdout);
  }

  std::vector<int> credits_; // by producer
  std::uint64_t expected_ = 0;
  std::uint64_t received_ = 0;
  std::uint64_t begun_ = 0;
  double used_ = 0;
  std::vector<std::uint64_t> latencies_; // nanoseconds
  Commands commands_;
};

class ProducerRun {
 public:
  ProducerRun(ProducerSide &side, const Options &options)
      : side_{side}, consumers_{std::max<std::size_t>(options.addresses.size(), 1)},
        credits_{options.credits.empty() ? -1 : options.credits.front()}, timer_{timerfd_create(
                                                                              CLOCK_MONOTONIC,
                                                                              TFD_NONBLOCK)},
        commands_{side, [this](std::istringstream line) { obey(line); }} {
    if (timer_ < 0)
      fail("timerfd_create");
    side.watch(timer_, [this] { tick(); });
    if (credits_ >= 0)
      side.watch(credits_, [this] { take_credits(); });
    side.answered = [this] {
      --unanswered_;
      pump();
    };
  }

 private:
  void obey(std::istringstream &line) {
    std::string word;
    line >> word;
    if (word == "report") {
      std::printf("used {\"processor\": %.9f}\n", processor_time() - used_);
      std::fflush(stdout);
      return;
    }
    std::uint64_t count = 0;
    line >> count;
    used_ = processor_time();
    if (word == "rate") {
      double rate = 1;
      line >> rate;
      to_tick_ = count;
      set_timer(static_cast<long>(1e9 / rate));
    } else {
      to_send_ = count;
      allowance_ = credits_ >= 0 ? events_ahead : count;
      pump();
    }
  }

  void set_timer(long nanoseconds) {
    const timespec interval{.tv_sec = nanoseconds / 1'000'000'000,
                            .tv_nsec = nanoseconds % 1'000'000'000};
    const itimerspec setting{.it_interval = interval, .it_value = interval};
    if (timerfd_settime(timer_, 0, &setting, nullptr) < 0)
      fail("timerfd_settime");
  }

  void tick() {
    std::uint64_t expirations = 0;
    if (read(timer_, &expirations, sizeof expirations) != sizeof expirations)
      return;
    for (; expirations > 0 && to_tick_ > 0; --expirations, --to_tick_)
      send();
    if (to_tick_ == 0)
      set_timer(0);
  }

  void take_credits() {
    char buffer[256];
    const ssize_t count = read(credits_, buffer, sizeof buffer);
    if (count > 0)
      allowance_ += static_cast<std::uint64_t>(count) * events_per_credit;
    pump();
  }

  bool has_room() const {
    return !side_.counts_answers() ||
           unanswered_ + consumers_ <=
               std::min(unanswered_per_consumer * consumers_, unanswered_limit);
  }

  void pump() {
    for (; to_send_ > 0 && allowance_ > 0 && has_room(); --to_send_, --allowance_)
      send();
  }

  void send() {
    unanswered_ += consumers_;
    side_.send();
  }

  ProducerSide &side_;
  std::uint64_t consumers_;
  int credits_;
  int timer_;
  std::uint64_t to_send_ = 0;
  std::uint64_t to_tick_ = 0;
  std::uint64_t allowance_ = 0;
  std::uint64_t unanswered_ = 0;
  double used_ = 0;
  Commands commands_;
};

Options read_options(int argc, char **argv) {
  Options options;
  options.is_producer = argc > 1 && std::string_view{argv[1]} == "producer";
  for (int at = 2; at < argc; ++at) {
    if (std::string_view{argv[at]} == "--credits" && at + 1 < argc)
      options.credits.push_back(std::atoi(argv[++at]));
    else
      options.addresses.emplace_back(argv[at]);
  }
  if (const char *name = std::getenv("BENCH_PAYLOAD")) {
    std::ifstream file{name, std::ios::binary};
    options.payload.assign(std::istreambuf_iterator<char>{file}, {});
  }
  return options;
}

} // namespace

std::uint64_t now_in_nanoseconds() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1'000'000'000 +
         static_cast<std::uint64_t>(now.tv_nsec);
}

std::string stamp_text(std::uint64_t nanoseconds) {
  char text[stamp_place.size() + 1];
  std::snprintf(text, sizeof text, "%020llu", static_cast<unsigned long long>(nanoseconds));
  return text;
}

std::uint64_t stamp_number(std::string_view text) {
  std::uint64_t number = 0;
  for (const char digit : text)
    number = number * 10 + static_cast<std::uint64_t>(digit - '0');
  return number;
}

Payload::Payload(std::string bytes)
    : bytes_{std::move(bytes)}, stamp_at_{bytes_.find(stamp_place)} {
  if (stamp_at_ == std::string::npos) {
    std::fprintf(stderr, "the payload has no place for a time\n");
    std::exit(1);
  }
}

void Payload::stamp() {
  const std::string text = stamp_text(now_in_nanoseconds());
  bytes_.replace(stamp_at_, text.size(), text);
}

std::uint64_t Payload::stamp_of(std::string_view bytes) const {
  return stamp_number(bytes.substr(stamp_at_, stamp_place.size()));
}

int run_side(int argc, char **argv,
             const std::function<std::unique_ptr<ConsumerSide>(const Options &)> &make_consumer,
             const std::function<std::unique_ptr<ProducerSide>(const Options &)> &make_producer) {
  const Options options = read_options(argc, argv);
  if (options.is_producer) {
    const auto side = make_producer(options);
    const ProducerRun run{*side, options};
    std::puts("ready");
    std::fflush(stdout);
    side->run();
  } else {
    const auto side = make_consumer(options);
    const ConsumerRun run{*side, options.credits};
    std::printf("ready %s\n", side->address().c_str());
    std::fflush(stdout);
    side->run();
  }
  return 0;
}

void PollLoop::watch(int descriptor, std::function<void()> readable) {
  watches_.push_back({descriptor, std::move(readable)});
}

short PollLoop::wait(int descriptor, short conditions, int timeout) {
  std::vector<pollfd> polled{{.fd = descriptor, .events = conditions, .revents = 0}};
  for (const Watch &watch : watches_)
    polled.push_back({.fd = watch.descriptor, .events = POLLIN, .revents = 0});
  if (poll(polled.data(), polled.size(), timeout) < 0 && errno != EINTR)
    fail("poll");
  for (std::size_t at = 0; at < watches_.size(); ++at)
    if (polled[at + 1].revents != 0)
      watches_[at].readable();
  return polled[0].revents;
}

} // namespace bench
