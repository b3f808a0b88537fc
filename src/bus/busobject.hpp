// What producers and consumers have in common: an object that is counted, locked and served.
#pragma once

#include "connection.hpp"

#include <glib-object.h>

#include <memory>
#include <mutex>
#include <new>
#include <string>

namespace varro2 {

// The state that such an object begins with.
struct BusObject {
  std::string path;
  std::string name;
  std::recursive_mutex mutex;             // guards all that follows and what is derived
  std::unique_ptr<Connection> connection; // none before it is opened, or when that failed

  // prefix ends in "/"; the object's address makes the path its own.
  BusObject(const char *prefix, gconstpointer object);

  sd_bus *bus() const noexcept { return connection->bus(); }
};

// How an object is put on the bus.
struct ServedInterface {
  const char *interface;
  const sd_bus_vtable *vtable;
  sd_bus_message_handler_t filter; // for what comes often; may be null
  BusWatcherCallback online;
  BusWatcherCallback offline;
  const char *register_failure;
  const char *watch_failure;
  bool explain; // whether the failures say more after ": "
};

// Connects and serves. On failure the error is set and the object has no connection.
bool connect_object(BusObject &object, gpointer instance, const ServedInterface &served,
                    GError **error);

// Registers a class of counted objects whose instances carry a State, made from the instance.
// Instance begins with a GObject. Before the State goes its `retire()` is called.
template <typename Instance, typename State>
class ObjectClass {
 public:
  static GType get_type(const char *name) {
    static const GType type = register_type(name);
    return type;
  }

  static State &state_of(Instance *instance) noexcept {
    return *std::launder(reinterpret_cast<State *>(memory_of(instance)));
  }

 private:
  static GType register_type(const char *name) {
    const GType type =
        g_type_register_static_simple(G_TYPE_OBJECT, name, sizeof(GObjectClass), class_init,
                                      sizeof(Instance), instance_init, G_TYPE_FLAG_NONE);
    state_offset_ = g_type_add_instance_private(type, sizeof(State));
    // Settles the offset before the type is handed to any thread.
    g_type_class_ref(type);
    return type;
  }

  static void class_init(gpointer object_class, gpointer) noexcept {
    g_type_class_adjust_private_offset(object_class, &state_offset_);
    G_OBJECT_CLASS(object_class)->finalize = finalize;
  }

  static void instance_init(GTypeInstance *instance, gpointer) noexcept {
    auto *object = reinterpret_cast<Instance *>(instance);
    new (memory_of(object)) State{object};
  }

  static void finalize(GObject *object) noexcept {
    State &state = state_of(reinterpret_cast<Instance *>(object));
    state.retire();
    state.~State();
    G_OBJECT_CLASS(g_type_class_peek(G_TYPE_OBJECT))->finalize(object);
  }

  static gpointer memory_of(Instance *instance) noexcept {
    return G_STRUCT_MEMBER_P(instance, state_offset_);
  }

  static inline gint state_offset_ = 0;
};

// Holds an object and its lock for one operation, also when a callback drops the last other
// reference.
template <typename Instance, typename State>
class Locked {
 public:
  explicit Locked(Instance *instance)
      : reference_{Reference::share(instance)},
        state_{ObjectClass<Instance, State>::state_of(instance)}, lock_{state_.mutex} {}

  State *operator->() const noexcept { return &state_; }

 private:
  using Reference = Counted<Instance, g_object_ref, g_object_unref>;

  Reference reference_; // released after the lock
  State &state_;
  std::lock_guard<std::recursive_mutex> lock_;
};

} // namespace varro2
