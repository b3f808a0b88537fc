#include "output.hpp"

#include <glib-unix.h>
#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace varro2::cli {
namespace {

// Past this much the reader is waited for.
constexpr std::size_t most_waiting = 256 * 1024 * 1024;
// What is done with is thrown away in pieces of this size.
constexpr std::size_t worth_moving = 1024 * 1024;

} // namespace

Output::Output(int descriptor) : descriptor_{descriptor} {}

Output::~Output() {
  for (const guint source : {room_, gone_})
    if (source != 0)
      g_source_remove(source);
}

void Output::line(std::string_view text) {
  if (closed_)
    return;
  waiting_.append(text).append("\n");
  push(Wait::no);
}

void Output::bytes(std::string_view bytes) {
  if (closed_)
    return;
  waiting_.append(bytes);
  push(Wait::no);
}

void Output::finish() {
  push(Wait::yes);
}

// The descriptor is shared with whoever started this program, so it stays as it is. A pipe that is
// ready takes PIPE_BUF bytes without blocking.
bool Output::ready(Wait wait) {
  pollfd poll_record{descriptor_, POLLOUT, 0};
  int count = 0;
  do {
    count = poll(&poll_record, 1, wait == Wait::yes ? -1 : 0);
  } while (count < 0 && errno == EINTR);
  return count > 0;
}

void Output::push(Wait wait) {
  while (!closed_ && begin_ < waiting_.size()) {
    const std::size_t left = waiting_.size() - begin_;
    const bool must_wait = wait == Wait::yes || left > most_waiting;
    if (!ready(must_wait ? Wait::yes : Wait::no)) {
      watch();
      break;
    }
    const ssize_t written =
        write(descriptor_, waiting_.data() + begin_, std::min<std::size_t>(left, PIPE_BUF));
    if (written < 0 && errno != EINTR && errno != EAGAIN)
      close_for(errno);
    else if (written > 0)
      begin_ += static_cast<std::size_t>(written);
  }
  if (begin_ == waiting_.size()) {
    waiting_.clear();
    begin_ = 0;
  } else if (begin_ > worth_moving && begin_ > waiting_.size() / 2) {
    waiting_.erase(0, begin_);
    begin_ = 0;
  }
}

void Output::close_for(int number) {
  closed_ = true;
  if (number != EPIPE)
    error_ = number;
  begin_ = waiting_.size();
  if (handler_)
    std::exchange(handler_, nullptr)();
}

void Output::on_closed(std::function<void()> handler) {
  handler_ = std::move(handler);
  if (gone_ == 0)
    gone_ = g_unix_fd_add(descriptor_, G_IO_ERR, on_gone, this);
}

void Output::watch() {
  if (room_ == 0)
    room_ = g_unix_fd_add(descriptor_, G_IO_OUT, on_room, this);
}

gboolean Output::on_room(gint, GIOCondition, gpointer self) noexcept {
  auto &output = *static_cast<Output *>(self);
  output.push(Wait::no);
  if (output.begin_ < output.waiting_.size())
    return G_SOURCE_CONTINUE;
  output.room_ = 0;
  return G_SOURCE_REMOVE;
}

gboolean Output::on_gone(gint, GIOCondition, gpointer self) noexcept {
  auto &output = *static_cast<Output *>(self);
  output.gone_ = 0;
  output.close_for(EPIPE);
  return G_SOURCE_REMOVE;
}

} // namespace varro2::cli
