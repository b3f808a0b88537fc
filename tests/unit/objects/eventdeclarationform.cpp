// A declaration's XML and the files of the types.
#include "eventdeclaration.hpp"

#include "logcapture.hpp"
#include "records.hpp"
#include "xmlnode.hpp"

#include <varro2/eventutils.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

using varro2::OwnedText;
using varro2::XmlTree;
using namespace varro2::test;

namespace {

constexpr const char *valid =
    R"(<declare><expression><keyvalue key="k" value="first"/></expression></declare>)";

DeclarationOwner read_text(const std::string &xml) {
  return DeclarationOwner{event_declaration_deserialize_xml(xml.c_str())};
}

const char *value_of(const DeclarationOwner &declaration, const char *key) {
  return inspectable_get_value(event_declaration_get_inspectable(declaration.get()), key);
}

// Two folders of its own, in the places of those of the machine.
class TypeFiles : public testing::Test {
 protected:
  TypeFiles() {
    const OwnedText made{g_dir_make_tmp("varro2-types-XXXXXX", nullptr)};
    root_ = made.get();
    std::filesystem::create_directories(root_ / "first");
    std::filesystem::create_directories(root_ / "second");
    first_ = root_ / "first";
    second_ = root_ / "second";
    varro2::declaration_folders = {first_.c_str(), second_.c_str()};
  }
  ~TypeFiles() override {
    varro2::declaration_folders = fixed_;
    std::filesystem::remove_all(root_);
  }

  void write(const std::string &file, const std::string &content) {
    std::ofstream{root_ / file} << content;
  }

  std::filesystem::path root_;
  std::string first_;
  std::string second_;

 private:
  const std::array<const char *, 2> fixed_ = varro2::declaration_folders;
};

} // namespace

/* ---- XML ---- */

TEST(EventDeclarationXml, IsADeclareElementAroundTheContent) {
  const DeclarationOwner declaration{event_declaration_new(TRUE)};
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  event_declaration_add_tag(declaration.get(), "t");
  const XmlTree node{event_declaration_serialize_xmlnode(declaration.get())};
  EXPECT_STREQ(node->name, "declare");
  EXPECT_STREQ(xmlnode_get_attribute_value(node.get(), "internal"), "true");
  ASSERT_EQ(g_list_length(node->children), 2u);
  EXPECT_STREQ(static_cast<XmlNode *>(node->children->data)->name, "expression");
  EXPECT_STREQ(static_cast<XmlNode *>(node->children->next->data)->name, "tag");
}

TEST(EventDeclarationXml, SaysNothingOfAPlainOne) {
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  event_declaration_set_global_id(declaration.get(), 7);
  const XmlTree node{event_declaration_serialize_xmlnode(declaration.get())};
  EXPECT_EQ(node->attributes, nullptr);
}

TEST(EventDeclarationXml, TextIsThatOfTheElement) {
  const DeclarationOwner declaration{event_declaration_new(TRUE)};
  event_declaration_add_key(declaration.get(), "n", VALUE_TYPE_INT);
  const XmlTree node{event_declaration_serialize_xmlnode(declaration.get())};
  const OwnedText expected{xmlnode_get_xml(node.get())};
  const OwnedText text{event_declaration_serialize_xml(declaration.get())};
  EXPECT_STREQ(text.get(), expected.get());
  EXPECT_TRUE(g_str_has_prefix(text.get(), R"(<declare internal="true"><expression>)"));
}

TEST(EventDeclarationXml, ReadsWhatItWrote) {
  const DeclarationOwner declaration{event_declaration_new(TRUE)};
  const gint32 number = 3;
  event_declaration_add_key_value(declaration.get(), "n", &number, VALUE_TYPE_INT);
  event_declaration_add_tag(declaration.get(), "t");
  const OwnedText text{event_declaration_serialize_xml(declaration.get())};
  const auto read = read_text(text.get());
  ASSERT_TRUE(read);
  EXPECT_TRUE(event_declaration_is_internal(read.get()));
  EXPECT_FALSE(event_declaration_is_property(read.get()));
  EXPECT_TRUE(inspectable_is_equal(event_declaration_get_inspectable(declaration.get()),
                                   event_declaration_get_inspectable(read.get())));
}

TEST(EventDeclarationXml, InternalIsAnyCaseOfTrue) {
  const std::string rest = R"(><expression><keyvalue key="k"/></expression></declare>)";
  EXPECT_TRUE(event_declaration_is_internal(read_text(R"(<declare internal="TRUE")" + rest).get()));
  EXPECT_FALSE(event_declaration_is_internal(read_text(R"(<declare internal="1")" + rest).get()));
  EXPECT_FALSE(event_declaration_is_internal(read_text("<declare" + rest).get()));
}

TEST(EventDeclarationXml, ATaggedKeyMakesAProperty) {
  const auto declaration = read_text(R"(<declare><expression>
      <keyvalue key="s" value="v"><tag tag="property-state"/></keyvalue>
    </expression></declare>)");
  ASSERT_TRUE(declaration);
  EXPECT_TRUE(event_declaration_is_property(declaration.get()));
  EXPECT_EQ(declaration->property_callback, nullptr);
  const EventOwner event{event_declaration_get_property_event(declaration.get())};
  EXPECT_TRUE(event);
}

TEST(EventDeclarationXml, ATaggedKeyWithoutValueHasNoStateByItself) {
  const DeclarationOwner open{event_declaration_new(FALSE)};
  event_declaration_add_key(open.get(), "s", VALUE_TYPE_STRING);
  event_declaration_add_key_tag(open.get(), "s", "property-state");
  const OwnedText text{event_declaration_serialize_xml(open.get())};
  const auto declaration = read_text(text.get());
  ASSERT_TRUE(declaration);
  EXPECT_TRUE(event_declaration_is_property(declaration.get()));
  EXPECT_EQ(event_declaration_get_property_event(declaration.get()), nullptr);
}

TEST(EventDeclarationXml, ATagOfTheWholeMakesNoProperty) {
  const auto declaration = read_text(R"(<declare><expression><keyvalue key="s" value="v"/>
    </expression><tag tag="property-state"/></declare>)");
  ASSERT_TRUE(declaration);
  EXPECT_FALSE(event_declaration_is_property(declaration.get()));
}

TEST(EventDeclarationXml, OfAnotherElementIsRefused) {
  const XmlTree node{xmlnode_parse_string("<subscribe/>")};
  const LogCapture log;
  EXPECT_EQ(event_declaration_deserialize_xmlnode(node.get()), nullptr);
  EXPECT_EQ(log.lines(), (std::vector{LogLine{G_LOG_LEVEL_WARNING, "",
                                              "Expected tag 'declare' and got 'subscribe'"}}));
}

TEST(EventDeclarationXml, WithoutContentIsRefused) {
  const XmlTree node{xmlnode_parse_string("<declare/>")};
  const LogCapture log;
  EXPECT_EQ(event_declaration_deserialize_xmlnode(node.get()), nullptr);
  EXPECT_EQ(log.lines(),
            (std::vector{LogLine{G_LOG_LEVEL_WARNING, "", "There are no expressions in the xml"}}));
}

/* ---- Files ---- */

TEST(DeclarationFolders, AreThoseOfTheMachine) {
  EXPECT_STREQ(varro2::declaration_folders[0], "//usr/share/event/declarations.d");
  EXPECT_STREQ(varro2::declaration_folders[1], "//etc/event_switch/declarations.d");
}

TEST_F(TypeFiles, AreReadByPath) {
  write("any.name", valid);
  const LogCapture log;
  const DeclarationOwner declaration{
      event_declaration_deserialize_xml_file((root_ / "any.name").c_str())};
  ASSERT_TRUE(declaration);
  EXPECT_STREQ(value_of(declaration, "k"), "first");
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TypeFiles, ThatCannotBeLoadedAreSilent) {
  write("broken.xml", "<declare>");
  write("empty.xml", "");
  const LogCapture log;
  for (const char *file : {"absent.xml", "broken.xml", "empty.xml", "first"})
    EXPECT_EQ(event_declaration_deserialize_xml_file((root_ / file).c_str()), nullptr);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TypeFiles, OfSomethingElseAreReported) {
  write("other.xml", "<property/>");
  const LogCapture log;
  EXPECT_EQ(event_declaration_deserialize_xml_file((root_ / "other.xml").c_str()), nullptr);
  EXPECT_EQ(log.lines(), (std::vector{LogLine{G_LOG_LEVEL_WARNING, "",
                                              "Expected tag 'declare' and got 'property'"}}));
}

TEST_F(TypeFiles, TheFirstFolderWins) {
  write("first/Foo.xml", valid);
  write("second/Foo.xml",
        R"(<declare><expression><keyvalue key="k" value="second"/></expression></declare>)");
  write("second/Bar.xml",
        R"(<declare><expression><keyvalue key="k" value="bar"/></expression></declare>)");
  const DeclarationOwner both{event_declaration_new_from_type("Foo")};
  ASSERT_TRUE(both);
  EXPECT_STREQ(value_of(both, "k"), "first");
  const DeclarationOwner second_only{event_declaration_new_from_type("Bar")};
  ASSERT_TRUE(second_only);
  EXPECT_STREQ(value_of(second_only, "k"), "bar");
  EXPECT_EQ(event_declaration_new_from_type("Baz"), nullptr);
}

TEST_F(TypeFiles, AnInvalidOneInTheFirstFolderIsPassedOver) {
  const std::string second =
      R"(<declare><expression><keyvalue key="k" value="second"/></expression></declare>)";
  for (const char *invalid : {"<declare>", "<property/>", "<declare/>"}) {
    write("first/Foo.xml", invalid);
    write("second/Foo.xml", second);
    const LogCapture log;
    const DeclarationOwner declaration{event_declaration_new_from_type("Foo")};
    ASSERT_TRUE(declaration);
    EXPECT_STREQ(value_of(declaration, "k"), "second");
  }
}

TEST_F(TypeFiles, NamesThatLeadElsewhereAreNoTypes) {
  write("Foo.xml", valid);
  write("first/.xml", valid);
  write("first/.Foo.xml", valid);
  write("first/..xml", valid);
  std::filesystem::create_directories(root_ / "first" / "sub");
  write("first/sub/Foo.xml", valid);
  const LogCapture log;
  for (const char *type : {"", ".", ".Foo", "../Foo", "sub/Foo", "/Foo", "Foo/"})
    EXPECT_EQ(event_declaration_new_from_type(type), nullptr) << type;
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(TypeFiles, ADotInsideIsPartOfTheName) {
  write("first/Foo.v2.xml", valid);
  const DeclarationOwner declaration{event_declaration_new_from_type("Foo.v2")};
  EXPECT_TRUE(declaration);
}

TEST_F(TypeFiles, AFormatInTheNameIsAName) {
  write("first/%s%n.xml", valid);
  const DeclarationOwner declaration{event_declaration_new_from_type("%s%n")};
  EXPECT_TRUE(declaration);
}
