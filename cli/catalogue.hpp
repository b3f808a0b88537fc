// What is declared, asked of the switch.
#pragma once

#include "pairs.hpp"

#include <string>
#include <vector>

namespace varro2::cli {

// Both throw Failure when the switch does not answer.
std::vector<Record> ask_declarations();

struct DeclaredType {
  std::size_t number; // its place in the switch's answer, from 1
  std::string name;   // empty when no file of the system's folders holds it
  std::string file;
  Record record;

  // The name, or "#NUMBER".
  std::string handle() const { return name.empty() ? '#' + std::to_string(number) : name; }
};
std::vector<DeclaredType> ask_types();

// Names of the types in the system's folders, whether there is a switch or not.
std::vector<std::string> type_names();

// What a declaration of the type leaves open and fixes; nothing when there is no such type.
std::optional<Record> type_record(const std::string &type);
// Throws Failure: "there is no declaration type 'X'; did you mean ...".
Record require_type(const std::string &type);

// A topic, its beginning or its end, or an id: "tns1:Device/IO", "Device", "IO", "7".
bool is_meant(const Record &record, const std::string &topic_or_id);

// The state of one property as its keys; nothing when it is not known. The reason goes to `why`.
std::optional<Record> ask_state(EventConsumer *consumer, const SubscribeExpression &expression,
                                std::string *why, int *code = nullptr);

// A property state knows texts only: takes value types and names from the declaration it is of.
void take_types(Record &state, const std::vector<Record> &declarations);

} // namespace varro2::cli
