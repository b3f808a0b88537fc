// The program under test: a run of it, and what it printed.
#pragma once

#include "childprocess.hpp"

#include <jansson.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

namespace varro2::test {

struct Result {
  int code;
  std::string output;
  std::string errors;
};

// Returns when it has ended.
inline Result varro2(std::vector<std::string> arguments, const std::string &input = {}) {
  arguments.insert(arguments.begin(), VARRO2);
  ChildProcess process{arguments};
  process.write(input);
  process.close_input();
  const int code = process.wait();
  return {code, process.output(), process.errors()};
}

inline std::size_t lines_in(const std::string &text) {
  return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

class Json {
 public:
  explicit Json(const std::string &text) : json_{json_loads(text.c_str(), 0, nullptr)} {}
  ~Json() { json_decref(json_); }
  Json(const Json &) = delete;
  Json &operator=(const Json &) = delete;
  const json_t *at(const char *member) const { return json_object_get(json_, member); }
  const json_t *value(const char *key) const { return json_object_get(at("values"), key); }
  explicit operator bool() const { return json_ != nullptr; }

 private:
  json_t *json_;
};

} // namespace varro2::test
