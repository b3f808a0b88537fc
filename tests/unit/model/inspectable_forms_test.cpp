// The container's forms: record, XML, log lines, plain copy.
#include "modeltest.hpp"

#include <varro2/serialize.h>

using namespace varro2::test;

namespace {

// The record of a pair with a one-letter key and value and nothing else.
Bytes pair_record(char key, char value, bool negated = false) {
  return {0xF5,
          1,
          0,
          guint8(key),
          0, // key, for any key
          0,
          0,
          0,
          0, // name space, key nice name
          1,
          0,
          guint8(value),
          0, // value, for any value
          0,
          0,
          0,
          0,
          0,
          0, // value nice name, user string, complex type name
          guint8(negated),
          4,
          0,
          0}; // negated, value type, tags
}
// The same for any key.
Bytes any_key_record(char value, bool negated = false) {
  return {0xF5, 0, 0, 1, 0, 0, 0, 0, 1, 0, guint8(value), 0, 0, 0, 0, 0, 0, 0, guint8(negated),
          4,    0, 0};
}

// ---- Record ----

TEST(InspectableRecord, OfAnEmptyContainer) {
  for (guint8 type = 0; type <= 3; ++type)
    EXPECT_EQ(record_of(new_inspectable(type)),
              (Bytes{0xF2, 1, 0, type, 0, 0xF3, 0, 0, 0, 0, 0, 0}));
}

TEST(InspectableRecord, OfAnEvent) {
  const auto event = new_inspectable(IT_EVENT);
  add(event, "A", "1");
  add(event, "B", "2");
  inspectable_set_internal(event.get(), TRUE);
  inspectable_add_tag(event.get(), "t");
  inspectable_add_tag(event.get(), "uu");
  const Bytes expected = Bytes{0xF2, 1, 0, 1, 1, // and-lists, type, internal
                               0xF3, 2, 0} +     // and-list: buckets of keys
                         Bytes{0xF4, 1, 0} +
                         pair_record('A', '1') + Bytes{0xF4, 1, 0} + pair_record('B', '2') +
                         Bytes{0, 0} + // buckets of tests for any key
                         Bytes{2, 0, 1, 0, 't', 2, 0, 'u', 'u'};
  EXPECT_EQ(record_of(event), expected);
  const auto read = read_inspectable(expected);
  EXPECT_TRUE(inspectable_is_equal(read.get(), event.get()));
  EXPECT_EQ(take_texts(inspectable_get_tags(read.get())), (Texts{"uu", "t"}));
  EXPECT_TRUE(inspectable_get_internal(read.get()));
  EXPECT_STREQ(inspectable_get_key_at(read.get(), 0), "A");
  EXPECT_STREQ(inspectable_get_key_at(read.get(), 1), "B");
}

const Bytes expression_record =
    Bytes{0xF2, 2, 0, 2, 0} +
    // (A = 1 and A not 2 and any key = 5 and any key not 5, not 6)
    Bytes{0xF3, 1, 0, 0xF4, 2, 0} + pair_record('A', '1') + pair_record('A', '2', true) +
    Bytes{2, 0, 0xF4, 2, 0} + any_key_record('5') + any_key_record('5', true) + Bytes{0xF4, 1, 0} +
    any_key_record('6', true) +
    // or (B = 3)
    Bytes{0xF3, 1, 0, 0xF4, 1, 0} + pair_record('B', '3') + Bytes{0, 0} + Bytes{0, 0};

OwnedInspectable expression() {
  auto inspect = new_inspectable(IT_SUBSCRIBE_EXPRESSION);
  add(inspect, "A", "1");
  add_for_any_key(inspect, "5");
  add_negated(inspect, "A", "2");
  add_for_any_key(inspect, "6", TRUE);
  add_for_any_key(inspect, "5", TRUE);
  inspectable_or(inspect.get());
  add(inspect, "B", "3");
  return inspect;
}

TEST(InspectableRecord, OfASubscribeExpression) {
  EXPECT_EQ(record_of(expression()), expression_record);
  const auto read = read_inspectable(expression_record);
  EXPECT_EQ(record_of(read), expression_record);
  EXPECT_TRUE(inspectable_is_equal(read.get(), expression().get()));
  // The last and-list became the current one.
  EXPECT_STREQ(inspectable_get_value(read.get(), "B"), "3");
  EXPECT_EQ(inspectable_get_value(read.get(), "A"), nullptr);
}

TEST(InspectableRecord, IsAppendedAndReadAtTheIndex) {
  const auto array = array_of({7, 7, 7});
  inspectable_serialize_internal(expression().get(), array.get());
  EXPECT_EQ(bytes_of(array), Bytes({7, 7, 7}) + expression_record);
  g_byte_array_append(array.get(), expression_record.data(), 5);
  guint32 at = 3;
  const OwnedInspectable read{inspectable_deserialize_internal(array.get(), &at)};
  EXPECT_EQ(at, 3 + expression_record.size());
  EXPECT_EQ(record_of(read), expression_record);
}

TEST(InspectableRecord, OfManyKeysComesBack) {
  const auto event = new_inspectable(IT_EVENT);
  for (int number = 0; number < 300; ++number)
    add(event, ("key" + std::to_string(number)).c_str(), std::to_string(number).c_str());
  const auto read = read_inspectable(record_of(event));
  EXPECT_TRUE(inspectable_is_equal(read.get(), event.get()));
  for (guint32 number = 0; number < 300; ++number) {
    const std::string key = "key" + std::to_string(number);
    EXPECT_EQ(inspectable_get_index(read.get(), key.c_str()), number);
    EXPECT_EQ(inspectable_get_value(read.get(), key.c_str()), std::to_string(number));
  }
}

TEST(InspectableRecord, OpenKeysReadBackCanBeSet) {
  const auto event = new_inspectable(IT_EVENT);
  add_open(event, "A");
  const auto read = read_inspectable(record_of(event));
  EXPECT_FALSE(inspectable_has_value_at(read.get(), 0));
  EXPECT_TRUE(inspectable_set_value_as_string(read.get(), "A", "a text of more than 16 bytes"));
  EXPECT_STREQ(inspectable_get_value_at(read.get(), 0), "a text of more than 16 bytes");
  // A value that was set travels as a fixed one.
  const auto sent = read_inspectable(record_of(read));
  EXPECT_FALSE(inspectable_set_value_as_string(sent.get(), "A", "x"));
}

TEST(InspectableRecord, ADeclarationReadBackShowsNoPositionsUntilAKeyIsAdded) {
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  add(declaration, "A", "1");
  inspectable_add_key_tag(declaration.get(), "A", "tag");
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(declaration.get(), "tag"));
  const auto read = read_inspectable(record_of(declaration));
  EXPECT_FALSE(inspectable_has_keyvalue_with_tag(read.get(), "tag"));
  EXPECT_STREQ(inspectable_get_value(read.get(), "A"), "1");
  EXPECT_EQ(texts_of(inspectable_get_key_value(read.get(), "A")->tags), (Texts{"tag"}));
  EXPECT_TRUE(inspectable_is_equal(read.get(), declaration.get()));
  // Setting is no structural change.
  inspectable_set_name_space(read.get(), "A", "n");
  inspectable_add_key_tag(read.get(), "A", "other");
  EXPECT_FALSE(inspectable_has_keyvalue_with_tag(read.get(), "tag"));
  // A copy looks at its keys anew.
  const OwnedInspectable copy{inspectable_copy(read.get(), IT_EVENT_DECLARATION)};
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(copy.get(), "tag"));
  const OwnedInspectable event{inspectable_copy(read.get(), IT_EVENT)};
  EXPECT_EQ(inspectable_get_key_count(event.get()), 1u);
  add(read, "B", "2");
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(read.get(), "tag"));
}

TEST(InspectableRecord, WithoutAndLists) {
  const Bytes record{0xF2, 0, 0, 2, 0, 0, 0};
  const auto read = read_inspectable(record);
  EXPECT_EQ(record_of(read), record);
  const OwnedInspectable copy{inspectable_copy(read.get(), IT_SUBSCRIBE_EXPRESSION)};
  EXPECT_EQ(record_of(copy), record);
  EXPECT_ABORT(add(read, "A", "1"), "inspectable_add_key_value_internal", "and_list != NULL");
  inspectable_or(read.get());
  add(read, "A", "1");
  EXPECT_STREQ(inspectable_get_value(read.get(), "A"), "1");
}

TEST(InspectableRecord, ABucketOfTheSameKeyTakesThePlaceOfTheFormer) {
  const auto read =
      read_inspectable(Bytes{0xF2, 1, 0, 1, 0, 0xF3, 3, 0} + Bytes{0xF4, 1, 0} +
                       pair_record('A', '1') + Bytes{0xF4, 1, 0} + pair_record('B', '2') +
                       Bytes{0xF4, 1, 0} + pair_record('A', '3') + Bytes{0, 0, 0, 0});
  EXPECT_EQ(inspectable_get_key_count(read.get()), 2u);
  EXPECT_STREQ(inspectable_get_value(read.get(), "A"), "3");
}

TEST(InspectableRecord, ThatIsBrokenAborts) {
  const auto read = [](Bytes record) { read_inspectable(record); };
  const Bytes good =
      Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 1, 0} + pair_record('A', '1') + Bytes{0, 0, 0, 0};
  read(good);
  Bytes record = good;
  record[0] = 0xF1;
  EXPECT_ABORT(read(record), "inspectable_deserialize_internal",
               "type == SERIALIZE_ID_INSPECTABLE");
  record = good;
  record[3] = 4;
  EXPECT_DEATH(read(record), ":inspectable_deserialize_internal: assertion failed");
  record = good;
  record[5] = 0xF4;
  EXPECT_DEATH(read(record), "assertion failed: \\(type == SERIALIZE_ID_ANDLIST\\)");
  record = good;
  record[8] = 0xF5;
  EXPECT_DEATH(read(record), "assertion failed: \\(type == SERIALIZE_ID_BUCKET\\)");
  record = good;
  record[11] = 0xF6;
  EXPECT_ABORT(read(record), "key_value_deserialize", "type == SERIALIZE_ID_KEYVALUE");
  record = Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 2, 0} + pair_record('A', '1') +
           pair_record('B', '1') + Bytes{0, 0, 0, 0};
  EXPECT_DEATH(read(record), "assertion failed: \\(bucket->key == key_value->key\\)");
  record = Bytes{0xF2, 1, 0, 1, 0, 0xF3, 1, 0, 0xF4, 0, 0, 0, 0, 0, 0};
  EXPECT_DEATH(read(record), "assertion failed: \\(bucket->key_value_list != NULL\\)");
  for (std::size_t length = 0; length < good.size(); ++length)
    EXPECT_DEATH(read({good.begin(), good.begin() + std::ptrdiff_t(length)}),
                 "assertion failed: \\(array->len >= \\*indx \\+ (size|length)\\)");
}

TEST(InspectableRecord, AbortsWithoutItsArguments) {
  guint32 at = 0;
  const auto array = varro2::new_bytes();
  EXPECT_ABORT(inspectable_serialize_internal(nullptr, array.get()),
               "inspectable_serialize_internal", "inspect != NULL");
  EXPECT_ABORT(inspectable_serialize_internal(new_inspectable(IT_EVENT).get(), nullptr),
               "inspectable_serialize_internal", "array != NULL");
  EXPECT_ABORT(inspectable_deserialize_internal(nullptr, &at), "inspectable_deserialize_internal",
               "array != NULL");
  EXPECT_ABORT(inspectable_deserialize_internal(array.get(), nullptr),
               "inspectable_deserialize_internal", "indx != NULL");
}

// ---- XML ----

std::string xml_outline(const OwnedInspectable &inspect) {
  return outline(OwnedNode{inspectable_serialize_xml(inspect.get())}.get());
}

TEST(InspectableXml, HasAnExpressionForEachAndListThenTheTags) {
  EXPECT_EQ(xml_outline(expression()),
            "<unnamed> (expression (keyvalue key=A value=1) (keyvalue key=A value=2 not=true) "
            "(keyvalue key-wildcard=true value=5) (keyvalue key-wildcard=true value=5 not=true) "
            "(keyvalue key-wildcard=true value=6 not=true)) "
            "(expression (keyvalue key=B value=3))");
  const auto declaration = new_inspectable(IT_EVENT_DECLARATION);
  add_open(declaration, "A");
  inspectable_add_tag(declaration.get(), "x");
  inspectable_add_tag(declaration.get(), "y");
  EXPECT_EQ(xml_outline(declaration),
            "<unnamed> (expression (keyvalue key=A value-wildcard=true)) (tag tag=x) (tag tag=y)");
  EXPECT_EQ(xml_outline(new_inspectable(IT_EVENT)), "<unnamed> (expression)");
}

OwnedInspectable from_xml(const char *xml, guint32 type) {
  return OwnedInspectable{inspectable_deserialize_xml(parse(xml).get(), type)};
}

TEST(InspectableXml, ComesBack) {
  const OwnedNode node{inspectable_serialize_xml(expression().get())};
  const OwnedInspectable read{inspectable_deserialize_xml(node.get(), IT_SUBSCRIBE_EXPRESSION)};
  EXPECT_EQ(record_of(read), expression_record);
}

TEST(InspectableXml, ReadsADeclaration) {
  const auto read = from_xml("<declaration>"
                             "<tag tag='first'/>"
                             "<expression>"
                             "<keyvalue key='A' value='1'/>"
                             "<keyvalue key='B' value-wildcard='true' value-type='int'"
                             " key-nice-name='kn'><tag tag='t'/><tag tag='t'/></keyvalue>"
                             "<keyvalue key='A' value='3'/>"
                             "</expression>"
                             "<tag tag='second'/><tag/>"
                             "</declaration>",
                             IT_EVENT_DECLARATION);
  ASSERT_TRUE(read);
  EXPECT_STREQ(inspectable_get_value(read.get(), "A"), "3");
  const KeyValue *b = inspectable_get_key_value(read.get(), "B");
  EXPECT_EQ(b->value_type, 1u);
  EXPECT_STREQ(b->key_nice_name, "kn");
  EXPECT_TRUE(b->value_settable);
  EXPECT_EQ(texts_of(b->tags), (Texts{"t"}));
  EXPECT_EQ(take_texts(inspectable_get_tags(read.get())), (Texts{"", "second", "first"}));
  EXPECT_TRUE(inspectable_has_keyvalue_with_tag(read.get(), "t"));
  const OwnedInspectable event{inspectable_copy(read.get(), IT_EVENT)};
  EXPECT_STREQ(inspectable_get_key_at(event.get(), 0), "A");
  EXPECT_EQ(inspectable_get_key_count(event.get()), 2u);
}

TEST(InspectableXml, ARepeatedKeyJoinsItsBucketElsewhere) {
  const char *xml = "<x><expression><keyvalue key='A' value='1'/><keyvalue key='A' value='2'/>"
                    "</expression></x>";
  for (const guint32 type : {IT_EVENT, IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE}) {
    const auto read = from_xml(xml, type);
    EXPECT_STREQ(inspectable_get_value(read.get(), "A"), "1");
    const Bytes record = record_of(read);
    EXPECT_EQ((Bytes{record.begin() + 5, record.begin() + 11}), (Bytes{0xF3, 1, 0, 0xF4, 2, 0}));
  }
}

TEST(InspectableXml, AnEmptyExpressionIsAnEmptyAndList) {
  const auto read = from_xml("<x><expression/><expression/></x>", IT_SUBSCRIBE_EXPRESSION);
  EXPECT_EQ(record_of(read), (Bytes{0xF2, 2, 0, 2, 0, 0xF3, 0, 0, 0, 0, 0xF3, 0, 0, 0, 0, 0, 0}));
  // The container has its and-list also when there is none in the XML.
  const auto tagged = from_xml("<x><tag tag='t'/></x>", IT_EVENT_DECLARATION);
  EXPECT_EQ(record_of(tagged), (Bytes{0xF2, 1, 0, 0, 0, 0xF3, 0, 0, 0, 0, 1, 0, 1, 0, 't'}));
}

// The warnings of a document that is refused.
Texts refusal(const char *xml, guint32 type) {
  const auto node = parse(xml);
  const LogCapture log;
  EXPECT_EQ(OwnedInspectable{inspectable_deserialize_xml(node.get(), type)}, nullptr);
  const auto warnings = log.texts(G_LOG_LEVEL_WARNING);
  EXPECT_EQ(warnings.size(), log.lines().size());
  for (const LogLine &line : log.lines())
    EXPECT_EQ(line.domain, "");
  return warnings;
}

TEST(InspectableXml, SaysWhyItRefuses) {
  EXPECT_EQ(refusal("<declaration/>", IT_EVENT_DECLARATION),
            (Texts{"There are no expressions in the xml"}));
  EXPECT_EQ(refusal("<declaration><expression/><foo/></declaration>", IT_EVENT_DECLARATION),
            (Texts{"Expected xml tag 'expression' or 'tag' and got 'declaration'"}));
  for (const guint32 type : {IT_EVENT_DECLARATION, IT_EVENT, IT_PROPERTY_STATE})
    EXPECT_EQ(refusal("<declaration><expression/><expression/></declaration>", type),
              (Texts{"Only subscribe expressions support the OR statement."}));
  EXPECT_EQ(
      refusal("<x><expression><foo/></expression></x>", IT_SUBSCRIBE_EXPRESSION),
      (Texts{"Expected xml tag 'keyvalue' but got 'foo'", "Could not deserialize expression"}));
  EXPECT_EQ(refusal("<x><expression><keyvalue key-wildcard='true' value-wildcard='true'/>"
                    "</expression></x>",
                    IT_SUBSCRIBE_EXPRESSION),
            (Texts{"Could not deserialize expression"}));
}

TEST(InspectableXml, TagsAreForDeclarationsAndEvents) {
  const auto node = parse("<x><tag tag='t'/></x>");
  for (const guint32 type : {IT_SUBSCRIBE_EXPRESSION, IT_PROPERTY_STATE})
    EXPECT_DEATH(inspectable_deserialize_xml(node.get(), type),
                 ":inspectable_add_tag: assertion failed");
}

TEST(InspectableXml, AbortsWithoutItsArguments) {
  EXPECT_ABORT(inspectable_serialize_xml(nullptr), "inspectable_serialize_xml", "insp != NULL");
  EXPECT_ABORT(inspectable_deserialize_xml(nullptr, IT_EVENT), "inspectable_deserialize_xml",
               "node != NULL");
}

// ---- Print ----

TEST(InspectablePrint, ShowsAndListsAndTags) {
  const LogCapture log;
  inspectable_print(expression().get());
  EXPECT_EQ(log.texts(G_LOG_LEVEL_MESSAGE), (Texts{"[A = '1']", "[A != '2']", "[* = '5']",
                                                   "[* != '5']", "[* != '6']", "OR", "[B = '3']"}));
  EXPECT_EQ(log.lines().size(), 7u);
}

TEST(InspectablePrint, ShowsTagsLast) {
  const auto event = new_inspectable(IT_EVENT);
  add(event, "A", "1");
  inspectable_add_tag(event.get(), "%s");
  inspectable_add_tag(event.get(), "t");
  const LogCapture log;
  inspectable_print(event.get());
  EXPECT_EQ(log.lines(), (std::vector<LogLine>{{G_LOG_LEVEL_MESSAGE, "", "[A = '1']"},
                                               {G_LOG_LEVEL_MESSAGE, "", "{%s}"},
                                               {G_LOG_LEVEL_MESSAGE, "", "{t}"}}));
}

TEST(InspectablePrint, WithoutAndListsShowsTheTags) {
  const auto read = read_inspectable({0xF2, 0, 0, 2, 0, 1, 0, 1, 0, 't'});
  const LogCapture log;
  inspectable_print(read.get());
  EXPECT_EQ(log.texts(), (Texts{"{t}"}));
}

TEST(InspectablePrint, AbortsWithoutAContainer) {
  EXPECT_ABORT(inspectable_print(nullptr), "inspectable_print", "inspect != NULL");
}

// ---- Plain copy ----

TEST(InspectableRaw, HasTheLastAndListFirstAndTestsForAnyKeyFirst) {
  GList *raw = inspectable_get_raw(expression().get());
  std::vector<Texts> lists;
  for (const GList *list = raw; list != nullptr; list = list->next) {
    Texts &texts = lists.emplace_back();
    for (auto *at = static_cast<const GList *>(list->data); at != nullptr; at = at->next) {
      const auto *pair = static_cast<const KeyValueRaw *>(at->data);
      texts.push_back(std::string{pair->key != nullptr ? pair->key : "*"} +
                      (pair->negated ? " != " : " = ") + pair->value);
    }
  }
  inspectable_free_raw(raw);
  EXPECT_EQ(lists, (std::vector<Texts>{
                       {"B = 3"},
                       {"* != 6", "* != 5", "* = 5", "A != 2", "A = 1"},
                   }));
}

TEST(InspectableRaw, OfAnEmptyAndListIsOneEmptyList) {
  GList *raw = inspectable_get_raw(new_inspectable(IT_SUBSCRIBE_EXPRESSION).get());
  ASSERT_EQ(g_list_length(raw), 1u);
  EXPECT_EQ(raw->data, nullptr);
  inspectable_free_raw(raw);
  inspectable_free_raw(nullptr);
  EXPECT_ABORT(inspectable_get_raw(nullptr), "inspectable_get_raw", "inspect != NULL");
}

} // namespace
