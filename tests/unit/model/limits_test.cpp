// What the container costs: allocations and memory are counted, time is not.
#include "allocations.hpp"
#include "modeltest.hpp"

#include <varro2/eventutils.h>
#include <varro2/serialize.h>

#include <numeric>

using namespace varro2::test;

namespace {

// ---- Nothing grows ----

// Bytes by which the process grew over many rounds, the first few not counted.
template <typename Round>
std::ptrdiff_t growth_over(int rounds, Round round) {
  for (int warm = 0; warm < 20; ++warm)
    round(warm);
  const std::size_t before = bytes_held();
  for (int number = 20; number < rounds; ++number)
    round(number);
  return static_cast<std::ptrdiff_t>(bytes_held()) - static_cast<std::ptrdiff_t>(before);
}

// The longest text of the rounds may be what is held at the end, no more.
constexpr std::ptrdiff_t slack = 512;

const std::string texts[] = {"",
                             "1",
                             "a text of forty bytes, or a few more",
                             "x",
                             std::string(200, 'y'),
                             "",
                             "short",
                             "another one of medium size"};
const char *text_of_round(int number) {
  return texts[static_cast<std::size_t>(number) % std::size(texts)].c_str();
}

TEST(ContainerMemory, AValueIsSetAMillionTimes) {
  for (const guint32 type : {IT_EVENT, IT_EVENT_DECLARATION}) {
    const auto inspect = new_inspectable(type);
    add_open(inspect, "A");
    const auto grown = growth_over(1'000'000, [&](int number) {
      inspectable_set_value_as_string(inspect.get(), "A", text_of_round(number));
    });
    EXPECT_LT(grown, slack);
    EXPECT_STREQ(inspectable_get_value(inspect.get(), "A"), text_of_round(999'999));
  }
}

TEST(ContainerMemory, ATypedValueIsSetManyTimes) {
  const auto inspect = new_inspectable(IT_EVENT_DECLARATION);
  add_open(inspect, "A");
  inspectable_set_value_type(inspect.get(), "A", VALUE_TYPE_DOUBLE);
  const auto grown = growth_over(100'000, [&](int number) {
    const double value = number % 2 != 0 ? 0.5 : 1e300;
    inspectable_set_value(inspect.get(), "A", &value);
  });
  EXPECT_LT(grown, slack);
}

TEST(ContainerMemory, OtherTextsAreSetManyTimes) {
  const auto inspect = new_inspectable(IT_EVENT_DECLARATION);
  add(inspect, "A", "1");
  const auto grown = growth_over(100'000, [&](int number) {
    const char *text = text_of_round(number);
    inspectable_set_name_space(inspect.get(), "A", text);
    inspectable_set_complex_type_name(inspect.get(), "A", text);
    inspectable_set_nice_names(inspect.get(), "A", text, text);
    inspectable_set_value_user_string(inspect.get(), "A", text);
    inspectable_add_key_tag(inspect.get(), "A", texts[number % 2].c_str());
  });
  EXPECT_LT(grown, 5 * slack);
  const KeyValue *pair = inspectable_get_key_value(inspect.get(), "A");
  EXPECT_STREQ(pair->value_nice_name, text_of_round(99'999));
  EXPECT_STREQ(pair->name_space, text_of_round(99'999));
}

TEST(ContainerMemory, AKeyIsDeclaredManyTimes) {
  const auto inspect = new_inspectable(IT_EVENT_DECLARATION);
  const auto grown = growth_over(100'000, [&](int number) {
    if (number % 3 == 0)
      add_open(inspect, "A");
    else
      add(inspect, "A", text_of_round(number));
    inspectable_set_name_space(inspect.get(), "A", text_of_round(number + 1));
    inspectable_add_key_tag(inspect.get(), "A", text_of_round(number + 2));
  });
  EXPECT_LT(grown, 5 * slack);
}

TEST(ContainerMemory, CopiesOfCopiesStayAsLarge) {
  auto current = new_inspectable(IT_EVENT);
  for (const char *key : {"A", "B", "C"})
    add_open(current, key);
  const auto grown = growth_over(10'000, [&](int number) {
    for (const char *key : {"A", "B", "C"})
      inspectable_set_value_as_string(current.get(), key, text_of_round(number++));
    current.reset(inspectable_copy(current.get(), IT_EVENT));
  });
  EXPECT_LT(grown, 3 * slack);
}

TEST(ContainerMemory, CopiesOfCopiesOfManyTagsStayAsLarge) {
  auto current = new_inspectable(IT_EVENT);
  add(current, "A", "1");
  for (int number = 0; number < 40; ++number)
    inspectable_add_key_tag(current.get(), "A", std::to_string(number).c_str());
  current = read_inspectable(record_of(current));
  const auto grown =
      growth_over(1'000, [&](int) { current.reset(inspectable_copy(current.get(), IT_EVENT)); });
  EXPECT_LT(grown, slack);
}

TEST(ContainerMemory, EverythingIsGivenBack) {
  const auto round = [](int) {
    const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
    for (const char *key : {"A", "B", "A"}) {
      add_open(declaration, key);
      for (const std::string &text : texts) {
        inspectable_set_value_as_string(declaration.get(), key, text.c_str());
        inspectable_set_name_space(declaration.get(), key, text.c_str());
        inspectable_add_key_tag(declaration.get(), key, text.c_str());
        inspectable_add_tag(declaration.get(), text.c_str());
      }
    }
    const OwnedInspectable event{inspectable_copy(declaration.get(), IT_EVENT)};
    inspectable_add_key_tag(event.get(), "A", "more");
    const auto read = read_inspectable(record_of(event));
    inspectable_add_key_tag(read.get(), "A", "still more");
    inspectable_set_value_as_string(event.get(), "B", std::string(100, 'x').c_str());
  };
  EXPECT_LE(growth_over(1'000, round), 0);
}

TEST(ContainerMemory, ARecordInFrontOfOtherDataTakesWhatItNeeds) {
  const auto event = new_inspectable(IT_EVENT);
  add(event, "A", "1");
  const auto array = array_of(record_of(event) + Bytes(1'000'000, 'x'));
  const std::size_t before = bytes_held();
  guint32 at = 0;
  const OwnedInspectable read{inspectable_deserialize_internal(array.get(), &at)};
  EXPECT_LT(bytes_held() - before, 1'000u);
}

// ---- The usual event ----

OwnedInspectable usual_declaration() {
  auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  for (const auto &[key, value] :
       {std::pair{"topic0", "Device"}, {"topic1", "Trigger"}, {"topic2", "DigitalInput"}}) {
    add(declaration, key, value);
    inspectable_set_name_space(declaration.get(), key, "tns1");
  }
  for (const char *key : {"InputToken", "LogicalState", "temperature", "sequence", "source"}) {
    add_open(declaration, key);
    inspectable_set_nice_names(declaration.get(), key, "Name of the key", "Value");
  }
  return declaration;
}

void fill(const OwnedInspectable &event) {
  for (const auto &[key, value] : {std::pair{"InputToken", "port-17"},
                                   {"LogicalState", "1"},
                                   {"temperature", "36.600000"},
                                   {"sequence", "123456"},
                                   {"source", "2024-06-01T12:00:00Z"}})
    inspectable_set_value_as_string(event.get(), key, value);
}

OwnedInspectable usual_event() {
  OwnedInspectable event{inspectable_copy(usual_declaration().get(), IT_EVENT)};
  fill(event);
  return event;
}

TEST(ContainerAllocations, ACopyOfAnEventTakesTwo) {
  const auto declaration = usual_declaration();
  const auto event = usual_event();
  OwnedInspectable copies[3];
  EXPECT_LE(allocations_of([&] { copies[0].reset(inspectable_copy(event.get(), IT_EVENT)); }), 2u);
  EXPECT_LE(allocations_of([&] { copies[1].reset(inspectable_copy(copies[0].get(), IT_EVENT)); }),
            2u);
  EXPECT_LE(allocations_of([&] { copies[2].reset(inspectable_copy(declaration.get(), IT_EVENT)); }),
            2u);
  EXPECT_EQ(record_of(copies[1]), record_of(event));
}

TEST(ContainerAllocations, AnEventReadBackTakesTwo) {
  const auto array = array_of(record_of(usual_event()));
  OwnedInspectable read;
  guint32 at = 0;
  EXPECT_LE(allocations_of([&] { read.reset(inspectable_deserialize_internal(array.get(), &at)); }),
            2u);
  EXPECT_EQ(record_of(read), bytes_of(array));
}

TEST(ContainerAllocations, WritingAnEventTakesTwo) {
  const auto event = usual_event();
  varro2::BytesRef array;
  const auto write = [&] {
    array = varro2::BytesRef::adopt(serialize_create_array());
    inspectable_serialize_internal(event.get(), array.get());
  };
  write();                              // the first time fills what the process keeps
  EXPECT_LE(allocations_of(write), 3u); // the array itself, with its two parts, and its bytes
  const auto sized = varro2::BytesRef::adopt(g_byte_array_sized_new(4096));
  EXPECT_EQ(allocations_of([&] { inspectable_serialize_internal(event.get(), sized.get()); }), 0u);
}

TEST(ContainerAllocations, FillingReadingAndMatchingTakeNone) {
  const OwnedInspectable event{inspectable_copy(usual_declaration().get(), IT_EVENT)};
  const auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(expression, "topic0", "Device");
  add_negated(expression, "LogicalState", "0");
  add_for_any_key(expression, "123456");
  EXPECT_EQ(allocations_of([&] {
              fill(event);
              EXPECT_STREQ(inspectable_get_value(event.get(), "sequence"), "123456");
              EXPECT_EQ(inspectable_get_index(event.get(), "topic2"), 2u);
              EXPECT_STREQ(inspectable_get_key_at(event.get(), 3), "InputToken");
              EXPECT_TRUE(inspectable_is_complete(event.get()));
              EXPECT_TRUE(inspectable_contains(event.get(), expression.get()));
            }),
            0u);
}

TEST(ContainerMemory, OfAnEventIsSmall) {
  const auto event = usual_event();
  const std::size_t before = bytes_held();
  const OwnedInspectable copy{inspectable_copy(event.get(), IT_EVENT)};
  EXPECT_LT(bytes_held() - before, 1'600u);
  const auto array = array_of(record_of(event));
  const std::size_t before_reading = bytes_held();
  guint32 at = 0;
  const OwnedInspectable read{inspectable_deserialize_internal(array.get(), &at)};
  EXPECT_LT(bytes_held() - before_reading, 1'600u);
}

// ---- Many ----

// GLib never frees the table of its quarks when it takes a larger one, which the address sanitizer
// takes for a leak: there the keys must fit into the first one.
#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t most_keys = 1'000;
#else
constexpr std::size_t most_keys = 10'000;
#endif

// Interned beforehand: that takes memory once in the life of the process.
const std::vector<std::string> &many_keys() {
  static const std::vector<std::string> keys = [] {
    std::vector<std::string> made;
    for (std::size_t number = 0; number < most_keys; ++number) {
      made.push_back("key" + std::to_string(number));
      g_quark_from_string(made.back().c_str());
    }
    return made;
  }();
  return keys;
}

// Checks that ten times as many takes about ten times as much, and much less than one allocation
// each. make(count) returns a container.
template <typename Make>
void expect_linear(Make make) {
  std::size_t allocations[2] = {};
  std::size_t bytes[2] = {};
  const std::size_t counts[2] = {most_keys / 10, most_keys};
  make(counts[1]); // the first time fills what the process keeps
  for (const int at : {0, 1}) {
    const std::size_t before = bytes_held();
    OwnedInspectable made;
    allocations[at] = allocations_of([&] { made = make(counts[at]); });
    bytes[at] = bytes_held() - before;
    ASSERT_TRUE(made);
  }
  EXPECT_LT(allocations[0], counts[0] / 2);
  EXPECT_LT(allocations[1], counts[1] / 10);
  EXPECT_LT(allocations[1], 12 * allocations[0]);
  // Memory grows by doubling: it depends on where the two counts lie between the powers of two.
  EXPECT_LT(bytes[1], 20 * bytes[0]);
}

OwnedInspectable many(guint32 type, std::size_t count) {
  auto inspect = new_inspectable(type);
  for (std::size_t number = 0; number < count; ++number)
    add(inspect, many_keys()[number].c_str(), "1");
  return inspect;
}

TEST(ContainerOfMany, KeysAreAddedLinearly) {
  many_keys();
  for (const guint32 type :
       {IT_EVENT, IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE})
    expect_linear([&](std::size_t count) { return many(type, count); });
}

TEST(ContainerOfMany, KeysAreFound) {
  const auto event = many(IT_EVENT, most_keys);
  EXPECT_EQ(inspectable_get_key_count(event.get()), most_keys);
  for (guint32 number = 0; number < most_keys; ++number) {
    const char *key = many_keys()[number].c_str();
    ASSERT_EQ(inspectable_get_index(event.get(), key), number);
    ASSERT_STREQ(inspectable_get_key_at(event.get(), number), key);
    ASSERT_STREQ(inspectable_get_value(event.get(), key), "1");
  }
  EXPECT_EQ(inspectable_get_value(event.get(), "another"), nullptr);
}

TEST(ContainerOfMany, KeysAreDeclaredAgainInTheirPlace) {
  expect_linear([&](std::size_t count) {
    auto declaration = many(IT_EVENT_DECLARATION, count);
    for (std::size_t number = 0; number < count; ++number)
      add(declaration, many_keys()[number].c_str(), "2");
    return declaration;
  });
}

TEST(ContainerOfMany, TestsOfOneKeyAreAddedLinearly) {
  expect_linear([&](std::size_t count) {
    auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
    for (std::size_t number = 0; number < count; ++number)
      add(expression, "A", many_keys()[number].c_str());
    return expression;
  });
}

TEST(ContainerOfMany, TestsOfAnyKeyAreAddedLinearly) {
  expect_linear([&](std::size_t count) {
    auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
    for (std::size_t number = 0; number < count; ++number)
      add_for_any_key(expression, many_keys()[number].c_str());
    return expression;
  });
}

TEST(ContainerOfMany, AndListsAreAddedLinearly) {
  expect_linear([&](std::size_t count) {
    auto expression = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
    for (std::size_t number = 0; number < count; ++number) {
      add(expression, many_keys()[number].c_str(), "1");
      inspectable_or(expression.get());
    }
    return expression;
  });
}

TEST(ContainerOfMany, KeysAreCopiedAndReadBackLinearly) {
  expect_linear([&](std::size_t count) {
    const auto event = many(IT_EVENT, count);
    const auto read = read_inspectable(record_of(event));
    EXPECT_TRUE(inspectable_is_equal(event.get(), read.get()));
    OwnedInspectable copy{inspectable_copy(read.get(), IT_EVENT)};
    EXPECT_EQ(record_of(copy), record_of(event));
    EXPECT_EQ(inspectable_get_index(copy.get(), many_keys()[count - 1].c_str()), count - 1);
    return copy;
  });
}

TEST(ContainerOfMany, KeysAreMatchedWithoutAllocations) {
  const auto event = many(IT_EVENT, most_keys);
  const auto expression = many(IT_SUBSCRIBE_EXPRESSION, most_keys);
  EXPECT_EQ(
      allocations_of([&] { EXPECT_TRUE(inspectable_contains(event.get(), expression.get())); }),
      0u);
  add(expression, many_keys().back().c_str(), "2");
  EXPECT_FALSE(inspectable_contains(event.get(), expression.get()));
}

// As many as a record can count.
TEST(ContainerOfMany, Tags) {
  constexpr guint32 count = 65'535;
  Bytes tags{0xFF, 0xFF};
  for (guint32 number = 0; number < count; ++number) {
    const std::string tag = std::to_string(number);
    tags = std::move(tags) + Bytes{guint8(tag.size()), 0} + Bytes{tag.begin(), tag.end()};
  }
  Bytes record{0xF5, 1, 0, 'A', 0, 0, 0, 0, 0, 1, 0, '1', 0, 0, 0, 0, 0, 0, 0, 0, 4};
  record = record + tags;
  const auto pair = read_pair(record);
  EXPECT_EQ(g_list_length(pair->tags), count);
  const OwnedPair pair_copy{key_value_copy(pair.get())};
  EXPECT_EQ(record_of(pair_copy.get()), record);
  EXPECT_TRUE(key_value_is_equal(pair.get(), pair_copy.get()));
  record = Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 1, 0} + record + Bytes{0, 0} + tags;
  const auto event = read_inspectable(record);
  OwnedInspectable copy{inspectable_copy(event.get(), IT_EVENT)};
  EXPECT_EQ(record_of(copy), record);
  inspectable_add_key_tag(copy.get(), "A", "one more");
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(copy.get(), "one more"));
}

TEST(ContainerOfMany, EqualTagsAreCopiedOnce) {
  const auto event = new_inspectable(IT_EVENT);
  add(event, "A", "1");
  auto *pair = inspectable_get_key_value(event.get(), "A");
  for (int number = 0; number < 300; ++number)
    key_value_give_tag(pair,
                       number % 3 == 0 ? nullptr : g_strdup(std::to_string(number / 4).c_str()));
  Texts expected;
  for (const std::string &text : texts_of(pair->tags))
    if (std::find(expected.begin(), expected.end(), text) == expected.end())
      expected.push_back(text);
  const OwnedInspectable copy{inspectable_copy(event.get(), IT_EVENT)};
  const OwnedInspectable again{inspectable_copy(copy.get(), IT_EVENT)};
  const OwnedPair pair_copy{key_value_copy(pair)};
  EXPECT_EQ(texts_of(inspectable_get_key_value(copy.get(), "A")->tags), expected);
  EXPECT_EQ(texts_of(inspectable_get_key_value(again.get(), "A")->tags), expected);
  EXPECT_EQ(texts_of(pair_copy->tags), expected);
}

// ---- Long texts ----

TEST(ContainerOfLongTexts, ComeBackUpToWhatALengthCanSay) {
  const std::string longest(65'535, 'x');
  const auto event = new_inspectable(IT_EVENT);
  add(event, "A", longest.c_str());
  const auto read = read_inspectable(record_of(event));
  EXPECT_EQ(inspectable_get_value(read.get(), "A"), longest);
  const OwnedInspectable copy{inspectable_copy(read.get(), IT_EVENT)};
  EXPECT_EQ(inspectable_get_value(copy.get(), "A"), longest);
}

TEST(ContainerOfLongTexts, LongerOnesAreWrittenWithTheLowBitsOfTheirLength) {
  const std::string value(65'537, 'x');
  const auto pair = new_pair({.value = value.c_str()});
  const Bytes record = record_of(pair.get());
  EXPECT_EQ(record.size(), 21u + 1 + value.size());
  EXPECT_EQ((Bytes{record.begin() + 9, record.begin() + 13}), (Bytes{1, 0, 'x', 'x'}));
}

TEST(ContainerOfLongTexts, ANulInARecordEndsTheText) {
  // Name space, value and tag of three bytes each, with a NUL in the middle, and such a key.
  const auto event =
      read_inspectable(Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 1, 0} +
                       Bytes{0xF5, 3, 0, 'A', 0, 'x', 0, 3, 0, 'n', 0, 'x', 0, 0, 3,   0, 'v', 0,
                             'x',  0, 0, 0,   0, 0,   0, 0, 0, 4,   1, 0,   3, 0, 't', 0, 'x'} +
                       Bytes{0, 0, 0, 0});
  const KeyValue *pair = inspectable_get_key_value(event.get(), "A");
  ASSERT_NE(pair, nullptr);
  EXPECT_STREQ(pair->name_space, "n");
  EXPECT_STREQ(pair->value, "v");
  EXPECT_EQ(texts_of(pair->tags), (Texts{"t"}));
  const OwnedInspectable copy{inspectable_copy(event.get(), IT_EVENT)};
  EXPECT_TRUE(inspectable_is_equal(event.get(), copy.get()));
  EXPECT_EQ(record_of(copy), record_of(event));
}

} // namespace
