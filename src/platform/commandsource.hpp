// The queue of one handle and its place in the main loop.
#pragma once

#include "owning.hpp"

#include <varro2/commandsource.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <thread>

// Counted, because it must outlive its owner: freed inside a command, or while threads wait in
// run(). References are held by the owner until close(), by the GSource until the loop lets go of
// it, and by whoever is inside a member function. std:: locks and counts, unlike GLib's, are known
// to the thread sanitizer.
struct CommandSource final {
 public:
  static CommandSource *attach(GMainContext *context, gpointer user_data);

  // A command that will never run, because the source is closed before its turn, has its data
  // dropped instead.
  void run_async(CommandSourceFunction function, gpointer data, GDestroyNotify drop = nullptr);
  // A command that calls nothing of the application's and iterates no loop, and whose end nobody
  // waits for. It may run as soon as the main loop comes by, without a turn of its own.
  void run_quietly(CommandSourceFunction function, gpointer data, GDestroyNotify drop);
  gpointer run(CommandSourceQuery query, gpointer data);
  // Drops what is queued and leaves the main loop; the owner's reference is gone afterwards.
  void close();

  void ref() noexcept { references_.fetch_add(1, std::memory_order_relaxed); }
  void unref() noexcept {
    if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1)
      delete this;
  }

 private:
  // Lives on the stack of the thread that waits; guarded by mutex_.
  struct Waiter {
    CommandSourceQuery query;
    bool is_over = false;
    gpointer result = nullptr;
    std::condition_variable over;
  };

  // Exactly one of function and waiter is set.
  struct Command {
    CommandSourceFunction function;
    Waiter *waiter;
    gpointer data;
    GDestroyNotify drop; // may be nullptr
    bool is_quiet = false;
  };

  class Running;

  CommandSource(GMainContext *context, gpointer user_data);
  ~CommandSource();

  static gboolean prepare(GSource *source, gint *timeout) noexcept;
  static gboolean check(GSource *source) noexcept;
  static gboolean dispatch(GSource *source, GSourceFunc callback, gpointer data) noexcept;
  static void finalize(GSource *source) noexcept;
  static GSourceFuncs source_functions;

  bool has_work() const;
  bool has_quiet_work() const { return has_work() && queue_.front().is_quiet; }
  void enqueue(const Command &command);
  void wake();
  bool is_home();
  void run_waiting(std::unique_lock<std::mutex> &lock);
  void run_quiet(std::unique_lock<std::mutex> &lock);
  void run_one(std::unique_lock<std::mutex> &lock);
  gpointer run_here(CommandSourceQuery query, gpointer data);
  gpointer run_there(CommandSourceQuery query, gpointer data);
  static void finish(Waiter &waiter, gpointer result);

  std::atomic<int> references_{1};
  GMainContext *const context_;
  const gpointer user_data_;

  std::mutex mutex_;         // guards what follows
  varro2::SourceRef source_; // none once closed
  std::deque<Command> queue_;
  // Where commands run when nobody owns the context: the thread that last iterated it for this
  // source, and until then the one that made the source.
  std::thread::id home_ = std::this_thread::get_id();
  bool is_closed_ = false;
  // A command runs, on the thread that owns the context. No other may start meanwhile, not even
  // when that command iterates the context.
  bool is_running_ = false;
  bool may_sleep_ =
      false; // the main loop has found nothing to do here, and nobody has told it more
};
