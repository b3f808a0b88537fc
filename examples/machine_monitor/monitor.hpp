// Declares what can be told about this machine and sends it.
#pragma once

#include "kernel.hpp"
#include "ledger.hpp"

#include <varro2/varro2.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// Everything runs on the thread of the default main context.
class Monitor {
 public:
  Monitor();
  Monitor(const Monitor &) = delete;
  Monitor &operator=(const Monitor &) = delete;

  // Once a second: sends the processor's load and the memory, and what else has changed.
  void tick();
  // The kernel has reported a change.
  void look_at_file_systems();
  void look_at_links();

  // Ends the producer; the function is called when its handle is gone.
  void leave(std::function<void()> gone);
  const Ledger &ledger() const { return ledger_; }

 private:
  // One declaration. Stays in its place: the property hook of a type that is not installed points
  // at it.
  struct Source {
    std::function<void(Event *)> fill; // the open values, the number excepted
    bool property = false;
    guint32 local_id = 0;
    gint32 number = 0; // of the last event that the producer accepted
  };
  template <typename State>
  struct Watched {
    State state{};
    Source source;
  };
  template <typename State>
  using Watchlist = std::map<std::string, Watched<State>>;

  // The value of a key that a type leaves open.
  struct Given {
    const char *key;
    gconstpointer value; // of the value type
    guint32 value_type;
  };

  // Properties give all open values, the state among them; other events are filled in one by one.
  void declare(Source &source, const char *type, const std::vector<Given> &given = {});
  guint32 register_type(const char *type, const std::vector<Given> &given);
  guint32 declare_by_hand(Source &source, const char *type, const std::vector<Given> &given);
  void send(Source &source);
  template <typename State>
  void follow(Watchlist<State> &known, const std::map<std::string, State> &current,
              void (Monitor::*declare_new)(const std::string &, Watched<State> &));
  void declare_file_system(const std::string &mount_point, Watched<FileSystem> &watched);
  void declare_link(const std::string &interface, Watched<bool> &watched);

  static Event *fill_property(Event *event, gpointer source) noexcept;

  Ledger ledger_;
  bool said_not_installed_ = false;
  EventProducer *producer_;
  std::optional<ProcessorTimes> times_;
  Watched<double> processor_; // percent
  Watched<Memory> memory_;
  Watchlist<FileSystem> file_systems_;
  Watchlist<bool> links_;
  std::function<void()> gone_;
};
