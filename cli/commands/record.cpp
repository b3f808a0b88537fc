// record and replay: events into a file, and again out of it with the timing they had.
#include "commands.hpp"

#include "expression.hpp"
#include "failure.hpp"
#include "log.hpp"
#include "progress.hpp"
#include "publisher.hpp"
#include "render.hpp"
#include "text.hpp"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace varro2::cli {
namespace {

// ---- record

struct RecordArguments {
  std::string file;
  std::vector<std::string> expression;
  std::uint64_t count = 0;
  double timeout = -1;
  bool force = false;
};

class Target {
 public:
  Target(const std::string &path, bool force)
      : descriptor_{path == "-"
                        ? STDOUT_FILENO
                        : open(path.c_str(),
                               O_WRONLY | O_CREAT | O_CLOEXEC | (force ? O_TRUNC : O_EXCL), 0666)} {
    if (descriptor_ < 0)
      throw Failure{path + ": " + std::strerror(errno) +
                    (errno == EEXIST ? " (--force writes over it)" : "")};
  }
  ~Target() {
    if (descriptor_ != STDOUT_FILENO)
      close(descriptor_);
  }
  Target(const Target &) = delete;
  Target &operator=(const Target &) = delete;
  int get() const { return descriptor_; }

 private:
  int descriptor_;
};

int record(const RecordArguments &arguments) {
  const Expression expression = expression_argument(arguments.expression);
  const auto renderer = make_renderer("json", Style{});
  Session session;
  session.require_switch();
  const Target target{arguments.file, arguments.force};
  Output out{target.get()};
  session.on_switch([](bool there) {
    note(there ? "the event switch is back: recording again"
               : "the event switch has gone: waiting for it to come back");
  });
  session.quit_on_signals(exit_done);
  session.quit_after(arguments.timeout, arguments.count > 0 ? exit_timed_out : exit_done);
  out.on_closed([&] { session.quit(exit_done); });
  Progress progress{"recording"};
  std::uint64_t recorded = 0;
  int code = exit_done;
  {
    Subscriber subscriber{session};
    subscriber.subscribe(*build(expression), false, [&](const ::Event &event, auto uid) {
      if (arguments.count > 0 && recorded == arguments.count)
        return;
      out.line(renderer->event(event, Arrival::now(uid)));
      progress.show(++recorded, arguments.count);
      if (recorded == arguments.count)
        session.quit(exit_done);
    });
    code = session.run();
  }
  out.finish();
  if (out.error() != 0)
    throw Failure{arguments.file + ": " + std::strerror(out.error())};
  if (is_terminal(STDERR_FILENO))
    std::fputs("\r\033[K", stderr);
  note(plural(recorded, "event") + " recorded");
  return code;
}

// ---- replay

struct ReplayArguments {
  std::string file;
  double speed = 1;
  double timeout = 10;
};

std::int64_t moment(const EventLine &event) {
  return event.monotonic.value_or(event.record.time.value_or(0));
}

// When nothing says otherwise, events go out at a pace that every consumer can take.
constexpr double quickest_rate = 5000;

// Seconds after the first event.
double due_at(const std::vector<EventLine> &events, std::size_t index, double speed) {
  const double quickest = static_cast<double>(index) / quickest_rate;
  if (speed <= 0)
    return quickest;
  const auto after = static_cast<double>(moment(events[index]) - moment(events.front()));
  return std::max(quickest, after / G_USEC_PER_SEC / speed);
}

int replay(const ReplayArguments &arguments) {
  std::vector<EventLine> events = read_event_file(arguments.file);
  if (events.empty())
    throw Failure{arguments.file + ": there is no event in it", exit_nothing};
  Session session;
  session.require_switch();
  session.quit_on_signals(exit_interrupted);
  session.on_switch([](bool there) {
    if (!there)
      note_warning("the event switch has gone: what is sent meanwhile may find no subscriber");
  });
  Publisher publisher{session, arguments.timeout};
  for (const EventLine &event : events)
    publisher.prepare(event);
  {
    Progress progress{"replaying"};
    const gint64 begin = g_get_monotonic_time();
    for (std::size_t index = 0; index < events.size() && !session.ended(); ++index) {
      const double due = due_at(events, index, arguments.speed);
      for (double left = 1; left > 0 && !session.ended();) {
        left = due - static_cast<double>(g_get_monotonic_time() - begin) / G_USEC_PER_SEC;
        if (left > 0.0005)
          iterate_until(session, std::min(left, 0.2), [] { return false; });
        progress.show(index, events.size());
      }
      publisher.send(events[index]);
      while (g_main_context_iteration(nullptr, FALSE)) {
      }
    }
  }
  if (session.ended())
    return session.result();
  note(plural(events.size(), "event") + " sent");
  return exit_done;
}

} // namespace

void add_record(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<RecordArguments>();
  CLI::App *command = app.add_subcommand("record", "Write events into a file");
  command->add_option("FILE", arguments->file, "One JSON object a line; '-': standard output")
      ->required();
  command->add_option("EXPRESSION", arguments->expression, "Which events; all when left out");
  command->add_option("--count", arguments->count, "End after so many events")
      ->check(count())
      ->type_name("N");
  command->add_option("--timeout", arguments->timeout, "End after so long")
      ->check(seconds())
      ->type_name("SECONDS");
  command->add_flag("--force", arguments->force, "Write over a file that is there");
  command->footer(
      R"(Ends on Ctrl-C. The lines are those of varro2 monitor --json, with the moment of
arrival; varro2 replay sends them again.
  varro2 record io.jsonl topic1=IO --timeout 60)");
  command->callback(
      [&program, arguments] { program.command = [arguments] { return record(*arguments); }; });
}

void add_replay(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<ReplayArguments>();
  CLI::App *command = app.add_subcommand("replay", "Send events from a file as they once came");
  command->add_option("FILE", arguments->file, "As varro2 record wrote it; '-': standard input")
      ->required();
  command->add_option("--speed", arguments->speed, "So many times as fast (1); 0: no pauses")
      ->check(number_from_0())
      ->type_name("X");
  command->add_option("--timeout", arguments->timeout, "For each declaration (10)")
      ->check(seconds())
      ->type_name("SECONDS");
  command->footer(
      R"(Everything is declared before the first event is sent. Events get the time at
which they are sent now; the declarations are gone when the last one was taken.
  varro2 replay io.jsonl --speed 10)");
  command->callback(
      [&program, arguments] { program.command = [arguments] { return replay(*arguments); }; });
}

} // namespace varro2::cli
