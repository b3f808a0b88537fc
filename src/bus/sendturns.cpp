// Whose turn it is in a send window.
#include "coarseclock.hpp"
#include "sendwindow.hpp"

#include <algorithm>
#include <cerrno>

namespace varro2 {

namespace {

// While calls are scarce: what is kept for those whose answer somebody waits for, and how many
// times as much as one receiver gets has to be free.
constexpr std::size_t kept_for_answers = 16;
constexpr std::size_t spread = 6;

} // namespace

std::size_t SendWindow::free() const noexcept {
  return limits_.unanswered - std::min<std::size_t>(unanswered(), limits_.unanswered);
}

bool SendWindow::is_suspect(const Queue &queue, gint64 now) const noexcept {
  return queue.unanswered > 0 && now - queue.called_at >= limits_.suspect_after;
}

std::size_t SendWindow::held_by_suspects() {
  const gint64 now = now_coarsely();
  // All receivers are looked at, so not with every call.
  if (now - looked_for_suspects_at_ >= limits_.suspect_after / 4) {
    looked_for_suspects_at_ = now;
    held_by_suspects_ = 0;
    for (const auto &[receiver, queue] : queues_)
      if (is_suspect(queue, now))
        held_by_suspects_ += queue.unanswered;
  }
  return held_by_suspects_;
}

unsigned SendWindow::limit_of_receiver() {
  if (!is_scarce())
    return limits_.unanswered_per_receiver;
  std::size_t room = free();
  if (!scout_) {
    const std::size_t held = held_by_suspects();
    if (held == 0)
      return limits_.unanswered_per_receiver;
    room = limits_.unanswered - std::min<std::size_t>(held, limits_.unanswered);
  }
  return static_cast<unsigned>(
      std::clamp<std::size_t>(room / spread, 1, limits_.unanswered_per_receiver));
}

bool SendWindow::receiver_has_room(const Queue &queue) {
  return queue.unanswered == 0 || queue.unanswered < limit_of_receiver();
}

SendWindow::Turn SendWindow::turn_of(const Queue &queue, const WindowCall &call) const {
  if (!scout_)
    return free() > 0 ? Turn::now : Turn::later;
  if (!is_scarce())
    return Turn::now;
  const gint64 now = now_coarsely();
  const bool alive = !is_suspect(queue, now) && queue.proven_at != 0 &&
                     now - queue.proven_at < limits_.suspect_after;
  if (!alive)
    return Turn::held_back;
  if (free() > kept_for_answers)
    return Turn::now;
  if (call.completion)
    return free() > 0 ? Turn::now : Turn::never;
  return queue.unasked < limits_.unanswered_per_receiver ? Turn::unasked : Turn::held_back;
}

void SendWindow::end_of_line(Queue &queue) {
  if (queue.in_line || queue.held_back || queue.waiting.empty() || !receiver_has_room(queue))
    return;
  line_.push_back(&queue);
  queue.in_line = true;
}

// One call per queue and turn, so that no receiver keeps the others waiting.
void SendWindow::pump(Ended &ended) {
  if (held_back_ > 0 && !is_scarce())
    for (auto &[receiver, queue] : queues_)
      let_go(queue);
  while (!line_.empty()) {
    Queue &queue = *line_.front();
    const Turn turn = turn_of(queue, queue.waiting.front());
    if (turn == Turn::later)
      return;
    line_.pop_front();
    queue.in_line = false;
    if (turn == Turn::held_back) {
      hold_back(queue);
      continue;
    }
    WindowCall call = take_first(queue);
    if (turn == Turn::never) {
      ended.add(CallEnd::dropped, std::move(call));
      count_dropped(1);
      end_of_line(queue);
      release_if_done(queue);
      continue;
    }
    const int r = transmit(queue, call, turn);
    if (r < 0)
      ended.add(CallEnd::refused, std::move(call));
    // Without a connection all the others would fail alike, each with its own line in the log.
    if (r == -ENOTCONN || r == -ECONNRESET)
      drop_all(queue, CallEnd::refused, ended);
    end_of_line(queue);
    release_if_done(queue);
  }
}

void SendWindow::hold_back(Queue &queue) {
  queue.held_back = true;
  ++held_back_;
  // One that hangs with calls on the way is heard of by their answers.
  if (!is_suspect(queue, now_coarsely()))
    scout_(*queue.receiver);
}

void SendWindow::let_go(Queue &queue) {
  if (queue.held_back) {
    queue.held_back = false;
    --held_back_;
  }
  end_of_line(queue);
}

void SendWindow::seen_alive(const std::string &receiver) {
  const auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end())
    return;
  Queue &queue = found->second;
  // Who answers others but not the calls is no better than one that hangs.
  const gint64 now = now_coarsely();
  if (is_suspect(queue, now))
    return;
  queue.proven_at = now;
  queue.unasked = 0;
  let_go(queue);
  Ended ended;
  pump(ended);
  ended.tell();
}

bool SendWindow::holds_back(const std::string &receiver) const {
  const auto found = queues_.find(std::string_view{receiver});
  return found != queues_.end() && found->second.held_back;
}

} // namespace varro2
