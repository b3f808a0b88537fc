// Keeps the calls of one connection within what a bus daemon allows.
//
// A daemon refuses calls beyond a number without an answer (128 by default), and whoever does not
// wait for the answer never hears of it. One receiver that hangs would so cost all the others their
// calls. Here each receiver has a number of calls on the way, all of them together have another,
// and what exceeds that waits in the receiver's own queue, in order.
//
// A call that runs out of time is over for who made it, but the daemon counts it until the receiver
// answers after all or leaves. So it keeps its place here as well: it is overdue.
//
// Any number of receivers may hang at once, and it takes a while to be sure of it. So while less
// than half of the connection's calls are free, they go to one receiver each that has none on the
// way, and as long as a quarter is, to one that has just answered a second one: who finds two
// messages when he wakes up needs to wake up half as often. The very last ones go to those who have
// answered since there were no more. Some thirty that hang so leave all others what they need; with
// more than that, the others have what is left.
//
// A scout, who finds out by other means whether a receiver is alive, makes it safe from any number.
// A receiver that has not answered for a second is suspected to hang. While less than half of the
// connection's calls are free,
//  - only who has answered a call or the scout within a second gets any,
//  - the last ones are kept for calls whose answer somebody waits for; all others are then sent
//    without asking for an answer, which the daemon does not count, a few for each sign of life.
// All that was given away before went to at most half; who hangs gets no more.
#pragma once

#include "alarm.hpp"
#include "pendingcalls.hpp"
#include "windowcall.hpp"

#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varro2 {

struct SendLimits {
  unsigned unanswered_per_receiver = 8;
  unsigned unanswered = 96;
  std::size_t queued_bytes = 4 * 1024 * 1024; // per receiver
  // The same while the receiver still answers, so that a burst which is faster than the bus is not
  // taken for a receiver that hangs. 0: no more than above.
  std::size_t burst_bytes = 0;
  // Of all receivers together, about: one queue may have a quarter of what is left of it. 0: no
  // bound.
  std::size_t all_queued_bytes = 0;
  // What waits goes to whoever gets the name next, and without one the bus answers for each call.
  // Whoever has it gets one call at a time even if none is free.
  bool outlives_receiver = false;
  gint64 hang_after = 10 * G_USEC_PER_SEC; // with nothing moving. Microseconds
  gint64 suspect_after = G_USEC_PER_SEC;   // with no answer, by the scout. Microseconds
  gint64 proven_for = G_USEC_PER_SEC / 10; // by an answer, without a scout. Microseconds
  guint64 timeout = call_timeout;          // of each call. Microseconds
};

// What there is for one receiver.
struct QueueState {
  std::size_t unanswered = 0;
  std::size_t waiting = 0;
  std::size_t waiting_bytes = 0;
  std::uint64_t dropped = 0; // since the queue was last empty
  std::size_t overdue = 0;
};

// Belongs to one thread, the connection's. Completions may send again and may destroy the window.
class SendWindow {
 public:
  // Connection and loop outlive the window. The loop is the one that drives the connection; none
  // stands for GLib's default main context.
  explicit SendWindow(sd_bus *bus, SendLimits limits = {}, sd_event *loop = nullptr);
  ~SendWindow();
  SendWindow(const SendWindow &) = delete;
  SendWindow &operator=(const SendWindow &) = delete;

  // Sends the call, or queues it behind those to the same bus name.
  void send(const char *receiver, WindowCall call);

  // The receiver has left the bus: what waits for it is dropped.
  void forget(const char *receiver);

  // Sends all that waits, without regard to who has answered: nobody may be there to do it later.
  // What goes beyond the limit is sent without asking for an answer.
  void send_rest();

  // Has receivers asked for a sign of life while calls are scarce; seen_alive() passes it on. Must
  // leave the window alone.
  using Scout = std::function<void(const std::string &receiver)>;
  void set_scout(Scout ask) { scout_ = std::move(ask); }
  void seen_alive(const std::string &receiver);
  // Whether a sign of life is still of use.
  bool holds_back(const std::string &receiver) const;

  // Nothing is expected to come any more: what is overdue does not count.
  bool idle() const noexcept { return on_the_way() == 0 && waiting_ == 0; }
  // As the daemon counts.
  std::size_t unanswered() const noexcept { return on_the_way() + overdue_.size(); }
  std::size_t waiting() const noexcept { return waiting_; }

  // Since the window was made.
  std::uint64_t answered() const noexcept { return answered_; }
  std::uint64_t dropped() const noexcept { return dropped_; }

  std::size_t overdue() const noexcept { return overdue_.size(); }

  // Calls visit(receiver, state) for each receiver for whom there is something.
  template <typename Visit>
  void visit_queues(Visit visit) const {
    for (const auto &[receiver, queue] : queues_)
      if (!queue.is_idle)
        visit(receiver, QueueState{.unanswered = queue.unanswered,
                                   .waiting = queue.waiting.size(),
                                   .waiting_bytes = queue.waiting_bytes,
                                   .dropped = queue.dropped,
                                   .overdue = queue.overdue});
  }

  // Called whenever the window has become idle by an answer. Must leave the window alone.
  void set_idle_handler(std::function<void()> handler) { idle_handler_ = std::move(handler); }

  // Nobody is left who would want to read in the log that the connection broke.
  void set_unattended() noexcept { unattended_ = true; }

 private:
  struct Queue {
    const std::string *receiver = nullptr; // its key in the table
    std::string usual_object{};            // the object path of the first call that had to wait
    std::list<WindowCall> waiting{};
    std::size_t waiting_bytes = 0;
    gint64 moved_at = 0;     // monotonic microseconds: began to wait, or was answered
    gint64 called_at = 0;    // monotonic microseconds: first unanswered call, or last answer
    gint64 proven_at = 0;    // the same: last sign of life; 0: none
    unsigned unanswered = 0; // with what is overdue
    unsigned overdue = 0;
    unsigned unasked = 0;          // sent without asking for an answer since it gave the last one
    std::uint64_t dropped = 0;     // since the queue was last empty
    std::uint64_t answered_at = 0; // the number of its last answer, of all answers; 0: none
    bool in_line = false;          // for the connection's limit
    bool held_back = false;        // until it is seen alive, or there is enough again
    bool is_idle = false;          // nothing on the way or waiting
    bool in_use = false;           // stays in the table for now
  };
  enum class Turn {
    now,
    unasked,   // without asking for an answer
    later,     // when the connection has room
    held_back, // when there is a sign of life, or enough for all again
    never,     // there will be no room for the answer that somebody waits for
  };
  // Calls that ended without an answer, to be told when all else is in order.
  class Ended {
   public:
    void add(CallEnd end, WindowCall &&call);
    // The window may be gone afterwards.
    void tell();

   private:
    std::list<std::pair<CallEnd, CallCompletion>> completions_;
  };
  struct Hash : std::hash<std::string_view> {
    using is_transparent = void;
  };
  // Some stay for a while when nothing is on the way or waiting any more: events go to the same
  // receivers again and again.
  using Queues = std::unordered_map<std::string, Queue, Hash, std::equal_to<>>;

  // A call whose answer the window itself waits for.
  struct Posted {
    std::uint64_t cookie;
    gint64 time; // monotonic microseconds, coarsely
    Queue *queue;
  };

  std::size_t on_the_way() const noexcept { return pending_.size() + posted_.size(); }
  Queue &queue_for(const char *receiver);
  void discard_idle(const char *receiver);
  void note_few();
  std::size_t free() const noexcept;
  bool is_scarce() const noexcept { return 2 * free() < limits_.unanswered; }
  // Among receivers, none of which may have most of it.
  bool is_shared() const noexcept {
    return 2 * limits_.unanswered_per_receiver <= limits_.unanswered;
  }
  bool is_suspect(const Queue &queue, gint64 now) const noexcept;
  bool has_just_answered(const Queue &queue) const;
  unsigned limit_of_receiver(const Queue &queue) const;
  bool receiver_has_room(const Queue &queue) const;
  Turn turn_without_scout(const Queue &queue) const;
  Turn turn_of(const Queue &queue, const WindowCall &call) const;
  int transmit(Queue &queue, WindowCall &call, Turn turn);
  int ask(Queue &queue, WindowCall &call, sd_bus_message *message);
  void hold_back(Queue &queue);
  void let_go(Queue &queue);
  void enqueue(Queue &queue, WindowCall &&call);
  std::size_t bound_of(const Queue &queue) const;
  void drop_oldest(Queue &queue, Ended &ended);
  void drop_all(Queue &queue, CallEnd end, Ended &ended);
  void end_of_line(Queue &queue);
  void pump(Ended &ended);
  WindowCall take_first(Queue &queue);
  void release_if_done(Queue &queue);
  int call_for(const CallCompletion &completion, Queue &queue, sd_bus_message *message);
  int post(Queue &queue, sd_bus_message *message);
  int answered(Queue &queue, const CallCompletion &completion, sd_bus_message *answer);
  void end_call(Queue &queue, sd_bus_message *answer, Ended &ended);
  void note_idle();
  void keep_overdue(Queue &queue, std::uint64_t cookie);
  static void on_late(void *self);
  void give_up_late();
  int listen();
  static int on_message(sd_bus_message *message, void *self, sd_bus_error *error) noexcept;
  bool take_answer(sd_bus_message *answer, std::uint64_t cookie);
  bool take_late_answer(sd_bus_message *answer, std::uint64_t cookie);
  void end_all(sd_bus_message *disconnected);
  void count_dropped(std::uint64_t count);

  sd_bus *bus_;
  SendLimits limits_;
  Queues queues_;
  Queue *last_ = nullptr;      // to which was sent last: nearly always there is one, or few
  std::list<Queue *> line_;    // queues that only the connection's limit holds up, in turn
  PendingCalls pending_;       // whose answer somebody is told
  std::vector<Posted> posted_; // the others that are on the way, in order
  std::unordered_map<std::uint64_t, Queue *> overdue_; // by cookie
  SlotRef answers_;                                    // looks at all that comes; mostly at answers
  Alarm patience_;                                     // for posted_; maybe longer than needed
  Scout scout_;
  std::size_t held_back_ = 0;   // queues
  bool has_few_ = false;        // calls left: until there are some more again
  std::uint64_t few_since_ = 0; // answers
  std::size_t idle_ = 0;        // queues
  std::size_t waiting_ = 0;
  std::size_t waiting_bytes_ = 0;
  std::uint64_t answered_ = 0;
  std::uint64_t dropped_ = 0;
  std::function<void()> idle_handler_;
  bool unattended_ = false;
};

} // namespace varro2
