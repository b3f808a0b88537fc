// Records that were written, at random, all pass the walk; broken ones that pass it can be read and
// used like any other.
#include "logcapture.hpp"
#include "records.hpp"

#include <varro2/eventutils.h>
#include <varro2/propertystate.h>
#include <varro2/serialize.h>

#include <gtest/gtest.h>

#include <random>

namespace varro2::test {
namespace {

using Random = std::mt19937;
using StateOwner = Owned<PropertyState, property_state_free>;

int up_to(Random &random, int most) {
  return std::uniform_int_distribution{0, most}(random);
}

std::string word(Random &random) {
  static const char *const words[] = {"",  "topic0",        "door",    "open",
                                      "1", "a longer text", "\xC3\xA4"};
  return words[up_to(random, 6)];
}

DeclarationOwner random_declaration(Random &random) {
  DeclarationOwner declaration{event_declaration_new(up_to(random, 1))};
  for (int count = up_to(random, 6); count > 0; --count) {
    const std::string key = word(random);
    event_declaration_add_key(declaration.get(), key.c_str(),
                              static_cast<guint32>(1 + up_to(random, 3)));
    if (up_to(random, 1))
      inspectable_set_value_as_string(event_declaration_get_inspectable(declaration.get()),
                                      key.c_str(), word(random).c_str());
    if (up_to(random, 2) == 0)
      event_declaration_add_key_tag(declaration.get(), key.c_str(), word(random).c_str());
    event_declaration_set_name_space(declaration.get(), key.c_str(), word(random).c_str());
    event_declaration_set_nice_names(declaration.get(), key.c_str(), "nice", word(random).c_str());
    event_declaration_set_complex_type_name(declaration.get(), key.c_str(), word(random).c_str());
  }
  for (int count = up_to(random, 2); count > 0; --count)
    event_declaration_add_tag(declaration.get(), word(random).c_str());
  if (up_to(random, 3) == 0)
    event_declaration_set_property(declaration.get(), nullptr, nullptr, declaration.get());
  return declaration;
}

ExpressionOwner random_expression(Random &random) {
  ExpressionOwner expression{subscribe_expression_new_full(up_to(random, 1))};
  SubscribeExpression *const se = expression.get();
  for (int count = up_to(random, 8); count > 0; --count) {
    const std::string key = word(random);
    const std::string value = word(random);
    switch (up_to(random, 6)) {
    case 0:
      subscribe_expression_add_key_value(se, key.c_str(), value.c_str());
      break;
    case 1:
      subscribe_expression_add_key_not_value(se, key.c_str(), value.c_str());
      break;
    case 2:
      subscribe_expression_add_key(se, key.c_str());
      break;
    case 3:
      subscribe_expression_add_not_key(se, key.c_str());
      break;
    case 4:
      subscribe_expression_add_value(se, value.c_str());
      break;
    case 5:
      subscribe_expression_add_not_value(se, value.c_str());
      break;
    default:
      subscribe_expression_or(se);
    }
  }
  subscribe_expression_set_dbus_service(se, word(random).c_str());
  subscribe_expression_set_dbus_object(se, "/object");
  return expression;
}

struct Written {
  guint32 type_id;
  Bytes bytes;
};

Written random_event(Random &random) {
  const DeclarationOwner declaration = random_declaration(random);
  const EventOwner event{event_declaration_generate_event(declaration.get())};
  if (up_to(random, 1)) {
    const DateTimeRef now = DateTimeRef::adopt(g_date_time_new_now_utc());
    event_set_timestamp2(event.get(), now.get());
  }
  if (up_to(random, 1))
    event_set_user_data_string(event.get(), word(random).c_str());
  event_set_property(event.get(), up_to(random, 3));
  return {SERIALIZE_ID_EVENT, taken(event_serialize(event.get()))};
}

Written random_state(Random &random) {
  const StateOwner state{property_state_new()};
  for (int count = up_to(random, 5); count > 0; --count)
    property_state_add_key_value(state.get(), word(random).c_str(), word(random).c_str(),
                                 up_to(random, 1));
  return {SERIALIZE_ID_PROPERTY_STATE, taken(property_state_serialize(state.get()))};
}

Written random_notification(Random &random) {
  const NotificationOwner notification{notification_new()};
  notification_set_declaration(notification.get(), random_declaration(random).get());
  notification_set_subscribe_expression(notification.get(), random_expression(random).get());
  if (up_to(random, 1))
    notification_set_user_data_string(notification.get(), word(random).c_str());
  return {SERIALIZE_ID_NOTIFICATION, taken(notification_serialize(notification.get()))};
}

Written random_record(Random &random) {
  switch (up_to(random, 4)) {
  case 0:
    return random_event(random);
  case 1:
    return {SERIALIZE_ID_EVENT_DECLARATION,
            taken(event_declaration_serialize(random_declaration(random).get()))};
  case 2:
    return {SERIALIZE_ID_SUBSCRIBE_EXPRESSION,
            taken(subscribe_expression_serialize(random_expression(random).get()))};
  case 3:
    return random_state(random);
  default:
    return random_notification(random);
  }
}

bool passes(const Written &record) {
  return serialize_is_valid_record(array_of(record.bytes).get(), 0, record.type_id);
}

// ---- What a program does with what it received

void use(const Event *event, const SubscribeExpression *expression) {
  const guint32 count = event_get_key_count(event);
  for (guint32 at = 0; at < count; ++at) {
    event_get_type_at(event, at);
    event_has_value_at(event, at);
    EXPECT_EQ(event_get_index(event, event_get_key_at(event, at)), at);
    taken(event_get_tags_at(event, at));
  }
  event_is_complete(event);
  event_contains(event, expression);
  const EventOwner copy{event_copy(event)};
  EXPECT_TRUE(
      inspectable_is_equal(event_get_inspectable(event), event_get_inspectable(copy.get())));
  event_print(event);
}

void use(const EventDeclaration *declaration, const SubscribeExpression *expression) {
  event_declaration_contains(declaration, expression);
  const EventOwner event{event_declaration_generate_event(declaration)};
  use(event.get(), expression);
  event_declaration_print(declaration);
  g_free(event_declaration_serialize_xml(declaration));
}

void use(const SubscribeExpression *read, const EventDeclaration *declaration) {
  event_declaration_contains(declaration, read);
  const ExpressionOwner copy{subscribe_expression_copy(read)};
  subscribe_expression_add_key_value(copy.get(), "topic0", "door");
  subscribe_expression_print(read);
  subscribe_expression_free_raw(subscribe_expression_get_raw(read));
  g_free(subscribe_expression_serialize_xml(read));
}

class RecordMutation : public ::testing::Test {
 protected:
  // Reads as the bus part does and goes on as a program would. A reader that does not survive ends
  // the test.
  void read_and_use(const Written &record) {
    const BytesRef array = array_of(record.bytes);
    if (record.type_id == SERIALIZE_ID_EVENT) {
      const EventOwner event{event_deserialize(array.get())};
      use(event.get(), expression.get());
      taken(event_serialize(event.get()));
    } else if (record.type_id == SERIALIZE_ID_EVENT_DECLARATION) {
      const DeclarationOwner read{event_declaration_deserialize(array.get())};
      use(read.get(), expression.get());
      taken(event_declaration_serialize(read.get()));
    } else if (record.type_id == SERIALIZE_ID_SUBSCRIBE_EXPRESSION) {
      const ExpressionOwner read{subscribe_expression_deserialize(array.get())};
      use(read.get(), declaration.get());
      taken(subscribe_expression_serialize(read.get()));
    } else if (record.type_id == SERIALIZE_ID_PROPERTY_STATE) {
      const StateOwner state{property_state_deserialize(array.get())};
      use(property_state_get_inverted_subscribe_expression(state.get()), declaration.get());
      property_state_print(state.get());
    } else {
      const NotificationOwner read{notification_deserialize(array.get())};
      use(notification_get_declaration(read.get()), expression.get());
      use(notification_get_subscribe_expression(read.get()), declaration.get());
      notification_print(read.get());
      taken(notification_serialize(read.get()));
    }
    log.clear();
  }

  LogCapture log;
  Random random{20261120};
  DeclarationOwner declaration = random_declaration(random);
  ExpressionOwner expression = random_expression(random);
};

TEST_F(RecordMutation, WhateverIsWrittenPasses) {
  for (int round = 0; round < 5000; ++round) {
    const Written record = random_record(random);
    ASSERT_TRUE(passes(record)) << "round " << round << ", record " << record.type_id;
    read_and_use(record);
  }
}

// Changes one place: a bit, a byte, a number, or how long the record is.
void break_at(Random &random, Bytes &bytes, const Bytes &other) {
  static constexpr guint8 telling[] = {0,    1,    2,    3,    4,    5,    0x7F, 0x80, 0xFF,
                                       0xF0, 0xF1, 0xF2, 0xF3, 0xF4, 0xF5, 0xF6, 0xF9, 0xFA};
  const auto at = bytes.begin() + up_to(random, static_cast<int>(bytes.size()) - 1);
  switch (up_to(random, 6)) {
  case 0:
    *at = static_cast<guint8>(*at ^ (1u << up_to(random, 7)));
    break;
  case 1:
    *at = telling[up_to(random, static_cast<int>(std::size(telling)) - 1)];
    break;
  case 2:
    *at = static_cast<guint8>(*at + up_to(random, 4) - 2);
    break;
  case 3:
    bytes.erase(
        at, at + up_to(random, static_cast<int>(std::min<std::ptrdiff_t>(bytes.end() - at, 9))));
    break;
  case 4:
    bytes.insert(at, telling[up_to(random, static_cast<int>(std::size(telling)) - 1)]);
    break;
  case 5: { // a piece of another record, in place of one as long
    const auto size = std::min<std::ptrdiff_t>(bytes.end() - at, up_to(random, 60));
    const auto from = up_to(random, static_cast<int>(other.size()) - 1);
    const auto usable = std::min<std::ptrdiff_t>(size, static_cast<int>(other.size()) - from);
    std::copy_n(other.begin() + from, usable, at);
    break;
  }
  default:
    bytes.resize(static_cast<std::size_t>(at - bytes.begin()));
  }
}

TEST_F(RecordMutation, WhatPassesCanBeReadAndUsed) {
  constexpr int rounds = 100'000;
  int passed = 0;
  for (int round = 0; round < rounds; ++round) {
    Written record = random_record(random);
    const Bytes other = random_record(random).bytes;
    for (int changes = 1 + up_to(random, 2); changes > 0 && !record.bytes.empty(); --changes)
      break_at(random, record.bytes, other);
    if (!passes(record))
      continue;
    ++passed;
    read_and_use(record);
  }
  // Both verdicts must have come about often.
  EXPECT_GT(passed, rounds / 20);
  EXPECT_LT(passed, rounds * 9 / 10);
  RecordProperty("passed", passed);
}

} // namespace
} // namespace varro2::test
