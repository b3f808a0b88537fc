// The names of the codes on the bus, and the way back from an error on the bus to a code.
#include "buserrors.hpp"
#include "directbus.hpp"

#include <varro2/error.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

namespace varro2::test {
namespace {

const struct {
  const char *name;
  int code;
} codes[] = {
    {"com.quor.Event.Error.Null", 1},
    {"com.quor.Event.Error.DbusFailed", 2},
    {"com.quor.Event.Error.NoSubscr", 4},
    {"com.quor.Event.Error.NotRegistered", 5},
    {"com.quor.Event.Error.NotMatching", 6},
    {"com.quor.Event.Error.Incomplete", 7},
    {"com.quor.Event.Error.LookingUpPropState", 8},
    {"com.quor.Event.Error.File", 9},
    {"com.quor.Event.Error.AlreadyExists", 10},
    {"com.quor.Event.Error.ErrorAlreadySet", 11},
    {"com.quor.Event.Error.InvalidType", 12},
    {"com.quor.Event.Error.RegistrationUnknownType", 13},
    {"com.quor.Event.Error.RegistrationPropState", 14},
    {"com.quor.Event.Error.RegistrationUnknownKey", 15},
    {"com.quor.Event.Error.RegistrationUnparsedKey", 16},
};

TEST(ErrorMap, NamesEveryCodeInOrder) {
  const sd_bus_error_map *entry = event_error_map;
  for (const auto &expected : codes) {
    ASSERT_STREQ(entry->name, expected.name);
    EXPECT_EQ(entry->code, expected.code);
    ++entry;
  }
  EXPECT_EQ(entry->name, nullptr);
  EXPECT_EQ(entry->code, -'x');
}

TEST(ErrorMap, TurnsNamesBackIntoCodes) {
  ASSERT_GE(sd_bus_error_add_map(event_error_map), 0);
  for (const auto &expected : codes) {
    const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(expected.name, "what happened");
    const int number = sd_bus_error_get_errno(&error);
    EXPECT_EQ(number, expected.code);
    const OwnedError failure = new_bus_failure(error, number);
    EXPECT_EQ(failure->domain, g_quark_from_string("event-error-quark"));
    EXPECT_EQ(failure->code, expected.code);
    EXPECT_STREQ(failure->message, "what happened");
  }
}

TEST(BusFailure, HasCodeTwoForForeignNames) {
  const sd_bus_error error =
      SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_SERVICE_UNKNOWN, "100% nobody there");
  const OwnedError failure = new_bus_failure(error, sd_bus_error_get_errno(&error));
  EXPECT_EQ(failure->code, EVENT_ERROR_DBUS_FAILED);
  EXPECT_STREQ(failure->message, "100% nobody there");
}

TEST(BusFailure, WithoutMessageHasTheTextOfItsErrno) {
  const sd_bus_error error = SD_BUS_ERROR_MAKE_CONST(SD_BUS_ERROR_NO_REPLY, nullptr);
  const OwnedError failure = new_bus_failure(error, ETIMEDOUT);
  EXPECT_EQ(failure->code, EVENT_ERROR_DBUS_FAILED);
  EXPECT_STREQ(failure->message, std::strerror(ETIMEDOUT));
}

TEST(BusFailure, WithoutConnectionIsABusFailure) {
  const OwnedError failure = new_bus_failure(ENOTCONN);
  EXPECT_EQ(failure->domain, g_quark_from_string("event-error-quark"));
  EXPECT_EQ(failure->code, EVENT_ERROR_DBUS_FAILED);
  EXPECT_STREQ(failure->message, std::strerror(ENOTCONN));
}

// Answers a call with an error, or without, and asks what the answer says.
bool is_not_delivered(const char *error) {
  DirectBus bus;
  bool result = false;
  const auto look = [](sd_bus_message *answer, void *said, sd_bus_error *) {
    *static_cast<bool *>(said) = says_not_delivered(answer);
    return 1;
  };
  EXPECT_GE(sd_bus_call_method_async(bus.near(), nullptr, "com.example.A", "/", "com.example.A",
                                     "Ask", look, &result, nullptr),
            0);
  bus.run();
  if (error != nullptr)
    bus.answer_error(0, error);
  else
    bus.answer(0);
  return result;
}

TEST(BusAnswer, SaysThatTheCallWasNotDelivered) {
  EXPECT_TRUE(is_not_delivered(SD_BUS_ERROR_SERVICE_UNKNOWN));
  EXPECT_TRUE(is_not_delivered(SD_BUS_ERROR_NAME_HAS_NO_OWNER));
  EXPECT_TRUE(is_not_delivered(SD_BUS_ERROR_ACCESS_DENIED));
  EXPECT_TRUE(is_not_delivered("org.freedesktop.DBus.Error.TimedOut")); // of a start
  EXPECT_TRUE(is_not_delivered("org.freedesktop.DBus.Error.Spawn.ChildExited"));
  EXPECT_TRUE(is_not_delivered("org.freedesktop.systemd1.NoSuchUnit"));
  EXPECT_FALSE(is_not_delivered(SD_BUS_ERROR_NO_REPLY));
  EXPECT_FALSE(is_not_delivered(nullptr));
}

} // namespace
} // namespace varro2::test
