// One pair: making, comparing, one step of matching, its forms.
#include "modeltest.hpp"

#include <varro2/eventutils.h>
#include <varro2/serialize.h>

#include <tuple>
#include <utility>

using namespace varro2::test;

namespace {

// ---- Making ----

TEST(KeyValue, HoldsWhatItWasMadeOf) {
  const auto pair = new_pair({.key = "Trigger",
                              .name_space = "tns1",
                              .key_nice_name = "Input",
                              .value = "x",
                              .value_nice_name = "Closed",
                              .value_user_string = "mine",
                              .complex_type_name = "Port",
                              .negated = TRUE});
  EXPECT_STREQ(g_quark_to_string(pair->key), "Trigger");
  EXPECT_STREQ(pair->value, "x");
  EXPECT_EQ(pair->tags, nullptr);
  EXPECT_EQ(pair->value_type, 4u);
  EXPECT_FALSE(pair->value_settable);
  EXPECT_STREQ(pair->value_user_string, "mine");
  EXPECT_STREQ(pair->key_nice_name, "Input");
  EXPECT_STREQ(pair->value_nice_name, "Closed");
  EXPECT_STREQ(pair->name_space, "tns1");
  EXPECT_STREQ(pair->complex_type_name, "Port");
  EXPECT_FALSE(pair->key_wildcard);
  EXPECT_FALSE(pair->value_wildcard);
  EXPECT_TRUE(pair->negated);
  EXPECT_FALSE(pair->evaluated);
  EXPECT_FALSE(pair->paired);
}

TEST(KeyValue, CopiesItsTexts) {
  char value[] = "abc";
  const auto pair = new_pair({.value = value});
  value[0] = 'X';
  EXPECT_STREQ(pair->value, "abc");
}

TEST(KeyValue, WithBothWildcardsIsNone) {
  const LogCapture log;
  EXPECT_EQ(new_pair({.key_wildcard = TRUE, .value_wildcard = TRUE}), nullptr);
  EXPECT_EQ(
      new_pair({.key = nullptr, .key_wildcard = TRUE, .value = nullptr, .value_wildcard = TRUE}),
      nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(KeyValue, ForAnyKeyHasTheEmptyKey) {
  for (const char *key : {"Given", "", static_cast<const char *>(nullptr)}) {
    const auto pair = new_pair({.key = key, .key_wildcard = TRUE, .value = "5"});
    EXPECT_NE(pair->key, 0u);
    EXPECT_STREQ(g_quark_to_string(pair->key), "");
    EXPECT_TRUE(pair->key_wildcard);
    EXPECT_STREQ(pair->value, "5");
  }
}

TEST(KeyValue, ForAnyValueHasTheEmptyValueAndIsSettable) {
  for (const char *value : {"abc", static_cast<const char *>(nullptr)}) {
    const auto pair = new_pair({.value = value, .value_wildcard = TRUE});
    EXPECT_STREQ(pair->value, "");
    EXPECT_TRUE(pair->value_wildcard);
    EXPECT_TRUE(pair->value_settable);
  }
}

TEST(KeyValue, KeepsAbsentTextsNull) {
  const auto pair = new_pair({.name_space = nullptr,
                              .key_nice_name = nullptr,
                              .value_nice_name = nullptr,
                              .value_user_string = nullptr,
                              .complex_type_name = nullptr});
  EXPECT_EQ(pair->name_space, nullptr);
  EXPECT_EQ(pair->key_nice_name, nullptr);
  EXPECT_EQ(pair->value_nice_name, nullptr);
  EXPECT_EQ(pair->value_user_string, nullptr);
  EXPECT_EQ(pair->complex_type_name, nullptr);
  const OwnedPair copy{key_value_copy(pair.get())};
  EXPECT_EQ(copy->name_space, nullptr);
  EXPECT_TRUE(key_value_is_equal(pair.get(), copy.get()));
}

TEST(KeyValue, AFlagIsSetOnlyWhenItIsOne) {
  // A 2 does not replace the key or the value.
  EXPECT_STREQ(g_quark_to_string(new_pair({.key = "Kept", .key_wildcard = 2})->key), "Kept");
  EXPECT_STREQ(new_pair({.value = "kept", .value_wildcard = 2})->value, "kept");
  EXPECT_ABORT(new_pair({.key = nullptr, .key_wildcard = 2}), "key_value_new", "key != NULL");
  EXPECT_ABORT(new_pair({.value = nullptr, .value_wildcard = 2}), "key_value_new", "value != NULL");
}

TEST(KeyValue, InsideAnyFlagCounts) {
  const char *expression = "key_wildcard == FALSE || value_wildcard == FALSE";
  EXPECT_ABORT(new_pair({.key_wildcard = 2, .value_wildcard = 1}), "key_value_new_internal",
               expression);
  EXPECT_ABORT(new_pair({.key_wildcard = 1, .value_wildcard = 2}), "key_value_new_internal",
               expression);
}

TEST(KeyValue, NeedsKeyAndValue) {
  EXPECT_ABORT(new_pair({.key = nullptr}), "key_value_new", "key != NULL");
  EXPECT_ABORT(new_pair({.value = nullptr}), "key_value_new", "value != NULL");
  EXPECT_ABORT(new_pair({.key_wildcard = TRUE, .value = nullptr}), "key_value_new",
               "value != NULL");
  EXPECT_ABORT(new_pair({.key = nullptr, .value = nullptr}), "key_value_new", "key != NULL");
}

TEST(KeyValue, FreesNull) {
  key_value_free(nullptr);
  key_value_free_raw(nullptr);
}

TEST(KeyValue, AbortsWithoutAPair) {
  const auto pair = new_pair();
  const auto array = varro2::new_bytes();
  guint32 fail = FALSE;
  guint32 matched = FALSE;
  EXPECT_ABORT(key_value_copy(nullptr), "key_value_copy", "key_value != NULL");
  EXPECT_ABORT(key_value_add_tag(nullptr, "a"), "key_value_add_tag", "key_value != NULL");
  EXPECT_ABORT(key_value_give_tag(nullptr, nullptr), "key_value_give_tag", "key_value != NULL");
  EXPECT_ABORT(key_value_is_equal(nullptr, pair.get()), "key_value_is_equal", "key_value1 != NULL");
  EXPECT_ABORT(key_value_is_equal(pair.get(), nullptr), "key_value_is_equal", "key_value2 != NULL");
  EXPECT_ABORT(key_value_is_contained(pair.get(), nullptr, &fail, &matched),
               "key_value_is_contained", "key_value_containee != NULL");
  EXPECT_ABORT(key_value_is_contained(pair.get(), pair.get(), nullptr, &matched),
               "key_value_is_contained", "fail != NULL");
  EXPECT_ABORT(key_value_is_contained(pair.get(), pair.get(), &fail, nullptr),
               "key_value_is_contained", "matched != NULL");
  EXPECT_ABORT(key_value_serialize(nullptr, array.get()), "key_value_serialize",
               "key_value != NULL");
  EXPECT_ABORT(key_value_serialize(pair.get(), nullptr), "key_value_serialize", "array != NULL");
  EXPECT_ABORT(key_value_serialize_xml(nullptr), "key_value_serialize_xml", "key_value != NULL");
  EXPECT_ABORT(key_value_deserialize_xml(nullptr), "key_value_deserialize_xml", "node != NULL");
  EXPECT_ABORT(key_value_get_raw(nullptr), "key_value_get_raw", "key_value != NULL");
  EXPECT_ABORT(key_value_print(nullptr), "key_value_print", "key_value != NULL");
}

// ---- Tags and copies ----

TEST(KeyValue, AddsATagOnce) {
  const auto pair = new_pair();
  for (const char *tag :
       {"b", "a", "b", static_cast<const char *>(nullptr), "a", static_cast<const char *>(nullptr)})
    key_value_add_tag(pair.get(), tag);
  EXPECT_EQ(texts_of(pair->tags), (Texts{"b", "a", "<NULL>"}));
}

TEST(KeyValue, TakesAGivenTagAsItIs) {
  const auto pair = new_pair();
  char *given = g_strdup("a");
  key_value_add_tag(pair.get(), "a");
  key_value_give_tag(pair.get(), given);
  EXPECT_EQ(texts_of(pair->tags), (Texts{"a", "a"}));
  EXPECT_EQ(g_list_last(pair->tags)->data, given);
}

TEST(KeyValue, CopyHasEverythingAndEachTagOnce) {
  const auto pair = new_pair({.name_space = "n",
                              .key_nice_name = "kn",
                              .value_wildcard = TRUE,
                              .value_nice_name = "vn",
                              .value_user_string = "us",
                              .complex_type_name = "ct",
                              .negated = TRUE});
  pair->value_type = VALUE_TYPE_INT;
  for (const char *tag : {"b", "a", "b"})
    key_value_give_tag(pair.get(), g_strdup(tag));
  const OwnedPair copy{key_value_copy(pair.get())};
  EXPECT_EQ(copy->key, pair->key);
  EXPECT_STREQ(copy->value, "");
  EXPECT_EQ(copy->value_type, 1u);
  EXPECT_TRUE(copy->value_settable);
  EXPECT_TRUE(copy->value_wildcard);
  EXPECT_TRUE(copy->negated);
  EXPECT_STREQ(copy->name_space, "n");
  EXPECT_STREQ(copy->key_nice_name, "kn");
  EXPECT_STREQ(copy->value_nice_name, "vn");
  EXPECT_STREQ(copy->value_user_string, "us");
  EXPECT_STREQ(copy->complex_type_name, "ct");
  EXPECT_EQ(texts_of(copy->tags), (Texts{"b", "a"}));
}

TEST(KeyValue, CopyHoldsToWhatEveryPairHoldsTo) {
  const char *function = "key_value_new_internal";
  const auto keyless = new_pair();
  keyless->key = 0;
  EXPECT_ABORT(key_value_copy(keyless.get()), function, "key != 0");
  const auto valueless = new_pair();
  char *value = std::exchange(valueless->value, nullptr);
  EXPECT_ABORT(key_value_copy(valueless.get()), function, "value != NULL");
  valueless->value = value;
  const auto open = new_pair({.value_wildcard = TRUE});
  open->key_wildcard = 2;
  EXPECT_ABORT(key_value_copy(open.get()), function,
               "key_wildcard == FALSE || value_wildcard == FALSE");
}

// ---- Equality ----

TEST(KeyValue, EqualsItsLike) {
  EXPECT_TRUE(key_value_is_equal(new_pair().get(), new_pair().get()));
}

TEST(KeyValue, DiffersInAnyField) {
  const auto plain = new_pair();
  const PairText others[] = {
      {.key = "L"},
      {.name_space = "n"},
      {.key = "K", .key_wildcard = TRUE},
      {.value_wildcard = TRUE},
      {.negated = TRUE},
      {.value = "2"},
      {.key_nice_name = "n"},
      {.value_nice_name = "n"},
      {.value_user_string = "n"},
      {.complex_type_name = "n"},
  };
  for (const PairText &other : others)
    EXPECT_FALSE(key_value_is_equal(plain.get(), new_pair(other).get()));
  const auto typed = new_pair();
  typed->value_type = VALUE_TYPE_INT;
  EXPECT_FALSE(key_value_is_equal(plain.get(), typed.get()));
  const auto tagged = new_pair();
  key_value_add_tag(tagged.get(), "a");
  EXPECT_FALSE(key_value_is_equal(plain.get(), tagged.get()));
}

TEST(KeyValue, AnAbsentTextIsNoEmptyOne) {
  const PairText absents[] = {
      {.name_space = nullptr},        {.key_nice_name = nullptr},     {.value_nice_name = nullptr},
      {.value_user_string = nullptr}, {.complex_type_name = nullptr},
  };
  const auto plain = new_pair();
  for (const PairText &text : absents) {
    const auto absent = new_pair(text);
    EXPECT_FALSE(key_value_is_equal(plain.get(), absent.get()));
    EXPECT_FALSE(key_value_is_equal(absent.get(), plain.get()));
    EXPECT_TRUE(key_value_is_equal(absent.get(), new_pair(text).get()));
  }
}

TEST(KeyValue, ComparesTagsInAnyOrder) {
  const auto one = new_pair();
  const auto other = new_pair();
  for (const char *tag : {"a", "b", "a"})
    key_value_give_tag(one.get(), g_strdup(tag));
  for (const char *tag : {"b", "a", "a"})
    key_value_give_tag(other.get(), g_strdup(tag));
  EXPECT_TRUE(key_value_is_equal(one.get(), other.get()));
}

TEST(KeyValue, EqualityDoesNotLookAtMarksAndSettable) {
  const auto one = new_pair();
  one->value_settable = TRUE;
  one->evaluated = TRUE;
  one->paired = TRUE;
  EXPECT_TRUE(key_value_is_equal(one.get(), new_pair().get()));
}

// ---- One step of matching ----

enum class Step { nothing, matched, failed };

std::ostream &operator<<(std::ostream &out, Step step) {
  return out << (step == Step::nothing ? "nothing" : step == Step::matched ? "matched" : "failed");
}

Step step(const KeyValue *container, const KeyValue *containee) {
  guint32 fail = FALSE;
  guint32 matched = FALSE;
  key_value_is_contained(container, containee, &fail, &matched);
  EXPECT_FALSE(fail && matched);
  return fail ? Step::failed : matched ? Step::matched : Step::nothing;
}
Step step(const PairText &container, const PairText &containee) {
  return step(new_pair(container).get(), new_pair(containee).get());
}

TEST(KeyValueStep, NeedsTheKeyForAPlainTestOnly) {
  EXPECT_EQ(step(nullptr, new_pair().get()), Step::failed);
  EXPECT_EQ(step(nullptr, new_pair({.value_wildcard = TRUE}).get()), Step::failed);
  EXPECT_EQ(step(nullptr, new_pair({.negated = TRUE}).get()), Step::nothing);
  EXPECT_EQ(step(nullptr, new_pair({.value_wildcard = TRUE, .negated = TRUE}).get()),
            Step::nothing);
}

TEST(KeyValueStep, ComparesPlainValues) {
  EXPECT_EQ(step({.value = "1"}, {.value = "1"}), Step::matched);
  EXPECT_EQ(step({.value = "1"}, {.value = "2"}), Step::failed);
  EXPECT_EQ(step({.value = "1"}, {.value = "1.0"}), Step::failed);
  EXPECT_EQ(step({.value_wildcard = TRUE}, {.value = "2"}), Step::matched);
  EXPECT_EQ(step({.value = "1"}, {.value_wildcard = TRUE}), Step::matched);
  EXPECT_EQ(step({.value_wildcard = TRUE}, {.value_wildcard = TRUE}), Step::matched);
}

TEST(KeyValueStep, BothNegatedDecidesNothing) {
  for (const bool container_open : {false, true})
    for (const bool containee_open : {false, true})
      for (const char *value : {"1", "2"})
        EXPECT_EQ(step({.value_wildcard = container_open, .negated = TRUE},
                       {.value = value, .value_wildcard = containee_open, .negated = TRUE}),
                  Step::nothing);
}

TEST(KeyValueStep, OneNegated) {
  struct Case {
    PairText negative;
    PairText positive;
    Step expected;
  };
  const Case cases[] = {
      {{.value_wildcard = TRUE, .negated = TRUE}, {.value = "1"}, Step::failed},
      {{.value_wildcard = TRUE, .negated = TRUE}, {.value_wildcard = TRUE}, Step::failed},
      {{.value = "1", .negated = TRUE}, {.value_wildcard = TRUE}, Step::nothing},
      {{.value = "", .negated = TRUE}, {.value_wildcard = TRUE}, Step::nothing},
      {{.value = "1", .negated = TRUE}, {.value = "1"}, Step::failed},
      {{.value = "1", .negated = TRUE}, {.value = "2"}, Step::nothing},
  };
  for (const auto &[negative, positive, expected] : cases) {
    EXPECT_EQ(step(positive, negative), expected);
    EXPECT_EQ(step(negative, positive), expected);
  }
}

TEST(KeyValueStep, AnEmptyNameSpaceOfTheTestFitsAny) {
  EXPECT_EQ(step({.name_space = "tns1"}, {.name_space = ""}), Step::matched);
  EXPECT_EQ(step({.name_space = ""}, {.name_space = "tns1"}), Step::failed);
  EXPECT_EQ(step({.name_space = "tns1"}, {.name_space = "tns1"}), Step::matched);
  EXPECT_EQ(step({.name_space = "tns2"}, {.name_space = "tns1"}), Step::failed);
  // Also for a negated test, which the value alone would let pass, and for two negated ones.
  EXPECT_EQ(step({.value = "1"}, {.name_space = "tns1", .value = "2", .negated = TRUE}),
            Step::failed);
  EXPECT_EQ(step({.negated = TRUE}, {.name_space = "tns1", .negated = TRUE}), Step::failed);
}

TEST(KeyValueStep, ComparesTextsWhateverTheType) {
  const auto container = new_pair({.value = "1"});
  container->value_type = VALUE_TYPE_INT;
  EXPECT_EQ(step(container.get(), new_pair({.value = "1"}).get()), Step::matched);
}

TEST(KeyValueStep, ClearsNothing) {
  guint32 fail = 7;
  guint32 matched = 7;
  const auto one = new_pair();
  const auto negated = new_pair({.value = "2", .negated = TRUE});
  key_value_is_contained(one.get(), negated.get(), &fail, &matched);
  EXPECT_EQ(std::tuple(fail, matched), std::tuple(7u, 7u));
  key_value_is_contained(one.get(), one.get(), &fail, &matched);
  EXPECT_EQ(std::tuple(fail, matched), std::tuple(7u, guint32{TRUE}));
  key_value_is_contained(nullptr, one.get(), &fail, &matched);
  EXPECT_EQ(std::tuple(fail, matched), std::tuple(guint32{TRUE}, guint32{TRUE}));
}

TEST(KeyValueStep, IsNoneForAnyKey) {
  const char *expression =
      "key_value_container->key_wildcard == FALSE && key_value_containee->key_wildcard == FALSE";
  EXPECT_ABORT(step({.key_wildcard = TRUE}, {}), "key_value_is_contained", expression);
  EXPECT_ABORT(step({}, {.key_wildcard = TRUE}), "key_value_is_contained", expression);
}

// ---- Record ----

// K = "1", with nothing else.
const Bytes plain_record{
    0xF5,         // pair
    1,    0, 'K', // key
    0,            // for any key
    0,    0,      // name space
    0,    0,      // key nice name
    1,    0, '1', // value
    0,            // for any value
    0,    0,      // value nice name
    0,    0,      // value user string
    0,    0,      // complex type name
    0,            // negated
    4,            // value type
    0,    0,      // tags
};

const Bytes full_record{
    0xF5,                                       // pair
    7,    0, 'T', 'r', 'i', 'g', 'g', 'e', 'r', // key
    0,                                          // for any key
    4,    0, 't', 'n', 's', '1',                // name space
    2,    0, 'k', 'n',                          // key nice name
    0,    0,                                    // value
    1,                                          // for any value
    2,    0, 'v', 'n',                          // value nice name
    3,    0, 'u', 's', 'r',                     // value user string
    2,    0, 'c', 't',                          // complex type name
    1,                                          // negated
    1,                                          // value type
    2,    0,                                    // tags
    1,    0, 'b', 2,   0,   'a', 'a',
};

OwnedPair full_pair() {
  auto pair = new_pair({.key = "Trigger",
                        .name_space = "tns1",
                        .key_nice_name = "kn",
                        .value_wildcard = TRUE,
                        .value_nice_name = "vn",
                        .value_user_string = "usr",
                        .complex_type_name = "ct",
                        .negated = TRUE});
  pair->value_type = VALUE_TYPE_INT;
  key_value_add_tag(pair.get(), "b");
  key_value_add_tag(pair.get(), "aa");
  return pair;
}

TEST(KeyValueRecord, IsWrittenFieldByField) {
  EXPECT_EQ(record_of(new_pair().get()), plain_record);
  EXPECT_EQ(record_of(full_pair().get()), full_record);
}

TEST(KeyValueRecord, ForAnyKeyHasTheEmptyKey) {
  const auto pair = new_pair({.key_wildcard = TRUE, .value = "5"});
  EXPECT_EQ(record_of(pair.get()),
            (Bytes{0xF5, 0, 0, 1, 0, 0, 0, 0, 1, 0, '5', 0, 0, 0, 0, 0, 0, 0, 0, 4, 0, 0}));
}

TEST(KeyValueRecord, IsAppended) {
  const auto array = array_of({1, 2, 3});
  key_value_serialize(new_pair().get(), array.get());
  EXPECT_EQ(bytes_of(array), Bytes({1, 2, 3}) + plain_record);
}

TEST(KeyValueRecord, IsReadAtTheIndexWhichMovesPastIt) {
  const auto array = array_of(Bytes{9, 9} + full_record + Bytes{9});
  guint32 at = 2;
  const OwnedPair pair{key_value_deserialize(array.get(), &at)};
  EXPECT_EQ(at, 2 + full_record.size());
  EXPECT_TRUE(key_value_is_equal(pair.get(), full_pair().get()));
  EXPECT_TRUE(pair->value_settable);
  EXPECT_EQ(texts_of(pair->tags), (Texts{"b", "aa"}));
}

TEST(KeyValueRecord, SettableIsWhatTheWildcardWas) {
  EXPECT_FALSE(read_pair(plain_record)->value_settable);
}

TEST(KeyValueRecord, KeepsTheSameTagTwice) {
  Bytes record = plain_record;
  record[record.size() - 2] = 2;
  record = record + Bytes{1, 0, 'a', 1, 0, 'a'};
  EXPECT_EQ(texts_of(read_pair(record)->tags), (Texts{"a", "a"}));
}

TEST(KeyValueRecord, IgnoresTheValueOfAnOpenPair) {
  Bytes record = plain_record;
  record[12] = 1; // any value
  EXPECT_STREQ(read_pair(record)->value, "");
}

TEST(KeyValueRecord, ThatIsBrokenAborts) {
  const auto read = [](Bytes record) { read_pair(record); };
  Bytes record = plain_record;
  record[0] = 0xF4;
  EXPECT_ABORT(read(record), "key_value_deserialize", "type == SERIALIZE_ID_KEYVALUE");
  record = plain_record;
  record[4] = 1;
  record[12] = 1;
  EXPECT_ABORT(read(record), "key_value_deserialize", "key_value != NULL");
  record[12] = 2;
  EXPECT_ABORT(read(record), "key_value_new_internal",
               "key_wildcard == FALSE || value_wildcard == FALSE");
  record = plain_record;
  record[1] = 200;
  EXPECT_ABORT(read(record), "deserialize_string", "array->len >= *indx + length");
  record = plain_record;
  record[record.size() - 2] = 1;
  EXPECT_ABORT(read(record), "deserialize_size", "array->len >= *indx + size");
  EXPECT_ABORT(read({}), "deserialize_size", "array->len >= *indx + size");
  guint32 at = 0;
  EXPECT_ABORT(key_value_deserialize(nullptr, &at), "key_value_deserialize", "array != NULL");
  EXPECT_ABORT(key_value_deserialize(varro2::new_bytes().get(), nullptr), "key_value_deserialize",
               "indx != NULL");
}

// Whether the first thing that is missing of the record is in the bytes of a text.
bool lacks_text(std::size_t length) {
  constexpr std::size_t text = 0; // else so many bytes of a number
  std::size_t at = 0;
  for (const std::size_t field :
       {std::size_t{1}, text, std::size_t{1}, text, text, text, std::size_t{1}, text, text, text,
        std::size_t{1}, std::size_t{1}, std::size_t{2}, text, text}) {
    const std::size_t number = field == text ? 2 : field;
    if (at + number > length)
      return false;
    at += number + (field == text ? full_record[at] : 0);
    if (at > length)
      return true;
  }
  return false;
}

TEST(KeyValueRecord, EveryShorterOneAborts) {
  for (std::size_t length = 0; length < full_record.size(); ++length) {
    SCOPED_TRACE(length);
    const Bytes cut{full_record.begin(), full_record.begin() + std::ptrdiff_t(length)};
    if (lacks_text(length))
      EXPECT_ABORT(read_pair(cut), "deserialize_string", "array->len >= *indx + length");
    else
      EXPECT_ABORT(read_pair(cut), "deserialize_size", "array->len >= *indx + size");
  }
}

// What comes first in the record is said, although more is wrong behind it.
TEST(KeyValueRecord, ThatIsBrokenTwiceAbortsAtTheFirstFault) {
  const auto read = [](Bytes record) { read_pair(record); };
  Bytes record = plain_record;
  record[0] = 0xF4;
  record[1] = 200;
  EXPECT_ABORT(read(record), "key_value_deserialize", "type == SERIALIZE_ID_KEYVALUE");
  record = plain_record;
  record[4] = 1;
  record[12] = 1;
  record.resize(record.size() - 3); // without value type
  EXPECT_ABORT(read(record), "key_value_deserialize", "key_value != NULL");
  record.pop_back(); // nor negation
  EXPECT_ABORT(read(record), "deserialize_size", "array->len >= *indx + size");
}

TEST(KeyValueRecord, NeedsEveryText) {
  const auto array = varro2::new_bytes();
  const PairText lacking[] = {{.name_space = nullptr},
                              {.key_nice_name = nullptr},
                              {.value_nice_name = nullptr},
                              {.value_user_string = nullptr},
                              {.complex_type_name = nullptr}};
  for (const PairText &text : lacking)
    EXPECT_ABORT(key_value_serialize(new_pair(text).get(), array.get()), "serialize_string",
                 "string != NULL");
}

// ---- XML ----

TEST(KeyValueXml, WritesWhatIsThereInOrder) {
  EXPECT_EQ(outline(OwnedNode{key_value_serialize_xml(new_pair().get())}.get()),
            "keyvalue key=K value=1");
  const auto pair = new_pair({.key = "Trigger",
                              .name_space = "tns1",
                              .key_nice_name = "kn",
                              .value = "7",
                              .value_nice_name = "vn",
                              .value_user_string = "us",
                              .complex_type_name = "ct",
                              .negated = TRUE});
  pair->value_type = VALUE_TYPE_INT;
  key_value_add_tag(pair.get(), "b");
  key_value_add_tag(pair.get(), "a");
  EXPECT_EQ(outline(OwnedNode{key_value_serialize_xml(pair.get())}.get()),
            "keyvalue key=Trigger name-space=tns1 complex-type-name=ct key-nice-name=kn value=7 "
            "value-nice-name=vn value-user-string=us not=true value-type=int (tag tag=b) "
            "(tag tag=a)");
}

TEST(KeyValueXml, WildcardsHaveNoText) {
  EXPECT_EQ(outline(OwnedNode{
                key_value_serialize_xml(new_pair({.key_wildcard = TRUE, .value = "5"}).get())}
                        .get()),
            "keyvalue key-wildcard=true value=5");
  EXPECT_EQ(
      outline(OwnedNode{key_value_serialize_xml(new_pair({.value_wildcard = TRUE}).get())}.get()),
      "keyvalue key=K value-wildcard=true");
}

TEST(KeyValueXml, ReadsEverything) {
  const auto node = parse("<keyvalue key='Trigger' name-space='tns1' complex-type-name='ct'"
                          " key-nice-name='kn' value-wildcard='TRUE' value='gone'"
                          " value-nice-name='vn' value-user-string='usr' not='true'"
                          " value-type='Integer'><tag tag='b'/><other tag='x'/><tag tag='aa'/>"
                          "<tag tag='b'/></keyvalue>");
  const OwnedPair pair{key_value_deserialize_xml(node.get())};
  EXPECT_TRUE(key_value_is_equal(pair.get(), full_pair().get()));
  EXPECT_TRUE(pair->value_settable);
  EXPECT_EQ(texts_of(pair->tags), (Texts{"b", "aa"}));
}

TEST(KeyValueXml, AbsentIsEmpty) {
  const auto node = parse("<keyvalue/>");
  const OwnedPair pair{key_value_deserialize_xml(node.get())};
  EXPECT_TRUE(key_value_is_equal(pair.get(), new_pair({.key = "", .value = ""}).get()));
  const OwnedPair any_key{
      key_value_deserialize_xml(parse("<keyvalue key='x' key-wildcard='true' value='5'/>").get())};
  EXPECT_TRUE(
      key_value_is_equal(any_key.get(), new_pair({.key_wildcard = TRUE, .value = "5"}).get()));
}

TEST(KeyValueXml, BothWildcardsGiveNothingAndSayNothing) {
  const auto node = parse("<keyvalue key-wildcard='true' value-wildcard='true'/>");
  const LogCapture log;
  EXPECT_EQ(key_value_deserialize_xml(node.get()), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST(KeyValueXml, AnotherElementIsRefused) {
  const auto node = parse("<KeyValue key='K'/>");
  const LogCapture log;
  EXPECT_EQ(key_value_deserialize_xml(node.get()), nullptr);
  EXPECT_EQ(log.lines(),
            (std::vector<LogLine>{
                {G_LOG_LEVEL_WARNING, "", "Expected xml tag 'keyvalue' but got 'KeyValue'"}}));
}

TEST(KeyValueXml, ComesBackAsItWas) {
  const auto pair = full_pair();
  const OwnedNode node{key_value_serialize_xml(pair.get())};
  const OwnedPair read{key_value_deserialize_xml(node.get())};
  EXPECT_TRUE(key_value_is_equal(read.get(), pair.get()));
}

// ---- Plain copy ----

TEST(KeyValueRaw, HoldsTheTextsAndTheTagsBackwards) {
  const auto pair = new_pair({.name_space = "n", .complex_type_name = "ct", .negated = TRUE});
  key_value_add_tag(pair.get(), "a");
  key_value_add_tag(pair.get(), "b");
  const OwnedRawPair raw{key_value_get_raw(pair.get())};
  EXPECT_STREQ(raw->key, "K");
  EXPECT_STREQ(raw->value, "1");
  EXPECT_STREQ(raw->name_space, "n");
  EXPECT_STREQ(raw->complex_type_name, "ct");
  EXPECT_TRUE(raw->negated);
  EXPECT_EQ(texts_of(raw->tags), (Texts{"b", "a"}));
  EXPECT_NE(raw->value, pair->value);
}

TEST(KeyValueRaw, HasNullForWhatIsAbsent) {
  const OwnedRawPair plain{key_value_get_raw(new_pair({.value = ""}).get())};
  EXPECT_STREQ(plain->value, "");
  EXPECT_EQ(plain->name_space, nullptr);
  EXPECT_EQ(plain->complex_type_name, nullptr);
  EXPECT_FALSE(plain->negated);
  EXPECT_EQ(plain->tags, nullptr);
  EXPECT_EQ(
      OwnedRawPair { key_value_get_raw(new_pair({.key_wildcard = TRUE}).get()) } -> key, nullptr);
  EXPECT_EQ(
      OwnedRawPair { key_value_get_raw(new_pair({.value_wildcard = TRUE}).get()) } -> value,
      nullptr);
}

// ---- Print ----

std::string printed(const OwnedPair &pair) {
  const LogCapture log;
  key_value_print(pair.get());
  const auto lines = log.lines();
  EXPECT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines.at(0).level, G_LOG_LEVEL_MESSAGE);
  EXPECT_EQ(lines.at(0).domain, "");
  return lines.at(0).text;
}

TEST(KeyValuePrint, ShowsWhatIsThere) {
  const auto pair = new_pair({.key = "Trigger",
                              .name_space = "tns1",
                              .key_nice_name = "Input",
                              .value = "x",
                              .negated = TRUE});
  key_value_add_tag(pair.get(), "a");
  EXPECT_EQ(printed(pair), "[tns1:Trigger (Input) != 'x'] {a}");
  EXPECT_EQ(printed(new_pair()), "[K = '1']");
  EXPECT_EQ(printed(new_pair({.key_wildcard = TRUE, .name_space = "unseen"})), "[* = '1']");
  EXPECT_EQ(printed(new_pair({.value_wildcard = TRUE})), "[K = '*']");
  EXPECT_EQ(printed(new_pair({.complex_type_name = "Port", .negated = TRUE})), "[K {Port} != '1']");
  EXPECT_EQ(printed(new_pair({.value_user_string = "unseen"})), "[K = '1']");
  const auto full = new_pair({.name_space = "n",
                              .key_nice_name = "%s",
                              .value = "%d",
                              .value_nice_name = "vn",
                              .complex_type_name = "ct"});
  key_value_add_tag(full.get(), "a");
  key_value_add_tag(full.get(), "b");
  EXPECT_EQ(printed(full), "[n:K (%s) {ct} = '%d' (vn)] {a} {b}");
}

TEST(KeyValuePrint, TakesNullForEmpty) {
  EXPECT_EQ(printed(new_pair({.name_space = nullptr,
                              .key_nice_name = nullptr,
                              .value_nice_name = nullptr,
                              .value_user_string = nullptr,
                              .complex_type_name = nullptr})),
            "[K = '1']");
}

} // namespace
