// What waits in a send window, and how much of it.
#include "log.hpp"
#include "sendcounters.hpp"
#include "sendwindow.hpp"

#include <algorithm>

namespace varro2 {

namespace {

// Of a bound for all together everybody gets so much.
constexpr std::size_t least_queue = 16 * 1024;

} // namespace

void SendWindow::enqueue(Queue &queue, WindowCall &&call) {
  if (queue.waiting.empty())
    queue.moved_at = g_get_monotonic_time();
  queue.waiting_bytes += call.size;
  waiting_bytes_ += call.size;
  call.keep(queue.usual_object);
  queue.waiting.push_back(std::move(call));
  ++waiting_;
  add(send_totals.waiting, 1);
  end_of_line(queue);
}

WindowCall SendWindow::take_first(Queue &queue) {
  WindowCall call = std::move(queue.waiting.front());
  queue.waiting.pop_front();
  queue.waiting_bytes -= call.size;
  waiting_bytes_ -= call.size;
  --waiting_;
  subtract(send_totals.waiting, 1);
  if (queue.waiting.empty())
    queue.dropped = 0;
  return call;
}

// A receiver hangs when nothing has moved for a while; a burst that one turn of the main loop sends
// moves nothing either, but is soon over.
std::size_t SendWindow::bound_of(const Queue &queue) const {
  const bool moving = g_get_monotonic_time() - queue.moved_at < limits_.hang_after;
  const std::size_t bound =
      moving ? std::max(limits_.burst_bytes, limits_.queued_bytes) : limits_.queued_bytes;
  if (limits_.all_queued_bytes == 0)
    return bound;
  const std::size_t of_others = waiting_bytes_ - queue.waiting_bytes;
  const std::size_t left = limits_.all_queued_bytes - std::min(limits_.all_queued_bytes, of_others);
  return std::min(bound, std::max(left / 4, least_queue));
}

// The newest entry stays, however large it is.
void SendWindow::drop_oldest(Queue &queue, Ended &ended) {
  const std::size_t bound = bound_of(queue);
  const bool first_of_episode = queue.dropped == 0;
  std::uint64_t count = 0;
  while (queue.waiting_bytes > bound && queue.waiting.size() > 1) {
    ended.add(CallEnd::dropped, take_first(queue));
    ++count;
  }
  queue.dropped += count;
  count_dropped(count);
  if (first_of_episode && count > 0)
    VARRO2_WARNING("%sThe queue of %s is full: dropped %" G_GUINT64_FORMAT
                   " of its oldest calls, and will drop more while it does not answer",
                   queue.receiver->c_str(), count);
}

void SendWindow::drop_all(Queue &queue, CallEnd end, Ended &ended) {
  while (!queue.waiting.empty()) {
    ended.add(end, take_first(queue));
    count_dropped(1);
  }
  if (queue.in_line) {
    line_.remove(&queue);
    queue.in_line = false;
  }
  let_go(queue);
}

void SendWindow::count_dropped(std::uint64_t count) {
  dropped_ += count;
  add(send_totals.dropped, count);
}

void SendWindow::Ended::add(CallEnd end, WindowCall &&call) {
  if (call.completion)
    completions_.emplace_back(end, std::move(call.completion));
}

void SendWindow::Ended::tell() {
  for (const auto &[end, completion] : completions_)
    completion(end, nullptr);
}

} // namespace varro2
