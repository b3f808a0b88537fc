// How the example programs show an event: one line, the same on the sending and on the receiving
// side, so that the two can be compared as text.
#pragma once

#include <varro2/varro2.h>

#include <cstdio>
#include <string>

// "tns1:topic0=Monitoring load=7.3"; a value with white space is put in quotes.
inline std::string event_text(const Event *event) {
  std::string text;
  for (guint32 i = 0; i < event_get_key_count(event); ++i) {
    const char *name_space = event_get_name_space_at(event, i);
    const char *value = event_get_value_at(event, i);
    const std::string shown = value ? value : "";
    const bool quoted = shown.empty() || shown.find_first_of(" \t\n\"") != std::string::npos;
    if (!text.empty())
      text += ' ';
    if (name_space && *name_space)
      text += std::string{name_space} + ':';
    text += event_get_key_at(event, i);
    text += quoted ? "=\"" + shown + '"' : '=' + shown;
  }
  return text;
}

// One line on standard output, at once: "sent     12:30:01.250 TEXT".
inline void print_line(const char *verb, const std::string &text) {
  GDateTime *now = g_date_time_new_now_local();
  gchar *time = g_date_time_format(now, "%H:%M:%S");
  std::printf("%-8s %s.%03d %s\n", verb, time, g_date_time_get_microsecond(now) / 1000,
              text.c_str());
  std::fflush(stdout);
  g_free(time);
  g_date_time_unref(now);
}
