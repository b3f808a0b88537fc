// A disk that is full, or fails, at any point of keeping a declaration type.
#include "plannedswitch.hpp"

#include <cerrno>
#include <filesystem>
#include <fstream>

namespace varro2::test {
namespace {

constexpr const char *file_error = "com.quor.Event.Error.File";

class TypesOnABadDisk : public PlannedSwitch {
 protected:
  Answer ask(const char *member, GVariant *arguments) {
    return caller_.call("com.quor.Event.Switch", "/com/quor/Event/Switch",
                        "com.quor.Event.Switch.Producer", member, arguments);
  }
  Answer add(const char *type) {
    return ask("AddDeclaration",
               g_variant_new("(s@ay)", type, bytes_variant(greeting_bytes()).get()));
  }
  Answer remove(const char *type) { return ask("RemoveDeclaration", g_variant_new("(s)", type)); }

  static Bytes greeting_bytes() {
    GByteArray *array = event_declaration_serialize(greeting().get());
    const Bytes bytes{array->data, array->data + array->len};
    g_byte_array_unref(array);
    return bytes;
  }

  // What stands in the folder, by file name.
  std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> found;
    if (std::filesystem::exists(own_types()))
      for (const auto &entry : std::filesystem::directory_iterator{own_types()}) {
        std::ifstream stream{entry.path()};
        found[entry.path().filename()] = {std::istreambuf_iterator<char>{stream}, {}};
      }
    return found;
  }
};

// Whole or not at all, and whoever asked knows which.
TEST_F(TypesOnABadDisk, AddedTypeIsThereWholeOrNotAtAll) {
  ASSERT_EQ(add("Kept").error_name, "");
  const auto kept = files();
  ASSERT_EQ(kept.size(), 1U);
  const std::string whole = kept.begin()->second;
  int failures = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE(call);
    plan_.fail(call, ENOSPC);
    const Answer answer = add("Another");
    const bool reached = plan_.has_failed();
    plan_.fail(0, 0);
    const auto after = files();
    if (answer.error_name.empty()) {
      ASSERT_EQ(after.size(), 2U);
      for (const auto &[name, text] : after)
        EXPECT_EQ(text, whole) << name;
      ASSERT_EQ(remove("Another").error_name, "");
    } else {
      ++failures;
      EXPECT_EQ(answer.error_name, file_error);
      EXPECT_NE(answer.error_message.find("No space left on device"), std::string::npos)
          << answer.error_message;
      EXPECT_EQ(after, kept);
    }
    ASSERT_EQ(files(), kept);
    if (!reached)
      break;
  }
  EXPECT_GT(failures, 3); // to open, to write, to sync, to put in place
}

// The bytes are on the disk before they have their name, and the name is before the answer.
TEST_F(TypesOnABadDisk, WhatIsAnsweredOutlivesAPowerCut) {
  ASSERT_EQ(add("Kept").error_name, "");
  plan_.fail(0, 0);
  ASSERT_EQ(add("Another").error_name, "");
  const std::string calls = plan_->names;
  const std::size_t written = calls.rfind('w');
  const std::size_t synced = calls.find('s', written);
  const std::size_t named = calls.find('R');
  ASSERT_NE(written, std::string::npos) << calls;
  EXPECT_LT(synced, named) << calls;
  EXPECT_NE(calls.find('s', named), std::string::npos) << calls;
  plan_.fail(0, 0);
  ASSERT_EQ(remove("Another").error_name, "");
  const std::string removing = plan_->names;
  EXPECT_NE(removing.find('s', removing.find('u')), std::string::npos) << removing;
}

TEST_F(TypesOnABadDisk, RefusedRemovalSaysSoAndCanBeRepeated) {
  int failures = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE(call);
    ASSERT_EQ(add("Passing").error_name, "");
    plan_.fail(call, EIO);
    const Answer answer = remove("Passing");
    const bool reached = plan_.has_failed();
    plan_.fail(0, 0);
    if (reached) {
      EXPECT_EQ(answer.error_name, file_error);
      EXPECT_NE(answer.error_message.find("Input/output error"), std::string::npos)
          << answer.error_message;
      ++failures;
      if (!files().empty()) {
        EXPECT_EQ(remove("Passing").error_name, "");
      }
    } else {
      EXPECT_EQ(answer.error_name, "");
    }
    ASSERT_TRUE(files().empty());
    if (!reached)
      break;
  }
  EXPECT_GT(failures, 1); // to take the file away, to sync
}

TEST_F(TypesOnABadDisk, SwitchLivesOnWhenItsTypesCannotBeRead) {
  ASSERT_EQ(add("Kept").error_name, "");
  int failures = 0;
  for (int call = 1;; ++call) {
    SCOPED_TRACE(call);
    plan_.fail(call, EIO);
    const Answer answer = caller_.call("com.quor.Event.Switch", "/com/quor/Event/Switch",
                                       "com.quor.Event.Switch.Query", "GetDeclarationTypes");
    const bool reached = plan_.has_failed();
    plan_.fail(0, 0);
    EXPECT_EQ(answer.signature, "ay");
    if (!reached)
      break;
    ++failures;
  }
  EXPECT_GT(failures, 0);
}

} // namespace
} // namespace varro2::test
