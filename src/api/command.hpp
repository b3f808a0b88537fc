// Work that a handle queues for the thread of the default main context.
#pragma once

#include "commandsource.hpp"
#include "log.hpp"
#include "owning.hpp"

#include <varro2/idgenerator.h>

#include <memory>
#include <utility>

namespace varro2 {

using OwnedCommands = Owned<CommandSource, command_source_free>;
using OwnedIds = Owned<IdGenerator, idgenerator_free>;

// The work is called once, with the handle, and owns what it captured; when the handle goes before
// its turn has come, it is only freed. A handle's command source has the handle as its user data.
template <auto enqueue = &CommandSource::run_async, typename Handle, typename Work>
void queue(Handle &handle, Work work) {
  (handle.commands.get()->*enqueue)(
      [](gpointer data, gpointer user_data) noexcept {
        const std::unique_ptr<Work> owned{static_cast<Work *>(data)};
        (*owned)(*static_cast<Handle *>(user_data));
      },
      std::make_unique<Work>(std::move(work)).release(),
      [](gpointer data) noexcept { delete static_cast<Work *>(data); });
}

// The same for work that calls nothing of the application's and iterates no loop.
template <typename Handle, typename Work>
void queue_quietly(Handle &handle, Work work) {
  queue<&CommandSource::run_quietly>(handle, std::move(work));
}

// The end of a handle's connection attempt: for whoever asked to be told, else for the log.
template <typename Handle, typename Callback>
void report_setup(Handle &handle, OwnedError error, Callback callback, gpointer user_data) {
  if (callback)
    callback(&handle, user_data, error.release());
  else if (error)
    VARRO2_CRITICAL("%sFailed to setup dbus: %s (%d)", error->message, error->code);
}

} // namespace varro2
