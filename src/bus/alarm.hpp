// Goes off once, at a time that is set.
#pragma once

#include "owning.hpp"

#include <glib.h>
#include <systemd/sd-event.h>

#include <cstdint>

namespace varro2 {

// Belongs to the thread of its loop.
class Alarm {
 public:
  using Handler = void (*)(void *user_data);

  // In the loop, or without one in GLib's default main context. The handler may set the alarm
  // again, but not end it.
  Alarm(sd_event *loop, Handler handler, void *user_data)
      : loop_{loop}, handler_{handler}, user_data_{user_data} {}
  ~Alarm();
  Alarm(const Alarm &) = delete;
  Alarm &operator=(const Alarm &) = delete;

  bool is_set() const noexcept { return source_ || loop_source_; }
  // Of one that is not set. Monotonic microseconds.
  void set(gint64 time);

 private:
  static gboolean on_main_loop(gpointer self) noexcept;
  static int on_loop(sd_event_source *source, std::uint64_t now, void *self) noexcept;

  sd_event *loop_;
  Handler handler_;
  void *user_data_;
  SourceRef source_;
  Owned<sd_event_source, sd_event_source_disable_unref> loop_source_;
};

} // namespace varro2
