#include "status.hpp"

#include "json.hpp"
#include "texts.hpp"

#include <map>
#include <string_view>

namespace varro2::switchd {
namespace {

// Nobody reads more of one topic or expression, and clients decide how long they are.
constexpr std::size_t longest_text = 4096;

// Writes the text piece by piece: as a tree of JSON values the whole would take many times as much
// memory, just when an operator looks why memory is short.
class Writer {
 public:
  explicit Writer(std::size_t limit) : limit_{limit} {}

  void number(const char *name, std::uint64_t value) {
    member(name);
    text_ += std::to_string(value);
  }
  void truth(const char *name, bool value) {
    member(name);
    text_ += value ? "true" : "false";
  }
  void nothing(const char *name) {
    member(name);
    text_ += "null";
  }
  void text(const char *name, std::string_view value) {
    member(name);
    if (value.size() > longest_text)
      truncated_ = true;
    const OwnedText valid{
        g_utf8_make_valid(value.data(), static_cast<gssize>(value.substr(0, longest_text).size()))};
    dump(json_text(valid.get()));
  }

  template <typename Members>
  void object(const char *name, Members members) {
    member(name);
    element(members);
  }
  // Calls write(entry) for each entry inside an object of its own, as far as there is room.
  template <typename Entries, typename Write>
  void objects(const char *name, const Entries &entries, Write write) {
    list(name, entries, [&](const auto &entry) { element([&] { write(entry); }); });
  }
  void numbers(const char *name, const std::vector<std::uint32_t> &ids) {
    list(name, ids, [this](std::uint32_t id) { text_ += std::to_string(id); });
  }

  std::string take() && {
    truth("truncated", truncated_);
    return "{" + std::move(text_) + "}";
  }

 private:
  void comma() {
    if (!text_.empty() && text_.back() != '{' && text_.back() != '[')
      text_ += ',';
  }
  void member(const char *name) {
    comma();
    text_.append("\"").append(name).append("\":");
  }
  template <typename Members>
  void element(Members members) {
    text_ += '{';
    members();
    text_ += '}';
  }
  template <typename Entries, typename Write>
  void list(const char *name, const Entries &entries, Write write) {
    member(name);
    text_ += '[';
    for (const auto &entry : entries) {
      if (text_.size() > limit_) {
        truncated_ = true;
        break;
      }
      comma();
      write(entry);
    }
    text_ += ']';
  }
  void dump(const JsonRef &value) {
    json_dump_callback(
        value.get(),
        [](const char *buffer, std::size_t size, void *text) {
          static_cast<std::string *>(text)->append(buffer, size);
          return 0;
        },
        &text_, JSON_ENCODE_ANY | JSON_COMPACT);
  }

  std::string text_;
  std::size_t limit_;
  bool truncated_ = false;
};

struct Client {
  std::vector<const std::pair<const Address, Producer> *> producers;
  std::map<std::string_view, std::vector<const Subscription *>> consumers; // by path
  QueueState queue;
};
using ByBusName = std::map<std::string_view, Client>;

ByBusName clients_of(const StatusSource &source) {
  ByBusName clients;
  for (const auto &producer : source.registry.producers())
    clients[producer.first.bus_name].producers.push_back(&producer);
  for (const auto &[id, subscription] : source.registry.subscriptions())
    clients[subscription.consumer.bus_name].consumers[subscription.consumer.path].push_back(
        &subscription);
  source.window.visit_queues([&clients](const std::string &receiver, const QueueState &queue) {
    clients[receiver].queue = queue;
  });
  return clients;
}

std::size_t count_consumers(const ByBusName &clients) {
  std::size_t count = 0;
  for (const auto &[name, client] : clients)
    count += client.consumers.size();
  return count;
}

class Report {
 public:
  Report(const StatusSource &source, std::size_t limit)
      : source_{source}, clients_{clients_of(source)}, writer_{limit} {}

  std::string write() && {
    writer_.text("version", VARRO2_VERSION);
    writer_.object("totals", [this] { totals(); });
    writer_.object("limits", [this] { holding(source_.quotas.limits()); });
    writer_.objects("users", source_.quotas.holdings(), [this](const auto &user) {
      writer_.number("uid", user.first);
      holding(user.second);
    });
    writer_.objects("clients", clients_, [this](const auto &named) {
      writer_.text("name", named.first);
      client(named.first, named.second);
    });
    return std::move(writer_).take();
  }

 private:
  void totals() {
    const Registry &registry = source_.registry;
    const SendWindow &window = source_.window;
    writer_.number("clients", clients_.size());
    writer_.number("producers", registry.producers().size());
    writer_.number("declarations", registry.declarations().size());
    writer_.number("consumers", count_consumers(clients_));
    writer_.number("subscriptions", registry.subscriptions().size());
    writer_.number("lookups", source_.lookups);
    writer_.number("answered", window.answered());
    writer_.number("unanswered", window.unanswered());
    writer_.number("waiting", window.waiting());
    writer_.number("dropped", window.dropped());
    writer_.number("overdue", window.overdue());
  }

  void holding(const Holding &held) {
    writer_.number("declarations", held.declarations);
    writer_.number("subscriptions", held.subscriptions);
    writer_.number("bytes", held.bytes);
    writer_.number("calls", held.calls);
    writer_.number("names", held.names);
  }

  void client(std::string_view name, const Client &client) {
    const auto *known = source_.quotas.find_client(std::string{name});
    if (known != nullptr)
      writer_.number("uid", known->user);
    else
      writer_.nothing("uid");
    if (known != nullptr && known->process > 0)
      writer_.number("pid", static_cast<std::uint64_t>(known->process));
    else
      writer_.nothing("pid");
    writer_.objects("producers", client.producers,
                    [this](const auto *entry) { producer(entry->first, entry->second); });
    writer_.objects("consumers", client.consumers,
                    [this](const auto &entry) { consumer(entry.first, entry.second); });
    writer_.object("queue", [this, &queue = client.queue] {
      writer_.number("unanswered", queue.unanswered);
      writer_.number("waiting", queue.waiting);
      writer_.number("waiting_bytes", queue.waiting_bytes);
      writer_.number("dropped", queue.dropped);
      writer_.number("overdue", queue.overdue);
    });
  }

  void producer(const Address &address, const Producer &producer) {
    writer_.number("id", producer.id);
    writer_.text("path", address.path);
    writer_.text("name", producer.name);
    writer_.objects("declarations", producer.declarations, [this](const auto &ids) {
      const Declaration &declared = *source_.registry.find_declaration(ids.second);
      const EventDeclaration *declaration = declared.declaration.get();
      writer_.number("id", declared.global_id);
      writer_.number("local_id", declared.local_id);
      writer_.text("topic", topic_of(declaration));
      writer_.truth("property", event_declaration_is_property(declaration));
      writer_.truth("internal", event_declaration_is_internal(declaration));
      writer_.number("subscribers", source_.registry.matching(*declaration).size());
    });
  }

  void consumer(std::string_view path, const std::vector<const Subscription *> &subscriptions) {
    writer_.text("path", path);
    writer_.text("name", subscriptions.front()->name);
    writer_.objects("subscriptions", subscriptions, [this](const Subscription *subscription) {
      writer_.number("id", subscription->id);
      writer_.number("token", subscription->token);
      writer_.text("expression", text_of(*subscription->expression));
      writer_.numbers("matches", ids_of(source_.registry.matching(*subscription->expression)));
    });
  }

  const StatusSource &source_;
  ByBusName clients_;
  Writer writer_;
};

} // namespace

std::string status_text(const StatusSource &source, std::size_t limit) {
  return Report{source, limit}.write();
}

} // namespace varro2::switchd
