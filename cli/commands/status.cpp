// status: what of the system is there.
#include "commands.hpp"

#include "catalogue.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "render.hpp"
#include "session.hpp"
#include "table.hpp"
#include "text.hpp"

#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <fstream>
#include <map>
#include <sstream>

namespace varro2::cli {
namespace {

struct Arguments {
  bool json = false;
};

struct Process {
  std::string name;
  std::int64_t since = 0; // microseconds since 1970; 0: not known
};

// What the kernel tells about a process; nothing about one in another name space.
Process process_with(std::uint32_t pid) {
  Process process;
  std::ifstream file{"/proc/" + std::to_string(pid) + "/stat"};
  std::string text{std::istreambuf_iterator<char>{file}, {}};
  const std::size_t open = text.find('(');
  const std::size_t close = text.rfind(')');
  if (open == std::string::npos || close == std::string::npos)
    return process;
  process.name = text.substr(open + 1, close - open - 1);
  // The start is the 22nd field, in ticks since the machine was started.
  std::istringstream rest{text.substr(close + 2)};
  std::string field;
  for (int number = 3; number <= 22; ++number)
    rest >> field;
  timespec since_boot{};
  clock_gettime(CLOCK_BOOTTIME, &since_boot);
  const std::int64_t now = since_boot.tv_sec * G_USEC_PER_SEC + since_boot.tv_nsec / 1000;
  const std::int64_t start = std::strtoll(field.c_str(), nullptr, 10) * G_USEC_PER_SEC /
                             static_cast<std::int64_t>(sysconf(_SC_CLK_TCK));
  process.since = g_get_real_time() - (now - start);
  return process;
}

struct Producer {
  std::size_t declarations = 0;
  std::size_t properties = 0;
  std::vector<std::string> topics; // each once
};

std::map<std::uint32_t, Producer> producers_of(const std::vector<Record> &records) {
  std::map<std::uint32_t, Producer> producers;
  for (const Record &record : records) {
    Producer &producer = producers[record.producer_id];
    ++producer.declarations;
    producer.properties += record.property;
    const std::string topic = record.internal ? "(internal)" : topic_of(record);
    if (std::find(producer.topics.begin(), producer.topics.end(), topic) == producer.topics.end())
      producer.topics.push_back(topic);
  }
  return producers;
}

std::string bus_address() {
  const char *address = g_getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address != nullptr ? address : "the system bus";
}

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
    if (session)
      the_switch(owner);
    if (owner)
      declarations(ask_declarations());
    if (json_)
      program_.out.line(dump(object_.get()));
    return owner ? exit_done : exit_failed;
  }

 private:
  void line(const char *what, bool good, const std::string &text) {
    const Style &style = program_.style;
    if (!json_)
      program_.out.line(
          (good ? style.green(std::string{style.check()}) : style.red(std::string{style.cross()})) +
          ' ' + style.bold(padded(what, 14)) + text);
  }

  void bus(bool there, const std::string &reason) {
    line("message bus", there, there ? bus_address() : reason);
    OwnedJson json{json_object()};
    put(json, "there", json_boolean(there));
    put(json, "address", json_text(bus_address()));
    if (!there)
      put(json, "reason", json_text(reason));
    put(object_, "bus", json.release());
  }

  void the_switch(const std::optional<SwitchOwner> &owner) {
    OwnedJson json{json_object()};
    put(json, "there", json_boolean(owner.has_value()));
    if (owner) {
      const Process process = process_with(owner->pid);
      std::string text = owner->bus_name + ", process " + std::to_string(owner->pid);
      if (!process.name.empty())
        text += " (" + printable(process.name) + ')';
      text += ", user " + std::to_string(owner->uid);
      if (process.since != 0)
        text += ", since " + iso_time(process.since).substr(0, 19) + 'Z';
      line("event switch", true, text);
      put(json, "bus_name", json_text(owner->bus_name));
      put(json, "pid", json_integer(owner->pid));
      put(json, "uid", json_integer(owner->uid));
      if (process.since != 0)
        put(json, "since", json_text(iso_time(process.since)));
    } else {
      line("event switch", false, "nobody has the name com.quor.Event.Switch");
    }
    put(object_, "switch", json.release());
  }

  void declarations(const std::vector<Record> &records) {
    const auto producers = producers_of(records);
    line("declarations", true,
         std::to_string(records.size()) + " of " + plural(producers.size(), "producer"));
    json_t *array = json_array();
    Table table{{"PRODUCER", "DECLARATIONS", "PROPERTIES", "TOPICS"}};
    for (const auto &[id, producer] : producers) {
      table.add({std::to_string(id), std::to_string(producer.declarations),
                 std::to_string(producer.properties), printable(joined(producer.topics, ", "))});
      OwnedJson json{json_object()};
      put(json, "producer", json_integer(id));
      put(json, "declarations", json_integer(static_cast<json_int_t>(producer.declarations)));
      put(json, "properties", json_integer(static_cast<json_int_t>(producer.properties)));
      put(json, "topics", json_texts(producer.topics));
      json_array_append_new(array, json.release());
    }
    put(object_, "producers", array);
    if (!json_ && !table.empty())
      table.write(program_.out, program_.style, "  ");
  }

  Program &program_;
  bool json_;
  OwnedJson object_{json_object()};
};

} // namespace

void add_status(CLI::App &app, Program &program) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App *command = app.add_subcommand("status", "Show whether bus and switch are there");
  command->add_flag("--json", arguments->json, "As one object");
  command->footer(
      "\nWith the declarations of each producer. Ends with 1 when something is missing.");
  command->callback([&program, arguments] {
    program.command = [&program, arguments] { return Report{program, arguments->json}.write(); };
  });
}

} // namespace varro2::cli
