#include "sendwindow.hpp"

#include "buserrors.hpp"
#include "log.hpp"
#include "preconditions.hpp"

#include <varro2/eventutils.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

namespace varro2 {

namespace {

constinit SendTotals totals{};

void add(std::atomic<std::uint64_t> &total, std::uint64_t count) {
  total.fetch_add(count, std::memory_order_relaxed);
}

void subtract(std::atomic<std::uint64_t> &total, std::uint64_t count) {
  total.fetch_sub(count, std::memory_order_relaxed);
}

// Of a bound for all together everybody gets so much.
constexpr std::size_t least_queue = 16 * 1024;

// The bound counts what is to be delivered, so that users can reckon with it. What an entry costs
// beside that is of the same order, as long as small ones do not count for nothing.
constexpr std::size_t least_size = 64;

// While calls are scarce: what is kept for those whose answer somebody waits for, and how many
// times as much as one receiver gets has to be free.
constexpr std::size_t kept_for_answers = 16;
constexpr std::size_t spread = 6;

// A few milliseconds are exact enough, and this is asked with every call.
gint64 now_coarsely() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
  return now.tv_sec * G_USEC_PER_SEC + now.tv_nsec / 1000;
}

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

} // namespace

WindowCall make_window_call(const BusMethod &method, const char *object, BytesRef payload,
                            std::initializer_list<guint32> numbers, CallCompletion completion) {
  WindowCall call{.method = method,
                  .object = object,
                  .payload = std::move(payload),
                  .number_count = numbers.size(),
                  .completion = std::move(completion)};
  std::copy(numbers.begin(), numbers.end(), call.numbers.begin());
  call.size = std::max<std::size_t>(call.payload ? call.payload->len : 0, least_size);
  return call;
}

WindowCall make_window_call(MessageRef message, std::size_t size, CallCompletion completion) {
  return {.message = std::move(message),
          .size = std::max(size, least_size),
          .completion = std::move(completion)};
}

void SendWindow::Ended::add(CallEnd end, WindowCall call) {
  if (call.completion)
    completions_.emplace_back(end, std::move(call.completion));
}

void SendWindow::Ended::tell() {
  for (const auto &[end, completion] : completions_)
    completion(end, nullptr);
}

SendWindow::SendWindow(sd_bus *bus, SendLimits limits) : bus_{bus}, limits_{limits} {}

SendWindow::~SendWindow() {
  subtract(totals.waiting, waiting_);
  subtract(totals.unanswered, unanswered());
}

void SendWindow::count_dropped(std::uint64_t count) {
  dropped_ += count;
  add(totals.dropped, count);
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
  subtract(totals.unanswered, ended_calls);
  release_if_done(queue);
  pump(ended);
  ended.tell();
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

SendWindow::Queue &SendWindow::queue_for(const char *receiver) {
  auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end()) {
    found = queues_.emplace(receiver, Queue{}).first;
    found->second.receiver = &found->first;
  }
  return found->second;
}

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

MessageRef SendWindow::message_of(const Queue &queue, const WindowCall &call) const {
  if (call.message)
    return call.message;
  MessageRef message = new_call(bus_, {queue.receiver->c_str(), call.object.c_str()}, call.method);
  if (call.payload)
    append_argument(call.method, message.get(), call.payload.get());
  for (const guint32 number : std::span{call.numbers}.first(call.number_count))
    append_argument(call.method, message.get(), number);
  return message;
}

int SendWindow::transmit(Queue &queue, WindowCall &call, Turn turn) {
  const MessageRef message = message_of(queue, call);
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
  add(totals.unanswered, 1);
  return r;
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

void SendWindow::enqueue(Queue &queue, WindowCall call) {
  if (queue.waiting.empty())
    queue.moved_at = g_get_monotonic_time();
  queue.waiting_bytes += call.size;
  waiting_bytes_ += call.size;
  queue.waiting.push_back(std::move(call));
  ++waiting_;
  add(totals.waiting, 1);
  end_of_line(queue);
}

WindowCall SendWindow::take_first(Queue &queue) {
  WindowCall call = std::move(queue.waiting.front());
  queue.waiting.pop_front();
  queue.waiting_bytes -= call.size;
  waiting_bytes_ -= call.size;
  --waiting_;
  subtract(totals.waiting, 1);
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

void SendWindow::release_if_done(Queue &queue) {
  if (queue.waiting.empty() && queue.unanswered == 0 && !queue.in_use)
    queues_.erase(queues_.find(*queue.receiver));
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

// The daemon counts the call no more.
void SendWindow::end_call(Queue &queue, sd_bus_message *answer, Ended &ended) {
  ++answered_;
  add(totals.answered, 1);
  subtract(totals.unanswered, 1);
  --queue.unanswered;
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

} // namespace varro2

void event_utils_get_send_counters(SendCounters *counters) noexcept {
  VARRO2_EXPECT(counters != NULL);
  const auto read = [](const std::atomic<std::uint64_t> &total) {
    return guint64{total.load(std::memory_order_relaxed)};
  };
  *counters = {.answered = read(varro2::totals.answered),
               .dropped = read(varro2::totals.dropped),
               .unanswered = read(varro2::totals.unanswered),
               .waiting = read(varro2::totals.waiting)};
}
