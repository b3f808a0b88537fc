#include "sendwindow.hpp"

#include "buserrors.hpp"
#include "log.hpp"

#include <algorithm>
#include <cerrno>

namespace varro2 {

namespace {

// What an entry costs beside its payload, which others may share.
constexpr std::size_t entry_overhead = sizeof(WindowCall);

std::size_t size_of(const WindowCall &call) {
  const std::size_t payload = call.payload ? call.payload->len : 0;
  return entry_overhead + call.object.size() + payload;
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
  return call;
}

SendWindow::SendWindow(sd_bus *bus, SendLimits limits) : bus_{bus}, limits_{limits} {}

void SendWindow::send(const char *receiver, WindowCall call) {
  Queue &queue = queue_for(receiver);
  std::list<WindowCall> dropped;
  if (queue.waiting.empty() && receiver_has_room(queue) && connection_has_room()) {
    const int r = transmit(queue, call);
    if (r < 0)
      dropped.push_back(std::move(call));
    release_if_done(queue);
  } else {
    enqueue(queue, std::move(call));
    if (queue.waiting_bytes > limits_.queued_bytes)
      drop_oldest(queue, dropped);
  }
  complete_dropped(std::move(dropped));
}

void SendWindow::forget(const char *receiver) {
  const auto found = queues_.find(std::string_view{receiver});
  if (found == queues_.end())
    return;
  std::list<WindowCall> dropped;
  drop_all(found->second, dropped);
  release_if_done(found->second);
  complete_dropped(std::move(dropped));
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

int SendWindow::transmit(Queue &queue, WindowCall &call) {
  const auto message = new_call(bus_, {queue.receiver->c_str(), call.object.c_str()}, call.method);
  if (call.payload)
    append_argument(call.method, message.get(), call.payload.get());
  for (const guint32 number : std::span{call.numbers}.first(call.number_count))
    append_argument(call.method, message.get(), number);

  PendingCalls::Answered handler;
  if (call.completion)
    handler = [this, &queue, completion = call.completion](sd_bus_message *answer) {
      return answered(queue, completion, answer);
    };
  else // small enough to need no memory of its own
    handler = [this, &queue](sd_bus_message *answer) { return answered(queue, {}, answer); };

  const int r = pending_.send(bus_, message.get(), std::move(handler));
  if (r >= 0)
    ++queue.unanswered;
  else
    ++dropped_;
  return r;
}

void SendWindow::enqueue(Queue &queue, WindowCall call) {
  queue.waiting_bytes += size_of(call);
  queue.waiting.push_back(std::move(call));
  ++waiting_;
  end_of_line(queue);
}

WindowCall SendWindow::take_first(Queue &queue) {
  WindowCall call = std::move(queue.waiting.front());
  queue.waiting.pop_front();
  queue.waiting_bytes -= size_of(call);
  --waiting_;
  if (queue.waiting.empty())
    queue.dropped = 0;
  return call;
}

// The newest entry stays, however large it is.
void SendWindow::drop_oldest(Queue &queue, std::list<WindowCall> &dropped) {
  const bool first_of_episode = queue.dropped == 0;
  std::uint64_t count = 0;
  while (queue.waiting_bytes > limits_.queued_bytes && queue.waiting.size() > 1) {
    dropped.push_back(take_first(queue));
    ++count;
  }
  queue.dropped += count;
  dropped_ += count;
  if (first_of_episode && count > 0)
    VARRO2_WARNING("%sThe queue of %s is full: dropped %" G_GUINT64_FORMAT
                   " of its oldest calls, and will drop more while it does not answer",
                   queue.receiver->c_str(), count);
}

void SendWindow::drop_all(Queue &queue, std::list<WindowCall> &dropped) {
  while (!queue.waiting.empty()) {
    dropped.push_back(take_first(queue));
    ++dropped_;
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
void SendWindow::pump(std::list<WindowCall> &dropped) {
  while (!line_.empty() && connection_has_room()) {
    Queue &queue = *line_.front();
    line_.pop_front();
    queue.in_line = false;
    WindowCall call = take_first(queue);
    const int r = transmit(queue, call);
    if (r < 0)
      dropped.push_back(std::move(call));
    // Without a connection all the others would fail alike, each with its own line in the log.
    if (r == -ENOTCONN || r == -ECONNRESET)
      drop_all(queue, dropped);
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
  --queue.unanswered;
  std::list<WindowCall> dropped;
  if (says_receiver_left(answer))
    drop_all(queue, dropped);
  end_of_line(queue);
  queue.in_use = true;
  pump(dropped);
  queue.in_use = false;
  release_if_done(queue);
  const auto idle_handler = idle() ? idle_handler_ : nullptr;
  // From here on the window may be gone.
  if (completion)
    completion(answer);
  complete_dropped(std::move(dropped));
  if (idle_handler)
    idle_handler();
  return 0;
}

void SendWindow::complete_dropped(std::list<WindowCall> dropped) {
  for (const WindowCall &call : dropped)
    if (call.completion)
      call.completion(nullptr);
}

} // namespace varro2
