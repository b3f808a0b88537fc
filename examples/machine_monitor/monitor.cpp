#include "monitor.hpp"

#include "../eventtext.hpp"

#include <algorithm>
#include <cmath>

namespace {

// All events of this program begin alike.
EventDeclaration *new_declaration(const char *topic) {
  EventDeclaration *declaration = event_declaration_new(FALSE);
  event_declaration_add_key_value(declaration, "topic0", "Monitoring", VALUE_TYPE_STRING);
  event_declaration_set_name_space(declaration, "topic0", "tns1");
  event_declaration_add_key_value(declaration, "topic1", topic, VALUE_TYPE_STRING);
  event_declaration_set_name_space(declaration, "topic1", "tns1");
  return declaration;
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
  declare_processor();
  declare_memory();
  look_at_file_systems();
  look_at_links();
}

void Monitor::declare(Source &source, EventDeclaration *declaration, const char *state_key) {
  event_declaration_add_key(declaration, "number", VALUE_TYPE_INT);
  source.property = state_key != nullptr;
  if (source.property)
    event_declaration_set_property(declaration, state_key, fill_property, &source);
  source.local_id = event_producer_declare(producer_, declaration);
  event_declaration_free(declaration);
}

// The value that a property has from the start, before anything has changed.
Event *Monitor::fill_property(Event *event, gpointer data) noexcept {
  const auto &source = *static_cast<Source *>(data);
  source.fill(event);
  event_set_value(event, "number", &source.number);
  return event;
}

void Monitor::declare_processor() {
  EventDeclaration *declaration = new_declaration("Processor");
  event_declaration_add_key(declaration, "load_percent", VALUE_TYPE_DOUBLE);
  processor_.source.fill = [this](Event *event) {
    event_set_value(event, "load_percent", &processor_.state);
  };
  declare(processor_.source, declaration);
}

void Monitor::declare_memory() {
  EventDeclaration *declaration = new_declaration("Memory");
  event_declaration_add_key(declaration, "total_mib", VALUE_TYPE_INT);
  event_declaration_add_key(declaration, "available_mib", VALUE_TYPE_INT);
  memory_.source.fill = [this](Event *event) {
    event_set_value(event, "total_mib", &memory_.state.total_mib);
    event_set_value(event, "available_mib", &memory_.state.available_mib);
  };
  declare(memory_.source, declaration);
}

void Monitor::declare_file_system(const std::string &mount_point, Watched<FileSystem> &watched) {
  EventDeclaration *declaration = new_declaration("FileSystem");
  event_declaration_add_key_value(declaration, "mount_point", mount_point.c_str(),
                                  VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "almost_full", VALUE_TYPE_BOOL);
  event_declaration_add_key(declaration, "free_mib", VALUE_TYPE_INT);
  watched.source.fill = [&state = watched.state](Event *event) {
    const gboolean full = almost_full(state);
    event_set_value(event, "almost_full", &full);
    event_set_value(event, "free_mib", &state.free_mib);
  };
  declare(watched.source, declaration, "almost_full");
}

void Monitor::declare_link(const std::string &interface, Watched<bool> &watched) {
  EventDeclaration *declaration = new_declaration("NetworkLink");
  event_declaration_add_key_value(declaration, "interface", interface.c_str(), VALUE_TYPE_STRING);
  event_declaration_add_key(declaration, "up", VALUE_TYPE_BOOL);
  watched.source.fill = [&state = watched.state](Event *event) {
    const gboolean up = state;
    event_set_value(event, "up", &up);
  };
  declare(watched.source, declaration, "up");
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
