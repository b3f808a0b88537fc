// Which subscriptions and declarations may fit each other, found without asking all of them.
//
// What comes out of an index is a superset of what fits: everything in it still has to be asked.
#pragma once

#include "inspectable.hpp"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace varro2::switchd {

// In ascending order, each once. Ids are handed out in ascending order, so adding is mostly
// appending.
using IdList = std::vector<std::uint32_t>;

struct TextHash : std::hash<std::string_view> {
  using is_transparent = void;
};
using IdsByText = std::unordered_map<std::string, IdList, TextHash, std::equal_to<>>;

struct KeyEntry {
  IdsByText values; // by the value that is asked for, or that a fact has
  IdList open;      // any value is good

  bool empty() const { return values.empty() && open.empty(); }
};
using IdsByKey = std::unordered_map<GQuark, KeyEntry>;

// Subscriptions by one test of each of their and-lists, which a declaration must pass if it is to
// fit: the rarest one that asks for a value; without such a test one that asks for a key, then one
// that asks for a value under any key. What has only negated tests is asked always.
class TestIndex {
 public:
  void add(std::uint32_t id, const Inspectable &tests);
  void remove(std::uint32_t id, const Inspectable &tests);
  IdList candidates(const Inspectable &facts) const;

 private:
  IdList &list_for(const AndList &tests);

  IdsByKey keys_;
  IdsByText values_of_any_key_;
  IdList always_;
};

// Declarations by everything that they state.
class FactIndex {
 public:
  void add(std::uint32_t id, const Inspectable &facts);
  void remove(std::uint32_t id, const Inspectable &facts);
  // Nothing when all have to be asked.
  std::optional<IdList> candidates(const Inspectable &tests) const;

 private:
  std::optional<IdList> candidates(const AndList &tests) const;

  IdsByKey keys_;
};

} // namespace varro2::switchd
