// Containers as plain structures, and the records that they have, written without the library.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::fuzz {

struct PlainPair {
  std::string key;
  std::string name_space;
  std::string key_nice_name;
  std::string value;
  std::string value_nice_name;
  std::string user_string;
  std::string complex_type;
  bool any_key = false;
  bool any_value = false;
  bool negated = false;
  bool settable = false; // stands in no record
  std::uint8_t type = 4;
  std::vector<std::string> tags;
};

using PlainBucket = std::vector<PlainPair>; // of one key, or of one value for any key

struct PlainList {
  std::vector<PlainBucket> keys;
  std::vector<PlainBucket> any_keys;

  PlainBucket *find(std::string_view key);
  const PlainBucket *find(std::string_view key) const {
    return const_cast<PlainList *>(this)->find(key);
  }
  // Joins the bucket of its key or value, behind what is there.
  void add(const PlainPair &pair);
};

struct PlainContainer {
  std::uint32_t type = 0; // as the library numbers them
  bool internal = false;
  std::vector<PlainList> lists{PlainList{}};
  std::vector<std::string> tags;
};

// Little-endian, as the library writes on every machine that it runs on.
class RecordWriter {
 public:
  RecordWriter &u8(std::uint64_t value) { return number(value, 1); }
  RecordWriter &u16(std::uint64_t value) { return number(value, 2); }
  RecordWriter &u32(std::uint64_t value) { return number(value, 4); }
  RecordWriter &u64(std::uint64_t value) { return number(value, 8); }
  RecordWriter &text(std::string_view text);
  RecordWriter &texts(const std::vector<std::string> &texts); // a count of 16 bits before them
  RecordWriter &bytes(std::string_view bytes);

  RecordWriter &pair(const PlainPair &pair);
  RecordWriter &list(const PlainList &list);
  RecordWriter &container(const PlainContainer &container);
  // Ids, addresses and times of these are made up.
  RecordWriter &event(const PlainContainer &keys, std::string_view user_data = {},
                      bool with_time = false);
  RecordWriter &declaration(const PlainContainer &keys);
  RecordWriter &expression(const PlainContainer &tests, std::uint32_t id = 3,
                           bool clandestine = false);
  RecordWriter &property_state(const PlainContainer &keys);
  RecordWriter &notification(const PlainContainer &tests, const PlainContainer &keys);

  const std::string &str() const { return record_; }
  const std::uint8_t *data() const {
    return reinterpret_cast<const std::uint8_t *>(record_.data());
  }
  std::size_t size() const { return record_.size(); }

 private:
  RecordWriter &number(std::uint64_t value, int width);
  RecordWriter &bucket(const PlainBucket &bucket);

  std::string record_;
};

} // namespace varro2::fuzz
