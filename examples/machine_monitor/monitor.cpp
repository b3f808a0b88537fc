#include "monitor.hpp"

#include "../eventtext.hpp"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace {

// The files that came with this program; the system's folder when it was installed under /usr.
std::filesystem::path own_types() {
  std::error_code failure;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", failure);
  return program.parent_path().parent_path() / "share/event/declarations.d";
}

bool is_installed(const char *type) {
  EventDeclaration *found = event_declaration_new_from_type(type);
  event_declaration_free(found);
  return found != nullptr;
}

bool is_state(const KeyValue *pair) {
  const auto has_name = [](gconstpointer tag, gconstpointer name) -> gint {
    return g_strcmp0(static_cast<const char *>(tag), static_cast<const char *>(name));
  };
  return g_list_find_custom(pair->tags, "property-state", has_name) != nullptr;
}

bool almost_full(const FileSystem &state) {
  return state.free_mib < state.size_mib / 10;
}

} // namespace

Monitor::Monitor()
    : producer_{event_producer_new_full(
          "machine_monitor",
          [](GArray *local_ids, gpointer self) {
            static_cast<Monitor *>(self)->ledger_.subscribers_changed(local_ids);
          },
          this)},
      times_{read_processor_times()} {
  processor_.source.fill = [this](Event *event) {
    event_set_value(event, "load_percent", &processor_.state);
  };
  declare(processor_.source, "machine-processor");
  memory_.source.fill = [this](Event *event) {
    event_set_value(event, "total_mib", &memory_.state.total_mib);
    event_set_value(event, "available_mib", &memory_.state.available_mib);
  };
  declare(memory_.source, "machine-memory");
  look_at_file_systems();
  look_at_links();
}

void Monitor::declare(Source &source, const char *type, const std::vector<Given> &given) {
  source.property = !given.empty();
  source.local_id =
      is_installed(type) ? register_type(type, given) : declare_by_hand(source, type, given);
  if (source.local_id == 0) {
    std::fprintf(stderr, "machine_monitor: cannot declare events of type %s\n", type);
    std::exit(1);
  }
}

guint32 Monitor::register_type(const char *type, const std::vector<Given> &given) {
  GList *list = nullptr;
  for (const auto &[key, value, value_type] : given) {
    list = g_list_append(list, const_cast<char *>(key));
    list = g_list_append(list, const_cast<gpointer>(value));
    list = g_list_append(list, GUINT_TO_POINTER(value_type));
  }
  const guint32 local_id = event_producer_register_list(producer_, type, list);
  g_list_free(list);
  return local_id;
}

// What a registration does, from a file that is not where types are looked for.
guint32 Monitor::declare_by_hand(Source &source, const char *type,
                                 const std::vector<Given> &given) {
  const std::string file = own_types() / (std::string{type} + ".xml");
  if (!std::exchange(said_not_installed_, true))
    print_line("note", "declaring from " + own_types().string() + ": not installed as types");
  EventDeclaration *declaration = event_declaration_deserialize_xml_file(file.c_str());
  if (!declaration)
    return 0;
  Inspectable *keys = event_declaration_get_inspectable(declaration);
  for (const auto &[key, value, value_type] : given)
    if (!is_state(inspectable_get_key_value(keys, key)))
      inspectable_set_value(keys, key, value);
  if (source.property)
    event_declaration_set_property(declaration, nullptr, fill_property, &source);
  const guint32 local_id = event_producer_declare(producer_, declaration);
  event_declaration_free(declaration);
  return local_id;
}

// The value that a property has from the start, before anything has changed.
Event *Monitor::fill_property(Event *event, gpointer data) noexcept {
  const auto &source = *static_cast<Source *>(data);
  source.fill(event);
  event_set_value(event, "number", &source.number);
  return event;
}

void Monitor::declare_file_system(const std::string &mount_point, Watched<FileSystem> &watched) {
  watched.source.fill = [&state = watched.state](Event *event) {
    const gboolean full = almost_full(state);
    event_set_value(event, "almost_full", &full);
    event_set_value(event, "free_mib", &state.free_mib);
  };
  const gboolean full = almost_full(watched.state);
  declare(watched.source, "machine-file-system",
          {{"mount_point", mount_point.c_str(), VALUE_TYPE_STRING},
           {"almost_full", &full, VALUE_TYPE_BOOL},
           {"free_mib", &watched.state.free_mib, VALUE_TYPE_INT},
           {"number", &watched.source.number, VALUE_TYPE_INT}});
}

void Monitor::declare_link(const std::string &interface, Watched<bool> &watched) {
  watched.source.fill = [&state = watched.state](Event *event) {
    const gboolean up = state;
    event_set_value(event, "up", &up);
  };
  const gboolean up = watched.state;
  declare(watched.source, "machine-network-link",
          {{"interface", interface.c_str(), VALUE_TYPE_STRING},
           {"up", &up, VALUE_TYPE_BOOL},
           {"number", &watched.source.number, VALUE_TYPE_INT}});
}

void Monitor::send(Source &source) {
  Event *event = event_producer_prepare_event(producer_, source.local_id);
  const gint32 number = source.number + 1;
  GError *error = nullptr;
  source.fill(event);
  event_set_value(event, "number", &number);
  if (event_producer_send_event(producer_, event, &error)) {
    source.number = number;
    ledger_.accepted(source.local_id, source.property, event_text(event));
  } else {
    ledger_.refused(event_text(event), error);
    g_error_free(error);
  }
  event_free(event);
}

template <typename State>
void Monitor::follow(Watchlist<State> &known, const std::map<std::string, State> &current,
                     void (Monitor::*declare_new)(const std::string &, Watched<State> &)) {
  std::erase_if(known, [&](auto &entry) {
    if (current.contains(entry.first))
      return false;
    event_producer_undeclare(producer_, entry.second.source.local_id);
    return true;
  });
  for (const auto &[name, state] : current) {
    const auto [place, is_new] = known.try_emplace(name);
    Watched<State> &watched = place->second;
    const bool changed = !is_new && watched.state != state;
    watched.state = state;
    if (is_new)
      (this->*declare_new)(name, watched);
    else if (changed)
      send(watched.source);
  }
}

void Monitor::look_at_file_systems() {
  follow(file_systems_, read_file_systems(), &Monitor::declare_file_system);
}

void Monitor::look_at_links() {
  follow(links_, read_network_links(), &Monitor::declare_link);
}

void Monitor::tick() {
  if (const auto now = read_processor_times(); now && times_ && now->total > times_->total) {
    // The kernel may count time that it had called busy as idle again.
    const auto busy = static_cast<double>(now->busy - std::min(now->busy, times_->busy));
    const auto total = static_cast<double>(now->total - times_->total);
    processor_.state = std::round(busy / total * 1000) / 10;
    times_ = now;
    send(processor_.source);
  }
  if (const auto memory = read_memory()) {
    memory_.state = *memory;
    send(memory_.source);
  }
  look_at_file_systems();
  look_at_links();
}

void Monitor::leave(std::function<void()> gone) {
  gone_ = std::move(gone);
  event_producer_int_free(
      producer_,
      [](EventProducer *, gpointer self) {
        static_cast<Monitor *>(self)->ledger_.settle();
        static_cast<Monitor *>(self)->gone_();
      },
      this);
}
