// A producer of the soak: soak_producer NAME LOG. Declares and sends what it is told to, and logs
// every event before it hands it over and again when the library has taken it.
//
// Commands                                   Log, times in nanoseconds
//   declare NUMBER CLASS plain|property        d NUMBER LOCAL-ID CLASS KIND TIME
//   undeclare NUMBER                           u NUMBER TIME                  before the call
//   rate MILLISECONDS   one event at a time    o NUMBER EVENT TIME            before the call
//   burst NUMBER COUNT                         s EVENT TIME                   taken: in the window
//   roll                one of each            r EVENT TIME CODE              refused
//   report WORD                                q TIME      all that were taken are answered
//   end                 in order, after one of each
#include "client.hpp"

#include <varro2/eventproducer_int.h>
#include <varro2/varro2.h>

#include <cstdlib>
#include <iterator>
#include <map>

namespace soak {
namespace {

class Producer {
 public:
  Producer(const char *name, const char *log)
      : name_{name}, log_{log}, handle_{event_producer_new(name)}, commands_{
                                                                       [this](const auto &words) {
                                                                         obey(words);
                                                                       }} {}

  void run() {
    say("ready");
    g_main_loop_run(loop_);
    g_main_loop_unref(loop_);
  }

 private:
  struct Declared {
    guint32 local_id;
  };

  void obey(const std::vector<std::string> &words) {
    const auto number = [&words](std::size_t at) {
      return static_cast<guint32>(std::stoul(words.at(at)));
    };
    if (words[0] == "declare")
      declare(number(1), words.at(2).c_str(), words.at(3) == "property");
    else if (words[0] == "undeclare")
      undeclare(number(1));
    else if (words[0] == "rate")
      set_rate(number(1));
    else if (words[0] == "burst")
      burst(number(1), number(2));
    else if (words[0] == "roll")
      send_one_of_each();
    else if (words[0] == "report")
      report_when_idle(words.at(1));
    else if (words[0] == "end")
      end();
    else
      std::abort();
  }

  void declare(guint32 number, const char *kind, bool property) {
    auto value = static_cast<gint32>(number);
    EventDeclaration *declaration = event_declaration_new(FALSE);
    event_declaration_add_key_value(declaration, "topic0", "Soak", VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration, "producer", name_, VALUE_TYPE_STRING);
    event_declaration_add_key_value(declaration, "declaration", &value, VALUE_TYPE_INT);
    event_declaration_add_key_value(declaration, "class", kind, VALUE_TYPE_STRING);
    event_declaration_add_key(declaration, "level", VALUE_TYPE_INT);
    event_declaration_add_key(declaration, "number", VALUE_TYPE_INT);
    event_declaration_add_key(declaration, "text", VALUE_TYPE_STRING);
    if (property)
      event_declaration_set_property(declaration, "level", nullptr, nullptr);
    const gint64 time = now();
    const guint32 local_id = event_producer_declare(handle_, declaration);
    event_declaration_free(declaration);
    log_.line("d %u %u %s %s %" G_GINT64_FORMAT, number, local_id, kind,
              property ? "property" : "plain", time);
    declared_[number] = {local_id};
    say("declared %u %u", number, local_id);
  }

  void undeclare(guint32 number) {
    const guint32 local_id = declared_.at(number).local_id;
    declared_.erase(number);
    log_.line("u %u %" G_GINT64_FORMAT, number, now());
    event_producer_undeclare(handle_, local_id);
  }

  void send(guint32 number) {
    Event *event = event_producer_prepare_event(handle_, declared_.at(number).local_id);
    gint32 count = ++events_;
    gint32 level = count % 4;
    event_set_value(event, "level", &level);
    event_set_value(event, "number", &count);
    // Another length and letter for each: the consumer knows what must stand there.
    const std::string text(static_cast<std::size_t>(count) * 37 % 256,
                           static_cast<char>('a' + count % 26));
    event_set_value(event, "text", text.c_str());
    ++untaken_;
    log_.line("o %u %d %" G_GINT64_FORMAT, number, count, now());
    event_producer_int_send_event(handle_, event, event_copy(event), taken, this, nullptr);
    // Its number comes back through the queue: the order of the commands is that of the calls.
    queue_.push_back(count);
    event_free(event);
  }

  static void taken(guint32, Event *, gpointer data, GError *error) noexcept {
    auto &self = *static_cast<Producer *>(data);
    const gint32 count = self.queue_.at(self.next_++);
    if (self.next_ == self.queue_.size()) {
      self.queue_.clear();
      self.next_ = 0;
    }
    --self.untaken_;
    if (error != nullptr) {
      self.log_.line("r %d %" G_GINT64_FORMAT " %d", count, now(), error->code);
      g_error_free(error);
    } else {
      self.log_.line("s %d %" G_GINT64_FORMAT, count, now());
      self.settled_ = false;
    }
  }

  void note_settled() {
    if (settled_ || untaken_ > 0 || unsettled_calls() > 0)
      return;
    log_.line("q %" G_GINT64_FORMAT, now());
    settled_ = true;
  }

  void burst(guint32 number, guint32 count) {
    while (count-- > 0)
      send(number);
  }

  void send_one_of_each() {
    for (const auto &[number, declared] : declared_)
      send(number);
  }

  void set_rate(guint32 milliseconds) {
    if (timer_ != 0)
      g_source_remove(timer_);
    const auto tick = [](gpointer data) noexcept -> gboolean {
      static_cast<Producer *>(data)->send_next();
      return G_SOURCE_CONTINUE;
    };
    timer_ = milliseconds > 0 ? g_timeout_add(milliseconds, tick, this) : 0;
  }

  void send_next() {
    note_settled();
    if (declared_.empty())
      return;
    auto next = declared_.upper_bound(last_);
    if (next == declared_.end())
      next = declared_.begin();
    last_ = next->first;
    send(last_);
  }

  // Whoever is served when the handle is freed gets what was sent before.
  void end() {
    set_rate(0);
    send_one_of_each();
    const auto done = [](EventProducer *, gpointer data) noexcept {
      const auto look = [](gpointer self) noexcept -> gboolean {
        auto &producer = *static_cast<Producer *>(self);
        producer.note_settled();
        if (unsettled_calls() > 0)
          return G_SOURCE_CONTINUE;
        g_main_loop_quit(producer.loop_);
        return G_SOURCE_REMOVE;
      };
      g_timeout_add(5, look, data);
    };
    event_producer_int_free(handle_, done, this);
  }

  const char *name_;
  Log log_;
  GMainLoop *loop_ = g_main_loop_new(nullptr, FALSE);
  EventProducer *handle_;
  std::map<guint32, Declared> declared_; // by the conductor's number
  gint32 events_ = 0;
  std::vector<gint32> queue_; // handed over and not yet taken, from next_ on
  std::size_t next_ = 0;
  guint32 untaken_ = 0;
  guint32 last_ = 0;
  bool settled_ = true;
  guint timer_ = 0;
  Commands commands_;
};

} // namespace
} // namespace soak

int main(int argc, char **argv) {
  if (argc != 3) {
    g_printerr("usage: soak_producer NAME LOG\n");
    return 2;
  }
  soak::Producer{argv[1], argv[2]}.run();
  return EXIT_SUCCESS;
}
