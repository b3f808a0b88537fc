// monitor and wait: events as they come.
#include "commands.hpp"

#include "evaluate.hpp"
#include "failure.hpp"
#include "log.hpp"
#include "render.hpp"
#include "session.hpp"
#include "text.hpp"

namespace varro2::cli {
namespace {

struct Arguments {
  std::vector<std::string> expression;
  std::string format = "text";
  bool json = false;
  bool secure = false;
  bool notifications = false;
  std::uint64_t count = 0; // 0: no end
  double timeout = -1;
  int interrupted = exit_done; // the code on Ctrl-C
};

void say_switch_state(bool there) {
  note(there ? "the event switch is back: subscribed again"
             : "the event switch has gone: waiting for it to come back");
}

class Monitor {
 public:
  Monitor(Program &program, const Arguments &arguments)
      : out_{program.out}, arguments_{arguments}, renderer_{make_renderer(
                                                      arguments.json ? "json" : arguments.format,
                                                      program.style)},
        expression_{expression_argument(arguments.expression)} {}

  // The stream lives on.
  ~Monitor() { out_.on_closed({}); }
  Monitor(const Monitor &) = delete;
  Monitor &operator=(const Monitor &) = delete;

  int run() {
    session_.require_switch();
    session_.on_switch(say_switch_state);
    session_.quit_on_signals(arguments_.interrupted);
    session_.quit_after(arguments_.timeout, exit_timed_out);
    out_.on_closed([this] { session_.quit(exit_done); });
    Subscriber subscriber{session_};
    Subscriber::OnNotification on_notification;
    if (arguments_.notifications)
      on_notification = [this](const ::Notification &notification, auto uid) {
        write(renderer_->notification(notification, Arrival::now(uid)));
      };
    subscriber.subscribe(
        *build(expression_), arguments_.secure,
        [this](const ::Event &event, auto uid) { receive(event, uid); }, on_notification);
    return session_.run();
  }

 private:
  void receive(const ::Event &event, std::optional<std::uint32_t> uid) {
    if (ended_)
      return;
    write(renderer_->event(event, Arrival::now(uid)));
    if (++received_ == arguments_.count) {
      ended_ = true;
      session_.quit(exit_done);
    }
  }

  void write(const std::string &line) {
    if (!line.empty() && !ended_)
      out_.line(line);
  }

  Output &out_;
  const Arguments &arguments_;
  std::unique_ptr<Renderer> renderer_;
  Expression expression_;
  Session session_;
  std::uint64_t received_ = 0;
  bool ended_ = false;
};

void add_arguments(CLI::App &command, const std::shared_ptr<Arguments> &arguments) {
  command.add_option("--timeout", arguments->timeout, "End with code 124 after so long")
      ->check(seconds())
      ->type_name("SECONDS");
  auto *format = command
                     .add_option("--format", arguments->format,
                                 "text, json, onvif or a template: '{topic} {port}'")
                     ->type_name("FORMAT");
  command.add_flag("--json", arguments->json, "The same as --format json")->excludes(format);
  command.add_flag("--secure", arguments->secure, "Show the sender's user id");
}

} // namespace

void add_monitor(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("monitor", "Show events as they come");
  command->add_option("EXPRESSION", arguments->expression, "Which events; all when left out");
  command->add_option("--count", arguments->count, "End after so many events")
      ->check(count())
      ->type_name("N");
  add_arguments(*command, arguments);
  command->add_flag("--notifications", arguments->notifications,
                    "Also when declarations come and go");
  command->footer(std::string{expression_help} + R"(
In a template {NAME} is the value of that key, or one of {topic} {time}
{monotonic} {kind} {values} {uid}; {key:NAME} is always the key.
  varro2 monitor 'topic1=IO & (port=1 | port=2)' --format '{port}={state}'
  varro2 monitor --json topic1=Processor | jq .values.load_percent)");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return Monitor{program, *arguments}.run(); };
  });
}

void add_wait(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  arguments->count = 1;
  arguments->interrupted = exit_interrupted;
  CLI::App *command = app.add_subcommand("wait", "Wait for the first event that fits");
  command->add_option("EXPRESSION", arguments->expression, "Which events")->required();
  add_arguments(*command, arguments);
  command->footer(R"(Ends with 0 once the event has been shown, with 124 when the time ran out. The
present state of a property counts as an event. See varro2 monitor --help for
expressions and formats.
  varro2 wait 'topic1=NetworkLink & interface=eth0 & up=1' --timeout 30)");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] {
      const int code = Monitor{program, *arguments}.run();
      if (code == exit_timed_out)
        note("no such event came in time");
      return code;
    };
  });
}

} // namespace varro2::cli
