#include "journal.hpp"

#include <glib.h>
#include <systemd/sd-daemon.h>

#include <unistd.h>

#include <cstring>
#include <string>
#include <string_view>

namespace varro2::switchd {
namespace {

struct Settings {
  bool verbose;
  bool journal;
};

struct Level {
  const char *prefix; // for the journal
  const char *word;   // for people
};

Level level_of(GLogLevelFlags flags) {
  if (flags & G_LOG_LEVEL_ERROR)
    return {SD_CRIT, "fatal: "};
  if (flags & G_LOG_LEVEL_CRITICAL)
    return {SD_ERR, "error: "};
  if (flags & G_LOG_LEVEL_WARNING)
    return {SD_WARNING, "warning: "};
  if (flags & G_LOG_LEVEL_MESSAGE)
    return {SD_NOTICE, ""};
  if (flags & G_LOG_LEVEL_INFO)
    return {SD_INFO, ""};
  return {SD_DEBUG, ""};
}

std::string_view message_of(const GLogField *fields, gsize count) {
  for (gsize index = 0; index < count; ++index) {
    const GLogField &field = fields[index];
    if (std::strcmp(field.key, "MESSAGE") == 0) {
      const auto *text = static_cast<const char *>(field.value);
      return field.length < 0 ? std::string_view{text}
                              : std::string_view{text, static_cast<std::size_t>(field.length)};
    }
  }
  return {};
}

GLogWriterOutput write_line(GLogLevelFlags flags, const GLogField *fields, gsize count,
                            gpointer data) noexcept {
  const auto &settings = *static_cast<const Settings *>(data);
  if (!settings.verbose && (flags & (G_LOG_LEVEL_INFO | G_LOG_LEVEL_DEBUG)))
    return G_LOG_WRITER_HANDLED;
  const Level level = level_of(flags);
  std::string line = settings.journal ? level.prefix : std::string{"varro2-switchd: "} + level.word;
  // Names and types come from clients: none of them may begin a line of its own.
  for (const char character : message_of(fields, count)) {
    const auto code = static_cast<unsigned char>(character);
    line += code < 0x20 || code == 0x7F ? ' ' : character;
  }
  line += '\n';
  const ssize_t written = write(STDERR_FILENO, line.data(), line.size());
  return written >= 0 ? G_LOG_WRITER_HANDLED : G_LOG_WRITER_UNHANDLED;
}

} // namespace

void write_log_to_standard_error(bool verbose) {
  static Settings settings;
  settings = {verbose, g_log_writer_is_journald(STDERR_FILENO) != FALSE};
  g_log_set_writer_func(write_line, &settings, nullptr);
}

} // namespace varro2::switchd
