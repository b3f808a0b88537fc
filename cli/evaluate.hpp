// Whether an event fits an expression, and why not. The verdict is the one that the library gives
// when it delivers; that one only says yes or no.
#pragma once

#include "expression.hpp"
#include "pairs.hpp"

#include <string>
#include <vector>

namespace varro2::cli {

struct Finding {
  bool holds;
  std::string reason; // "port is 2"
};

struct ListFinding {
  bool holds;
  std::vector<Finding> tests; // in the order of the list's tests
};

Finding evaluate(const Test &test, const Record &record);
std::vector<ListFinding> evaluate(const Expression &expression, const Record &record);
bool holds(const Expression &expression, const Record &record);

} // namespace varro2::cli
