// The binary forms as another program would write them: nothing of the library's is used here.
#pragma once

#include "foreignpeer.hpp"

#include <cstdint>
#include <string>
#include <vector>

namespace varro2::test::wire {

// Appends fields; little-endian, as on every machine that this is tested on.
class Writer {
 public:
  Writer &u8(std::uint8_t value);
  Writer &u16(std::uint16_t value);
  Writer &u32(std::uint32_t value);
  Writer &i64(std::int64_t value);
  Writer &text(const std::string &value); // 16-bit length and the bytes
  Writer &bytes(const Bytes &value);
  const Bytes &result() const { return bytes_; }

 private:
  Bytes bytes_;
};

enum ValueType : std::uint8_t { integer = 1, boolean = 2, number = 3, string = 4 };
enum ContainerType : std::uint8_t { declaration = 0, event = 1, expression = 2, state = 3 };

struct Pair {
  std::string key;
  std::string value;
  std::uint8_t value_type = string;
  bool any_value = false;
  bool any_key = false;
  bool negated = false;
  std::string name_space;
  std::vector<std::string> tags;
};
using AndList = std::vector<Pair>; // each key once

inline Pair open(std::string key, ValueType type) {
  Pair pair;
  pair.key = std::move(key);
  pair.value_type = type;
  pair.any_value = true;
  return pair;
}

Bytes container(ContainerType type, bool internal, const std::vector<AndList> &lists);

struct Subscription {
  std::uint32_t id = 0;
  std::string service;
  std::string object;
  std::uint32_t token = 0;
  bool clandestine = false;
};
Bytes subscription(const Subscription &header, const std::vector<AndList> &lists);

struct EventHeader {
  std::uint32_t global_id = 0;
  std::uint32_t local_id = 0;
  std::uint32_t producer_id = 0;
  bool property = false;
};
// With the time 1700000000.000005.
Bytes stamped_event(const EventHeader &header, const AndList &pairs);

// An event on the wire, its time stamp taken out: what is left does not change with the clock.
Bytes without_time(const Bytes &event);

Bytes notification(std::uint32_t subscription_id, std::uint32_t declaration_id, bool removed,
                   const Bytes &expression, const Bytes &declaration_record);

struct DeclarationHeader {
  std::uint32_t producer_id = 0;
  std::uint32_t local_id = 0;
  std::uint32_t global_id = 0;
  bool property = false;
};
// Without a property hook: both pointers are 0.
Bytes declaration_record(const DeclarationHeader &header, bool internal, const AndList &pairs);

Bytes property_state(const AndList &pairs);

} // namespace varro2::test::wire
