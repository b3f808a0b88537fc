#include "sendwindow.hpp"

#include "sendcounters.hpp"

namespace varro2 {

namespace {

// Queues that are kept with nothing in them. All go when there are more, also those of receivers
// that are gone for good.
constexpr std::size_t most_idle = 64;

} // namespace

SendWindow::SendWindow(sd_bus *bus, SendLimits limits, sd_event *loop)
    : bus_{bus}, limits_{limits}, patience_{loop, on_late, this} {}

SendWindow::~SendWindow() {
  subtract(send_totals.waiting, waiting_);
  subtract(send_totals.unanswered, unanswered());
}

void SendWindow::send(const char *receiver, WindowCall call) {
  Queue &queue = queue_for(receiver);
  Ended ended;
  const bool first = queue.waiting.empty() && receiver_has_room(queue);
  const Turn turn = first ? turn_of(queue, call) : Turn::later;
  if (turn == Turn::now || turn == Turn::unasked) {
    const int r = transmit(queue, call, turn);
    if (r < 0)
      ended.add(CallEnd::refused, std::move(call));
    release_if_done(queue);
  } else {
    enqueue(queue, std::move(call));
    if (queue.waiting_bytes > limits_.queued_bytes || limits_.all_queued_bytes != 0)
      drop_oldest(queue, ended);
    if (first && turn != Turn::later)
      pump(ended);
  }
  ended.tell();
}

void SendWindow::forget(const char *receiver) {
  const auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end())
    return;
  Ended ended;
  Queue &queue = found->second;
  drop_all(queue, CallEnd::dropped, ended);
  // The daemon has ended what the receiver left unanswered.
  const auto ended_calls =
      std::erase_if(overdue_, [&queue](const auto &late) { return late.second == &queue; });
  queue.unanswered -= static_cast<unsigned>(ended_calls);
  queue.overdue = 0;
  subtract(send_totals.unanswered, ended_calls);
  note_few();
  release_if_done(queue);
  for (auto &[name, other] : queues_)
    end_of_line(other);
  pump(ended);
  discard_idle(receiver);
  ended.tell();
}

void SendWindow::discard_idle(const char *receiver) {
  const auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end() || !found->second.is_idle)
    return;
  queues_.erase(found);
  --idle_;
  last_ = nullptr;
}

SendWindow::Queue &SendWindow::queue_for(const char *receiver) {
  if (last_ == nullptr || *last_->receiver != receiver) {
    auto found = queues_.find(std::string_view{receiver});
    if (found == queues_.end()) {
      found = queues_.emplace(receiver, Queue{}).first;
      found->second.receiver = &found->first;
    }
    last_ = &found->second;
  }
  Queue &queue = *last_;
  if (std::exchange(queue.is_idle, false))
    --idle_;
  return queue;
}

void SendWindow::release_if_done(Queue &queue) {
  if (!queue.waiting.empty() || queue.unanswered != 0 || queue.in_use || queue.is_idle)
    return;
  queue.is_idle = true;
  if (++idle_ <= most_idle)
    return;
  std::erase_if(queues_, [](const auto &entry) { return entry.second.is_idle; });
  idle_ = 0;
  last_ = nullptr;
}

int SendWindow::transmit(Queue &queue, WindowCall &call, Turn turn) {
  const MessageRef message = call.message_to(bus_, queue.receiver->c_str());
  int r = 0;
  if (turn == Turn::unasked) {
    sd_bus_message_set_expect_reply(message.get(), FALSE);
    r = sd_bus_send(bus_, message.get(), nullptr);
    ++queue.unasked;
  } else {
    r = ask(queue, call, message.get());
  }
  if (r < 0) {
    if (!unattended_)
      warn_of_refused_call(message.get(), r);
    count_dropped(1);
  }
  return r;
}

} // namespace varro2
