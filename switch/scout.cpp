#include "scout.hpp"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <vector>

namespace varro2::switchd {
namespace {

constexpr const char *bus_driver = "org.freedesktop.DBus";
constexpr BusMethod ping_method{"org.freedesktop.DBus.Peer", "Ping", "Scout"};

// Fewer than what a bus daemon allows a connection (128).
constexpr std::size_t most_pings = 120;
constexpr std::uint64_t tick_time = 100'000;     // microseconds
constexpr unsigned longest_pause = 3;            // a ping is repeated after 1, 2, 4, then 8 seconds
constexpr std::uint64_t first_pause = 1'000'000; // microseconds
constexpr unsigned keep_connection = 100;        // ticks

std::uint64_t now_of(sd_event *loop) {
  std::uint64_t now = 0;
  sd_event_now(loop, CLOCK_MONOTONIC, &now);
  return now;
}

} // namespace

Scout::Scout(sd_event *loop, sd_bus *bus, Wanted wanted, Alive alive)
    : loop_{loop}, bus_{bus}, wanted_{std::move(wanted)}, alive_{std::move(alive)} {}

Scout::~Scout() {
  disconnect();
}

void Scout::ask(const std::string &client) {
  const auto [at, is_new] = quests_.try_emplace(client);
  idle_ticks_ = 0;
  arm();
  if (is_new && pings_.size() < most_pings && connect())
    ping(client, at->second);
}

bool Scout::connect() {
  if (own_ && sd_bus_is_open(own_.get()) > 0)
    return true;
  disconnect();
  const char *address = nullptr;
  int status = sd_bus_get_address(bus_, &address);
  if (status >= 0)
    status = sd_bus_new(own_.out());
  if (status >= 0)
    status = sd_bus_set_address(own_.get(), address);
  if (status >= 0)
    status = sd_bus_set_bus_client(own_.get(), TRUE);
  if (status >= 0)
    status = sd_bus_start(own_.get());
  if (status >= 0)
    status = sd_bus_attach_event(own_.get(), loop_, SD_EVENT_PRIORITY_NORMAL);
  if (status >= 0)
    return true;
  if (!complained_)
    g_warning("Could not connect to the bus once more, to find out which clients are alive: %s",
              g_strerror(-status));
  complained_ = true;
  disconnect();
  return false;
}

void Scout::disconnect() {
  pings_.clear();
  if (own_)
    sd_bus_close(own_.get());
  own_.reset();
}

void Scout::ping(const std::string &client, Quest &quest) {
  quest.due = now_of(loop_) + (first_pause << std::min(quest.pings, longest_pause));
  ++quest.pings;
  const MessageRef message = new_call(own_.get(), {client.c_str(), "/"}, ping_method);
  pings_.send(own_.get(), message.get(), [this, client](sd_bus_message *answer) {
    answered(client, answer);
    return 0;
  });
}

// Whatever a client answers shows that it is alive; what the bus answers in its place does not.
void Scout::answered(const std::string &client, sd_bus_message *answer) {
  const char *sender = sd_bus_message_get_sender(answer);
  if (sender == nullptr || std::strcmp(sender, bus_driver) == 0) {
    if (!complained_ && sd_bus_message_is_method_error(answer, SD_BUS_ERROR_ACCESS_DENIED) > 0) {
      g_warning("The policy of the bus does not let the switch ping clients (%s)", client.c_str());
      complained_ = true;
    }
    return;
  }
  if (quests_.erase(client) > 0)
    alive_(client);
}

void Scout::arm() {
  if (timer_)
    return;
  sd_event_source *timer = nullptr;
  sd_event_add_time_relative(loop_, &timer, CLOCK_MONOTONIC, tick_time, 0, on_tick, this);
  timer_.reset(timer);
}

int Scout::on_tick(sd_event_source *, std::uint64_t, void *self) noexcept {
  static_cast<Scout *>(self)->tick();
  return 0;
}

void Scout::tick() {
  timer_.reset();
  std::erase_if(quests_, [this](const auto &quest) { return !wanted_(quest.first); });
  if (quests_.empty() && ++idle_ticks_ > keep_connection) {
    disconnect();
    return;
  }
  arm();
  const std::uint64_t now = now_of(loop_);
  std::vector<Quests::iterator> due;
  for (auto at = quests_.begin(); at != quests_.end(); ++at)
    if (at->second.due <= now)
      due.push_back(at);
  if (due.empty())
    return;
  // Who is alive has answered the last round by now: the rest is given up for the next.
  if (pings_.size() >= most_pings)
    disconnect();
  if (!connect())
    return;
  // Who was asked for last first: most of the others hang.
  std::ranges::sort(due, {}, [](auto at) { return at->second.pings; });
  for (const auto at : due) {
    if (pings_.size() >= most_pings)
      return;
    ping(at->first, at->second);
  }
}

} // namespace varro2::switchd
