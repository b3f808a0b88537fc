// Sends events of any shape: what is needed is declared on the way, once.
#pragma once

#include "eventfile.hpp"
#include "session.hpp"

#include <map>
#include <string>
#include <utility>

namespace varro2::cli {

class Publisher {
 public:
  // Declaring takes at most so many seconds each.
  Publisher(Session &session, double patience);

  // Returns when the switch has handed all subscriptions over. Throws Failure.
  void prepare(const EventLine &event);
  // Prepares, sets the values and hands the event over. Throws Failure.
  void send(const EventLine &event);

 private:
  struct Declared {
    guint32 local_id = 0;
    bool complete = false;
    // Registering a property by its type tells its state to everybody who subscribes: the first
    // event is out with that.
    bool says_state = false;
  };
  const std::optional<Record> &type_of(const EventLine &event);
  Declared &declared_for(const EventLine &event);
  void wait_for(const Declared &declared);

  Session &session_;
  double patience_;
  std::map<std::string, Declared> declared_; // by shape; nodes stay where they are
  std::map<std::string, std::optional<Record>> types_;
  Sender sender_;
};

// Iterates the main context until the condition holds; false when the time ran out or the session
// was asked to quit.
bool iterate_until(Session &session, double seconds, const std::function<bool()> &condition);

// What it failed for: the session has ended, or the time ran out.
[[noreturn]] void fail_waiting(const Session &session, const std::string &late);

// Lines of a descriptor, while the main context runs.
class LineReader {
 public:
  LineReader(int descriptor, std::string name) : descriptor_{descriptor}, name_{std::move(name)} {}
  // Nothing at the end. Throws Failure.
  std::optional<std::string> next(Session &session);
  std::size_t line() const { return line_; }

 private:
  bool fill(Session &session);

  int descriptor_;
  std::string name_; // for failures
  std::string text_;
  std::size_t begin_ = 0;
  std::size_t line_ = 0;
  bool ended_ = false;
};

} // namespace varro2::cli
