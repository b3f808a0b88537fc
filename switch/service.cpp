#include "service.hpp"

#include "status.hpp"

#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <string_view>

namespace varro2::switchd {
namespace {

constexpr const char *object_path = "/com/quor/Event/Switch";
constexpr std::string_view bus_driver = "org.freedesktop.DBus";

constexpr std::uint64_t status_delay = 1'000'000; // microseconds

struct ListedDeclarations {
  void add(EventDeclaration *declaration) { list = g_list_prepend(list, declaration); }
  BytesRef serialize() {
    list = g_list_reverse(list);
    const OwnedList owner{list};
    BytesRef bytes = BytesRef::adopt(serialize_create_array());
    serialize_glist(bytes.get(), list, [](gpointer element, GByteArray *array) {
      event_declaration_serialize_internal(static_cast<EventDeclaration *>(element), array);
    });
    list = nullptr;
    return bytes;
  }

  GList *list = nullptr; // its elements belong to others
};

} // namespace

const sd_bus_vtable Service::query_methods_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("GetAllDeclarations", SD_BUS_NO_ARGS, SD_BUS_RESULT("ay", declarations),
                            handle<&Service::get_all_declarations>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("GetDeclarationTypes", SD_BUS_NO_ARGS,
                            SD_BUS_RESULT("ay", declarations),
                            handle<&Service::get_declaration_types>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable Service::control_methods_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS("Debug", SD_BUS_NO_ARGS, SD_BUS_NO_RESULT, handle<&Service::debug>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD_WITH_ARGS("Quit", SD_BUS_NO_ARGS, SD_BUS_NO_RESULT, handle<&Service::quit>,
                            SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

const sd_bus_vtable Service::status_methods_[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD_WITH_ARGS(switch_status::get_status, SD_BUS_NO_ARGS, SD_BUS_RESULT("s", status),
                            handle<&Service::get_status>, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END,
};

Service::Service(sd_event *loop, sd_bus *bus, Types types, const Limits &limits)
    : loop_{loop}, bus_{bus}, types_{std::move(types)}, quotas_{limits.per_user},
      clients_{loop, bus, limits.queue}, lookups_{loop,     bus,     registry_,
                                                  clients_, quotas_, limits.property_state} {}

int Service::serve() {
  const struct {
    const char *interface;
    const sd_bus_vtable *methods;
  } interfaces[] = {{"com.quor.Event.Switch.Producer", producer_methods_},
                    {"com.quor.Event.Switch.Consumer", consumer_methods_},
                    {"com.quor.Event.Switch.Query", query_methods_},
                    {"com.quor.Event.Switch", control_methods_},
                    {switch_status::interface, status_methods_}};
  for (const auto &[interface, methods] : interfaces)
    if (const int status =
            sd_bus_add_object_vtable(bus_, nullptr, object_path, interface, methods, this);
        status < 0)
      return status;
  if (const int status = lookups_.serve(); status < 0)
    return status;
  // One rule for all clients: a rule for each would be set too late for one that leaves at once.
  return sd_bus_add_match(bus_, nullptr,
                          "type='signal',sender='org.freedesktop.DBus',"
                          "path='/org/freedesktop/DBus',interface='org.freedesktop.DBus',"
                          "member='NameOwnerChanged',arg2=''",
                          handle<&Service::name_owner_changed>, this);
}

void Service::check_types() const {
  g_message("%zu declaration types can be used", types_.load_all().size());
}

int Service::get_all_declarations(sd_bus_message *call, sd_bus_error *) {
  ListedDeclarations listed;
  for (const auto &[id, declared] : registry_.declarations())
    listed.add(declared.declaration.get());
  return answer(call, *listed.serialize().get());
}

int Service::get_declaration_types(sd_bus_message *call, sd_bus_error *) {
  const std::vector<OwnedDeclaration> types = types_.load_all();
  ListedDeclarations listed;
  for (const OwnedDeclaration &declaration : types)
    listed.add(declaration.get());
  return answer(call, *listed.serialize().get());
}

int Service::debug(sd_bus_message *call, sd_bus_error *) {
  for (const std::string &line : describe(registry_))
    g_message("%s", line.c_str());
  g_message("Property states being looked up: %zu", lookups_.size());
  const SendWindow &window = clients_.window();
  g_message("Calls to clients: %" G_GUINT64_FORMAT " answered, %zu on the way, %zu waiting, "
            "%" G_GUINT64_FORMAT " dropped",
            window.answered(), window.unanswered(), window.waiting(), window.dropped());
  for (const auto &[user, holding] : quotas_.holdings())
    g_message("User %u: %zu declarations, %zu subscriptions, %zu bytes, %zu waiting calls, "
              "%zu new names of keys",
              user, holding.declarations, holding.subscriptions, holding.bytes, holding.calls,
              holding.names);
  return done(call);
}

int Service::quit(sd_bus_message *call, sd_bus_error *error) {
  if (!is_operator(call))
    return refuse(error, SD_BUS_ERROR_ACCESS_DENIED,
                  "Only root and the switch's own user may end it.");
  const Quotas::Client &client = *quotas_.find_client(sender_of(call));
  g_message("Ending, as %s asked (user %u, process %d)", sender_of(call), client.user,
            client.process);
  sd_event_exit(loop_, EXIT_SUCCESS);
  return done(call);
}

int Service::get_status(sd_bus_message *call, sd_bus_error *error) {
  if (!is_operator(call))
    return refuse(error, SD_BUS_ERROR_ACCESS_DENIED,
                  "Only root and the switch's own user may see who holds what.");
  const std::string text = status_text({registry_, quotas_, clients_.window(), lookups_.size()});
  const int status = sd_bus_reply_method_return(call, "s", text.c_str());
  return status < 0 ? status : handled;
}

bool Service::is_operator(sd_bus_message *call) {
  const std::optional<uid_t> user = quotas_.user_of(call);
  return user && (*user == 0 || *user == geteuid());
}

int Service::name_owner_changed(sd_bus_message *signal, sd_bus_error *) {
  // Any peer can send a signal of this name straight at this connection.
  if (sender_of(signal) != bus_driver)
    return 0;
  const char *name = nullptr;
  const char *former = nullptr;
  const char *next = nullptr;
  if (sd_bus_message_read(signal, "sss", &name, &former, &next) < 0)
    return 0;
  if (*next == '\0')
    drop_client(name);
  return 0;
}

void Service::drop_client(const std::string &bus_name) {
  clients_.forget(bus_name);
  lookups_.drop_caller(bus_name);
  for (const std::uint32_t id : registry_.subscriptions_on(bus_name))
    cancel(id, bus_name);
  for (const Address &producer : registry_.producers_on(bus_name))
    drop_producer(producer);
  quotas_.forget_client(bus_name);
}

void Service::note_change() {
  if (status_timer_)
    return;
  sd_event_source *timer = nullptr;
  sd_event_add_time_relative(loop_, &timer, CLOCK_MONOTONIC, status_delay, 0, tell_status, this);
  status_timer_.reset(timer);
}

int Service::tell_status(sd_event_source *, std::uint64_t, void *self) noexcept {
  auto &service = *static_cast<Service *>(self);
  service.status_timer_.reset();
  const Registry &registry = service.registry_;
  sd_notifyf(0, "STATUS=Serving %zu declarations of %zu producers, and %zu subscriptions",
             registry.declarations().size(), registry.producers().size(),
             registry.subscriptions().size());
  return 0;
}

std::optional<Charge> Service::admit(sd_bus_message *call, const Holding &amount,
                                     const Charge *former, sd_bus_error *error) {
  const std::optional<uid_t> user = quotas_.user_of(call);
  if (!user) {
    refuse(error, SD_BUS_ERROR_ACCESS_DENIED, "The user of %s cannot be found out.",
           sender_of(call));
    return std::nullopt;
  }
  const Charge charge{*user, amount};
  if (quotas_.admits(call, charge, former != nullptr ? former->amount : Holding{}))
    return charge;
  refuse(error, SD_BUS_ERROR_LIMITS_EXCEEDED, "The user %u holds as much as it may.", *user);
  return std::nullopt;
}

} // namespace varro2::switchd
