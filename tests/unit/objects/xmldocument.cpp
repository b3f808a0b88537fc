#include "logcapture.hpp"
#include "records.hpp"

#include <varro2/eventutils.h>
#include <varro2/propertystate.h>

#include <gtest/gtest.h>

using namespace varro2::test;

TEST(XmlDocument, BecomesTheObjectAskedFor) {
  const LogCapture log;
  const DeclarationOwner declaration{static_cast<EventDeclaration *>(event_utils_deserialize_xml(
      R"(<declare><expression><keyvalue key="k" value="v"/></expression></declare>)", 0))};
  ASSERT_TRUE(declaration);
  EXPECT_STREQ(inspectable_get_value(event_declaration_get_inspectable(declaration.get()), "k"),
               "v");

  const ExpressionOwner se{static_cast<SubscribeExpression *>(event_utils_deserialize_xml(
      R"(<subscribe><expression><keyvalue key="k" value="v"/></expression></subscribe>)", 2))};
  ASSERT_TRUE(se);
  EXPECT_TRUE(event_declaration_contains(declaration.get(), se.get()));

  const varro2::Owned<PropertyState, property_state_free> state{
      static_cast<PropertyState *>(event_utils_deserialize_xml(
          R"(<property><expression><keyvalue key="k" value="v"><tag tag="property-state"/>
             </keyvalue></expression></property>)",
          3))};
  ASSERT_TRUE(state);
  EXPECT_STREQ(inspectable_get_value(property_state_get_inspectable(state.get()), "k"), "v");
  EXPECT_TRUE(log.lines().empty());
}

TEST(XmlDocument, ThatIsNoneIsQuoted) {
  const LogCapture log;
  EXPECT_EQ(event_utils_deserialize_xml("<declare", 0), nullptr);
  EXPECT_EQ(log.lines(),
            (std::vector{LogLine{G_LOG_LEVEL_WARNING, "", "Could not parse XML '<declare'"}}));
}

// The text is the parsed tree turned back: what a reader saw, not what was handed in.
TEST(XmlDocument, OfAnotherObjectIsQuotedAsItWasRead) {
  struct Case {
    guint32 type;
    const char *expected;
  };
  for (const Case &one : {Case{0, "declare"}, Case{2, "subscribe"}, Case{3, "property"}}) {
    const LogCapture log;
    EXPECT_EQ(event_utils_deserialize_xml("<other  a='1'>\n <b></b> </other>", one.type), nullptr);
    EXPECT_EQ(
        log.texts(G_LOG_LEVEL_WARNING),
        (std::vector{std::string{"Expected tag '"} + one.expected + "' and got 'other'",
                     std::string{R"(Failed when deserializing '<other a="1"><b/></other>')"}}));
  }
}

TEST(XmlDocument, MissingIsRefused) {
  const LogCapture log;
  EXPECT_EQ(event_utils_deserialize_xml(nullptr, 0), nullptr);
  EXPECT_EQ(log.lines(),
            (std::vector{LogLine{G_LOG_LEVEL_CRITICAL, "",
                                 refusal("event_utils_deserialize_xml", "xml != NULL")}}));
}

TEST(XmlDocument, IsParsedBeforeItsKindIsLookedAt) {
  const LogCapture log;
  EXPECT_EQ(event_utils_deserialize_xml("no XML", 1), nullptr);
  EXPECT_EQ(log.texts(), std::vector<std::string>{"Could not parse XML 'no XML'"});
}

TEST(XmlDocumentDeathTest, OfAKindThatThereIsNot) {
  EXPECT_DEATH(event_utils_deserialize_xml("<declare/>", 1),
               "Unknown type to deserialize: 1(.|\n)*event_utils_deserialize_xml.*FALSE");
  EXPECT_DEATH(event_utils_deserialize_xml("<declare/>", 4), "Unknown type to deserialize: 4");
}
