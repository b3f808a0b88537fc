#include "sendwindow.hpp"

#include "buserrors.hpp"
#include "log.hpp"
#include "preconditions.hpp"

#include <varro2/eventutils.h>

#include <algorithm>
#include <cerrno>

namespace varro2 {

namespace {

constinit SendTotals totals{};

void add(std::atomic<std::uint64_t> &total, std::uint64_t count) {
  total.fetch_add(count, std::memory_order_relaxed);
}

void subtract(std::atomic<std::uint64_t> &total, std::uint64_t count) {
  total.fetch_sub(count, std::memory_order_relaxed);
}

// The bound counts what is to be delivered, so that users can reckon with it. What an entry costs
// beside that is of the same order, as long as small ones do not count for nothing.
constexpr std::size_t least_size = 64;

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
  subtract(totals.unanswered, pending_.size());
}

void SendWindow::count_dropped(std::uint64_t count) {
  dropped_ += count;
  add(totals.dropped, count);
}

void SendWindow::send(const char *receiver, WindowCall call) {
  Queue &queue = queue_for(receiver);
  Ended ended;
  if (queue.waiting.empty() && receiver_has_room(queue) && connection_has_room()) {
    const int r = transmit(queue, call);
    if (r < 0)
      ended.add(CallEnd::refused, std::move(call));
    release_if_done(queue);
  } else {
    enqueue(queue, std::move(call));
    if (queue.waiting_bytes > limits_.queued_bytes)
      drop_oldest(queue, ended);
  }
  ended.tell();
}

void SendWindow::forget(const char *receiver) {
  const auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end())
    return;
  Ended ended;
  drop_all(found->second, CallEnd::dropped, ended);
  release_if_done(found->second);
  ended.tell();
}

SendWindow::Queue &SendWindow::queue_for(const char *receiver) {
  auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end()) {
    found = queues_.emplace(receiver, Queue{}).first;
    found->second.receiver = &found->first;
  }
  return found->second;
}

bool SendWindow::receiver_has_room(const Queue &queue) const {
  return queue.unanswered < limits_.unanswered_per_receiver;
}

bool SendWindow::connection_has_room() const {
  return pending_.size() < limits_.unanswered;
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

int SendWindow::transmit(Queue &queue, WindowCall &call) {
  PendingCalls::Answered handler;
  if (call.completion)
    handler = [this, &queue, completion = call.completion](sd_bus_message *answer) {
      return answered(queue, completion, answer);
    };
  else // small enough to need no memory of its own
    handler = [this, &queue](sd_bus_message *answer) { return answered(queue, {}, answer); };

  const MessageRef message = message_of(queue, call);
  const int r = pending_.send(bus_, message.get(), std::move(handler));
  if (r < 0 && !unattended_)
    warn_of_refused_call(message.get(), r);
  if (r >= 0) {
    ++queue.unanswered;
    add(totals.unanswered, 1);
  } else {
    count_dropped(1);
  }
  return r;
}

void SendWindow::enqueue(Queue &queue, WindowCall call) {
  if (queue.waiting.empty())
    queue.moved_at = g_get_monotonic_time();
  queue.waiting_bytes += call.size;
  queue.waiting.push_back(std::move(call));
  ++waiting_;
  add(totals.waiting, 1);
  end_of_line(queue);
}

WindowCall SendWindow::take_first(Queue &queue) {
  WindowCall call = std::move(queue.waiting.front());
  queue.waiting.pop_front();
  queue.waiting_bytes -= call.size;
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
  return moving ? std::max(limits_.burst_bytes, limits_.queued_bytes) : limits_.queued_bytes;
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
}

void SendWindow::end_of_line(Queue &queue) {
  if (queue.in_line || queue.waiting.empty() || !receiver_has_room(queue))
    return;
  line_.push_back(&queue);
  queue.in_line = true;
}

// One call per queue and turn, so that no receiver keeps the others waiting.
void SendWindow::pump(Ended &ended) {
  while (!line_.empty() && connection_has_room()) {
    Queue &queue = *line_.front();
    line_.pop_front();
    queue.in_line = false;
    WindowCall call = take_first(queue);
    const int r = transmit(queue, call);
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

int SendWindow::answered(Queue &queue, const CallCompletion &completion, sd_bus_message *answer) {
  ++answered_;
  add(totals.answered, 1);
  subtract(totals.unanswered, 1);
  --queue.unanswered;
  if (!queue.waiting.empty())
    queue.moved_at = g_get_monotonic_time();
  Ended ended;
  if (says_receiver_left(answer))
    drop_all(queue, CallEnd::dropped, ended);
  end_of_line(queue);
  queue.in_use = true;
  pump(ended);
  queue.in_use = false;
  release_if_done(queue);
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
