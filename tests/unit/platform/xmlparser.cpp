// Reading documents, from texts and from files.
#include "logcapture.hpp"
#include "xmlnode.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

using varro2::OwnedText;
using varro2::XmlFault;
using varro2::XmlTree;
using varro2::test::LogCapture;

XmlTree parse(const std::string &text) {
  return XmlTree{xmlnode_parse_string(text.c_str())};
}

XmlTree parse_no_ns(const std::string &text) {
  return XmlTree{xmlnode_parse_string_no_ns(text.c_str())};
}

std::string written(const XmlTree &tree) {
  return tree ? OwnedText{xmlnode_get_xml(tree.get())}.get() : "(nothing)";
}

std::string nested(std::size_t depth) {
  std::string text;
  for (std::size_t i = 0; i < depth; ++i)
    text += "<d>";
  for (std::size_t i = 0; i < depth; ++i)
    text += "</d>";
  return text;
}

TEST(XmlParser, ReadsNamesAttributesAndChildrenInOrder) {
  const XmlTree root = parse("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                             "<!-- a comment -->\n"
                             "<declare internal=\"true\">\n"
                             "  <expression>\n"
                             "    <keyvalue key='k' value=\"v &lt; w\"/>\n"
                             "    <!-- another --><?ignored this?>\n"
                             "    <keyvalue key=\"l\"></keyvalue>\n"
                             "  </expression>\n"
                             "  <tag tag=\"t\"/>\n"
                             "</declare>\n");
  ASSERT_TRUE(root);
  EXPECT_STREQ(root->name, "declare");
  EXPECT_STREQ(xmlnode_get_attribute_value(root.get(), "internal"), "true");
  EXPECT_EQ(root->text, nullptr);
  ASSERT_EQ(g_list_length(root->children), 2u);
  const auto *expression = static_cast<const XmlNode *>(root->children->data);
  EXPECT_STREQ(expression->name, "expression");
  EXPECT_EQ(expression->attributes, nullptr);
  ASSERT_EQ(g_list_length(expression->children), 2u);
  const auto *pair = static_cast<const XmlNode *>(expression->children->data);
  EXPECT_STREQ(xmlnode_get_attribute_value(pair, "key"), "k");
  EXPECT_STREQ(xmlnode_get_attribute_value(pair, "value"), "v < w");
  EXPECT_STREQ(static_cast<const XmlNode *>(root->children->next->data)->name, "tag");
}

TEST(XmlParser, JoinsTheTextOfAnElement) {
  const XmlTree root = parse("<a> one<b>inner</b> <![CDATA[<two>]]><!-- x -->&#x20AC; </a>");
  ASSERT_TRUE(root);
  EXPECT_STREQ(root->text, " one <two>\xE2\x82\xAC ");
  EXPECT_STREQ(static_cast<const XmlNode *>(root->children->data)->text, "inner");
}

TEST(XmlParser, TakesWhiteSpaceAloneForNoText) {
  for (const char *text :
       {"<a/>", "<a></a>", "<a> \t\r\n </a>", "<a>&#32;&#10;</a>", "<a><![CDATA[  ]]></a>"}) {
    const XmlTree root = parse(text);
    ASSERT_TRUE(root) << text;
    EXPECT_EQ(root->text, nullptr) << text;
  }
}

TEST(XmlParser, LeavesOtherSpacesInPlace) {
  const XmlTree root = parse("<a>  x  </a>");
  ASSERT_TRUE(root);
  EXPECT_STREQ(root->text, "  x  ");
}

TEST(XmlParser, TakesPrefixesOffWithNameSpaces) {
  const XmlTree root = parse("<n:a xmlns:n=\"urn:n\" xmlns=\"urn:d\" n:x=\"1\" y=\"2\" "
                             "xml:lang=\"sv\"><b/><n:c/></n:a>");
  EXPECT_EQ(written(root), R"(<a x="1" y="2" lang="sv"><b/><c/></a>)");
}

TEST(XmlParser, PrefersTheAttributeWithoutPrefix) {
  EXPECT_EQ(written(parse("<a xmlns:m=\"m\" xmlns:n=\"n\" n:x=\"n\" m:x=\"m\"/>")),
            R"(<a x="n"/>)");
  EXPECT_EQ(written(parse("<a xmlns:n=\"n\" n:x=\"n\" x=\"own\"/>")), R"(<a x="own"/>)");
}

TEST(XmlParser, IsNotMisledByALineFeedInANameSpace) {
  const XmlTree root = parse("<n:a xmlns:n=\"one&#10;two\" n:x=\"1\"/>");
  // Refusing such a name space is as good.
  EXPECT_EQ(root ? written(root) : R"(<a x="1"/>)", R"(<a x="1"/>)");
}

TEST(XmlParser, KeepsNamesAsWrittenWithoutNameSpaces) {
  const char *text =
      R"(<n:a xmlns:n="urn:n" n:x="1" x="2" xml:lang="sv"><b/><undeclared:c/></n:a>)";
  const XmlTree root = parse_no_ns(text);
  ASSERT_TRUE(root);
  EXPECT_STREQ(root->name, "n:a");
  EXPECT_STREQ(xmlnode_get_attribute_value(root.get(), "n:x"), "1");
  EXPECT_STREQ(xmlnode_get_attribute_value(root.get(), "x"), "2");
  EXPECT_STREQ(xmlnode_get_attribute_value(root.get(), "xmlns:n"), "urn:n");
  EXPECT_EQ(written(root), text);
}

TEST(XmlParser, RefusesUndeclaredPrefixesWithNameSpaces) {
  EXPECT_FALSE(parse("<n:a/>"));
  EXPECT_FALSE(parse("<a n:x=\"1\"/>"));
  EXPECT_TRUE(parse_no_ns("<n:a/>"));
  EXPECT_TRUE(parse_no_ns("<a n:x=\"1\"/>"));
}

TEST(XmlParser, RefusesWhatIsNoDocument) {
  for (const char *text : {"",
                           " ",
                           "text",
                           "<a>",
                           "<a></b>",
                           "</a>",
                           "<a/><b/>",
                           "<a/>text",
                           "<a x=1/>",
                           "<a x/>",
                           "<a x='1' x='2'/>",
                           "<a>&nbsp;</a>",
                           "<a x='&none;'/>",
                           "<a>\x01</a>",
                           "<a>&#1;</a>",
                           "<a>&#0;</a>",
                           "<a>\xFF</a>",
                           "<a x='<'/>",
                           "<a><![CDATA[</a>",
                           "<1/>",
                           "< a/>",
                           "<a/",
                           "<a><!-- </a>",
                           "<?xml version=\"1.0\"?>",
                           "<?xml version=\"1.0\" encoding=\"none-such\"?><a/>"}) {
    EXPECT_FALSE(parse(text)) << text;
    EXPECT_FALSE(parse_no_ns(text)) << text;
  }
}

TEST(XmlParser, RefusesTwoAttributesThatAreOneInTheirNameSpace) {
  EXPECT_FALSE(parse("<a xmlns:m=\"u\" xmlns:n=\"u\" m:x=\"1\" n:x=\"2\"/>"));
}

TEST(XmlParser, AcceptsADocumentTypeThatOnlyNamesTheRoot) {
  EXPECT_TRUE(parse("<!DOCTYPE a><a/>"));
  EXPECT_TRUE(parse("<!DOCTYPE a [<!ELEMENT a ANY>]><a/>"));
}

TEST(XmlParser, RefusesADocumentTypeThatCouldPullSomethingIn) {
  for (const char *text :
       {"<!DOCTYPE a [<!ENTITY e \"x\">]><a>&e;</a>", "<!DOCTYPE a [<!ENTITY e \"x\">]><a/>",
        "<!DOCTYPE a [<!ENTITY e SYSTEM \"file:///etc/passwd\">]><a>&e;</a>",
        "<!DOCTYPE a [<!ENTITY % p \"x\">]><a/>", "<!DOCTYPE a SYSTEM \"a.dtd\"><a/>",
        "<!DOCTYPE a PUBLIC \"-//A//B\" \"a.dtd\"><a/>",
        "<!DOCTYPE a [<!ATTLIST a x CDATA \"1\">]><a/>", "<!DOCTYPE a [%p;]><a>&e;</a>",
        "<!DOCTYPE a [%p;]><a x=\"&e;\"/>",
        "<?xml version=\"1.0\" standalone=\"yes\"?><!DOCTYPE a [%p;]><a x=\"&e;\"/>"}) {
    EXPECT_FALSE(parse(text)) << text;
    EXPECT_FALSE(parse_no_ns(text)) << text;
  }
}

TEST(XmlParser, RefusesEntityBombs) {
  std::string bomb = "<!DOCTYPE a [<!ENTITY e0 \"ha\">";
  for (int i = 1; i < 30; ++i) {
    const std::string before = "&e" + std::to_string(i - 1) + ";";
    bomb += "<!ENTITY e" + std::to_string(i) + " \"" + before + before + "\">";
  }
  bomb += "]><a>&e29;</a>";
  EXPECT_FALSE(parse(bomb));
  EXPECT_FALSE(parse_no_ns(bomb));
}

TEST(XmlParser, LimitsTheDepth) {
  EXPECT_TRUE(parse(nested(1024)));
  EXPECT_FALSE(parse(nested(1025)));
  EXPECT_FALSE(parse_no_ns(nested(100'000)));
}

TEST(XmlParser, ReadsTextsOfMoreThanOnePiece) {
  const std::string value(3'500'000, 'x');
  const XmlTree root = parse("<a x=\"" + value + "\">" + value + "</a>");
  ASSERT_TRUE(root);
  EXPECT_EQ(root->text, value);
  EXPECT_EQ(xmlnode_get_attribute_value(root.get(), "x"), value);
}

TEST(XmlParser, ReadsManyAttributes) {
  std::string text = "<a xmlns:n=\"n\"";
  for (int i = 0; i < 20'000; ++i)
    text += " n:a" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
  const XmlTree root = parse(text + "/>");
  ASSERT_TRUE(root);
  EXPECT_EQ(g_list_length(root->attributes), 20'000u);
}

TEST(XmlParser, ConvertsTheDocumentsEncoding) {
  const XmlTree root = parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?><a x=\"\xE5\"/>");
  ASSERT_TRUE(root);
  EXPECT_STREQ(xmlnode_get_attribute_value(root.get(), "x"), "\xC3\xA5");
}

TEST(XmlParser, SaysWhatWasWrongAndWhere) {
  XmlFault fault;
  EXPECT_FALSE(varro2::parse_xml("<a>\n  <b></c>\n</a>", varro2::XmlNames::without_prefix, &fault));
  EXPECT_EQ(fault.message, "mismatched tag");
  EXPECT_EQ(fault.line, 2u);
  EXPECT_EQ(fault.column, 8u);
  EXPECT_FALSE(varro2::parse_xml("<!DOCTYPE a [\n<!ENTITY e 'x'>]><a/>",
                                 varro2::XmlNames::without_prefix, &fault));
  EXPECT_EQ(fault.message, "the document type declares an entity");
  EXPECT_EQ(fault.line, 2u);
}

TEST(XmlParser, LogsNothing) {
  const LogCapture log;
  EXPECT_FALSE(parse("<a>"));
  EXPECT_EQ(xmlnode_load_file("/nonexistent/a.xml"), nullptr);
  EXPECT_TRUE(log.texts().empty());
}

class XmlFile : public ::testing::Test {
 protected:
  XmlFile() {
    std::string name = (std::filesystem::temp_directory_path() / "varro2-xml-XXXXXX").string();
    folder_ = g_mkdtemp(name.data());
  }
  ~XmlFile() override { std::filesystem::remove_all(folder_); }

  std::string write(const std::string &content) const {
    const std::string path = folder_ / "file.xml";
    std::ofstream{path, std::ios::binary} << content;
    return path;
  }
  static XmlTree load(const std::string &path) { return XmlTree{xmlnode_load_file(path.c_str())}; }

  std::filesystem::path folder_;
};

TEST_F(XmlFile, IsReadWithNameSpaces) {
  const std::string path = write("<n:a xmlns:n='u'><n:b x='1'/></n:a>");
  EXPECT_EQ(written(load(path)), R"(<a><b x="1"/></a>)");
}

TEST_F(XmlFile, MayOpenWithAByteOrderMark) {
  EXPECT_EQ(written(load(write("\xEF\xBB\xBF<a/>"))), "<a/>");
}

TEST_F(XmlFile, MayBeReachedThroughALink) {
  const std::filesystem::path link = folder_ / "link.xml";
  std::filesystem::create_symlink(write("<a/>"), link);
  EXPECT_TRUE(load(link));
}

TEST_F(XmlFile, IsRefusedWhenItIsNoDocument) {
  EXPECT_FALSE(load(write("")));
  EXPECT_FALSE(load(write("<a>")));
  EXPECT_FALSE(load(write(std::string{"<a/>\0<b/>", 9})));
  EXPECT_FALSE(load(write("<u:a/>")));
}

TEST_F(XmlFile, HoldsAtMostOneMebibyte) {
  const std::string frame = "<a></a>";
  const std::string content(1024 * 1024 - frame.size(), 'x');
  EXPECT_TRUE(load(write("<a>" + content + "</a>")));
  EXPECT_FALSE(load(write("<a>" + content + "x</a>")));
  XmlFault fault;
  EXPECT_FALSE(varro2::load_xml((folder_ / "file.xml").c_str(), &fault));
  EXPECT_EQ(fault.message, "larger than 1 MiB");
  EXPECT_EQ(fault.line, 0u);
}

TEST_F(XmlFile, MustBeARegularFile) {
  const std::string fifo = folder_ / "fifo.xml";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_FALSE(load(fifo)); // and does not wait
  EXPECT_FALSE(load(folder_));
  EXPECT_FALSE(load("/dev/zero"));
  EXPECT_FALSE(load(folder_ / "missing.xml"));
  EXPECT_FALSE(load(""));
  XmlFault fault;
  EXPECT_FALSE(varro2::load_xml(fifo.c_str(), &fault));
  EXPECT_EQ(fault.message, "not a regular file");
}

} // namespace
