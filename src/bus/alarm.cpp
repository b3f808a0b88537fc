#include "alarm.hpp"

namespace varro2 {

Alarm::~Alarm() {
  if (source_)
    g_source_destroy(source_.get());
}

void Alarm::set(gint64 time) {
  if (loop_ != nullptr) {
    sd_event_add_time(loop_, out_of(loop_source_), CLOCK_MONOTONIC,
                      static_cast<std::uint64_t>(time), 0, on_loop, this);
    return;
  }
  source_ = SourceRef::adopt(g_timeout_source_new(0));
  g_source_set_ready_time(source_.get(), time);
  g_source_set_callback(source_.get(), on_main_loop, this, nullptr);
  g_source_attach(source_.get(), nullptr);
}

gboolean Alarm::on_main_loop(gpointer self) noexcept {
  auto &alarm = *static_cast<Alarm *>(self);
  alarm.source_.reset();
  alarm.handler_(alarm.user_data_);
  return G_SOURCE_REMOVE;
}

int Alarm::on_loop(sd_event_source *, std::uint64_t, void *self) noexcept {
  auto &alarm = *static_cast<Alarm *>(self);
  alarm.loop_source_.reset();
  alarm.handler_(alarm.user_data_);
  return 0;
}

} // namespace varro2
