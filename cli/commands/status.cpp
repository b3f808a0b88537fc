// status: what of the system is there, who holds what, and how it goes.
#include "commands.hpp"

#include "catalogue.hpp"
#include "failure.hpp"
#include "process.hpp"
#include "recordjson.hpp"
#include "render.hpp"
#include "session.hpp"
#include "switchstatus.hpp"
#include "table.hpp"
#include "text.hpp"

#include <algorithm>
#include <map>
#include <set>

namespace varro2::cli {
namespace {

// More names than this are counted instead of shown.
constexpr std::size_t most_names = 5;

struct Arguments {
  bool json = false;
};

struct Producer {
  std::size_t declarations = 0;
  std::size_t properties = 0;
  std::set<std::string> topics;
};

std::map<std::uint32_t, Producer> producers_of(const std::vector<Record> &records) {
  std::map<std::uint32_t, Producer> producers;
  for (const Record &record : records) {
    Producer &producer = producers[record.producer_id];
    ++producer.declarations;
    producer.properties += record.property;
    producer.topics.insert(record.internal ? "(internal)" : topic_of(record));
  }
  return producers;
}

std::string bus_address() {
  const char *address = g_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address != nullptr ? address : "the system bus";
}

json_t *json_number(std::int64_t number) {
  return json_integer(static_cast<json_int_t>(number));
}

// "1, 2, 3, 4, 5 and 7 more"
std::string some_of(const std::vector<std::string> &names, std::size_t count) {
  std::vector<std::string> shown{
      names.begin(),
      names.begin() + static_cast<std::ptrdiff_t>(std::min(names.size(), most_names))};
  std::string text = joined(shown, ", ");
  if (count <= shown.size())
    return text;
  return text + (text.empty() ? "" : " and ") + std::to_string(count - shown.size()) +
         (text.empty() ? "" : " more");
}

// ---- What the switch tells operators, as tables

class Tables {
 public:
  Tables(Program &program, const SwitchStatus &status)
      : out_{program.out}, style_{program.style}, status_{status} {}

  void write() {
    clients();
    declarations();
    subscriptions();
    users();
  }

 private:
  void show(const Table &table) {
    if (table.empty())
      return;
    out_.line("");
    table.write(out_, style_);
  }

  static std::string process_of(const StatusClient &client) {
    if (!client.pid)
      return "?";
    const std::string name = process_with(static_cast<std::uint32_t>(*client.pid)).name;
    return printable(name) + '[' + std::to_string(*client.pid) + ']';
  }

  // Empty for a column that only trouble shows.
  Table::Cell trouble(std::int64_t count) const {
    const std::string text = count > 0 ? std::to_string(count) : "";
    return {text, style_.red(text)};
  }

  void clients() {
    Table table{{"CLIENT", "PROCESS", "USER", "DECLARES", "SUBSCRIBES", "UNANSWERED", "WAITING",
                 "BYTES", "DROPPED", "OVERDUE"}};
    for (const StatusClient &client : status_.clients)
      table.add({{client.bus_name, style_.bold(client.bus_name)},
                 process_of(client),
                 client.uid ? std::to_string(*client.uid) : "?",
                 std::to_string(client.declarations.size()),
                 std::to_string(client.subscriptions.size()),
                 std::to_string(client.unanswered),
                 std::to_string(client.waiting),
                 client.waiting_bytes > 0 ? std::to_string(client.waiting_bytes) : "",
                 trouble(client.dropped),
                 trouble(client.overdue)});
    show(table);
  }

  void declarations() {
    std::map<std::int64_t, std::vector<std::string>> subscribers;
    for (const StatusClient &client : status_.clients)
      for (const StatusSubscription &subscription : client.subscriptions)
        for (const std::int64_t id : subscription.matches)
          subscribers[id].push_back(client.bus_name);
    Table table{{"DECLARATION", "CLIENT", "NAME", "KIND", "TOPIC", "SUBSCRIBERS"}};
    for (const StatusClient &client : status_.clients)
      for (const StatusDeclaration &declaration : client.declarations) {
        const std::string kind = declaration.property   ? "property"
                                 : declaration.internal ? "internal"
                                                        : "event";
        const std::string topic = printable(declaration.topic);
        const std::string who =
            some_of(subscribers[declaration.id], static_cast<std::size_t>(declaration.subscribers));
        table.add({std::to_string(declaration.id),
                   {client.bus_name, style_.bold(client.bus_name)},
                   printable(declaration.producer_name),
                   {kind, style_.cyan(kind)},
                   {topic, style_.bold(topic)},
                   who.empty() ? Table::Cell{"nobody", style_.dim("nobody")}
                               : Table::Cell{printable(who)}});
      }
    show(table);
  }

  void subscriptions() {
    Table table{{"SUBSCRIPTION", "CLIENT", "NAME", "DECLARATIONS", "EXPRESSION"}};
    for (const StatusClient &client : status_.clients)
      for (const StatusSubscription &subscription : client.subscriptions) {
        std::vector<std::string> ids;
        for (const std::int64_t id : subscription.matches)
          ids.push_back(std::to_string(id));
        const std::string expression = printable(subscription.expression);
        table.add({std::to_string(subscription.id),
                   {client.bus_name, style_.bold(client.bus_name)},
                   printable(subscription.consumer_name),
                   ids.empty() ? Table::Cell{"none", style_.dim("none")}
                               : Table::Cell{some_of(ids, ids.size())},
                   expression.empty() ? Table::Cell{"everything", style_.dim("everything")}
                                      : Table::Cell{expression, style_.green(expression)}});
      }
    show(table);
  }

  // How much of what it may hold a user holds.
  Table::Cell share(std::int64_t held, std::int64_t limit) const {
    std::string text = std::to_string(held);
    if (limit > 0)
      text += " of " + std::to_string(limit);
    const bool tight = limit > 0 && held > limit / 10 * 9;
    return {text, tight ? style_.red(text) : text};
  }

  void users() {
    Table table{{"USER", "DECLARATIONS", "SUBSCRIPTIONS", "BYTES", "CALLS"}};
    for (const auto &[uid, held] : status_.users)
      table.add({std::to_string(uid), share(held.declarations, status_.limits.declarations),
                 share(held.subscriptions, status_.limits.subscriptions),
                 share(held.bytes, status_.limits.bytes), share(held.calls, status_.limits.calls)});
    show(table);
  }

  Output &out_;
  const Style &style_;
  const SwitchStatus &status_;
};

// ---- The whole

class Report {
 public:
  Report(Program &program, bool json) : program_{program}, json_{json} {}

  int write() {
    std::unique_ptr<Session> session;
    std::string reason;
    try {
      session = std::make_unique<Session>();
    } catch (const Failure &failure) {
      reason = failure.what();
    }
    bus(session != nullptr, reason);
    const auto owner = session ? session->switch_owner() : std::nullopt;
    bool answers = false;
    if (owner)
      answers = all_about(*session, *owner);
    else if (session)
      no_switch("nobody has the name com.quor.Event.Switch");
    if (json_)
      program_.out.line(dump(object_.get()));
    return answers ? exit_done : exit_failed;
  }

 private:
  enum class Mark { good, bad, unknown };

  void line(const char *what, Mark mark, const std::string &text) {
    const Style &style = program_.style;
    const std::string sign = mark == Mark::good  ? style.green(std::string{style.check()})
                             : mark == Mark::bad ? style.red(std::string{style.cross()})
                                                 : style.yellow("?");
    if (!json_)
      program_.out.line(sign + ' ' + style.bold(padded(what, 15)) + text);
  }

  void bus(bool there, const std::string &reason) {
    line("message bus", there ? Mark::good : Mark::bad,
         there ? printable(bus_address()) : printable(reason));
    OwnedJson json{json_object()};
    put(json, "there", json_boolean(there));
    put(json, "address", json_text(bus_address()));
    if (!there)
      put(json, "reason", json_text(reason));
    put(object_, "bus", json.release());
  }

  void no_switch(const std::string &reason) {
    OwnedJson json{json_object()};
    put(json, "there", json_false());
    put(json, "reason", json_text(reason));
    put(object_, "switch", json.release());
    line("event switch", Mark::bad, printable(reason));
  }

  bool all_about(Session &session, const SwitchOwner &owner) {
    try {
      tell(session, owner);
      return true;
    } catch (const Failure &failure) {
      no_switch(failure.what());
      return false;
    }
  }

  void tell(Session &session, const SwitchOwner &owner) {
    std::string reason;
    const std::optional<SwitchStatus> status = ask_status(session, &reason);
    the_switch(owner, status ? status->version : "");
    if (json_ || !status)
      producers(ask_declarations(), status.has_value());
    if (status) {
      totals(*status);
      put(object_, "report", json_incref(status->json.get()));
      if (!json_)
        Tables{program_, *status}.write();
    } else {
      line("subscriptions", Mark::unknown, reason);
      put(object_, "report", json_null());
      put(object_, "no_report", json_text(reason));
    }
  }

  void the_switch(const SwitchOwner &owner, const std::string &version) {
    OwnedJson json{json_object()};
    put(json, "there", json_true());
    const Process process = process_with(owner.pid);
    std::string text = owner.bus_name + ", process " + std::to_string(owner.pid);
    if (!process.name.empty())
      text += " (" + printable(process.name) + ')';
    text += ", user " + std::to_string(owner.uid);
    if (!version.empty())
      text += ", version " + printable(version);
    if (process.since != 0)
      text += ", since " + iso_time(process.since).substr(0, 19) + 'Z';
    line("event switch", Mark::good, text);
    put(json, "bus_name", json_text(owner.bus_name));
    put(json, "pid", json_integer(owner.pid));
    put(json, "uid", json_integer(owner.uid));
    if (process.since != 0)
      put(json, "since", json_text(iso_time(process.since)));
    put(object_, "switch", json.release());
  }

  void totals(const SwitchStatus &status) {
    const auto count = [&](const char *name) {
      return static_cast<std::size_t>(status.total(name));
    };
    line("declarations", Mark::good,
         std::to_string(count("declarations")) + " of " + plural(count("producers"), "producer"));
    line("subscriptions", Mark::good,
         std::to_string(count("subscriptions")) + " of " + plural(count("consumers"), "consumer"));
    const bool trouble = count("dropped") > 0 || count("overdue") > 0;
    line("calls", trouble ? Mark::bad : Mark::good,
         std::to_string(count("answered")) + " answered, " + std::to_string(count("unanswered")) +
             " unanswered (" + std::to_string(count("overdue")) + " overdue), " +
             std::to_string(count("waiting")) + " waiting, " + std::to_string(count("dropped")) +
             " dropped");
    if (status.truncated)
      line("", Mark::unknown, "too much for one answer: the lists below are cut, not the totals");
  }

  // What everybody may ask.
  void producers(const std::vector<Record> &records, bool only_json) {
    const auto producers = producers_of(records);
    json_t *array = json_array();
    Table table{{"PRODUCER", "DECLARATIONS", "PROPERTIES", "TOPICS"}};
    for (const auto &[id, producer] : producers) {
      const std::vector<std::string> topics{producer.topics.begin(), producer.topics.end()};
      table.add({std::to_string(id), std::to_string(producer.declarations),
                 std::to_string(producer.properties), printable(some_of(topics, topics.size()))});
      OwnedJson json{json_object()};
      put(json, "producer", json_integer(id));
      put(json, "declarations", json_number(static_cast<std::int64_t>(producer.declarations)));
      put(json, "properties", json_number(static_cast<std::int64_t>(producer.properties)));
      put(json, "topics", json_texts(topics));
      json_array_append_new(array, json.release());
    }
    put(object_, "producers", array);
    if (json_ || only_json)
      return;
    line("declarations", Mark::good,
         std::to_string(records.size()) + " of " + plural(producers.size(), "producer"));
    if (!table.empty())
      table.write(program_.out, program_.style, "  ");
  }

  Program &program_;
  bool json_;
  OwnedJson object_{json_object()};
};

} // namespace

void add_status(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command =
      app.add_subcommand("status", "Show whether bus and switch are there, and for whom");
  command->add_flag("--json", arguments->json, "As one object");
  command->footer(R"(
To root and its own user the switch tells who declares what, who subscribes to
whom, and how its calls to them go: unanswered, waiting for answers to others,
dropped because the queue was full, overdue because the client hangs. Others,
and all with an older switch, see the declarations of each producer.
Ends with 1 when bus or switch is missing.
  varro2 status --json | jq '.report.clients[] | select(.queue.waiting > 0)')");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return Report{program, arguments->json}.write(); };
  });
}

} // namespace varro2::cli
