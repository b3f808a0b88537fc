#pragma once

#include <varro2/idgenerator.h>

#include <mutex>
#include <unordered_set>
#include <utility>

struct IdGenerator final {
  IdGenerator() = default;
  // Goes on after the given id and skips those that are in use.
  explicit IdGenerator(guint32 last_id, std::unordered_set<guint32> in_use = {})
      : last_id_{last_id}, in_use_{std::move(in_use)} {}

  guint32 reserve();
  void release(guint32 id);

 private:
  std::mutex mutex_;
  guint32 last_id_ = 0;
  // What is handed out is not entered: the counter alone tells ids apart until it has gone round.
  std::unordered_set<guint32> in_use_;
};
