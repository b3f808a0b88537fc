// Containers as plain structures, matched the plain way: with marks on pairs and and-lists, in the
// order in which the rules are told. What the library answers is held against this.
#pragma once

#include "modeltest.hpp"

#include <string>
#include <vector>

namespace varro2::test {

struct PlainPair {
  std::string key{};
  std::string value{};
  std::string name_space{};
  std::string key_nice_name{};
  bool key_wildcard = false;
  bool value_wildcard = false;
  bool negated = false;
  guint8 value_type = 4;
  Texts tags{};
  bool evaluated = false;
  bool paired = false;
};

struct PlainBucket {
  std::string name; // the key, or the value for tests of any key
  std::vector<PlainPair> pairs;
};

struct PlainAndList {
  std::vector<PlainBucket> keys{};
  std::vector<PlainBucket> wildcards{};
  bool marked = false;

  void add(const PlainPair &pair);
};

struct PlainInspectable {
  guint32 type;
  std::vector<PlainAndList> and_lists{};
  Texts tags{};
  bool internal = false;
};

// They leave marks in both.
bool plain_contains(PlainInspectable &container, PlainInspectable &containee);
bool plain_equal(PlainInspectable &inspect1, PlainInspectable &inspect2);

Bytes record_of(const PlainInspectable &inspect);

// For the message of a failed test.
std::string describe(const PlainInspectable &inspect);

} // namespace varro2::test
