// The library's way from an event's values to bytes and back.
#pragma once

#include "facts.hpp"

#include <varro2/varro2.h>

#include <benchmark/benchmark.h>

#include <cstdlib>

namespace bench {

class Library {
 public:
  explicit Library(const std::vector<Fact> &all)
      : facts_{all}, declaration_{declare()}, prepared_{event_declaration_generate_event(
                                                  declaration_)},
        filled_{build()}, bytes_{event_serialize(filled_)} {}
  ~Library() {
    event_declaration_free(declaration_);
    event_free(prepared_);
    event_free(filled_);
    g_byte_array_unref(bytes_);
  }

  // From nothing: a declaration, and an event of it.
  void create() const {
    EventDeclaration *declaration = declare();
    Event *event = event_declaration_generate_event(declaration);
    benchmark::DoNotOptimize(event);
    event_free(event);
    event_declaration_free(declaration);
  }
  void write() const {
    Event *event = build();
    GByteArray *bytes = event_serialize(event);
    benchmark::DoNotOptimize(bytes->data);
    g_byte_array_unref(bytes);
    event_free(event);
  }
  void serialise() const {
    GByteArray *bytes = event_serialize(filled_);
    benchmark::DoNotOptimize(bytes->data);
    g_byte_array_unref(bytes);
  }
  void copy() const {
    Event *event = event_copy(filled_);
    benchmark::DoNotOptimize(event);
    event_free(event);
  }
  // Back to an object, with every value looked at by its key.
  void read() const {
    Event *event = event_deserialize(bytes_);
    for (const Fact &fact : facts_)
      benchmark::DoNotOptimize(event_get_value(event, fact.key.c_str()));
    event_free(event);
  }
  void json() const {
    char *text = event_get_json(filled_, nullptr);
    benchmark::DoNotOptimize(text);
    std::free(text);
  }
  std::size_t size() const { return bytes_->len; }
  const std::vector<Fact> &facts() const { return facts_; }
  const EventDeclaration *declaration() const { return declaration_; }
  const Event *filled() const { return filled_; }

 private:
  EventDeclaration *declare() const {
    EventDeclaration *declaration = event_declaration_new(FALSE);
    for (std::size_t at = 0; at < facts_.size(); ++at) {
      const Fact &fact = facts_[at];
      const char *key = fact.key.c_str();
      if (at % 2 == 0)
        event_declaration_add_key_value(declaration, key, fact.value.c_str(), VALUE_TYPE_STRING);
      else
        event_declaration_add_key(declaration, key, VALUE_TYPE_STRING);
      event_declaration_set_name_space(declaration, key, fact.name_space.c_str());
      event_declaration_set_nice_names(declaration, key, fact.nice_name.c_str(), "");
    }
    return declaration;
  }
  Event *build() const {
    Event *event = event_copy(prepared_);
    for (std::size_t at = 1; at < facts_.size(); at += 2)
      event_set_value(event, facts_[at].key.c_str(), facts_[at].value.c_str());
    event_set_global_id(event, 1);
    event_set_producer_id(event, 1);
    set_event_time_now(event);
    return event;
  }

  std::vector<Fact> facts_;
  EventDeclaration *declaration_;
  Event *prepared_;
  Event *filled_;
  GByteArray *bytes_;
};

} // namespace bench
