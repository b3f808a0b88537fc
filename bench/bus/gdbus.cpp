// GDBus: the same bytes as a variant.
#include "harness.hpp"

#include <gio/gio.h>
#include <glib-unix.h>

#include <cstdlib>

namespace {

using namespace bench;

constexpr const char *path = "/bench/consumer";
constexpr const char *interface = "com.quor.Event.Consumer";

[[noreturn]] void fail(GError *error) {
  g_printerr("%s\n", error->message);
  std::exit(1);
}

template <typename Base>
class Connected : public Base {
 public:
  Connected() : loop_{g_main_loop_new(nullptr, FALSE)} {
    GError *error = nullptr;
    connection_ = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (connection_ == nullptr)
      fail(error);
  }

  void watch(int descriptor, std::function<void()> readable) override {
    g_unix_fd_add(
        descriptor, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP),
        [](gint, GIOCondition, gpointer data) -> gboolean {
          (*static_cast<std::function<void()> *>(data))();
          return G_SOURCE_CONTINUE;
        },
        new std::function<void()>{std::move(readable)});
  }
  void run() override { g_main_loop_run(loop_); }
  void quit() override { g_main_loop_quit(loop_); }

 protected:
  GMainLoop *loop_;
  GDBusConnection *connection_ = nullptr;
};

class Consumer final : public Connected<ConsumerSide> {
 public:
  explicit Consumer(const Options &options) : payload_{options.payload} {
    GError *error = nullptr;
    GDBusNodeInfo *node = g_dbus_node_info_new_for_xml(
        "<node><interface name='com.quor.Event.Consumer'><method name='Event'>"
        "<arg type='ay' direction='in'/><arg type='u' direction='in'/>"
        "</method></interface></node>",
        &error);
    if (node == nullptr)
      fail(error);
    static const GDBusInterfaceVTable vtable = {on_call, nullptr, nullptr, {}};
    if (g_dbus_connection_register_object(connection_, path, node->interfaces[0], &vtable, this,
                                          nullptr, &error) == 0)
      fail(error);
  }

  std::string address() override { return g_dbus_connection_get_unique_name(connection_); }

 private:
  static void on_call(GDBusConnection *, const gchar *, const gchar *, const gchar *, const gchar *,
                      GVariant *arguments, GDBusMethodInvocation *invocation, gpointer data) {
    auto *self = static_cast<Consumer *>(data);
    GVariant *array = g_variant_get_child_value(arguments, 0);
    gsize length = 0;
    const auto *bytes = static_cast<const char *>(g_variant_get_fixed_array(array, &length, 1));
    self->received(self->payload_.stamp_of({bytes, length}));
    g_variant_unref(array);
    g_dbus_method_invocation_return_value(invocation, nullptr);
  }

  Payload payload_;
};

class Producer final : public Connected<ProducerSide> {
 public:
  explicit Producer(const Options &options)
      : payload_{options.payload}, addresses_{options.addresses} {}

  bool counts_answers() const override { return true; }

  void send() override {
    payload_.stamp();
    for (const std::string &address : addresses_) {
      GVariant *bytes = g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, payload_.bytes().data(),
                                                  payload_.bytes().size(), 1);
      g_dbus_connection_call(connection_, address.c_str(), path, interface, "Event",
                             g_variant_new("(@ayu)", bytes, 1U), nullptr, G_DBUS_CALL_FLAGS_NONE,
                             60'000, nullptr, on_answer, this);
    }
  }

 private:
  static void on_answer(GObject *connection, GAsyncResult *result, gpointer data) {
    GError *error = nullptr;
    GVariant *answer = g_dbus_connection_call_finish(G_DBUS_CONNECTION(connection), result, &error);
    if (answer == nullptr)
      fail(error);
    g_variant_unref(answer);
    static_cast<Producer *>(data)->answered();
  }

  Payload payload_;
  std::vector<std::string> addresses_;
};

} // namespace

int main(int argc, char **argv) {
  return run_side(
      argc, argv, [](const Options &options) { return std::make_unique<Consumer>(options); },
      [](const Options &options) { return std::make_unique<Producer>(options); });
}
