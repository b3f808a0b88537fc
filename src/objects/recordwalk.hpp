// Looks at the bytes of a record before they are read: what passes, every reader reads to its end,
// and what it reads can be matched, walked through and printed.
#pragma once

#include <varro2/serialize.h>

#include <glib.h>

#include <string_view>

namespace varro2 {

// Goes over the bytes once, from front to back, and takes no memory. Each function moves on over
// one record and returns false when there is none of that kind; where it then stands means nothing.
class RecordWalk {
 public:
  RecordWalk(const guint8 *data, std::size_t length, std::size_t index = 0) noexcept
      : at_{data + (index < length ? index : length)}, end_{data + length} {}

  // type_id is one of the bytes that open a record.
  bool record(guint32 type_id) noexcept;

  // A count of 32 bits and so many declarations, as a query is answered.
  bool declaration_list() noexcept;

  // Any text passes as a value, whatever its type, until truth values are asked to be one of the
  // two that a typed reading takes.
  void require_truth_values() noexcept { truth_values_required_ = true; }

  bool at_end() const noexcept { return at_ == end_; }

  // Has the key of each pair told on the way, before it is known whether all the bytes are good.
  using KeyVisitor = void (*)(void *user_data, std::string_view key) noexcept;
  void visit_keys(KeyVisitor visitor, void *user_data) noexcept {
    visitor_ = visitor;
    visitor_data_ = user_data;
  }

 private:
  struct Test {
    std::string_view key; // as the reader takes it: none for a test of any key
    std::string_view value;
    bool any_key;
  };
  enum class Buckets { of_keys, of_any_key, of_either };

  bool pair(Test &test) noexcept;
  bool bucket(Buckets kind) noexcept;
  bool and_list() noexcept;
  bool any_inspectable() noexcept;
  bool inspectable(guint32 type) noexcept;
  bool event() noexcept;
  bool declaration() noexcept;
  bool expression() noexcept;
  bool property_state() noexcept;
  bool notification() noexcept;

  // What the records are made of.
  bool opens(guint32 type_id) noexcept;
  bool number(guint32 &value, std::size_t size) noexcept;
  bool skip(std::size_t size) noexcept;
  bool text(std::string_view &text) noexcept;
  bool texts(std::size_t count) noexcept;
  bool tags() noexcept;
  bool user_data() noexcept;
  bool timestamp() noexcept;
  // A length of 32 bits and exactly one record of that length.
  template <bool (RecordWalk::*part)() noexcept>
  bool embedded() noexcept;

  const guint8 *at_;
  const guint8 *end_;
  KeyVisitor visitor_ = nullptr;
  void *visitor_data_ = nullptr;
  bool truth_values_required_ = false;
};

} // namespace varro2
