#include "wire.hpp"

#include <map>
#include <stdexcept>

namespace varro2::test::wire {
namespace {

template <typename T>
void append(Bytes &bytes, T value) {
  for (std::size_t i = 0; i < sizeof value; ++i)
    bytes.push_back(static_cast<std::uint8_t>(static_cast<std::uint64_t>(value) >> (8 * i)));
}

void write_pair(Writer &writer, const Pair &pair) {
  writer.u8(0xF5).text(pair.key).u8(pair.any_key).text(pair.name_space).text("");
  writer.text(pair.value).u8(pair.any_value).text("").text("").text("");
  writer.u8(pair.negated).u8(pair.value_type);
  writer.u16(static_cast<std::uint16_t>(pair.tags.size()));
  for (const auto &tag : pair.tags)
    writer.text(tag);
}

void write_buckets(Writer &writer, const AndList &pairs, bool any_key) {
  std::uint16_t count = 0;
  for (const auto &pair : pairs)
    count = static_cast<std::uint16_t>(count + (pair.any_key == any_key));
  writer.u16(count);
  for (const auto &pair : pairs) {
    if (pair.any_key != any_key)
      continue;
    writer.u8(0xF4).u16(1);
    write_pair(writer, pair);
  }
}

std::size_t u16_at(const Bytes &bytes, std::size_t at) {
  return bytes.at(at) | static_cast<std::size_t>(bytes.at(at + 1)) << 8U;
}

// Where the container that begins there ends.
std::size_t end_of_container(const Bytes &bytes, std::size_t at) {
  auto skip_text = [&] { at += 2 + u16_at(bytes, at); };
  auto skip_pair = [&] {
    if (bytes.at(at++) != 0xF5)
      throw std::runtime_error{"no pair"};
    skip_text();
    at += 1;
    skip_text();
    skip_text();
    skip_text();
    at += 1;
    skip_text();
    skip_text();
    skip_text();
    at += 2;
    auto tags = u16_at(bytes, at);
    at += 2;
    while (tags-- > 0)
      skip_text();
  };
  auto lists = u16_at(bytes, at + 1);
  at += 5;
  while (lists-- > 0) {
    at += 1;
    for (int table = 0; table < 2; ++table) {
      auto buckets = u16_at(bytes, at);
      at += 2;
      while (buckets-- > 0) {
        auto pairs = u16_at(bytes, at + 1);
        at += 3;
        while (pairs-- > 0)
          skip_pair();
      }
    }
  }
  auto tags = u16_at(bytes, at);
  at += 2;
  while (tags-- > 0)
    skip_text();
  return at;
}

} // namespace

Writer &Writer::u8(std::uint8_t value) {
  append(bytes_, value);
  return *this;
}

Writer &Writer::u16(std::uint16_t value) {
  append(bytes_, value);
  return *this;
}

Writer &Writer::u32(std::uint32_t value) {
  append(bytes_, value);
  return *this;
}

Writer &Writer::i64(std::int64_t value) {
  append(bytes_, value);
  return *this;
}

Writer &Writer::text(const std::string &value) {
  u16(static_cast<std::uint16_t>(value.size()));
  bytes_.insert(bytes_.end(), value.begin(), value.end());
  return *this;
}

Writer &Writer::bytes(const Bytes &value) {
  bytes_.insert(bytes_.end(), value.begin(), value.end());
  return *this;
}

Bytes container(ContainerType type, bool internal, const std::vector<AndList> &lists) {
  Writer writer;
  writer.u8(0xF2).u16(static_cast<std::uint16_t>(lists.size())).u8(type).u8(internal);
  for (const auto &list : lists) {
    writer.u8(0xF3);
    write_buckets(writer, list, false);
    write_buckets(writer, list, true);
  }
  return writer.u16(0).result();
}

Bytes subscription(const Subscription &header, const std::vector<AndList> &lists) {
  return Writer{}
      .u8(0xF6)
      .u32(header.id)
      .text(header.service)
      .text(header.object)
      .u32(header.token)
      .u8(header.clandestine)
      .bytes(container(expression, false, lists))
      .result();
}

Bytes stamped_event(const EventHeader &header, const AndList &pairs) {
  return Writer{}
      .u8(0xF1)
      .bytes(container(event, false, {pairs}))
      .u16(0)
      .u32(5)
      .i64(1'700'000'000)
      .u32(header.global_id)
      .u32(header.local_id)
      .u32(header.producer_id)
      .u8(header.property)
      .result();
}

Bytes without_time(const Bytes &event) {
  const std::size_t time = end_of_container(event, 1) + 2; // no user data
  if (event.size() != time + 12 + 13)
    throw std::runtime_error{"an event without time stamp, or with user data"};
  Bytes rest(event.begin(), event.begin() + static_cast<std::ptrdiff_t>(time));
  rest.insert(rest.end(), event.begin() + static_cast<std::ptrdiff_t>(time + 12), event.end());
  return rest;
}

Bytes notification(std::uint32_t subscription_id, std::uint32_t declaration_id, bool removed,
                   const Bytes &expression, const Bytes &declaration_record) {
  return Writer{}
      .u8(0xFA)
      .u16(0)
      .u32(0x7FFFFFFF)
      .u32(subscription_id)
      .u32(declaration_id)
      .u8(removed)
      .u32(static_cast<std::uint32_t>(expression.size()))
      .bytes(expression)
      .u32(static_cast<std::uint32_t>(declaration_record.size()))
      .bytes(declaration_record)
      .result();
}

Bytes declaration_record(const DeclarationHeader &header, bool internal, const AndList &pairs) {
  return Writer{}
      .u8(0xF0)
      .u32(header.producer_id)
      .u32(header.local_id)
      .u32(header.global_id)
      .u8(header.property)
      .i64(0)
      .i64(0)
      .bytes(container(declaration, internal, {pairs}))
      .result();
}

Bytes property_state(const AndList &pairs) {
  return Writer{}.u8(0xF9).bytes(container(state, false, {pairs})).result();
}

} // namespace varro2::test::wire
