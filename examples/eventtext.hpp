// How the example programs show an event: one line, the same on the sending and on the receiving
// side, so that the two can be compared as text.
#pragma once

#include <varro2/varro2.h>

#include <cstdio>
#include <string>

// The value at a position as people write it. Values are kept as text; a number of type double
// reads better when it is asked for as one.
inline std::string value_text(const Event *event, guint32 position) {
  double number = 0;
  if (event_get_type_at(event, position) == VALUE_TYPE_DOUBLE &&
      event_get_typed_value_at(event, position, &number)) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%g", number);
    return digits;
  }
  const std::string text = event_get_value_at(event, position);
  const bool plain = !text.empty() && text.find_first_of(" \t\n\"") == std::string::npos;
  return plain ? text : '"' + text + '"';
}

// "tns1:topic0=Monitoring load_percent=7.3"; a key whose value is still open stands alone, a value
// with white space in quotes.
inline std::string event_text(const Event *event) {
  std::string text;
  for (guint32 i = 0; i < event_get_key_count(event); ++i) {
    const char *name_space = event_get_name_space_at(event, i);
    if (!text.empty())
      text += ' ';
    if (name_space && *name_space)
      text += std::string{name_space} + ':';
    text += event_get_key_at(event, i);
    if (event_has_value_at(event, i))
      text += '=' + value_text(event, i);
  }
  return text;
}

// One line, at once: "sent     12:30:01.250 TEXT".
inline void print_line(const char *verb, const std::string &text, std::FILE *to = stdout) {
  GDateTime *now = g_date_time_new_now_local();
  gchar *time = g_date_time_format(now, "%H:%M:%S");
  std::fprintf(to, "%-8s %s.%03d %s\n", verb, time, g_date_time_get_microsecond(now) / 1000,
               text.c_str());
  std::fflush(to);
  g_free(time);
  g_date_time_unref(now);
}
