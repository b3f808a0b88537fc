// The private connection of one bus object, and its end.
#pragma once

#include "sendwindow.hpp"

#include <varro2/eventutils.h>

#include <memory>
#include <optional>
#include <string>

namespace varro2 {

// Whether a call to the switch ended because there was none.
bool found_no_switch(CallEnd end, sd_bus_message *answer);

// Belongs to the thread of the default main context.
class Connection {
 public:
  // Nothing, with the error set, when the bus cannot be reached.
  static std::unique_ptr<Connection> open(GError **error);
  ~Connection();
  Connection(const Connection &) = delete;
  Connection &operator=(const Connection &) = delete;

  // Ends the connection of an object that goes. What waits is sent at once, and read by the bus
  // when this returns: a bus daemon drops what it has not read when it fails to write to a closed
  // connection. So that receivers can still ask who has sent it, the connection lives on without
  // its object until the answer to the parting call has come and the window is empty, or nothing
  // moves any more. Nothing of the object is called from now on.
  static void retire(std::unique_ptr<Connection> connection);

  sd_bus *bus() const noexcept { return bus_; }

  // For events.
  SendWindow &window() noexcept { return *window_; }

  // Serves an object until the connection is retired. Negative: an errno.
  int serve(const char *path, const char *interface, const sd_bus_vtable *vtable, void *object);

  // Has the handler see every message first, as long. Negative: an errno.
  int filter(sd_bus_message_handler_t handler, void *object);

  // Has the handlers called when the switch comes and goes. Negative: an errno.
  int watch_switch(BusWatcherCallback online, BusWatcherCallback offline, gpointer object);

  // Calls the switch. A burst of calls waits for its turn as events do. The completion is not told
  // after the connection was retired.
  void call_switch(MessageRef message, std::size_t size = 0, CallCompletion completion = {});

  // The switch has left the bus: what waits for it is not for the next one.
  void forget_switch();

  // Makes the last call to the switch, by which the object takes leave.
  void take_leave(MessageRef message);

 private:
  class Farewell;

  Connection(sd_bus *bus, SourceRef source);
  void silence();
  void hand_over();
  void send_to_switch(WindowCall call);
  void note_settled();
  // How much has moved so far.
  std::uint64_t answered() const noexcept {
    return window_->answered() + switch_window_->answered();
  }
  bool settled() const noexcept { return !leaving_ && window_->idle(); }

  sd_bus *bus_; // both released together by the destructor
  SourceRef source_;
  BusWatcher watcher_{};
  SlotRef served_;
  SlotRef filter_;
  std::optional<SendWindow> window_;
  std::optional<SendWindow> switch_window_;
  std::string switch_receiver_{switch_address.service}; // each switch has a queue of its own
  unsigned switches_gone_ = 0;
  std::shared_ptr<int> attended_ = std::make_shared<int>(); // none once retired
  bool leaving_ = false;                                    // no answer to the parting call yet
  std::function<void()> settled_handler_;
};

} // namespace varro2
