#include "plain.hpp"

namespace varro2::fuzz {

PlainBucket *PlainList::find(std::string_view key) {
  for (PlainBucket &bucket : keys)
    if (bucket.front().key == key)
      return &bucket;
  return nullptr;
}

void PlainList::add(const PlainPair &pair) {
  auto &table = pair.any_key ? any_keys : keys;
  for (PlainBucket &bucket : table)
    if (pair.any_key ? bucket.front().value == pair.value : bucket.front().key == pair.key) {
      bucket.push_back(pair);
      return;
    }
  table.push_back({pair});
}

RecordWriter &RecordWriter::number(std::uint64_t value, int width) {
  for (int index = 0; index < width; ++index)
    record_ += static_cast<char>(value >> (8 * index) & 0xFF);
  return *this;
}

RecordWriter &RecordWriter::text(std::string_view text) {
  return u16(text.size()).bytes(text);
}

RecordWriter &RecordWriter::texts(const std::vector<std::string> &texts) {
  u16(texts.size());
  for (const std::string &each : texts)
    text(each);
  return *this;
}

RecordWriter &RecordWriter::bytes(std::string_view bytes) {
  record_ += bytes;
  return *this;
}

RecordWriter &RecordWriter::pair(const PlainPair &pair) {
  u8(0xF5).text(pair.key).u8(pair.any_key).text(pair.name_space).text(pair.key_nice_name);
  text(pair.value).u8(pair.any_value).text(pair.value_nice_name).text(pair.user_string);
  return text(pair.complex_type).u8(pair.negated).u8(pair.type).texts(pair.tags);
}

RecordWriter &RecordWriter::bucket(const PlainBucket &bucket) {
  u8(0xF4).u16(bucket.size());
  for (const PlainPair &each : bucket)
    pair(each);
  return *this;
}

RecordWriter &RecordWriter::list(const PlainList &list) {
  u8(0xF3).u16(list.keys.size());
  for (const PlainBucket &each : list.keys)
    bucket(each);
  u16(list.any_keys.size());
  for (const PlainBucket &each : list.any_keys)
    bucket(each);
  return *this;
}

RecordWriter &RecordWriter::container(const PlainContainer &container) {
  u8(0xF2).u16(container.lists.size()).u8(container.type).u8(container.internal);
  for (const PlainList &each : container.lists)
    list(each);
  return texts(container.tags);
}

RecordWriter &RecordWriter::event(const PlainContainer &keys, std::string_view user_data,
                                  bool with_time) {
  u8(0xF1).container(keys).u16(user_data.size()).bytes(user_data);
  if (with_time)
    u32(123456).u64(1700000000);
  else
    u32(0x7FFFFFFF);
  return u32(11).u32(12).u32(13).u8(1);
}

RecordWriter &RecordWriter::declaration(const PlainContainer &keys) {
  return u8(0xF0).u32(21).u32(22).u32(23).u8(0).u64(0).u64(0).container(keys);
}

RecordWriter &RecordWriter::expression(const PlainContainer &tests, std::uint32_t id,
                                       bool clandestine) {
  u8(0xF6).u32(id).text(":1.7").text("/com/quor/Event/Consumer/7");
  return u32(9).u8(clandestine).container(tests);
}

RecordWriter &RecordWriter::property_state(const PlainContainer &keys) {
  return u8(0xF9).container(keys);
}

RecordWriter &RecordWriter::notification(const PlainContainer &tests, const PlainContainer &keys) {
  const RecordWriter se = RecordWriter{}.expression(tests);
  const RecordWriter declared = RecordWriter{}.declaration(keys);
  u8(0xFA).u16(0).u32(0x7FFFFFFF).u32(1).u32(2).u8(0);
  return u32(se.size()).bytes(se.str()).u32(declared.size()).bytes(declared.str());
}

} // namespace varro2::fuzz
