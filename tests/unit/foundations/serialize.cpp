// The primitives of the binary form, byte for byte.
#include "serialize.hpp"

#include "owning.hpp"

#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <string>
#include <vector>

namespace {

using varro2::BytesRef;
using varro2::OwnedBytes;
using varro2::OwnedList;
using varro2::OwnedText;
using Bytes = std::vector<int>;

static_assert(std::endian::native == std::endian::little, "the bytes below are little-endian");

Bytes bytes_of(const GByteArray *array) {
  return {array->data, array->data + array->len};
}

BytesRef array_of(const Bytes &bytes) {
  const auto array = BytesRef::adopt(serialize_create_array());
  for (const int byte : bytes) {
    const auto value = static_cast<guint8>(byte);
    g_byte_array_append(array.get(), &value, 1);
  }
  return array;
}

class Serialize : public ::testing::Test {
 protected:
  GByteArray *array() const { return array_.get(); }
  Bytes bytes() const { return bytes_of(array()); }

  BytesRef array_ = BytesRef::adopt(serialize_create_array());
};

TEST_F(Serialize, StartsEmpty) {
  ASSERT_NE(array(), nullptr);
  EXPECT_EQ(array()->len, 0u);
}

TEST_F(Serialize, WritesNumbersInHostOrder) {
  serialize_8bit(array(), 0xAB);
  serialize_16bit(array(), 0x1234);
  serialize_32bit(array(), 0x89ABCDEF);
  EXPECT_EQ(bytes(), (Bytes{0xAB, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x89}));
}

TEST_F(Serialize, WritesPointersAsEightBytes) {
  // Where a pointer has four bytes, the upper ones of the eight are 0.
  serialize_pointer(array(),
                    reinterpret_cast<gconstpointer>(static_cast<guintptr>(0x0102030405060708)));
  serialize_pointer(array(), nullptr);
  if constexpr (sizeof(gpointer) == 8)
    EXPECT_EQ(bytes(), (Bytes{8, 7, 6, 5, 4, 3, 2, 1, 0, 0, 0, 0, 0, 0, 0, 0}));
  else
    EXPECT_EQ(bytes(), (Bytes{8, 7, 6, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

TEST_F(Serialize, WritesStringsWithTheirLength) {
  serialize_string(array(), "abc");
  serialize_string(array(), "");
  serialize_string(array(), "\xC3\xA5");
  EXPECT_EQ(bytes(), (Bytes{3, 0, 'a', 'b', 'c', 0, 0, 2, 0, 0xC3, 0xA5}));
}

TEST_F(Serialize, KeepsOnlyTheLowBitsOfALength) {
  const std::string longest(65'535, 'x');
  serialize_string(array(), longest.c_str());
  EXPECT_EQ(array()->len, 2 + 65'535u);
  EXPECT_EQ(array()->data[0], 0xFF);
  EXPECT_EQ(array()->data[1], 0xFF);
  g_byte_array_set_size(array(), 0);
  serialize_string(array(), (longest + "x").c_str());
  EXPECT_EQ(array()->len, 2 + 65'536u);
  EXPECT_EQ(array()->data[0], 0);
  EXPECT_EQ(array()->data[1], 0);
  EXPECT_EQ(array()->data[2], 'x');
  EXPECT_EQ(array()->data[65'537], 'x');
}

TEST_F(Serialize, WritesBlobsBare) {
  const guint8 data[] = {1, 0, 255};
  serialize_blob(array(), data, 3);
  serialize_blob(array(), nullptr, 0);
  EXPECT_EQ(bytes(), (Bytes{1, 0, 255}));
}

void write_text(gpointer element, GByteArray *array) {
  serialize_string(array, static_cast<const char *>(element));
}

TEST_F(Serialize, WritesListsWithTheirCount) {
  OwnedList list{g_list_append(nullptr, const_cast<char *>("a"))};
  list.reset(g_list_append(list.release(), const_cast<char *>("bc")));
  serialize_glist(array(), list.get(), write_text);
  serialize_glist(array(), nullptr, write_text);
  EXPECT_EQ(bytes(), (Bytes{2, 0, 0, 0, 1, 0, 'a', 2, 0, 'b', 'c', 0, 0, 0, 0}));
}

TEST(Deserialize, ReadsNumbersAndMovesOn) {
  const BytesRef array =
      array_of({0xAB, 0x34, 0x12, 0xEF, 0xCD, 0xAB, 0x89, 8, 7, 6, 5, 4, 3, 2, 1});
  guint32 indx = 0;
  EXPECT_EQ(deserialize_8bit(array.get(), &indx), 0xAB);
  EXPECT_EQ(indx, 1u);
  EXPECT_EQ(deserialize_16bit(array.get(), &indx), 0x1234);
  EXPECT_EQ(indx, 3u);
  EXPECT_EQ(deserialize_32bit(array.get(), &indx), 0x89ABCDEF);
  EXPECT_EQ(indx, 7u);
  EXPECT_EQ(deserialize_pointer(array.get(), &indx),
            reinterpret_cast<gpointer>(0x0102030405060708));
  EXPECT_EQ(indx, 15u);
}

TEST(Deserialize, ReadsStrings) {
  const BytesRef array = array_of({3, 0, 'a', 'b', 'c', 0, 0, 1, 0, 'd'});
  guint32 indx = 0;
  EXPECT_STREQ(OwnedText{deserialize_string(array.get(), &indx)}.get(), "abc");
  EXPECT_EQ(indx, 5u);
  EXPECT_STREQ(OwnedText{deserialize_string(array.get(), &indx)}.get(), "");
  EXPECT_EQ(indx, 7u);
  EXPECT_STREQ(OwnedText{deserialize_string(array.get(), &indx)}.get(), "d");
  EXPECT_EQ(indx, 10u);
}

TEST(Deserialize, KeepsAllBytesOfAStringWithANul) {
  const BytesRef array = array_of({3, 0, 'a', 0, 'c'});
  guint32 indx = 0;
  const OwnedText text{deserialize_string(array.get(), &indx)};
  EXPECT_EQ(std::memcmp(text.get(), "a\0c\0", 4), 0);
}

TEST(Deserialize, ReadsAStringOfTheLastLength) {
  BytesRef array = BytesRef::adopt(serialize_create_array());
  const std::string longest(65'535, 'x');
  serialize_string(array.get(), longest.c_str());
  guint32 indx = 0;
  EXPECT_EQ(OwnedText{deserialize_string(array.get(), &indx)}.get(), longest);
  EXPECT_EQ(indx, array->len);
}

TEST(Deserialize, ReadsBlobs) {
  const BytesRef array = array_of({9, 1, 0, 255});
  guint32 indx = 1;
  const OwnedBytes blob{static_cast<guint8 *>(deserialize_blob(array.get(), &indx, 3))};
  EXPECT_EQ(Bytes(blob.get(), blob.get() + 3), (Bytes{1, 0, 255}));
  EXPECT_EQ(indx, 4u);
  g_free(deserialize_blob(array.get(), &indx, 0));
  EXPECT_EQ(indx, 4u);
}

gpointer read_text(GByteArray *array, guint32 *indx) {
  return deserialize_string(array, indx);
}

TEST(Deserialize, ReadsListsInOrder) {
  const BytesRef array = array_of({2, 0, 0, 0, 1, 0, 'a', 2, 0, 'b', 'c', 7});
  guint32 indx = 0;
  const varro2::OwnedStringList list{deserialize_glist(array.get(), &indx, read_text)};
  ASSERT_EQ(g_list_length(list.get()), 2u);
  EXPECT_STREQ(static_cast<const char *>(list->data), "a");
  EXPECT_STREQ(static_cast<const char *>(list->next->data), "bc");
  EXPECT_EQ(indx, 11u);
}

TEST(Deserialize, ReadsAnEmptyListFromFourBytes) {
  const BytesRef array = array_of({9, 0, 0, 0, 0, 9});
  guint32 indx = 1;
  EXPECT_EQ(deserialize_glist(array.get(), &indx, read_text), nullptr);
  EXPECT_EQ(indx, 5u);
}

using SerializeDeathTest = Serialize;

TEST_F(SerializeDeathTest, WritersNeedAnArray) {
  EXPECT_DEATH(serialize_8bit(nullptr, 1), "serialize_8bit.*array != NULL");
  EXPECT_DEATH(serialize_16bit(nullptr, 1), "serialize_16bit.*array != NULL");
  EXPECT_DEATH(serialize_32bit(nullptr, 1), "serialize_32bit.*array != NULL");
  EXPECT_DEATH(serialize_pointer(nullptr, nullptr), "serialize_pointer.*array != NULL");
  EXPECT_DEATH(serialize_string(nullptr, "a"), "serialize_string.*array != NULL");
  EXPECT_DEATH(serialize_blob(nullptr, "a", 1), "serialize_blob.*array != NULL");
  EXPECT_DEATH(serialize_glist(nullptr, nullptr, write_text), "serialize_glist.*array != NULL");
}

TEST_F(SerializeDeathTest, WritersNeedWhatTheyWrite) {
  EXPECT_DEATH(serialize_string(array(), nullptr), "serialize_string.*string != NULL");
  EXPECT_DEATH(serialize_glist(array(), nullptr, nullptr), "serialize_glist.*serializer != NULL");
}

TEST(DeserializeDeathTest, ReadersNeedAnArray) {
  guint32 indx = 0;
  EXPECT_DEATH(deserialize_8bit(nullptr, &indx), "deserialize_8bit.*array != NULL");
  EXPECT_DEATH(deserialize_16bit(nullptr, &indx), "deserialize_16bit.*array != NULL");
  EXPECT_DEATH(deserialize_32bit(nullptr, &indx), "deserialize_32bit.*array != NULL");
  EXPECT_DEATH(deserialize_pointer(nullptr, &indx), "deserialize_pointer.*array != NULL");
  EXPECT_DEATH(deserialize_string(nullptr, &indx), "deserialize_string.*array != NULL");
  EXPECT_DEATH(deserialize_blob(nullptr, &indx, 1), "deserialize_blob.*array != NULL");
  EXPECT_DEATH(deserialize_glist(nullptr, &indx, read_text), "deserialize_glist.*array != NULL");
}

TEST(DeserializeDeathTest, ListsNeedAnIndexAndAReader) {
  const BytesRef array = array_of({0, 0, 0, 0});
  guint32 indx = 0;
  EXPECT_DEATH(deserialize_glist(array.get(), nullptr, read_text),
               "deserialize_glist.*indx != NULL");
  EXPECT_DEATH(deserialize_glist(array.get(), &indx, nullptr),
               "deserialize_glist.*deserializer != NULL");
}

constexpr const char *past_the_end = "deserialize_size.*array->len >= \\*indx \\+ size";

TEST(DeserializeDeathTest, NothingIsReadPastTheEnd) {
  const BytesRef array = array_of({1, 2, 3});
  guint32 indx = 0;
  EXPECT_DEATH(deserialize_32bit(array.get(), &indx), past_the_end);
  EXPECT_DEATH(deserialize_pointer(array.get(), &indx), past_the_end);
  EXPECT_DEATH(deserialize_blob(array.get(), &indx, 4), past_the_end);
  EXPECT_DEATH(deserialize_glist(array.get(), &indx, read_text), past_the_end);
  indx = 2;
  EXPECT_DEATH(deserialize_16bit(array.get(), &indx), past_the_end);
  EXPECT_DEATH(deserialize_string(array.get(), &indx), past_the_end);
  indx = 3;
  EXPECT_DEATH(deserialize_8bit(array.get(), &indx), past_the_end);
  indx = 4;
  EXPECT_DEATH(deserialize_8bit(array.get(), &indx), past_the_end);
  EXPECT_DEATH(deserialize_blob(array.get(), &indx, 0), past_the_end);
}

TEST(DeserializeDeathTest, AnIndexNearItsLimitDoesNotWrap) {
  const BytesRef array = array_of({1, 2, 3, 4, 5, 6, 7, 8});
  guint32 indx = 0xFFFFFFFF;
  EXPECT_DEATH(deserialize_8bit(array.get(), &indx), past_the_end);
  EXPECT_DEATH(deserialize_32bit(array.get(), &indx), past_the_end);
  indx = 4;
  EXPECT_DEATH(deserialize_blob(array.get(), &indx, 0xFFFFFFFE), past_the_end);
}

TEST(DeserializeDeathTest, AStringMustNotBeLongerThanTheRest) {
  const BytesRef array = array_of({4, 0, 'a', 'b', 'c'});
  guint32 indx = 0;
  EXPECT_DEATH(deserialize_string(array.get(), &indx),
               "deserialize_string.*array->len >= \\*indx \\+ length");
}

TEST(DeserializeDeathTest, AListMustHoldWhatItCounts) {
  const BytesRef array = array_of({2, 0, 0, 0, 1, 0, 'a'});
  guint32 indx = 0;
  EXPECT_DEATH(deserialize_glist(array.get(), &indx, read_text), past_the_end);
}

TEST(TypeIdentifiers, HaveTheirNumbers) {
  EXPECT_EQ(SERIALIZE_ID_EVENT_DECLARATION, 240);
  EXPECT_EQ(SERIALIZE_ID_EVENT, 241);
  EXPECT_EQ(SERIALIZE_ID_INSPECTABLE, 242);
  EXPECT_EQ(SERIALIZE_ID_ANDLIST, 243);
  EXPECT_EQ(SERIALIZE_ID_BUCKET, 244);
  EXPECT_EQ(SERIALIZE_ID_KEYVALUE, 245);
  EXPECT_EQ(SERIALIZE_ID_SUBSCRIBE_EXPRESSION, 246);
  EXPECT_EQ(SERIALIZE_ID_PROPERTY_STATE, 249);
  EXPECT_EQ(SERIALIZE_ID_NOTIFICATION, 250);
}

// A record as the objects write theirs.
struct Sample {
  template <typename Sink>
  void write(Sink &sink) const {
    sink.u8(SERIALIZE_ID_KEYVALUE);
    sink.u16(0x1234);
    sink.u32(5);
    sink.pointer(reinterpret_cast<gconstpointer>(1));
    sink.text("ab");
    sink.text("");
    sink.blob("xy", 2);
  }
};

const Bytes sample_bytes = {245, 0x34, 0x12, 5, 0, 0,   0,   1, 0, 0,   0,  0,
                            0,   0,    0,    2, 0, 'a', 'b', 0, 0, 'x', 'y'};

TEST(Records, AreWrittenAsByThePrimitives) {
  EXPECT_EQ(varro2::record_size(Sample{}), sample_bytes.size());
  EXPECT_EQ(bytes_of(varro2::new_record(Sample{}).get()), sample_bytes);
}

TEST(Records, AreAppended) {
  const BytesRef array = array_of({7});
  varro2::append_record(array.get(), Sample{});
  Bytes expected = sample_bytes;
  expected.insert(expected.begin(), 7);
  EXPECT_EQ(bytes_of(array.get()), expected);
}

TEST(Records, AreReadBack) {
  const BytesRef array = array_of(sample_bytes);
  guint32 indx = 0;
  varro2::Reader reader{array.get(), &indx};
  EXPECT_EQ(reader.u8(), SERIALIZE_ID_KEYVALUE);
  EXPECT_EQ(reader.u16(), 0x1234);
  EXPECT_EQ(reader.u32(), 5u);
  EXPECT_EQ(reader.pointer(), reinterpret_cast<gpointer>(1));
  EXPECT_EQ(reader.text(), "ab");
  EXPECT_EQ(reader.text(), "");
  EXPECT_EQ(reader.remaining(), 2u);
  EXPECT_EQ(std::memcmp(reader.blob(2), "xy", 2), 0);
  EXPECT_EQ(reader.remaining(), 0u);
  EXPECT_EQ(indx, sample_bytes.size());
}

} // namespace
