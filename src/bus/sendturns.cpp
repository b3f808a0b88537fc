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

// Without a scout: one in so many calls has to be free for a second one to the same receiver; one
// in so many is only for those who have answered since there were no more; and so many have to be
// free until that is over.
constexpr std::size_t reserve = 4;
constexpr std::size_t few = 12;
constexpr std::size_t enough = 6;

} // namespace

std::size_t SendWindow::free() const noexcept {
  return limits_.unanswered - std::min<std::size_t>(unanswered(), limits_.unanswered);
}

bool SendWindow::is_suspect(const Queue &queue, gint64 now) const noexcept {
  return queue.unanswered > 0 && now - queue.called_at >= limits_.suspect_after;
}

bool SendWindow::has_just_answered(const Queue &queue) const {
  return queue.answered_at != 0 && now_coarsely() - queue.proven_at < limits_.proven_for;
}

unsigned SendWindow::limit_of_receiver(const Queue &queue) const {
  if (!is_scarce() || !is_shared())
    return limits_.unanswered_per_receiver;
  if (!scout_)
    return free() >= limits_.unanswered / reserve && has_just_answered(queue) ? 2 : 1;
  return static_cast<unsigned>(
      std::clamp<std::size_t>(free() / spread, 1, limits_.unanswered_per_receiver));
}

bool SendWindow::receiver_has_room(const Queue &queue) const {
  return queue.unanswered == 0 || queue.unanswered < limit_of_receiver(queue);
}

// After each change of what is free. There have to be some more than a few again before all are
// served alike: otherwise the next who hangs would take what was just given back.
void SendWindow::note_few() {
  if (has_few_) {
    has_few_ = free() <= limits_.unanswered / enough;
  } else if (free() <= limits_.unanswered / few && is_shared()) {
    has_few_ = true;
    few_since_ = answered_;
  }
}

SendWindow::Turn SendWindow::turn_without_scout(const Queue &queue) const {
  // Where one takes the place of another, those before may have left all their calls unanswered.
  const bool is_served_always = limits_.outlives_receiver && queue.unanswered == 0;
  if (free() == 0 && !is_served_always)
    return Turn::later;
  return has_few_ && queue.answered_at <= few_since_ ? Turn::held_back : Turn::now;
}

SendWindow::Turn SendWindow::turn_of(const Queue &queue, const WindowCall &call) const {
  if (!scout_)
    return turn_without_scout(queue);
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
  if (held_back_ > 0 && (scout_ ? !is_scarce() : !has_few_))
    for (auto &[receiver, queue] : queues_)
      let_go(queue);
  while (!line_.empty()) {
    Queue &queue = *line_.front();
    const Turn turn = turn_of(queue, queue.waiting.front());
    if (turn == Turn::later)
      return;
    line_.pop_front();
    queue.in_line = false;
    // There may be less than when it got into the line. It comes again with its next answer.
    if (!receiver_has_room(queue))
      continue;
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

// The last call to a receiver may be the one by which its answers are known to be all.
void SendWindow::send_rest() {
  Ended ended;
  line_.clear();
  held_back_ = 0;
  for (auto &[receiver, queue] : queues_) {
    queue.in_line = queue.held_back = false;
    while (!queue.waiting.empty()) {
      WindowCall call = take_first(queue);
      const bool is_last = queue.waiting.empty() && call.completion;
      const Turn turn = free() > 0 || is_last ? Turn::now : Turn::unasked;
      const int r = transmit(queue, call, turn);
      if (r < 0 || turn == Turn::unasked)
        ended.add(CallEnd::refused, std::move(call));
    }
  }
  ended.tell();
}

void SendWindow::hold_back(Queue &queue) {
  queue.held_back = true;
  ++held_back_;
  // One that hangs with calls on the way is heard of by their answers.
  if (scout_ && !is_suspect(queue, now_coarsely()))
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
