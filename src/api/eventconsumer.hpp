// The consumer handle.
#pragma once

#include "command.hpp"
#include "owning.hpp"

#include <varro2/eventconsumer_int.h>

namespace varro2 {

using ConsumerRef = Counted<Consumer, g_object_ref, g_object_unref>;

} // namespace varro2

struct EventConsumer final {
  EventConsumer()
      : commands{command_source_new_full(nullptr, this, 1, 0)}, ids{idgenerator_new()} {}

  varro2::ConsumerRef consumer; // none until the set-up has run
  varro2::OwnedCommands commands;
  varro2::OwnedIds ids; // of tokens
};
