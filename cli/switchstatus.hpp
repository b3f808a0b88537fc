// What the switch tells operators: who holds what, and how its calls to them go.
#pragma once

#include "session.hpp"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace varro2::cli {

struct StatusDeclaration {
  std::int64_t id = 0;
  std::int64_t producer = 0;
  std::string producer_name;
  std::string topic;
  bool property = false;
  bool internal = false;
  std::int64_t subscribers = 0;
};

struct StatusSubscription {
  std::int64_t id = 0;
  std::string consumer_name;
  std::string expression;            // empty: everything
  std::vector<std::int64_t> matches; // ids of declarations
};

struct StatusClient {
  std::string bus_name;
  std::optional<std::int64_t> pid;
  std::optional<std::int64_t> uid;
  std::vector<StatusDeclaration> declarations;
  std::vector<StatusSubscription> subscriptions;
  // Calls of the switch to it. Overdue ones are among the unanswered.
  std::int64_t unanswered = 0;
  std::int64_t waiting = 0;
  std::int64_t waiting_bytes = 0;
  std::int64_t dropped = 0;
  std::int64_t overdue = 0;
};

struct StatusHolding {
  std::int64_t declarations = 0;
  std::int64_t subscriptions = 0;
  std::int64_t bytes = 0;
  std::int64_t calls = 0;
};

struct StatusUser {
  std::int64_t uid = 0;
  StatusHolding holding;
};

struct SwitchStatus {
  std::string version;
  bool truncated = false;
  std::vector<StatusClient> clients;
  std::vector<StatusUser> users;
  StatusHolding limits; // of each user
  std::int64_t total(const char *name) const;
  OwnedJson json; // as it came
};

// Nothing when this switch tells it to nobody, or not to this user: why goes to `reason`. Throws
// Failure when the switch does not answer at all.
std::optional<SwitchStatus> ask_status(const Session &session, std::string *reason);

} // namespace varro2::cli
