// Building, reading and writing trees.
#include "xmlnode.hpp"
#include "logcapture.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using varro2::OwnedText;
using varro2::XmlTree;
using varro2::test::LogCapture;

XmlTree element(const char *name) {
  XmlTree node{xmlnode_create_node()};
  node->name = g_strdup(name);
  return node;
}

XmlNode *add_element(XmlNode *parent, const char *name) {
  XmlTree node = element(name);
  XmlNode *added = node.get();
  xmlnode_add_child(parent, node.release());
  return added;
}

std::string plain(const XmlNode *node) {
  return OwnedText{xmlnode_get_xml(node)}.get();
}

std::string escaped(const XmlNode *node) {
  return OwnedText{xmlnode_get_xml_escape_newline(node)}.get();
}

XmlTree parse(const std::string &text) {
  return XmlTree{xmlnode_parse_string(text.c_str())};
}

TEST(XmlNode, StartsEmpty) {
  const XmlTree node{xmlnode_create_node()};
  EXPECT_EQ(node->name, nullptr);
  EXPECT_EQ(node->children, nullptr);
  EXPECT_EQ(node->text, nullptr);
  EXPECT_EQ(node->attributes, nullptr);
}

TEST(XmlNode, KeepsCopiesOfAttributesInOrder) {
  const XmlTree node = element("a");
  std::string name = "second";
  std::string value = "2";
  xmlnode_add_attribute(node.get(), "first", "1");
  xmlnode_add_attribute(node.get(), name.c_str(), value.c_str());
  name = "gone";
  value = "x";
  EXPECT_STREQ(xmlnode_get_attribute_value(node.get(), "first"), "1");
  EXPECT_STREQ(xmlnode_get_attribute_value(node.get(), "second"), "2");
  EXPECT_EQ(xmlnode_get_attribute_value(node.get(), "third"), nullptr);
  EXPECT_EQ(xmlnode_get_attribute_value(node.get(), "First"), nullptr);
  const auto *first = static_cast<const XmlAttribute *>(node->attributes->data);
  EXPECT_STREQ(first->name, "first");
  EXPECT_STREQ(first->value, "1");
  EXPECT_EQ(plain(node.get()), R"(<a first="1" second="2"/>)");
}

TEST(XmlNode, AddingAnAttributeAgainReplacesItsValueInPlace) {
  const XmlTree node = element("a");
  xmlnode_add_attribute(node.get(), "x", "1");
  xmlnode_add_attribute(node.get(), "y", "2");
  xmlnode_add_attribute(node.get(), "x", "3");
  EXPECT_EQ(plain(node.get()), R"(<a x="3" y="2"/>)");
}

TEST(XmlNode, ReplacesAnAttributeByItsOwnValue) {
  const XmlTree node = element("a");
  xmlnode_add_attribute(node.get(), "x", "value");
  xmlnode_add_attribute(node.get(), "x", xmlnode_get_attribute_value(node.get(), "x"));
  EXPECT_STREQ(xmlnode_get_attribute_value(node.get(), "x"), "value");
}

TEST(XmlNode, AppendsChildrenInOrder) {
  const XmlTree root = element("root");
  XmlNode *first = add_element(root.get(), "first");
  XmlNode *second = add_element(root.get(), "second");
  add_element(first, "inner");
  ASSERT_EQ(g_list_length(root->children), 2u);
  EXPECT_EQ(root->children->data, first);
  EXPECT_EQ(root->children->next->data, second);
  EXPECT_EQ(root->children->next->prev, root->children);
  EXPECT_EQ(plain(root.get()), "<root><first><inner/></first><second/></root>");
}

TEST(XmlNode, TakesManyChildren) {
  constexpr int count = 200'000;
  const XmlTree root = element("root");
  for (int i = 0; i < count; ++i)
    add_element(root.get(), "c");
  EXPECT_EQ(g_list_length(root->children), static_cast<guint>(count));
}

TEST(XmlNode, FreesNothing) {
  xmlnode_free_tree(nullptr);
}

TEST(XmlNode, FreesAndWritesADeepTree) {
  constexpr std::size_t depth = 500'000;
  const XmlTree root = element("d");
  XmlNode *deepest = root.get();
  for (std::size_t i = 1; i < depth; ++i) {
    deepest = add_element(deepest, "d");
    add_element(deepest, "s");
  }
  const std::string text = plain(root.get());
  EXPECT_EQ(text.substr(0, 6), "<d><d>");
  EXPECT_EQ(text.size(), (depth - 1) * std::string{"<d></d><s/>"}.size() + 7);
}

TEST(XmlWriter, EscapesTheFiveCharacters) {
  const XmlTree node = element("a");
  xmlnode_add_attribute(node.get(), "x", "<&>\"'");
  EXPECT_EQ(plain(node.get()), R"(<a x="&lt;&amp;&gt;&quot;&apos;"/>)");
  EXPECT_EQ(escaped(node.get()), plain(node.get()));
}

TEST(XmlWriter, EscapesTexts) {
  const XmlTree node = parse("<a>&lt;b&gt; &amp; &quot;c&apos;</a>");
  EXPECT_EQ(plain(node.get()), "<a>&lt;b&gt; &amp; &quot;c&apos;</a>");
}

TEST(XmlWriter, WritesLineBreaksInAttributesAsTheyAre) {
  const XmlTree node = element("a");
  xmlnode_add_attribute(node.get(), "x", "1\n2\r3\t4");
  EXPECT_EQ(plain(node.get()), "<a x=\"1\n2\r3\t4\"/>");
}

TEST(XmlWriter, EscapesLineBreaksInAttributesWhenAsked) {
  const XmlTree node = element("a");
  xmlnode_add_attribute(node.get(), "x", "1\n2\r3\t4");
  EXPECT_EQ(escaped(node.get()), R"(<a x="1&#10;2&#13;3&#9;4"/>)");
  const XmlTree read = parse(escaped(node.get()));
  ASSERT_TRUE(read);
  EXPECT_STREQ(xmlnode_get_attribute_value(read.get(), "x"), "1\n2\r3\t4");
}

TEST(XmlWriter, KeepsLineBreaksOfTexts) {
  const XmlTree node = parse("<a>1\n2&#13;3\t4</a>");
  ASSERT_STREQ(node->text, "1\n2\r3\t4");
  for (const std::string &text : {plain(node.get()), escaped(node.get())}) {
    EXPECT_EQ(text, "<a>1\n2&#13;3\t4</a>");
    const XmlTree read = parse(text);
    ASSERT_TRUE(read) << text;
    EXPECT_STREQ(read->text, "1\n2\r3\t4");
  }
}

TEST(XmlWriter, WritesTextBeforeChildren) {
  const XmlTree node = parse("<a>one<b/>two</a>");
  EXPECT_EQ(plain(node.get()), "<a>onetwo<b/></a>");
}

TEST(XmlWriter, ReplacesWhatXmlCannotCarry) {
  struct Case {
    const char *value;
    const char *read_back;
  };
  const Case cases[] = {
      {"a\x01z", "a\xEF\xBF\xBDz"},
      {"a\x1Fz", "a\xEF\xBF\xBDz"},
      {"a\x7Fz", "a\x7Fz"},
      {"a\xEF\xBF\xBEz", "a\xEF\xBF\xBDz"},                     // U+FFFE
      {"a\xEF\xBF\xBFz", "a\xEF\xBF\xBDz"},                     // U+FFFF
      {"a\xFFz", "a\xEF\xBF\xBDz"},                             // never in UTF-8
      {"a\xC3z", "a\xEF\xBF\xBDz"},                             // cut off in the middle
      {"a\xC3", "a\xEF\xBF\xBD"},                               // cut off by the end
      {"\xED\xA0\x80", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"}, // a surrogate
      {"\xC3\xA5\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA5\xE2\x82\xAC\xF0\x9F\x98\x80"},
  };
  for (const Case &one : cases) {
    const XmlTree node = element("a");
    xmlnode_add_attribute(node.get(), "x", one.value);
    for (const std::string &text : {plain(node.get()), escaped(node.get())}) {
      const XmlTree read = parse(text);
      ASSERT_TRUE(read) << text;
      EXPECT_STREQ(xmlnode_get_attribute_value(read.get(), "x"), one.read_back) << text;
    }
  }
}

TEST(XmlWriter, KeepsEveryCharacterThatXmlCarries) {
  std::string value;
  for (gunichar c = 0x20; c < 0x3000; ++c) {
    char utf8[6];
    value.append(utf8, static_cast<std::size_t>(g_unichar_to_utf8(c, utf8)));
  }
  const XmlTree node = element("a");
  xmlnode_add_attribute(node.get(), "x", value.c_str());
  const XmlTree read = parse(plain(node.get()));
  ASSERT_TRUE(read);
  EXPECT_EQ(xmlnode_get_attribute_value(read.get(), "x"), value);
}

TEST(XmlWriter, RefusesUnnamedElements) {
  const XmlTree unnamed{xmlnode_create_node()};
  const XmlTree root = element("a");
  xmlnode_add_child(root.get(), xmlnode_create_node());
  const LogCapture log;
  EXPECT_EQ(xmlnode_get_xml(unnamed.get()), nullptr);
  EXPECT_EQ(xmlnode_get_xml_escape_newline(unnamed.get()), nullptr);
  EXPECT_EQ(xmlnode_get_xml(root.get()), nullptr);
  EXPECT_EQ(log.texts(G_LOG_LEVEL_CRITICAL),
            (std::vector<std::string>{
                "xmlnode_get_xml: assertion 'node->name != NULL' failed",
                "xmlnode_get_xml_escape_newline: assertion 'node->name != NULL' failed",
                "write_element: assertion 'node.name != NULL' failed"}));
}

TEST(XmlNode, RefusesMissingArguments) {
  const XmlTree node = element("a");
  const LogCapture log;
  xmlnode_add_attribute(nullptr, "x", "y");
  xmlnode_add_attribute(node.get(), nullptr, "y");
  xmlnode_add_attribute(node.get(), "x", nullptr);
  EXPECT_EQ(xmlnode_get_attribute_value(nullptr, "x"), nullptr);
  EXPECT_EQ(xmlnode_get_attribute_value(node.get(), nullptr), nullptr);
  xmlnode_add_child(nullptr, node.get());
  xmlnode_add_child(node.get(), nullptr);
  EXPECT_EQ(xmlnode_get_xml(nullptr), nullptr);
  EXPECT_EQ(xmlnode_get_xml_escape_newline(nullptr), nullptr);
  EXPECT_EQ(xmlnode_parse_string(nullptr), nullptr);
  EXPECT_EQ(xmlnode_parse_string_no_ns(nullptr), nullptr);
  EXPECT_EQ(xmlnode_load_file(nullptr), nullptr);
  EXPECT_EQ(
      log.texts(G_LOG_LEVEL_CRITICAL),
      (std::vector<std::string>{"xmlnode_add_attribute: assertion 'node != NULL' failed",
                                "xmlnode_add_attribute: assertion 'name != NULL' failed",
                                "xmlnode_add_attribute: assertion 'value != NULL' failed",
                                "xmlnode_get_attribute_value: assertion 'node != NULL' failed",
                                "xmlnode_get_attribute_value: assertion 'name != NULL' failed",
                                "xmlnode_add_child: assertion 'parent != NULL' failed",
                                "xmlnode_add_child: assertion 'child != NULL' failed",
                                "xmlnode_get_xml: assertion 'node != NULL' failed",
                                "xmlnode_get_xml_escape_newline: assertion 'node != NULL' failed",
                                "xmlnode_parse_string: assertion 'xml != NULL' failed",
                                "xmlnode_parse_string_no_ns: assertion 'xml != NULL' failed",
                                "xmlnode_load_file: assertion 'path != NULL' failed"}));
}

} // namespace
