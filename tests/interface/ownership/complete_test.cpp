// Every function that the library exports has its row.
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>

namespace {

// What the version script lets out: one name a line, closed by a semicolon.
std::set<std::string> exported() {
  std::set<std::string> names;
  std::ifstream script{VARRO2_VERSION_SCRIPT};
  for (std::string word; script >> word;)
    if (word.back() == ';' && word != "*;" && word != "};")
      names.insert(word.substr(0, word.size() - 1));
  return names;
}

std::set<std::string> rows() {
  std::set<std::string> names;
  const auto *program = ::testing::UnitTest::GetInstance();
  for (int suite = 0; suite < program->total_test_suite_count(); ++suite)
    if (const auto *tests = program->GetTestSuite(suite); tests->name() == std::string{"Ownership"})
      for (int test = 0; test < tests->total_test_count(); ++test)
        names.insert(tests->GetTestInfo(test)->name());
  return names;
}

TEST(Table, HasARowForEveryExportedFunction) {
  const std::set<std::string> functions = exported();
  ASSERT_FALSE(functions.empty());
  EXPECT_EQ(rows(), functions);
}

} // namespace
