// The keys of an event as the codecs write it, for any number of keys.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Fact {
  std::string key;
  std::string value;
  std::string name_space;
  std::string nice_name;
};

// Every other key is open in the declaration and set in the event.
inline std::vector<Fact> facts(std::int64_t count) {
  std::vector<Fact> made;
  for (std::int64_t at = 0; at < count; ++at) {
    const std::string number = std::to_string(at);
    made.push_back({"key" + number, "a value " + number, at % 4 == 0 ? "tns1" : "",
                    at % 4 == 1 ? "Name of key " + number : ""});
  }
  return made;
}

// The numbers of keys that rows are measured with.
template <typename Row>
void key_counts(Row *row) {
  for (const std::int64_t keys : {1, 8, 32, 256, 4096})
    row->Arg(keys);
}

} // namespace bench
