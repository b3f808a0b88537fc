// A call that goes through a send window.
#pragma once

#include "buscall.hpp"

#include <varro2/event.h>

#include <array>
#include <functional>
#include <initializer_list>
#include <string>

namespace varro2 {

enum class CallEnd {
  answered, // maybe by an error
  refused,  // it could not be queued on the bus, which has been logged
  dropped,  // its receiver has left, or left too much waiting
};

// Told once how its call ended, with the answer if there is one. Not told when the window goes
// first.
using CallCompletion = std::function<void(CallEnd end, sd_bus_message *answer)>;

// Either a message that is ready, or what a message is made of: a payload, an event or none, then
// some numbers, as all calls to producers and consumers have it.
struct WindowCall {
  MessageRef message{};
  BusMethod method{};
  const char *object = nullptr; // the object path, of whoever makes the call
  OwnedText kept_object{};      // the same of a call that waits
  BytesRef payload{};           // shared between the receivers of one event; not changed any more
  const Event *event = nullptr; // instead, whose record it is to be; of whoever makes the call
  std::array<guint32, 3> numbers{};
  std::size_t number_count = 0;
  std::size_t size = 0; // in bytes, for the bound
  CallCompletion completion{};

  // It has to wait, longer than what whoever makes it lends. Nearly all calls to one receiver are
  // to the same object, whose path is kept once: here, as long as the call.
  void keep(std::string &usual_object);
  MessageRef message_to(sd_bus *bus, const char *receiver) const;
};

// The object path is lent until the call is sent or waits.
WindowCall make_window_call(const BusMethod &method, const char *object, BytesRef payload,
                            std::initializer_list<guint32> numbers, CallCompletion completion = {});
// The event is lent as long: its record is written straight into the message, unless that waits.
// For one receiver.
WindowCall make_window_call(const BusMethod &method, const char *object, const Event &event,
                            guint32 number);

// size is about that of the message.
WindowCall make_window_call(MessageRef message, std::size_t size, CallCompletion completion = {});

} // namespace varro2
