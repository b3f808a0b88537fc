// GetPropertyState: what is asked, what is answered, and which code a refusal becomes.
#include "live.hpp"

namespace varro2::test {
namespace {

using PropertyStates = Live;

TEST_F(PropertyStates, AreAskedForAndRead) {
  switch_.come();
  wire::Pair state{"open", "1"};
  state.tags = {"property-state"};
  switch_.answer_bytes("GetPropertyState", wire::property_state({{"topic0", "Door"}, state}));
  ConsumerHandle consumer{"listener"};
  Failure failure;
  const HeldState found{event_consumer_get_property_state(
      consumer.get(), wants("topic0", "Door").get(), failure.slot())};
  EXPECT_FALSE(failure.is_set());
  ASSERT_NE(found, nullptr);
  EXPECT_STREQ(inspectable_get_value(property_state_get_inspectable(found.get()), "open"), "1");
  const Call call = switch_.calls("GetPropertyState").front();
  EXPECT_EQ(call.interface, "com.quor.Event.Switch.Consumer");
  EXPECT_EQ(call.signature, "ay");
  EXPECT_EQ(call.bytes(0), wire::subscription({}, {{{"topic0", "Door"}}}));
}

struct Refusal {
  const char *name;
  int code;
};

class RefusedPropertyState : public Live, public ::testing::WithParamInterface<Refusal> {};

TEST_P(RefusedPropertyState, BecomesAnErrorCode) {
  switch_.come();
  switch_.answer_error("GetPropertyState", GetParam().name, "no, 100%s");
  ConsumerHandle consumer{"listener"};
  Failure failure;
  EXPECT_EQ(event_consumer_get_property_state(consumer.get(), wants("topic0", "Door").get(),
                                              failure.slot()),
            nullptr);
  EXPECT_TRUE(failure.is(GetParam().code, "no, 100%s"));
}

INSTANTIATE_TEST_SUITE_P(
    Names, RefusedPropertyState,
    ::testing::Values(
        Refusal{"com.quor.Event.Error.Null", 1}, Refusal{"com.quor.Event.Error.DbusFailed", 2},
        Refusal{"com.quor.Event.Error.NoSubscr", 4},
        Refusal{"com.quor.Event.Error.NotRegistered", 5},
        Refusal{"com.quor.Event.Error.NotMatching", 6},
        Refusal{"com.quor.Event.Error.Incomplete", 7},
        Refusal{"com.quor.Event.Error.LookingUpPropState", 8},
        Refusal{"com.quor.Event.Error.File", 9}, Refusal{"com.quor.Event.Error.AlreadyExists", 10},
        Refusal{"com.quor.Event.Error.ErrorAlreadySet", 11},
        Refusal{"com.quor.Event.Error.InvalidType", 12},
        Refusal{"com.quor.Event.Error.RegistrationUnknownType", 13},
        Refusal{"com.quor.Event.Error.RegistrationPropState", 14},
        Refusal{"com.quor.Event.Error.RegistrationUnknownKey", 15},
        Refusal{"com.quor.Event.Error.RegistrationUnparsedKey", 16},
        Refusal{"org.freedesktop.DBus.Error.AccessDenied", 2}, Refusal{"org.example.Whatever", 2}),
    [](const auto &parameter) {
      const std::string name = parameter.param.name;
      return name.substr(name.rfind('.') + 1);
    });

TEST_F(PropertyStates, WithoutASwitchAreABusFailure) {
  ConsumerHandle consumer{"listener"};
  Failure failure;
  EXPECT_EQ(event_consumer_get_property_state(consumer.get(), wants("topic0", "Door").get(),
                                              failure.slot()),
            nullptr);
  ASSERT_TRUE(failure.is_set());
  EXPECT_EQ(failure.get()->domain, event_error_quark());
  EXPECT_EQ(failure.get()->code, 2);
  EXPECT_STRNE(failure.get()->message, "");
}

TEST_F(PropertyStates, NeedTheirArguments) {
  EXPECT_EQ(event_consumer_get_property_state(nullptr, wants("a", "b").get(), nullptr), nullptr);
  ConsumerHandle consumer{"listener"};
  EXPECT_EQ(event_consumer_get_property_state(consumer.get(), nullptr, nullptr), nullptr);
  EXPECT_EQ(log_.lines(),
            (std::vector<LogLine>{
                {G_LOG_LEVEL_CRITICAL, "",
                 "event_consumer_get_property_state: assertion 'event_consumer != NULL' failed"},
                {G_LOG_LEVEL_CRITICAL, "",
                 "event_consumer_get_property_state: assertion 'subscribe_expression != NULL' "
                 "failed"}}));
  log_.clear();
}

} // namespace
} // namespace varro2::test
