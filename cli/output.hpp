// The standard output stream. A line is out the moment it is written, and a reader that is slow
// holds nothing up: what it does not take yet waits here, so that the bus goes on being read.
#pragma once

#include <glib.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace varro2::cli {

// For the thread of the default main context.
class Output {
 public:
  explicit Output(int descriptor);
  ~Output();
  Output(const Output &) = delete;
  Output &operator=(const Output &) = delete;

  void line(std::string_view text);
  void bytes(std::string_view bytes);

  // Waits until everything has been taken.
  void finish();

  // The reader has gone; what is written from now on goes nowhere.
  bool closed() const { return closed_; }
  // Something other than a reader that has gone; an errno.
  int error() const { return error_; }
  // Told once, when the reader goes. Also noticed while nothing is written.
  void on_closed(std::function<void()> handler);

 private:
  enum class Wait { no, yes };
  void push(Wait wait);
  bool ready(Wait wait);
  void close_for(int number);
  void watch();
  static gboolean on_room(gint, GIOCondition, gpointer self) noexcept;
  static gboolean on_gone(gint, GIOCondition, gpointer self) noexcept;

  int descriptor_;
  std::string waiting_;
  std::size_t begin_ = 0; // of what is waiting
  guint room_ = 0;        // sources
  guint gone_ = 0;
  bool closed_ = false;
  int error_ = 0;
  std::function<void()> handler_;
};

} // namespace varro2::cli
