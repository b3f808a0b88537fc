#include "types.hpp"

#include "logcapture.hpp"
#include "samples.hpp"

#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

namespace varro2::switchd {
namespace {

using Outcome = Types::Outcome;

class TypesTest : public ::testing::Test {
 protected:
  TypesTest() {
    std::string pattern = (std::filesystem::temp_directory_path() / "types-XXXXXX").string();
    root_ = mkdtemp(pattern.data());
    std::filesystem::create_directory(root_ + "/system");
  }
  ~TypesTest() override { std::filesystem::remove_all(root_); }

  std::string system_file(const std::string &name) const { return root_ + "/system/" + name; }
  std::string own_file(const std::string &name) const { return root_ + "/own/deep/" + name; }

  void write(const std::string &path, const std::string &text) const {
    std::filesystem::create_directories(std::filesystem::path{path}.parent_path());
    std::ofstream{path} << text;
  }
  void write_topic(const std::string &path, const std::string &name) const {
    write(path, "<declare><expression><keyvalue key=\"topic0\" value=\"" + name +
                    "\"/></expression></declare>");
  }

  std::vector<std::string> topics() const {
    std::vector<std::string> names;
    for (const OwnedDeclaration &declaration : types().load_all())
      names.emplace_back(
          inspectable_get_value(event_declaration_get_inspectable(declaration.get()), "topic0"));
    return names;
  }

  Types types() const { return Types{root_ + "/system", root_ + "/own/deep"}; }

  std::string root_;
};

TEST_F(TypesTest, AddedTypeCanBeReadByEverybodyAndLeavesNothingElseBehind) {
  const mode_t mask = umask(0077);
  const Types::Result result = types().add("Lamp", *topic("a", 3));
  umask(mask);
  ASSERT_EQ(result.outcome, Outcome::done) << result.text;

  const OwnedDeclaration read{event_declaration_deserialize_xml_file(own_file("Lamp.xml").c_str())};
  ASSERT_NE(read, nullptr);
  EXPECT_STREQ(inspectable_get_value(event_declaration_get_inspectable(read.get()), "topic0"), "a");
  struct stat status;
  ASSERT_EQ(stat(own_file("Lamp.xml").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0644u);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator{root_ + "/own/deep"}, {}), 1);
}

TEST_F(TypesTest, TypeOfEitherFolderExistsAlready) {
  write_topic(system_file("Lamp.xml"), "system");
  write(own_file("Broken.xml"), "no XML");
  for (const char *type : {"Lamp", "Broken"}) {
    const Types::Result result = types().add(type, *topic("a", 1));
    EXPECT_EQ(result.outcome, Outcome::exists) << type;
    EXPECT_EQ(result.text, std::string{"The declaration type '"} + type + "' exists already.");
  }
}

TEST_F(TypesTest, NamesThatCannotBeFilesAreRefused) {
  for (const std::string &name :
       {std::string{}, std::string{".hidden"}, std::string{".."}, std::string{"a/b"},
        std::string{"/a"}, std::string{"a\nb"}, std::string(247, 'a')}) {
    EXPECT_EQ(types().add(name, *topic("a", 1)).outcome, Outcome::bad_name) << name;
    EXPECT_EQ(types().remove(name).outcome, Outcome::bad_name) << name;
  }
  EXPECT_FALSE(std::filesystem::exists(root_ + "/own"));
  EXPECT_EQ(types().add(std::string(246, 'a'), *topic("a", 1)).outcome, Outcome::done);
}

TEST_F(TypesTest, DeclarationThatNobodyCouldReadBackIsRefused) {
  OwnedDeclaration large = topic("a", 1);
  const std::string text(60'000, 'x');
  for (int key = 0; key < 20; ++key)
    event_declaration_add_key_value(large.get(), ("key" + std::to_string(key)).c_str(),
                                    text.c_str(), VALUE_TYPE_STRING);
  test::LogCapture log;
  const Types::Result result = types().add("Lamp", *large);
  EXPECT_EQ(result.outcome, Outcome::bad_declaration);
  EXPECT_EQ(result.text, "The declaration for 'Lamp' cannot be kept as a file.");
  EXPECT_TRUE(std::filesystem::is_empty(root_ + "/own/deep"));
}

TEST_F(TypesTest, UnusableFolderIsAFileError) {
  write(root_ + "/own/deep", "a file");
  const Types::Result result = types().add("Lamp", *topic("a", 1));
  EXPECT_EQ(result.outcome, Outcome::file_error);
  EXPECT_NE(result.text.find(root_ + "/own/deep"), std::string::npos) << result.text;
}

TEST_F(TypesTest, LeftoversOfAnInterruptedAddAreNoTypesAndInNobodysWay) {
  write(own_file(".Lamp.xml.new"), "<decl");
  EXPECT_TRUE(topics().empty());
  EXPECT_EQ(types().add("Lamp", *topic("a", 1)).outcome, Outcome::done);
  EXPECT_EQ(topics(), std::vector<std::string>{"a"});
  EXPECT_FALSE(std::filesystem::exists(own_file(".Lamp.xml.new")));
}

TEST_F(TypesTest, OnlyAddedTypesCanBeRemoved) {
  write_topic(system_file("System.xml"), "s");
  write_topic(own_file("Own.xml"), "o");
  EXPECT_EQ(types().remove("System").outcome, Outcome::unknown);
  EXPECT_EQ(types().remove("Nothing").outcome, Outcome::unknown);
  EXPECT_EQ(types().remove("Own").outcome, Outcome::done);
  EXPECT_EQ(types().remove("Own").outcome, Outcome::unknown);
  EXPECT_EQ(topics(), std::vector<std::string>{"s"});
}

TEST_F(TypesTest, ListsTheSystemsTypesFirstAndEachTypeOnce) {
  write_topic(system_file("C.xml"), "c-system");
  write_topic(system_file("B.xml"), "b-system");
  write_topic(own_file("A.xml"), "a-own");
  write_topic(own_file("B.xml"), "b-own");
  write(system_file("notes.txt"), "no type");
  write_topic(system_file(".hidden.xml"), "hidden");
  EXPECT_EQ(topics(), (std::vector<std::string>{"b-system", "c-system", "a-own"}));
}

TEST_F(TypesTest, BrokenFileGivesWayToTheOtherFolderOrIsReported) {
  test::LogCapture log;
  write(system_file("A.xml"), "<declare>");
  write_topic(own_file("A.xml"), "a-own");
  write(system_file("B.xml"), "");
  EXPECT_EQ(topics(), std::vector<std::string>{"a-own"});
  EXPECT_EQ(log.count(G_LOG_LEVEL_WARNING, "The file of the declaration type 'B' cannot be used"),
            1u);
}

TEST_F(TypesTest, MissingFoldersHoldNoTypes) {
  EXPECT_TRUE((Types{root_ + "/nowhere", root_ + "/nor/here"}.load_all().empty()));
}

} // namespace
} // namespace varro2::switchd
