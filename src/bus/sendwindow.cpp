#include "sendwindow.hpp"

#include "buserrors.hpp"
#include "coarseclock.hpp"
#include "sendcounters.hpp"

namespace varro2 {

namespace {

// A time-out is sd-bus's own message, with the cookie that no message on the bus has. That of a
// connection which has ended is as well.
bool says_out_of_time(sd_bus *bus, sd_bus_message *answer) {
  guint64 cookie = 0;
  return sd_bus_message_is_method_error(answer, SD_BUS_ERROR_NO_REPLY) > 0 &&
         sd_bus_message_get_cookie(answer, &cookie) >= 0 && cookie == G_MAXUINT32 &&
         sd_bus_is_open(bus) > 0;
}

// Also the answer of a daemon that a receiver left unanswered when it went.
bool says_receiver_left(sd_bus_message *answer) {
  return says_nobody_there(answer) ||
         sd_bus_error_has_name(sd_bus_message_get_error(answer), SD_BUS_ERROR_DISCONNECTED) > 0;
}

// Queues that are kept with nothing in them. All go when there are more, also those of receivers
// that are gone for good.
constexpr std::size_t most_idle = 64;

} // namespace

SendWindow::SendWindow(sd_bus *bus, SendLimits limits) : bus_{bus}, limits_{limits} {}

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
}

SendWindow::Queue &SendWindow::queue_for(const char *receiver) {
  auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end()) {
    found = queues_.emplace(receiver, Queue{}).first;
    found->second.receiver = &found->first;
  }
  Queue &queue = found->second;
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

int SendWindow::ask(Queue &queue, WindowCall &call, sd_bus_message *message) {
  PendingCalls::Answered handler;
  if (call.completion)
    handler = [this, &queue, completion = call.completion](sd_bus_message *answer) {
      return answered(queue, completion, answer);
    };
  else // small enough to need no memory of its own
    handler = [this, &queue](sd_bus_message *answer) { return answered(queue, {}, answer); };

  const int r = pending_.send(bus_, message, std::move(handler), limits_.timeout);
  if (r < 0)
    return r;
  if (queue.unanswered++ == 0)
    queue.called_at = now_coarsely();
  note_few();
  add(send_totals.unanswered, 1);
  return r;
}

int SendWindow::answered(Queue &queue, const CallCompletion &completion, sd_bus_message *answer) {
  Ended ended;
  if (says_out_of_time(bus_, answer))
    keep_overdue(queue, answer);
  else
    end_call(queue, answer, ended);
  if (idle() && idle_handler_)
    idle_handler_();
  // From here on the window may be gone.
  if (completion)
    completion(CallEnd::answered, answer);
  ended.tell();
  return 0;
}

// The daemon counts the call no more.
void SendWindow::end_call(Queue &queue, sd_bus_message *answer, Ended &ended) {
  ++answered_;
  add(send_totals.answered, 1);
  subtract(send_totals.unanswered, 1);
  --queue.unanswered;
  queue.answered_at = answered_;
  note_few();
  queue.called_at = queue.proven_at = now_coarsely();
  queue.unasked = 0;
  if (!queue.waiting.empty())
    queue.moved_at = g_get_monotonic_time();
  if (!limits_.outlives_receiver && says_receiver_left(answer))
    drop_all(queue, CallEnd::dropped, ended);
  let_go(queue);
  queue.in_use = true;
  pump(ended);
  queue.in_use = false;
  release_if_done(queue);
}

void SendWindow::keep_overdue(Queue &queue, sd_bus_message *timeout) {
  guint64 cookie = 0;
  sd_bus_message_get_reply_cookie(timeout, &cookie);
  overdue_.emplace(cookie, &queue);
  ++queue.overdue;
  // sd-bus does not wait for the answer any more, but a filter sees every message.
  if (!late_answers_)
    sd_bus_add_filter(bus_, late_answers_.out(), on_late_answer, this);
}

int SendWindow::on_late_answer(sd_bus_message *message, void *self, sd_bus_error *) noexcept {
  auto &window = *static_cast<SendWindow *>(self);
  guint64 cookie = 0;
  if (sd_bus_message_get_reply_cookie(message, &cookie) < 0)
    return 0;
  const auto late = window.overdue_.find(cookie);
  if (late == window.overdue_.end())
    return 0;
  Queue &queue = *late->second;
  window.overdue_.erase(late);
  --queue.overdue;
  Ended ended;
  window.end_call(queue, message, ended);
  if (window.overdue_.empty())
    window.late_answers_.reset();
  ended.tell();
  return 0;
}

} // namespace varro2
