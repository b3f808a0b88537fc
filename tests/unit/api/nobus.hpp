// Handles on a machine where no bus runs.
#pragma once

#include "logcapture.hpp"
#include "mainloop.hpp"
#include "owning.hpp"

#include <varro2/varro2.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

namespace varro2::test {

using TestDeclaration = Owned<EventDeclaration, event_declaration_free>;
using TestEvent = Owned<Event, event_free>;
using TestExpression = Owned<SubscribeExpression, subscribe_expression_free>;

// "libvarro2" as domain and -ENOENT as code: nothing listens at the address below.
inline constexpr const char *no_bus_line = "Failed to setup dbus: Failed to connect to bus (-2)";

class WithoutBus : public ::testing::Test {
 protected:
  WithoutBus() { setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/varro2/bus", 1); }

  // Without the lines that say that there is no connection.
  std::vector<std::string> warnings() const { return log.texts(G_LOG_LEVEL_WARNING); }
  std::size_t criticals(const std::string &text) const {
    return log.count(G_LOG_LEVEL_CRITICAL, text);
  }

  LogCapture log;
};

// A GError of the tests' own, to be found replaced.
inline GError *earlier_error() {
  return g_error_new_literal(g_quark_from_static_string("earlier"), 77, "earlier");
}

// domain, code and message of an error slot; the slot is cleared.
struct Failure {
  std::string domain;
  int code;
  std::string message;
  bool operator==(const Failure &) const = default;
};

inline void PrintTo(const Failure &failure, std::ostream *out) {
  *out << failure.domain << " " << failure.code << " " << failure.message;
}

inline Failure take(GError *&error) {
  if (error == nullptr)
    return {"", 0, ""};
  Failure failure{g_quark_to_string(error->domain), error->code, error->message};
  g_clear_error(&error);
  return failure;
}

inline Failure event_failure(int code, const char *message) {
  return {"event-error-quark", code, message};
}

inline const Failure no_failure{"", 0, ""};

// External, with the topic "topic" and the open text key "text".
inline TestDeclaration text_declaration() {
  TestDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", "topic", VALUE_TYPE_STRING);
  event_declaration_add_key(declaration.get(), "text", VALUE_TYPE_STRING);
  return declaration;
}

// The same as a property, whose value the application has not said yet.
inline TestDeclaration text_property() {
  TestDeclaration declaration = text_declaration();
  event_declaration_set_property(
      declaration.get(), NULL, [](Event *event, gpointer) { return event; }, NULL);
  return declaration;
}

inline TestExpression any_text() {
  TestExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key(expression.get(), "text");
  return expression;
}

// What the callbacks of one test were told, in the order of the calls.
struct Told {
  std::vector<std::string> lines;

  void failed(const std::string &what, GError *error) {
    lines.push_back(what + (error ? " " + std::to_string(error->code) + " " + error->message : ""));
    g_clear_error(&error);
  }
  static Told &of(gpointer user_data) { return *static_cast<Told *>(user_data); }

  static void id_alone(guint32 id, gpointer user_data) {
    of(user_data).lines.push_back("id " + std::to_string(id));
  }
  static void id_and_error(guint32 id, gpointer user_data, GError *error) {
    of(user_data).failed("id " + std::to_string(id), error);
  }
};

using Lines = std::vector<std::string>;

} // namespace varro2::test
