// Events and declarations as JSON that keeps everything, one object:
//
//   {"time":"2026-01-31T12:30:01.250000Z","topic":"tns1:Device/IO",
//    "values":{"topic0":"Device","topic1":"IO","port":1,"state":true},
//    "open":{"level":"double"},"namespaces":{"topic0":"tns1","topic1":"tns1"},
//    "tags":{"port":["onvif-source"]},"property":true,"declaration":3,"producer":1}
//
// Members that would be empty, false or 0 are left out. The value types are those of JSON; "types"
// names the others.
#pragma once

#include "pairs.hpp"

#include <string>

namespace varro2::cli {

std::string iso_time(std::int64_t microseconds); // UTC, six decimals

OwnedJson to_json(const Record &record);
std::string dump(const json_t *json);                               // one line
void put(const OwnedJson &object, const char *name, json_t *value); // takes the value over
json_t *json_text(std::string_view text);
json_t *json_texts(const std::vector<std::string> &texts);

// Also reads an object whose members are the keys and values themselves. Throws Failure, whose
// text begins after "FILE:LINE: ".
Record from_json(const json_t *json);

} // namespace varro2::cli
