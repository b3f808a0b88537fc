// What the producer and the consumer of the soak have in common: a log that survives being killed,
// and commands that come line by line on the standard input.
#pragma once

#include <glib.h>

#include <functional>
#include <string>
#include <vector>

namespace soak {

// Nanoseconds of the clock that all processes of the machine share.
gint64 now();

// Each line is written at once, so that what was logged is there when the process is killed.
class Log {
 public:
  explicit Log(const char *file);
  void line(const char *format, ...) G_GNUC_PRINTF(2, 3);

 private:
  int file_;
};

// One line to the conductor.
void say(const char *format, ...) G_GNUC_PRINTF(1, 2);

// Calls the handler with the words of each line. The process ends when the input does: then the
// conductor has gone.
class Commands {
 public:
  using Handler = std::function<void(const std::vector<std::string> &words)>;
  explicit Commands(Handler handler);

 private:
  static gboolean readable(gint descriptor, GIOCondition, gpointer self) noexcept;
  bool read();

  Handler handler_;
  std::string rest_;
};

// How many calls of this process wait for an answer or for their turn.
guint64 unsettled_calls();

// Answers "report WORD" once everything that was ready before has run.
void report_when_idle(const std::string &word);

} // namespace soak
