// A peer on the bus that shares no code with the library: it speaks through GDBus and knows
// nothing of the library's stubs or connection.
#pragma once

#include "mainloop.hpp"

#include <gio/gio.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace varro2::test {

using Bytes = std::vector<std::uint8_t>;

struct VariantRelease {
  void operator()(GVariant *variant) const noexcept { g_variant_unref(variant); }
};
using Variant = std::unique_ptr<GVariant, VariantRelease>;

// Takes the reference over, also a floating one.
Variant own(GVariant *variant);
Variant bytes_variant(const Bytes &bytes);
Bytes to_bytes(GVariant *array);

// A method call that the peer received.
struct Call {
  std::string sender;
  std::string path;
  std::string interface;
  std::string member;
  std::string signature; // without parentheses
  std::shared_ptr<GVariant> arguments;
  bool wants_answer = true;
  std::uint32_t serial = 0;

  std::string text(std::size_t index) const;
  std::uint32_t number(std::size_t index) const;
  Bytes bytes(std::size_t index) const;
};

// What came back for a call that the peer made.
struct Answer {
  Variant arguments;      // nothing on an error
  std::string signature;  // of the answer, without parentheses
  std::string error_name; // the bus error's name, empty on success
  std::string error_message;
  std::string first_text() const;
};

// How the peer answers a call: with arguments, with an error, or not at all.
struct Response {
  Variant arguments;
  std::string error_name;
  std::string error_message;
  bool silent = false;
};

// Incoming calls are recorded and answered on GDBus's own thread: at once, in order, and also
// while the test's thread is blocked in a call. All functions are for the test's thread.
class ForeignPeer {
 public:
  ForeignPeer(); // connects to DBUS_SYSTEM_BUS_ADDRESS
  explicit ForeignPeer(const std::string &address);
  virtual ~ForeignPeer();
  ForeignPeer(const ForeignPeer &) = delete;
  ForeignPeer &operator=(const ForeignPeer &) = delete;

  std::string unique_name() const;

  void request_name(const std::string &name);
  void release_name(const std::string &name);

  // Without a rule every call is answered with an empty reply. The rule runs on GDBus's thread.
  using Rule = std::function<Response(const Call &)>;
  void answer(const std::string &member, Rule rule);
  void answer_bytes(const std::string &member, const Bytes &bytes);
  void answer_error(const std::string &member, const std::string &name, const std::string &text);
  void stay_silent(const std::string &member);
  void answer_again(const std::string &member); // back to the empty reply
  void answer_late(const Call &call);           // one that the peer was silent about

  std::vector<Call> calls() const;
  std::vector<Call> calls(const std::string &member) const;
  std::size_t count(const std::string &member) const;
  std::vector<std::string> members() const; // in the order of arrival
  void forget_calls();

  // Iterates the default main context until so many calls of the member arrived in all.
  [[nodiscard]] ::testing::AssertionResult wait_for(const std::string &member,
                                                    std::size_t how_many = 1) const;

  // Calls and waits for the answer; the default main context runs meanwhile. Takes a floating
  // argument tuple (or none) over.
  Answer call(const std::string &destination, const std::string &path, const std::string &interface,
              const std::string &member, GVariant *arguments = nullptr);
  // Queues the call and looks at no answer.
  void post(const std::string &destination, const std::string &path, const std::string &interface,
            const std::string &member, GVariant *arguments = nullptr);
  // Broadcasts a signal.
  void emit(const std::string &path, const std::string &interface, const std::string &member,
            GVariant *arguments);

  // Returns when everything that the destination has sent to this peer before it read this call
  // has arrived here.
  void fence(const std::string &destination);

  Answer get_property(const std::string &destination, const std::string &path,
                      const std::string &interface, const std::string &property);
  Answer set_property(const std::string &destination, const std::string &path,
                      const std::string &interface, const std::string &property, GVariant *value);
  std::string introspect(const std::string &destination, const std::string &path);

  GDBusConnection *connection() const { return connection_; }

 private:
  static GDBusMessage *filter(GDBusConnection *connection, GDBusMessage *message, gboolean incoming,
                              gpointer self) noexcept;

  struct State; // shared with GDBus's thread
  std::shared_ptr<State> state_;
  GDBusConnection *connection_ = nullptr;
  guint filter_ = 0;
};

// Holds the switch's name and plays its part by hand.
class FakeSwitch : public ForeignPeer {
 public:
  static constexpr const char *name = "com.quor.Event.Switch";
  static constexpr const char *path = "/com/quor/Event/Switch";
  static constexpr const char *producer_interface = "com.quor.Event.Switch.Producer";
  static constexpr const char *consumer_interface = "com.quor.Event.Switch.Consumer";

  void come() { request_name(name); }
  void leave() { release_name(name); }

  // Calls on the producer or consumer whose object path is the first argument of the given call
  // (Declare or Subscribe).
  Answer global_declare_id(const Call &declare, std::uint32_t local_id, std::uint32_t global_id,
                           std::uint32_t producer_id);
  Answer declaration_complete(const Call &declare, std::uint32_t local_id, std::uint32_t global_id);
  Answer subscribe(const Call &declare, const Bytes &expression, std::uint32_t local_id);
  Answer refresh_property(const Call &declare, std::uint32_t subscription_id,
                          std::uint32_t local_id);
  Answer unsubscribe(const Call &declare, std::uint32_t subscription_id, std::uint32_t local_id);
  Answer notify(const Call &subscribe, const Bytes &notification, std::uint32_t token);

 private:
  Answer on_producer(const Call &declare, const char *member, GVariant *arguments);
};

// Receives events without being a consumer of the library's: any object path, any token.
class FakeConsumer : public ForeignPeer {
 public:
  static constexpr const char *interface = "com.quor.Event.Consumer";
};

// Sends events and serves a producer's object path by hand.
class FakeProducer : public ForeignPeer {
 public:
  // Floating.
  static GVariant *event_arguments(const Bytes &event, std::uint32_t token);
  Answer send_event(const std::string &destination, const std::string &path, const Bytes &event,
                    std::uint32_t token);
};

} // namespace varro2::test
