// The switch on the bus: its object, what its methods do, and the clients that leave.
#pragma once

#include "clients.hpp"
#include "lookups.hpp"
#include "messages.hpp"
#include "quotas.hpp"
#include "registry.hpp"
#include "types.hpp"

#include <cstdint>
#include <optional>
#include <string>

namespace varro2::switchd {

// Everything that an incoming call causes is queued before the call is answered: who has the answer
// has, or has coming, what belongs to it. Runs on the loop's thread only.
class Service {
 public:
  struct Limits {
    Holding per_user = usual_limits;
    std::size_t queue = 1024 * 1024;          // bytes that wait for one client
    std::uint64_t property_state = 5'000'000; // microseconds
  };

  // Loop and bus outlive the service.
  Service(sd_event *loop, sd_bus *bus, Types types, const Limits &limits);
  Service(const Service &) = delete;
  Service &operator=(const Service &) = delete;

  // Serves the objects and watches clients leave; a negative errno when the bus does not allow it.
  int serve();

  // Reads the declaration types, to report those that cannot be used.
  void check_types() const;

 private:
  template <auto method>
  static int handle(sd_bus_message *call, void *self, sd_bus_error *error) noexcept {
    return (static_cast<Service *>(self)->*method)(call, error);
  }

  static const sd_bus_vtable producer_methods_[];
  static const sd_bus_vtable consumer_methods_[];
  static const sd_bus_vtable query_methods_[];
  static const sd_bus_vtable control_methods_[];
  static const sd_bus_vtable status_methods_[];

  // com.quor.Event.Switch.Producer
  int declare(sd_bus_message *call, sd_bus_error *error);
  int undeclare(sd_bus_message *call, sd_bus_error *error);
  int add_declaration(sd_bus_message *call, sd_bus_error *error);
  int remove_declaration(sd_bus_message *call, sd_bus_error *error);
  int disconnect_producer(sd_bus_message *call, sd_bus_error *error);

  // com.quor.Event.Switch.Consumer
  int subscribe(sd_bus_message *call, sd_bus_error *error);
  int unsubscribe(sd_bus_message *call, sd_bus_error *error);
  int refresh_property(sd_bus_message *call, sd_bus_error *error);
  int disconnect_consumer(sd_bus_message *call, sd_bus_error *error);
  int get_property_state(sd_bus_message *call, sd_bus_error *error);

  // com.quor.Event.Switch.Query
  int get_all_declarations(sd_bus_message *call, sd_bus_error *error);
  int get_declaration_types(sd_bus_message *call, sd_bus_error *error);

  // com.quor.Event.Switch
  int debug(sd_bus_message *call, sd_bus_error *error);
  int quit(sd_bus_message *call, sd_bus_error *error);

  // com.quor.Event.Switch.Status
  int get_status(sd_bus_message *call, sd_bus_error *error);

  int name_owner_changed(sd_bus_message *signal, sd_bus_error *error);

  // Whether the caller is root or the switch's own user.
  bool is_operator(sd_bus_message *call);

  void add(const Address &producer, const char *name, OwnedDeclaration declaration,
           const Charge &charge);
  // Who is charged with the amount, which is free for it once `former` is given back; when it is
  // not, the call is refused and nothing comes back.
  std::optional<Charge> admit(sd_bus_message *call, const Holding &amount, const Charge *former,
                              sd_bus_error *error);
  enum class ProducerIs { there, gone };
  void withdraw(std::uint32_t global_id, ProducerIs producer_is);
  void drop_producer(const Address &producer);
  // Producers on a connection that has gone are not told.
  void cancel(std::uint32_t subscription_id, const std::string &gone = {});
  // What a new subscription would be told: the declarations there are, and the properties' values.
  void tell_again(const Subscription &subscription);
  void refresh(const Subscription &subscription);
  void drop_client(const std::string &bus_name);

  // Has the service manager told, soon and once for many changes, how much is declared.
  void note_change();
  static int tell_status(sd_event_source *timer, std::uint64_t now, void *self) noexcept;

  sd_event *loop_;
  sd_bus *bus_;
  Types types_;
  Registry registry_;
  Quotas quotas_;
  Clients clients_;
  Lookups lookups_;
  Timer status_timer_; // none while nothing has changed
};

} // namespace varro2::switchd
