// How a send window hears of the answers to its calls, and of those that do not come.
//
// Nearly all calls are of no interest to anybody once they are made: the window keeps their
// cookies, and looks at the answers that come over the connection. sd-bus itself waits only for
// those answers that somebody is told: what it keeps for each costs more than to send the call.
#include "buserrors.hpp"
#include "coarseclock.hpp"
#include "sendcounters.hpp"
#include "sendwindow.hpp"

#include <algorithm>

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
         (sd_bus_error_has_name(sd_bus_message_get_error(answer), SD_BUS_ERROR_DISCONNECTED) > 0 &&
          is_of_the_bus(answer));
}

// A stranger's call or signal may name a cookie as well.
bool is_answer(sd_bus_message *message) {
  std::uint8_t type = 0;
  return sd_bus_message_get_type(message, &type) >= 0 &&
         (type == SD_BUS_MESSAGE_METHOD_RETURN || type == SD_BUS_MESSAGE_METHOD_ERROR);
}

} // namespace

int SendWindow::ask(Queue &queue, WindowCall &call, sd_bus_message *message) {
  const int r = call.completion ? call_for(call.completion, queue, message) : post(queue, message);
  if (r < 0)
    return r;
  if (queue.unanswered++ == 0)
    queue.called_at = now_coarsely();
  note_few();
  add(send_totals.unanswered, 1);
  return r;
}

int SendWindow::call_for(const CallCompletion &completion, Queue &queue, sd_bus_message *message) {
  return pending_.send(
      bus_, message,
      [this, &queue, completion](sd_bus_message *answer) {
        return answered(queue, completion, answer);
      },
      limits_.timeout);
}

// A call whose answer nobody is told.
int SendWindow::post(Queue &queue, sd_bus_message *message) {
  int r = listen();
  if (r < 0)
    return r;
  std::uint64_t cookie = 0;
  r = sd_bus_send(bus_, message, &cookie);
  if (r < 0)
    return r;
  posted_.push_back({.cookie = cookie, .time = now_coarsely(), .queue = &queue});
  if (!patience_.is_set())
    patience_.set(g_get_monotonic_time() + static_cast<gint64>(limits_.timeout));
  return r;
}

int SendWindow::answered(Queue &queue, const CallCompletion &completion, sd_bus_message *answer) {
  Ended ended;
  if (says_out_of_time(bus_, answer)) {
    guint64 cookie = 0;
    sd_bus_message_get_reply_cookie(answer, &cookie);
    keep_overdue(queue, cookie);
    listen();
  } else {
    end_call(queue, answer, ended);
  }
  note_idle();
  // From here on the window may be gone.
  completion(CallEnd::answered, answer);
  ended.tell();
  return 1;
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

void SendWindow::note_idle() {
  if (idle() && idle_handler_)
    idle_handler_();
}

void SendWindow::keep_overdue(Queue &queue, std::uint64_t cookie) {
  overdue_.emplace(cookie, &queue);
  ++queue.overdue;
}

void SendWindow::on_late(void *self) {
  static_cast<SendWindow *>(self)->give_up_late();
}

// The time runs on for the oldest call, not for each: it is looked at when it has run out.
void SendWindow::give_up_late() {
  const gint64 sent_before = g_get_monotonic_time() - static_cast<gint64>(limits_.timeout);
  const auto in_time = std::ranges::find_if(
      posted_, [sent_before](const Posted &call) { return call.time > sent_before; });
  const bool any_late = in_time != posted_.begin();
  for (auto late = posted_.begin(); late != in_time; ++late)
    keep_overdue(*late->queue, late->cookie);
  posted_.erase(posted_.begin(), in_time);
  if (!posted_.empty())
    patience_.set(posted_.front().time + static_cast<gint64>(limits_.timeout));
  if (any_late)
    note_idle();
}

int SendWindow::listen() {
  return answers_ ? 0 : sd_bus_add_filter(bus_, answers_.out(), on_message, this);
}

int SendWindow::on_message(sd_bus_message *message, void *self, sd_bus_error *) noexcept {
  auto &window = *static_cast<SendWindow *>(self);
  std::uint64_t cookie = 0;
  if (is_answer(message) && sd_bus_message_get_reply_cookie(message, &cookie) >= 0 &&
      window.take_answer(message, cookie))
    return 1; // the window may be gone
  if (sd_bus_is_open(window.bus_) <= 0)
    window.end_all(message);
  else if (window.posted_.empty() && window.overdue_.empty())
    window.answers_.reset(); // whoever is called all the time need not look at each call
  return 0;
}

// Whether it is one of the window's.
bool SendWindow::take_answer(sd_bus_message *answer, std::uint64_t cookie) {
  // Most are for the oldest call or one of the next.
  const auto call = std::ranges::find(posted_, cookie, &Posted::cookie);
  if (call == posted_.end())
    return take_late_answer(answer, cookie);
  Queue &queue = *call->queue;
  posted_.erase(call);
  Ended ended;
  end_call(queue, answer, ended);
  note_idle();
  ended.tell();
  return true;
}

bool SendWindow::take_late_answer(sd_bus_message *answer, std::uint64_t cookie) {
  const auto late = overdue_.find(cookie);
  if (late == overdue_.end())
    return false;
  Queue &queue = *late->second;
  overdue_.erase(late);
  --queue.overdue;
  Ended ended;
  end_call(queue, answer, ended);
  ended.tell();
  return true;
}

// The connection has ended. What is overdue has been given up before.
void SendWindow::end_all(sd_bus_message *disconnected) {
  if (posted_.empty())
    return;
  Ended ended;
  while (!posted_.empty()) {
    Queue &queue = *posted_.front().queue;
    posted_.erase(posted_.begin());
    end_call(queue, disconnected, ended);
  }
  note_idle();
  ended.tell();
}

} // namespace varro2
