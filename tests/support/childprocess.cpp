#include "childprocess.hpp"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>

extern char **environ;

namespace varro2::test {
namespace {

using Clock = std::chrono::steady_clock;

struct Pipe {
  int ends[2];
  Pipe() {
    if (pipe2(ends, O_CLOEXEC) != 0)
      throw std::runtime_error{std::string{"pipe2: "} + std::strerror(errno)};
  }
};

std::vector<std::string> joined(const Environment &additions) {
  std::vector<std::string> entries;
  for (char **entry = environ; *entry; ++entry) {
    const std::string_view text{*entry};
    bool replaced = false;
    for (const auto &[name, value] : additions)
      replaced = replaced || text.starts_with(name + "=");
    if (!replaced)
      entries.emplace_back(text);
  }
  for (const auto &[name, value] : additions)
    entries.push_back(name + "=" + value);
  return entries;
}

std::vector<char *> pointers(std::vector<std::string> &texts) {
  std::vector<char *> list;
  for (auto &text : texts)
    list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

void close_end(int &end) {
  if (end >= 0)
    close(end);
  end = -1;
}

} // namespace

ChildProcess::ChildProcess(const std::vector<std::string> &command,
                           const Environment &environment) {
  auto arguments = command;
  auto entries = joined(environment);
  const auto argv = pointers(arguments);
  const auto envp = pointers(entries);
  Pipe in;
  Pipe out;
  Pipe err;
  const pid_t parent = getpid();
  pid_ = fork();
  if (pid_ == 0) {
    // Only what is safe after a fork in a threaded process.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent)
      _exit(127);
    dup2(in.ends[0], STDIN_FILENO);
    dup2(out.ends[1], STDOUT_FILENO);
    dup2(err.ends[1], STDERR_FILENO);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    execvpe(argv[0], argv.data(), envp.data());
    _exit(127);
  }
  close(in.ends[0]);
  close(out.ends[1]);
  close(err.ends[1]);
  input_ = in.ends[1];
  streams_[0] = out.ends[0];
  streams_[1] = err.ends[0];
  for (const int stream : streams_)
    fcntl(stream, F_SETFL, O_NONBLOCK);
  if (pid_ < 0)
    throw std::runtime_error{std::string{"fork: "} + std::strerror(errno)};
}

ChildProcess::~ChildProcess() {
  if (!reap(false)) {
    kill(pid_, SIGKILL);
    reap(true);
  }
  close_end(input_);
  close_end(streams_[0]);
  close_end(streams_[1]);
}

bool ChildProcess::reap(bool block) {
  if (status_)
    return true;
  int status = 0;
  pid_t ended = 0;
  do
    ended = waitpid(pid_, &status, block ? 0 : WNOHANG);
  while (ended < 0 && errno == EINTR);
  if (ended == 0)
    return false;
  status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return true;
}

bool ChildProcess::running() {
  return !reap(false);
}

void ChildProcess::signal(int number) {
  if (running())
    kill(pid_, number);
}

void ChildProcess::drain(std::chrono::milliseconds limit) {
  pollfd polled[2] = {{streams_[0], POLLIN, 0}, {streams_[1], POLLIN, 0}};
  if (poll(polled, 2, static_cast<int>(limit.count())) <= 0)
    return;
  for (int i = 0; i < 2; ++i) {
    if (!polled[i].revents)
      continue;
    char buffer[65536];
    ssize_t length = 0;
    while ((length = read(streams_[i], buffer, sizeof buffer)) > 0)
      texts_[i].append(buffer, static_cast<std::size_t>(length));
    if (length == 0)
      close_end(streams_[i]);
  }
}

const std::string &ChildProcess::output() {
  drain(std::chrono::milliseconds{0});
  return texts_[0];
}

const std::string &ChildProcess::errors() {
  drain(std::chrono::milliseconds{0});
  return texts_[1];
}

std::optional<std::string> ChildProcess::read_line(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    const auto end = texts_[0].find('\n', next_line_);
    if (end != std::string::npos) {
      auto line = texts_[0].substr(next_line_, end - next_line_);
      next_line_ = end + 1;
      return line;
    }
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (streams_[0] < 0 || left.count() <= 0)
      return std::nullopt;
    drain(left);
  }
}

std::optional<std::string> ChildProcess::read_line_with(std::string_view text,
                                                        std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  for (;;) {
    auto line =
        read_line(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()));
    if (!line || line->find(text) != std::string::npos)
      return line;
  }
}

void ChildProcess::write(std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(input_, text.data(), text.size());
    if (written < 0)
      throw std::runtime_error{std::string{"write: "} + std::strerror(errno)};
    text.remove_prefix(static_cast<std::size_t>(written));
  }
}

void ChildProcess::close_input() {
  close_end(input_);
}

int ChildProcess::wait(std::chrono::milliseconds limit) {
  const auto deadline = Clock::now() + limit;
  // The ends of the streams and the end of the child come in either order: a grandchild may hold
  // a stream open.
  while (!reap(false) && Clock::now() < deadline)
    drain(std::chrono::milliseconds{5});
  if (!reap(false)) {
    ADD_FAILURE() << "process " << pid_ << " did not end within " << limit.count() << " ms";
    kill(pid_, SIGKILL);
    reap(true);
  }
  drain(std::chrono::milliseconds{0});
  return *status_;
}

} // namespace varro2::test
