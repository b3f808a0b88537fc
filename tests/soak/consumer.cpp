// A consumer of the soak: soak_consumer NAME LOG. Subscribes to what it is told to and logs every
// event when it comes.
//
// Commands                                   Log, times in nanoseconds
//   subscribe NUMBER TESTS [secure]            b NUMBER TOKEN TIME
//   unsubscribe NUMBER                         x NUMBER TIME    before the call
//                                              y NUMBER TIME    after it: from here on nothing
//                                              comes
//   refresh NUMBER                             e NUMBER PRODUCER DECLARATION EVENT TIME
//   state TESTS                                bad ...          an event that was not sent so
//   report WORD
//   end                 in order               x 0 TIME
//
// TESTS: and-lists divided by '|', tests by ';': K=V, K!=V, K=* (present), !K (absent), *=V, *!=V.
#include "client.hpp"

#include <varro2/eventconsumer_int.h>
#include <varro2/varro2.h>

#include <unistd.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <sstream>

namespace soak {
namespace {

void add_test(SubscribeExpression *expression, const std::string &test) {
  if (test.front() == '!') {
    subscribe_expression_add_not_key(expression, test.c_str() + 1);
    return;
  }
  const std::size_t sign = test.find('=');
  const bool negated = test.at(sign - 1) == '!';
  const std::string key = test.substr(0, sign - (negated ? 1 : 0));
  const std::string value = test.substr(sign + 1);
  if (key == "*" && negated)
    subscribe_expression_add_not_value(expression, value.c_str());
  else if (key == "*")
    subscribe_expression_add_value(expression, value.c_str());
  else if (value == "*")
    subscribe_expression_add_key(expression, key.c_str());
  else if (negated)
    subscribe_expression_add_key_not_value(expression, key.c_str(), value.c_str());
  else
    subscribe_expression_add_key_value(expression, key.c_str(), value.c_str());
}

SubscribeExpression *parse(const std::string &text) {
  SubscribeExpression *expression = subscribe_expression_new();
  std::istringstream lists{text};
  bool first = true;
  for (std::string list; std::getline(lists, list, '|'); first = false) {
    if (!first)
      subscribe_expression_or(expression);
    std::istringstream tests{list};
    for (std::string test; std::getline(tests, test, ';');)
      add_test(expression, test);
  }
  return expression;
}

class Consumer {
 public:
  Consumer(const char *name, const char *log)
      : log_{log}, handle_{event_consumer_new(name)}, commands_{[this](const auto &words) {
          obey(words);
        }} {}

  void run() {
    say("ready");
    g_main_loop_run(loop_);
    g_main_loop_unref(loop_);
  }

 private:
  struct Subscription {
    Consumer *consumer;
    guint32 number;
    guint32 token;
  };

  void obey(const std::vector<std::string> &words) {
    const auto number = [&words](std::size_t at) {
      return static_cast<guint32>(std::stoul(words.at(at)));
    };
    if (words[0] == "subscribe")
      subscribe(number(1), words.at(2), words.size() > 3);
    else if (words[0] == "unsubscribe")
      unsubscribe(number(1));
    else if (words[0] == "refresh")
      event_consumer_refresh_async(handle_, subscriptions_.at(number(1))->token);
    else if (words[0] == "state")
      ask_state(words.at(1));
    else if (words[0] == "report")
      report_when_idle(words.at(1));
    else if (words[0] == "end")
      end();
    else
      std::abort();
  }

  void subscribe(guint32 number, const std::string &tests, bool secure) {
    auto made = std::make_unique<Subscription>(Subscription{this, number, 0});
    SubscribeExpression *expression = parse(tests);
    made->token = secure
                      ? event_consumer_subscribe_secure_full(handle_, expression, on_secure_event,
                                                             on_secure_notification, made.get())
                      : event_consumer_subscribe_full(handle_, expression, on_event,
                                                      on_notification, made.get());
    subscribe_expression_free(expression);
    log_.line("b %u %u %" G_GINT64_FORMAT, number, made->token, now());
    say("subscribed %u %u", number, made->token);
    subscriptions_[number] = std::move(made);
  }

  void unsubscribe(guint32 number) {
    const guint32 token = subscriptions_.at(number)->token;
    log_.line("x %u %" G_GINT64_FORMAT, number, now());
    if (!event_consumer_unsubscribe(handle_, token, nullptr))
      log_.line("bad the subscription %u is not known", number);
    log_.line("y %u %" G_GINT64_FORMAT, number, now());
    ended_.push_back(std::move(subscriptions_.at(number)));
    subscriptions_.erase(number);
  }

  static void on_secure_event(Event *event, guint32 uid, gpointer data) noexcept {
    auto &subscription = *static_cast<Subscription *>(data);
    if (uid != getuid() && uid != G_MAXUINT32) // a sender that has gone cannot be asked for
      subscription.consumer->log_.line("bad the sender's user is %u", uid);
    on_event(event, data);
  }

  static void on_event(Event *event, gpointer data) noexcept {
    auto &subscription = *static_cast<Subscription *>(data);
    Log &log = subscription.consumer->log_;
    gint32 count = 0;
    gint32 declaration = 0;
    event_get_typed_value(event, "number", &count);
    event_get_typed_value(event, "declaration", &declaration);
    const std::string text(static_cast<std::size_t>(count) * 37 % 256,
                           static_cast<char>('a' + count % 26));
    const char *received = event_get_value(event, "text");
    if (received == nullptr || text != received)
      log.line("bad the text of event %d is not what was sent", count);
    log.line("e %u %s %d %d %" G_GINT64_FORMAT, subscription.number,
             event_get_value(event, "producer"), declaration, count, now());
    event_free(event);
  }

  static void on_notification(Notification *notification, gpointer) noexcept {
    notification_free(notification);
  }
  static void on_secure_notification(Notification *notification, guint32, gpointer) noexcept {
    notification_free(notification);
  }

  // What comes back depends on who lives just now; it must come, and be whole.
  void ask_state(const std::string &tests) {
    SubscribeExpression *expression = parse(tests);
    GError *error = nullptr;
    PropertyState *state = event_consumer_get_property_state(handle_, expression, &error);
    if ((state == nullptr) == (error == nullptr))
      log_.line("bad the property state came with and without an error");
    property_state_free(state);
    g_clear_error(&error);
    subscribe_expression_free(expression);
  }

  void end() {
    log_.line("x 0 %" G_GINT64_FORMAT, now());
    const auto done = [](EventConsumer *, gpointer data) noexcept {
      const auto look = [](gpointer self) noexcept -> gboolean {
        if (unsettled_calls() > 0)
          return G_SOURCE_CONTINUE;
        g_main_loop_quit(static_cast<Consumer *>(self)->loop_);
        return G_SOURCE_REMOVE;
      };
      g_timeout_add(5, look, data);
    };
    event_consumer_int_free(handle_, done, this);
  }

  Log log_;
  GMainLoop *loop_ = g_main_loop_new(nullptr, FALSE);
  EventConsumer *handle_;
  std::map<guint32, std::unique_ptr<Subscription>> subscriptions_; // by the conductor's number
  // Kept, so that an event which comes too late is logged with its number.
  std::vector<std::unique_ptr<Subscription>> ended_;
  Commands commands_;
};

} // namespace
} // namespace soak

int main(int argc, char **argv) {
  if (argc != 3) {
    g_printerr("usage: soak_consumer NAME LOG\n");
    return 2;
  }
  soak::Consumer{argv[1], argv[2]}.run();
  return EXIT_SUCCESS;
}
