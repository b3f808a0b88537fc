#include "commandsource.hpp"

#include "preconditions.hpp"

#include <utility>

using namespace varro2;

namespace {

CommandSource *ref_source(CommandSource *source) noexcept {
  source->ref();
  return source;
}

void unref_source(CommandSource *source) noexcept {
  source->unref();
}

using CommandSourceRef = Counted<CommandSource, ref_source, unref_source>;

// GLib hands a new source over to the loop's thread under a lock that the thread sanitizer does not
// see. This counter orders the same two steps where it looks.
constinit std::atomic<unsigned> handed_over{0};

// What the main loop has: it holds a reference on the commands until it lets go.
struct LoopSource {
  GSource source;
  CommandSource *commands;
};

CommandSource *commands_of(GSource *source) noexcept {
  handed_over.load(std::memory_order_acquire);
  return reinterpret_cast<LoopSource *>(source)->commands;
}

// Owns the context while commands run outside of its loop.
class OwnedContext {
 public:
  explicit OwnedContext(GMainContext *context) noexcept
      : context_{g_main_context_acquire(context) ? context : nullptr} {}
  OwnedContext(const OwnedContext &) = delete;
  OwnedContext &operator=(const OwnedContext &) = delete;
  ~OwnedContext() {
    if (context_)
      g_main_context_release(context_);
  }
  explicit operator bool() const noexcept { return context_ != nullptr; }

 private:
  GMainContext *context_;
};

} // namespace

GSourceFuncs CommandSource::source_functions = {.prepare = CommandSource::prepare,
                                                .check = CommandSource::check,
                                                .dispatch = CommandSource::dispatch,
                                                .finalize = CommandSource::finalize,
                                                .closure_callback = nullptr,
                                                .closure_marshal = nullptr};

// Marks that a command runs; made and destroyed with the lock held.
class CommandSource::Running {
 public:
  explicit Running(CommandSource &source) noexcept : source_{source} { source_.is_running_ = true; }
  Running(const Running &) = delete;
  Running &operator=(const Running &) = delete;
  ~Running() {
    source_.is_running_ = false;
    source_.wake();
  }

 private:
  CommandSource &source_;
};

CommandSource::CommandSource(GMainContext *context, gpointer user_data)
    : context_{g_main_context_ref(context ? context : g_main_context_default())},
      user_data_{user_data}, source_{SourceRef::adopt(
                                 g_source_new(&source_functions, sizeof(LoopSource)))} {}

CommandSource::~CommandSource() {
  g_main_context_unref(context_);
}

CommandSource *CommandSource::attach(GMainContext *context, gpointer user_data) {
  auto *created = new CommandSource{context, user_data};
  created->ref();
  reinterpret_cast<LoopSource *>(created->source_.get())->commands = created;
  g_source_set_name(created->source_.get(), "varro2 commands");
  handed_over.fetch_add(1, std::memory_order_release);
  g_source_attach(created->source_.get(), created->context_);
  return created;
}

// With the lock held.
bool CommandSource::has_work() const {
  return !queue_.empty() && !is_running_;
}

// With the lock held. A loop that does not sleep looks here before it does, and one that is told
// finds the whole batch: a command that is queued on the loop's own thread costs no wake-up.
void CommandSource::wake() {
  if (!may_sleep_ || !has_work())
    return;
  may_sleep_ = false;
  g_main_context_wakeup(context_);
}

void CommandSource::run_async(CommandSourceFunction function, gpointer data, GDestroyNotify drop) {
  enqueue({.function = function, .waiter = nullptr, .data = data, .drop = drop});
}

void CommandSource::run_quietly(CommandSourceFunction function, gpointer data,
                                GDestroyNotify drop) {
  enqueue({.function = function, .waiter = nullptr, .data = data, .drop = drop, .is_quiet = true});
}

void CommandSource::enqueue(const Command &command) {
  {
    const std::lock_guard lock{mutex_};
    if (!is_closed_) {
      queue_.push_back(command);
      wake();
      return;
    }
  }
  if (command.drop)
    command.drop(command.data);
}

gpointer CommandSource::run(CommandSourceQuery query, gpointer data) {
  const auto alive = CommandSourceRef::share(this);
  if (g_main_context_is_owner(context_) || is_home())
    if (const OwnedContext own{context_}; own)
      return run_here(query, data);
  return run_there(query, data);
}

bool CommandSource::is_home() {
  const std::lock_guard lock{mutex_};
  return home_ == std::this_thread::get_id();
}

gpointer CommandSource::run_here(CommandSourceQuery query, gpointer data) {
  std::unique_lock lock{mutex_};
  if (is_closed_)
    return nullptr;
  if (is_running_) {
    // A part of the running command, which may be what the queued ones rely on having ended.
    lock.unlock();
    return query(data, user_data_);
  }
  const Running running{*this};
  run_waiting(lock);
  if (is_closed_)
    return nullptr;
  lock.unlock();
  const gpointer result = query(data, user_data_);
  lock.lock();
  return result;
}

gpointer CommandSource::run_there(CommandSourceQuery query, gpointer data) {
  Waiter waiter{query};
  std::unique_lock lock{mutex_};
  if (is_closed_)
    return nullptr;
  queue_.push_back({.function = nullptr, .waiter = &waiter, .data = data, .drop = nullptr});
  wake();
  waiter.over.wait(lock, [&] { return waiter.is_over; });
  return waiter.result;
}

// With the lock held. Those that the commands queue come in the next turn.
void CommandSource::run_waiting(std::unique_lock<std::mutex> &lock) {
  for (std::size_t count = queue_.size(); count > 0 && !is_closed_; --count)
    run_one(lock);
}

void CommandSource::run_one(std::unique_lock<std::mutex> &lock) {
  const Command command = queue_.front();
  queue_.pop_front();
  lock.unlock();
  if (command.function) {
    command.function(command.data, user_data_);
    lock.lock();
    return;
  }
  const gpointer result = command.waiter->query(command.data, user_data_);
  lock.lock();
  finish(*command.waiter, result);
}

// With the lock held, also for the notice: the waiter is gone as soon as its thread sees the end.
void CommandSource::finish(Waiter &waiter, gpointer result) {
  waiter.result = result;
  waiter.is_over = true;
  waiter.over.notify_one();
}

void CommandSource::close() {
  const auto owner = CommandSourceRef::adopt(this);
  std::deque<Command> dropped;
  SourceRef source;
  {
    const std::lock_guard lock{mutex_};
    is_closed_ = true;
    source = std::move(source_);
    dropped = std::exchange(queue_, {});
    for (const Command &command : dropped)
      if (command.waiter)
        finish(*command.waiter, nullptr);
  }
  // Without the lock: whatever is freed here may call anything.
  for (const Command &command : dropped)
    if (command.drop)
      command.drop(command.data);
  // Without the lock: may give the GSource's reference back.
  g_source_destroy(source.get());
}

// With the lock held. Those that are queued meanwhile, by other threads, come in the next turn.
void CommandSource::run_quiet(std::unique_lock<std::mutex> &lock) {
  home_ = std::this_thread::get_id();
  may_sleep_ = false;
  for (std::size_t count = queue_.size(); count > 0 && !is_closed_ && has_quiet_work(); --count) {
    const Running running{*this};
    run_one(lock);
  }
}

// Quiet commands run here already: a turn of the loop costs more than what most of them do. While
// GLib asks it holds the source, and so the commands, also when one of them closes this.
gboolean CommandSource::prepare(GSource *source, gint *) noexcept {
  CommandSource *self = commands_of(source);
  std::unique_lock lock{self->mutex_};
  if (self->has_quiet_work())
    self->run_quiet(lock);
  self->may_sleep_ = !self->has_work();
  return !self->may_sleep_;
}

gboolean CommandSource::check(GSource *source) noexcept {
  CommandSource *self = commands_of(source);
  const std::lock_guard lock{self->mutex_};
  self->may_sleep_ = false;
  return self->has_work();
}

gboolean CommandSource::dispatch(GSource *source, GSourceFunc, gpointer) noexcept {
  const auto self = CommandSourceRef::share(commands_of(source));
  std::unique_lock lock{self->mutex_};
  self->home_ = std::this_thread::get_id();
  // A command that was started outside of the loop iterates the context. The loop is told again
  // when it has ended.
  if (self->is_running_)
    return G_SOURCE_CONTINUE;
  const Running running{*self.get()};
  self->run_waiting(lock);
  return G_SOURCE_CONTINUE;
}

void CommandSource::finalize(GSource *source) noexcept {
  commands_of(source)->unref();
}

CommandSource *command_source_new_full(GMainContext *context, gpointer user_data, int,
                                       int) noexcept {
  return CommandSource::attach(context, user_data);
}

void command_source_run_async(CommandSource *source, CommandSourceFunction function,
                              gpointer data) noexcept {
  VARRO2_EXPECT(source != NULL);
  VARRO2_EXPECT(function != NULL);
  source->run_async(function, data);
}

gpointer command_source_run(CommandSource *source, CommandSourceQuery function,
                            gpointer data) noexcept {
  VARRO2_EXPECT(source != NULL, nullptr);
  VARRO2_EXPECT(function != NULL, nullptr);
  return source->run(function, data);
}

void command_source_free(CommandSource *source) noexcept {
  if (source)
    source->close();
}
