// What is said about documents, and where.
#include "xmlcheck.hpp"

#include <gtest/gtest.h>

namespace varro2::cli {
namespace {

// "LINE:error TEXT" for each problem.
std::vector<std::string> report(const std::string &text) {
  std::vector<std::string> lines;
  for (const Problem &problem : check_document(text).problems)
    lines.push_back(std::to_string(problem.line) + (problem.error ? ":error " : ":warning ") +
                    problem.text);
  return lines;
}

using Lines = std::vector<std::string>;

std::string declaration(const std::string &pairs) {
  return "<declare>\n<expression>\n<keyvalue key='topic0' name-space='tns1' value='T'/>\n" + pairs +
         "\n</expression>\n</declare>";
}

std::string subscription(const std::string &tests) {
  return "<subscribe>\n<expression>\n" + tests + "\n</expression>\n</subscribe>";
}

TEST(XmlCheck, GoodDocumentsHaveNoProblems) {
  EXPECT_EQ(report(declaration("<keyvalue key='port' value-wildcard='true' value-type='int'>"
                               "<tag tag='property-state'/></keyvalue>")),
            Lines{});
  EXPECT_EQ(report(subscription("<keyvalue key='port' value='1' not='true'/>"
                                "<keyvalue key-wildcard='true' value='2'/>")),
            Lines{});
  EXPECT_EQ(report("<property><expression><keyvalue key='up' value='1' value-type='bool'>"
                   "<tag tag='property-state'/></keyvalue></expression></property>"),
            Lines{});
  EXPECT_EQ(check_document(declaration("")).kind, DocumentKind::declaration);
  EXPECT_EQ(check_document(subscription("<keyvalue key='a' value='1'/>")).kind,
            DocumentKind::expression);
}

TEST(XmlCheck, WhatIsNoXml) {
  EXPECT_EQ(report("<declare>\n<expression>\n</declare>"), Lines{"3:error no XML: mismatched tag"});
  EXPECT_EQ(report(""), Lines{"1:error no XML: no element found"});
  EXPECT_EQ(report("<!DOCTYPE d [\n<!ENTITY a 'b'>]><declare/>"),
            Lines{"2:error entities cannot be declared here"});
  EXPECT_EQ(report(std::string(1024 * 1024 + 1, ' ')), Lines{"1:error larger than 1 MiB"});
  EXPECT_FALSE(check_document("").usable());
}

TEST(XmlCheck, ElementsInTheWrongPlace) {
  EXPECT_EQ(report("<declared/>"), Lines{"1:error the document's element is <declared>; allowed "
                                         "are <declare>, <subscribe> and <property>"});
  EXPECT_EQ(report("<subscribe/>"),
            Lines{"1:error <subscribe> is empty; an <expression> is needed"});
  EXPECT_EQ(report("<subscribe>\n<expresion/>\n</subscribe>"),
            (Lines{"1:warning there is no <expression>, so there are no keys",
                   "2:error <expresion> cannot stand in <subscribe>; did you mean <expression>?"}));
  EXPECT_EQ(report(subscription("<key/>")),
            Lines{"3:error <key> cannot stand in <expression>; allowed: <keyvalue>"});
  EXPECT_EQ(report(declaration("") + "\n<!-- more -->"), Lines{});
  EXPECT_EQ(
      report("<declare internal='true'>\n<expression><keyvalue key='a' value='1'/></expression>"
             "\n<expression><keyvalue key='b' value='1'/></expression></declare>"),
      Lines{"3:error a second <expression>; only <subscribe> may have several"});
  EXPECT_EQ(report("<subscribe><expression><keyvalue key='a' value='1'/></expression>"
                   "<tag tag='x'/></subscribe>"),
            Lines{"1:error a <tag> here; only <declare> has tags of its own"});
}

TEST(XmlCheck, AttributesThatAreNone) {
  EXPECT_EQ(report(declaration("<keyvalue key='a' valeu='1' value='1'/>")),
            Lines{"4:warning <keyvalue> has no attribute 'valeu'; did you mean 'value'?"});
  EXPECT_EQ(report(declaration("<keyvalue key='a' value='1' value-type='long'/>")),
            Lines{"4:warning the value-type 'long' is none and counts as string; allowed are int, "
                  "integer, bool, boolean, double, float and string"});
  EXPECT_EQ(report(subscription("<keyvalue key='a' value='1' not='yes'/>")),
            Lines{"3:warning not=\"yes\" counts as false; allowed are true and false"});
}

TEST(XmlCheck, PairsThatTheLibraryRefuses) {
  EXPECT_EQ(report(subscription("<keyvalue key-wildcard='true' value-wildcard='true'/>")),
            Lines{"3:error both key-wildcard and value-wildcard: one of them must be given"});
  EXPECT_EQ(report(declaration("<keyvalue key-wildcard='true' value='1'/>")),
            Lines{"4:error key-wildcard; only tests of a <subscribe> may have any key"});
  EXPECT_EQ(report(declaration("<keyvalue value='1'/>")),
            Lines{"4:error the attribute 'key' is missing"});
  EXPECT_EQ(report(declaration("<keyvalue key='a' value='1' not='true'/>")),
            Lines{"4:error not=\"true\"; only tests of a <subscribe> can be negated"});
  EXPECT_EQ(report("<property><expression>\n<keyvalue key='a' value='1'><tag tag='property-state'/>"
                   "</keyvalue>\n<keyvalue key='a' value='2'/></expression></property>"),
            Lines{"3:error the key 'a' once more; it is already on line 2"});
  EXPECT_EQ(
      report("<property>\n<expression>\n<keyvalue key='a' value='1'/></expression></property>"),
      Lines{"1:error exactly one key must have the tag property-state, and 0 have it"});
  EXPECT_EQ(report("<property><expression>\n"
                   "<keyvalue key='a' value='1'><tag tag='property-state'/></keyvalue>\n"
                   "<keyvalue key='b' value='1'><tag tag='property-state'/></keyvalue>"
                   "</expression></property>"),
            Lines{"3:error exactly one key must have the tag property-state, and 2 have it"});
}

TEST(XmlCheck, WhatWasProbablyNotMeant) {
  EXPECT_EQ(report(declaration("<keyvalue key='a'/>")),
            Lines{"4:warning neither 'value' nor value-wildcard=\"true\": the value is the empty "
                  "text"});
  EXPECT_EQ(report(declaration("<keyvalue key='a' value='1'/>\n<keyvalue key='a' value='2'/>")),
            Lines{"5:warning the key 'a' once more; it is already on line 4, and this one wins"});
  EXPECT_EQ(report(subscription("<keyvalue key='a' value='1'/>\n<keyvalue key='a' value='2'/>")),
            Lines{"4:warning the key 'a' cannot have two values at once; it is already on line 3"});
  EXPECT_EQ(report(declaration("<keyvalue key='a' value='x' value-type='int'/>")),
            Lines{"4:warning the value 'x' is no int: a whole number is wanted"});
  EXPECT_EQ(report(declaration("<keyvalue key='a' value='true' value-type='bool'/>")),
            Lines{"4:warning the value 'true' is no bool: 0 or 1 is wanted"});
  EXPECT_EQ(report(declaration("<keyvalue key='topic2' name-space='tns1' value='x'/>")),
            Lines{"4:warning topic2 is never reached: there is no topic1"});
  EXPECT_EQ(report(declaration("<keyvalue key='topic1' value='x'/>")),
            Lines{"4:warning topic1 has no name space: the JSON form of events leaves its value "
                  "out"});
  EXPECT_EQ(report("<declare>\n<expression><keyvalue key='a' value='1'/></expression></declare>"),
            Lines{"2:warning no topic: without the key topic0 nobody can declare this, unless it "
                  "is internal=\"true\""});
  EXPECT_TRUE(check_document(declaration("<keyvalue key='a'/>")).usable());
}

} // namespace
} // namespace varro2::cli
