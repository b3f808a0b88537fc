// Events as JSON, to and fro.
#include "failure.hpp"
#include "recordjson.hpp"

#include <varro2/varro2.h>

#include <gtest/gtest.h>

namespace varro2::cli {
namespace {

Record record_of(const char *key, std::uint32_t type, const char *value) {
  Pair pair;
  pair.key = key;
  pair.type = type;
  pair.value = value;
  Record record;
  record.pairs.push_back(pair);
  return record;
}

TEST(RecordJson, ATimeBefore1970CountsItsFractionUpwards) {
  EXPECT_EQ(iso_time(-500'000), "1969-12-31T23:59:59.500000Z");
  EXPECT_EQ(iso_time(-1'000'000), "1969-12-31T23:59:59.000000Z");
}

TEST(RecordJson, ANumberHasTheDigitsThatItWasGiven) {
  const OwnedJson json{json_pack("{sf}", "level", 0.1)};
  EXPECT_EQ(dump(json.get()), R"({"level":0.1})");
}

TEST(RecordJson, KeepsATypeThatTheValueDoesNotShow) {
  EXPECT_NE(dump(to_json(record_of("count", VALUE_TYPE_INT, "many")).get())
                .find(R"("types":{"count":"int"})"),
            std::string::npos);
}

TEST(RecordJson, ATruthValueThatIsNoneStaysAText) {
  EXPECT_NE(dump(to_json(record_of("up", VALUE_TYPE_BOOL, "2")).get()).find(R"("up":"2")"),
            std::string::npos);
}

TEST(RecordJson, RefusesAValueWithAZeroByte) {
  const OwnedJson json{json_pack("{ss#}", "text", "a\0b", 3)};
  ASSERT_TRUE(json);
  EXPECT_THROW(from_json(json.get()), Failure);
}

} // namespace
} // namespace varro2::cli
