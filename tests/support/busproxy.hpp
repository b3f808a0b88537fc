// Stands between one party and the bus and lets a test decide, message by message, what becomes of
// what passes.
#pragma once

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>

namespace varro2::test {

// A connection made to the proxy's address is relayed to the bus. The handshake passes unseen;
// after it every message is shown to the judge, in the order in which it passes, and numbered from
// 1 across all connections. All functions are for the test's thread; the judge runs on the proxy's.
class BusProxy {
 public:
  enum class Way { to_bus, from_bus };

  struct Passing {
    int number;
    Way way;
    GDBusMessage *message;
  };

  enum class Fate {
    pass,
    refuse, // a call that wants an answer gets the verdict's error, and the bus never sees it
    delay,  // it and all behind it in its direction wait until nothing else moves
    cut,    // the connection ends and the message is lost
  };

  struct Verdict {
    Fate fate = Fate::pass;
    std::string error{}; // a bus error's name
  };

  using Judge = std::function<Verdict(const Passing &)>;

  BusProxy(const std::string &socket, const std::string &bus_address);
  ~BusProxy();
  BusProxy(const BusProxy &) = delete;
  BusProxy &operator=(const BusProxy &) = delete;

  const std::string &address() const { return address_; }

  // Without a judge everything passes. Counting begins anew.
  void judge(Judge judge);
  int passed() const;

 private:
  class Relay; // the proxy's thread and what it works on
  std::string address_;
  std::unique_ptr<Relay> relay_;
};

} // namespace varro2::test
