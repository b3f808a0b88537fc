#include "client.hpp"

#include <varro2/eventutils.h>

#include <fcntl.h>
#include <glib-unix.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sstream>

namespace soak {
namespace {

constexpr int conductor_gone = 3;

void write_line(int file, const char *format, va_list arguments) {
  char text[1024];
  const int length = std::vsnprintf(text, sizeof text - 1, format, arguments);
  if (length < 0 || static_cast<std::size_t>(length) >= sizeof text - 1)
    std::abort();
  text[length] = '\n';
  const auto size = static_cast<std::size_t>(length) + 1;
  for (std::size_t done = 0; done < size;) {
    const ssize_t written = ::write(file, text + done, size - done);
    if (written < 0)
      _exit(conductor_gone);
    done += static_cast<std::size_t>(written);
  }
}

} // namespace

gint64 now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return gint64{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

Log::Log(const char *file)
    : file_{::open(file, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, S_IRUSR | S_IWUSR)} {
  if (file_ < 0) {
    std::perror(file);
    std::exit(EXIT_FAILURE);
  }
}

void Log::line(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write_line(file_, format, arguments);
  va_end(arguments);
}

void say(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write_line(STDOUT_FILENO, format, arguments);
  va_end(arguments);
}

Commands::Commands(Handler handler) : handler_{std::move(handler)} {
  g_unix_fd_add(STDIN_FILENO, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP), readable, this);
}

gboolean Commands::readable(gint, GIOCondition, gpointer self) noexcept {
  if (!static_cast<Commands *>(self)->read())
    _exit(conductor_gone);
  return G_SOURCE_CONTINUE;
}

bool Commands::read() {
  char bytes[4096];
  const ssize_t size = ::read(STDIN_FILENO, bytes, sizeof bytes);
  if (size <= 0)
    return false;
  rest_.append(bytes, static_cast<std::size_t>(size));
  for (std::size_t end = 0; (end = rest_.find('\n')) != std::string::npos;) {
    std::istringstream line{rest_.substr(0, end)};
    rest_.erase(0, end + 1);
    std::vector<std::string> words;
    for (std::string word; line >> word;)
      words.push_back(word);
    if (!words.empty())
      handler_(words);
  }
  return true;
}

guint64 unsettled_calls() {
  SendCounters counters{};
  event_utils_get_send_counters(&counters);
  return counters.unanswered + counters.waiting;
}

void report_when_idle(const std::string &word) {
  const auto report = [](gpointer data) noexcept -> gboolean {
    SendCounters counters{};
    event_utils_get_send_counters(&counters);
    say("report %s %" G_GUINT64_FORMAT " %" G_GUINT64_FORMAT, static_cast<const char *>(data),
        counters.unanswered + counters.waiting, counters.dropped);
    return G_SOURCE_REMOVE;
  };
  g_idle_add_full(G_PRIORITY_LOW, report, g_strdup(word.c_str()), g_free);
}

} // namespace soak
