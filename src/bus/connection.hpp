// The private connection of one bus object, and its end.
#pragma once

#include "pendingcalls.hpp"
#include "sendwindow.hpp"

#include <varro2/eventutils.h>

#include <memory>
#include <optional>

namespace varro2 {

// Belongs to the thread of the default main context.
class Connection {
 public:
  // Nothing, with the error set, when the bus cannot be reached.
  static std::unique_ptr<Connection> open(GError **error);
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Ends the connection of an object that goes. What was sent last may still be under way, and a
  // bus daemon drops what it has not read when it fails to write to a closed connection. So the
  // connection lives on without its object until the answer to the parting call has come and the
  // window is empty, or nothing moves any more. Nothing of the object is called from now on.
  static void retire(std::unique_ptr<Connection> connection);

  sd_bus *bus() const noexcept { return bus_; }
  SendWindow &window() noexcept { return *window_; }

  // Serves an object until the connection is retired. Negative: an errno.
  int serve(const char *path, const char *interface, const sd_bus_vtable *vtable, void *object);

  // Has the handlers called when the switch comes and goes. Negative: an errno.
  int watch_switch(BusWatcherCallback online, BusWatcherCallback offline, gpointer object);

  // Makes a call whose answer the object waits for.
  void call(sd_bus_message *message, PendingCalls::Answered answered);

  // Makes the last call, by which the object takes leave.
  void take_leave(sd_bus_message *message);

 private:
  class Farewell;

  Connection(sd_bus *bus, GSource *source);
  void silence();
  void note_settled();
  bool settled() const noexcept { return leaving_.size() == 0 && window_->idle(); }

  sd_bus *bus_; // both released together by the destructor
  SourceRef source_;
  BusWatcher watcher_{};
  SlotRef served_;
  PendingCalls calls_;
  PendingCalls leaving_;
  std::optional<SendWindow> window_;
  std::function<void()> settled_handler_;
};

} // namespace varro2
