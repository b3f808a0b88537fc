// Everything that can be done to containers, in any order, beside a model of plain structures.
#include "plain.hpp"
#include "target.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <map>
#include <optional>
#include <utility>

namespace varro2::fuzz {
namespace {

constexpr const char *long_word =
    "a text that is longer than the room that is kept for a value which is still to come, so that "
    "it has to go elsewhere, and then comes back";
constexpr const char *keys[] = {"a", "b", "topic0", "", "c", "d", "e", "f"};
constexpr const char *words[] = {"",        "1", "0",   "2.9", "-3", "twelve bytes",
                                 long_word, "x", "nan", "1e99"};
constexpr const char *tags[] = {"x", "y", "property-state", ""};

struct Model {
  PlainContainer content;
  bool hidden = false; // positions, of a declaration that was read

  PlainList &current() { return content.lists.back(); }
  PlainPair *find(const std::string &key) {
    PlainBucket *bucket = current().find(key);
    return bucket != nullptr ? &bucket->front() : nullptr;
  }
  std::size_t positions() { return hidden ? 0 : current().keys.size(); }
};

struct Slot {
  InspectableOwner container;
  Model model;
};

// A text that was lent, and must be as it was until its pair changes.
struct Lent {
  std::size_t slot;
  std::string key;
  const char *text;
  std::string copy;
};

bool one_of(guint32 type, std::initializer_list<guint32> allowed) {
  return std::find(allowed.begin(), allowed.end(), type) != allowed.end();
}

class Play {
 public:
  explicit Play(Choices &choices) : choices_{choices} {
    for (std::size_t at = 0; at < slots_.size(); ++at)
      start(at, static_cast<guint32>(at));
  }

  void run() {
    for (int step = 0; !choices_.at_end() && step < 200; ++step) {
      const std::size_t at = choices_.below(4);
      change(at);
      check_record(at);
      if (step % 16 == 0)
        check(at);
    }
    for (std::size_t at = 0; at < slots_.size(); ++at) {
      check_record(at);
      check(at);
    }
  }

 private:
  // ---- Steps

  void start(std::size_t at, guint32 type) {
    forget(at);
    slots_[at].container.reset(inspectable_new(type));
    slots_[at].model = {};
    slots_[at].model.content.type = type;
  }

  void change(std::size_t at) {
    Slot &slot = slots_[at];
    const std::string key = choices_.below(8) == 7 ? "key" + std::to_string(choices_.below(60))
                                                   : std::string{choices_.one_of(keys)};
    switch (choices_.below(20)) {
    case 0:
      return start(at, choices_.below(4));
    case 1:
      return copy(at);
    case 2:
      return read_back(at);
    case 3:
      return alternative(slot);
    case 4:
      slot.model.content.internal = choices_.flag();
      VARRO2_ASSERT(inspectable_set_internal(slot.container.get(), slot.model.content.internal));
      return;
    case 5:
      return add_tag(slot);
    case 6:
    case 7:
      return set_value(at, key, false);
    case 8:
      return set_value(at, key, true);
    case 9:
    case 10:
      return set_text(at, key);
    case 11:
      return add_key_tag(slot, key);
    case 12:
      return set_type(slot, key);
    case 13:
      return lend(at, key);
    default:
      return add(at, key);
    }
  }

  void add(std::size_t at, const std::string &key) {
    Slot &slot = slots_[at];
    const guint32 type = slot.model.content.type;
    PlainPair pair;
    const unsigned kind = choices_.below(8);
    pair.any_key = kind == 1 && type == IT_SUBSCRIBE_EXPRESSION;
    pair.any_value = kind == 2 || kind == 3;
    pair.settable = pair.any_value;
    pair.negated = choices_.below(4) == 1;
    if (!pair.any_key)
      pair.key = key;
    if (!pair.any_value)
      pair.value = choices_.text(words);
    // A key once, in these.
    if (one_of(type, {IT_EVENT, IT_PROPERTY_STATE}) && slot.model.find(key) != nullptr)
      return;
    forget(at, key);
    VARRO2_ASSERT(inspectable_add_key_value(
        slot.container.get(), pair.any_key ? nullptr : key.c_str(), pair.any_key,
        pair.any_value ? nullptr : pair.value.c_str(), pair.any_value, pair.negated));
    slot.model.hidden = false;
    PlainBucket *declared = slot.model.current().find(pair.key);
    if (type == IT_EVENT_DECLARATION && declared != nullptr)
      *declared = {pair};
    else
      slot.model.current().add(pair);
  }

  // Whether the key's pair takes a value.
  void set_value(std::size_t at, const std::string &key, bool as_typed) {
    Slot &slot = slots_[at];
    if (!one_of(slot.model.content.type, {IT_EVENT, IT_EVENT_DECLARATION}))
      return;
    PlainPair *pair = slot.model.find(key);
    const bool takes = pair != nullptr && pair->settable;
    std::string text = choices_.text(words);
    if (takes)
      forget(at, key);
    gboolean done = FALSE;
    if (!as_typed) {
      done = inspectable_set_value_as_string(slot.container.get(), key.c_str(), text.c_str());
    } else {
      const auto number = static_cast<gint32>(choices_.number());
      const double real = number / 8.0;
      const gboolean flag = number & 1;
      const std::uint8_t type = pair != nullptr ? pair->type : std::uint8_t{VALUE_TYPE_STRING};
      const void *value = text.c_str();
      if (type == VALUE_TYPE_INT) {
        value = &number;
        text = std::to_string(number);
      } else if (type == VALUE_TYPE_BOOL) {
        value = &flag;
        text = flag ? "1" : "0";
      } else if (type == VALUE_TYPE_DOUBLE) {
        value = &real;
        text = OwnedText{g_strdup_printf("%f", real)}.get();
      }
      done = inspectable_set_value(slot.container.get(), key.c_str(), value);
    }
    VARRO2_ASSERT(static_cast<bool>(done) == takes);
    if (takes) {
      pair->value = text;
      pair->any_value = false;
    }
  }

  void set_text(std::size_t at, const std::string &key) {
    Slot &slot = slots_[at];
    const guint32 type = slot.model.content.type;
    PlainPair *pair = slot.model.find(key);
    PlainPair unknown;
    PlainPair &to = pair != nullptr ? *pair : unknown;
    const std::string text = choices_.text(words);
    const bool none = choices_.below(8) == 1;
    const char *given = none ? nullptr : text.c_str();
    Inspectable *const container = slot.container.get();
    const unsigned which = choices_.below(4);
    if (which < 2 ? type != IT_EVENT_DECLARATION : type == IT_EVENT)
      return;
    gboolean done = FALSE;
    if (which == 0) {
      done = inspectable_set_value_user_string(container, key.c_str(), text.c_str());
      to.user_string = text;
    } else if (which == 1) {
      done = inspectable_set_nice_names(container, key.c_str(), given, text.c_str());
      if (!none)
        to.key_nice_name = text;
      to.value_nice_name = text;
    } else if (which == 2) {
      done = inspectable_set_name_space(container, key.c_str(), given);
      to.name_space = none ? "" : text;
    } else {
      done = inspectable_set_complex_type_name(container, key.c_str(), given);
      to.complex_type = none ? "" : text;
    }
    VARRO2_ASSERT(static_cast<bool>(done) == (pair != nullptr));
  }

  void add_key_tag(Slot &slot, const std::string &key) {
    if (slot.model.content.type == IT_SUBSCRIBE_EXPRESSION)
      return;
    const char *tag = choices_.one_of(tags);
    PlainPair *pair = slot.model.find(key);
    VARRO2_ASSERT(static_cast<bool>(inspectable_add_key_tag(slot.container.get(), key.c_str(),
                                                            tag)) == (pair != nullptr));
    if (pair != nullptr && std::find(pair->tags.begin(), pair->tags.end(), tag) == pair->tags.end())
      pair->tags.push_back(tag);
  }

  void add_tag(Slot &slot) {
    if (!one_of(slot.model.content.type, {IT_EVENT, IT_EVENT_DECLARATION}))
      return;
    const char *tag = choices_.one_of(tags);
    VARRO2_ASSERT(inspectable_add_tag(slot.container.get(), tag));
    slot.model.content.tags.push_back(tag);
  }

  void set_type(Slot &slot, const std::string &key) {
    PlainPair *pair = slot.model.find(key);
    if (slot.model.content.type != IT_EVENT_DECLARATION || pair == nullptr)
      return;
    pair->type = static_cast<std::uint8_t>(1 + choices_.below(4));
    VARRO2_ASSERT(inspectable_set_value_type(slot.container.get(), key.c_str(), pair->type));
  }

  void alternative(Slot &slot) {
    const bool may = slot.model.content.type == IT_SUBSCRIBE_EXPRESSION;
    VARRO2_ASSERT(static_cast<bool>(inspectable_or(slot.container.get())) == may);
    if (may)
      slot.model.content.lists.emplace_back();
  }

  void copy(std::size_t at) {
    const Slot &from = slots_[choices_.below(4)];
    const guint32 type = choices_.below(4);
    Model model = from.model;
    model.content.type = type;
    model.hidden = false;
    InspectableOwner copied{inspectable_copy(from.container.get(), type)};
    forget(at);
    slots_[at] = {std::move(copied), std::move(model)};
  }

  void read_back(std::size_t at) {
    const Slot &from = slots_[choices_.below(4)];
    Model model = from.model;
    model.hidden = model.content.type == IT_EVENT_DECLARATION;
    for (PlainList &list : model.content.lists)
      for (PlainBucket &bucket : list.keys)
        for (PlainPair &pair : bucket)
          pair.settable = pair.any_value;
    const BytesRef record = written(from);
    guint32 end = 0;
    InspectableOwner read{inspectable_deserialize_internal(record.get(), &end)};
    VARRO2_ASSERT(end == record->len);
    forget(at);
    slots_[at] = {std::move(read), std::move(model)};
  }

  // ---- Lent texts

  void lend(std::size_t at, const std::string &key) {
    if (const char *value = inspectable_get_value(slots_[at].container.get(), key.c_str()))
      lent_.push_back({at, key, value, value});
  }
  void forget(std::size_t at) {
    std::erase_if(lent_, [at](const Lent &lent) { return lent.slot == at; });
  }
  void forget(std::size_t at, const std::string &key) {
    std::erase_if(lent_, [&](const Lent &lent) { return lent.slot == at && lent.key == key; });
  }

  // ---- Checks

  static BytesRef written(const Slot &slot) {
    BytesRef record = new_bytes();
    inspectable_serialize_internal(slot.container.get(), record.get());
    return record;
  }

  void check_record(std::size_t at) {
    const Slot &slot = slots_[at];
    const RecordWriter expected = RecordWriter{}.container(slot.model.content);
    const BytesRef record = written(slot);
    VARRO2_ASSERT(record->len == expected.size());
    VARRO2_ASSERT(std::memcmp(record->data, expected.data(), expected.size()) == 0);
    for (const Lent &lent : lent_)
      VARRO2_ASSERT(lent.text == lent.copy);
  }

  void check(std::size_t at) {
    Slot &slot = slots_[at];
    check_keys(slot);
    check_positions(slot);
    check_whole(slot);
  }

  static void check_keys(Slot &slot) {
    const Inspectable *container = slot.container.get();
    VARRO2_ASSERT(inspectable_get_value(container, "no such key") == nullptr);
    for (const char *key : keys) {
      const PlainPair *pair = slot.model.find(key);
      const KeyValue *found = inspectable_get_key_value(container, key);
      VARRO2_ASSERT((found != nullptr) == (pair != nullptr));
      if (pair == nullptr)
        continue;
      VARRO2_ASSERT(inspectable_get_value(container, key) == pair->value);
      VARRO2_ASSERT(inspectable_get_name_space(container, key) == pair->name_space);
      VARRO2_ASSERT(inspectable_get_complex_type_name(container, key) == pair->complex_type);
      VARRO2_ASSERT(inspectable_get_value_user_string(container, key) == pair->user_string);
      VARRO2_ASSERT(static_cast<bool>(found->value_settable) == pair->settable);
      if (slot.model.content.type == IT_EVENT) {
        VARRO2_ASSERT(inspectable_get_key_nice_name(container, key) == pair->key_nice_name);
        VARRO2_ASSERT(inspectable_get_value_nice_name(container, key) == pair->value_nice_name);
      }
    }
  }

  static void check_positions(Slot &slot) {
    const Inspectable *container = slot.container.get();
    const guint32 type = slot.model.content.type;
    const std::size_t count = slot.model.positions();
    const auto &buckets = slot.model.current().keys;
    if (type != IT_SUBSCRIBE_EXPRESSION)
      for (const char *tag : tags)
        VARRO2_ASSERT(static_cast<bool>(inspectable_has_keyvalue_with_tag(container, tag)) ==
                      std::any_of(buckets.begin(), buckets.begin() + std::ptrdiff_t(count),
                                  [tag](const PlainBucket &bucket) {
                                    const auto &all = bucket.front().tags;
                                    return std::find(all.begin(), all.end(), tag) != all.end();
                                  }));
    if (!one_of(type, {IT_EVENT, IT_PROPERTY_STATE}))
      return;
    VARRO2_ASSERT(inspectable_get_key_count(container) == count);
    VARRO2_ASSERT(inspectable_get_key_at(container, guint32(count)) == nullptr);
    for (guint32 at = 0; at < count; ++at) {
      const PlainPair &pair = buckets[at].front();
      VARRO2_ASSERT(inspectable_get_key_at(container, at) == pair.key);
      VARRO2_ASSERT(inspectable_get_value_at(container, at) == pair.value);
      VARRO2_ASSERT(inspectable_get_name_space_at(container, at) == pair.name_space);
      VARRO2_ASSERT(inspectable_get_complex_type_name_at(container, at) == pair.complex_type);
      auto reversed = pair.tags;
      std::reverse(reversed.begin(), reversed.end());
      VARRO2_ASSERT(taken_texts(inspectable_get_tags_at(container, at)) == reversed);
      if (type == IT_EVENT)
        check_event_position(container, at, pair);
    }
  }

  static void check_event_position(const Inspectable *container, guint32 at,
                                   const PlainPair &pair) {
    VARRO2_ASSERT(inspectable_get_index(container, pair.key.c_str()) == at);
    VARRO2_ASSERT(inspectable_get_type_at(container, at) == pair.type);
    VARRO2_ASSERT(static_cast<bool>(inspectable_has_value_at(container, at)) ==
                  !(pair.settable && pair.any_value));
    const double number = g_ascii_strtod(pair.value.c_str(), nullptr);
    if (pair.type == VALUE_TYPE_DOUBLE) {
      double real = 0;
      VARRO2_ASSERT(inspectable_get_typed_value_at(container, at, &real));
      VARRO2_ASSERT(real == number || (std::isnan(real) && std::isnan(number)));
    } else if (pair.type == VALUE_TYPE_INT) {
      gint32 whole = 0;
      VARRO2_ASSERT(inspectable_get_typed_value_at(container, at, &whole));
      VARRO2_ASSERT(!(std::abs(number) < std::numeric_limits<gint32>::max()) ||
                    whole == static_cast<gint32>(number));
    } else if (pair.type == VALUE_TYPE_BOOL && (pair.value == "0" || pair.value == "1")) {
      gboolean flag = -1;
      VARRO2_ASSERT(inspectable_get_typed_value_at(container, at, &flag));
      VARRO2_ASSERT(flag == (pair.value == "1"));
    } else if (pair.type == VALUE_TYPE_STRING) {
      const char *text = nullptr;
      VARRO2_ASSERT(inspectable_get_typed_value_at(container, at, &text));
      VARRO2_ASSERT(text == inspectable_get_value_at(container, at));
    }
  }

  static void check_whole(Slot &slot) {
    const Inspectable *container = slot.container.get();
    const PlainContainer &content = slot.model.content;
    VARRO2_ASSERT(static_cast<bool>(inspectable_get_internal(container)) == content.internal);
    auto reversed = content.tags;
    std::reverse(reversed.begin(), reversed.end());
    VARRO2_ASSERT(taken_texts(inspectable_get_tags(container)) == reversed);
    for (const char *tag : tags)
      VARRO2_ASSERT(static_cast<bool>(inspectable_has_tag(container, tag)) ==
                    (std::find(reversed.begin(), reversed.end(), tag) != reversed.end()));
    if (one_of(content.type, {IT_EVENT, IT_EVENT_DECLARATION}) && content.lists.size() == 1) {
      bool complete = true;
      for (const PlainBucket &bucket : slot.model.current().keys)
        complete = complete && !(bucket.front().any_value && bucket.front().settable);
      VARRO2_ASSERT(static_cast<bool>(inspectable_is_complete(container)) == complete);
    }
    check_raw(container, content);
  }

  // The last list first, and in each the tests of any key before the others.
  static void check_raw(const Inspectable *container, const PlainContainer &content) {
    GList *raw = inspectable_get_raw(container);
    const GList *list = raw;
    for (auto expected = content.lists.rbegin(); expected != content.lists.rend(); ++expected) {
      VARRO2_ASSERT(list != nullptr);
      std::size_t any_keys = 0;
      std::size_t pairs = 0;
      for (const PlainBucket &bucket : expected->any_keys)
        any_keys += bucket.size();
      for (const PlainBucket &bucket : expected->keys)
        pairs += bucket.size();
      for (auto *at = static_cast<const GList *>(list->data); at != nullptr; at = at->next) {
        const auto &pair = *static_cast<const KeyValueRaw *>(at->data);
        if (any_keys > 0) {
          VARRO2_ASSERT(pair.key == nullptr && pair.value != nullptr);
          --any_keys;
          continue;
        }
        VARRO2_ASSERT(pair.key != nullptr && pairs > 0);
        VARRO2_ASSERT(expected->find(pair.key) != nullptr);
        --pairs;
      }
      VARRO2_ASSERT(any_keys == 0 && pairs == 0);
      list = list->next;
    }
    VARRO2_ASSERT(list == nullptr);
    inspectable_free_raw(raw);
  }

  Choices &choices_;
  std::array<Slot, 4> slots_;
  std::vector<Lent> lent_;
};

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2::fuzz;
  Choices choices{data, size};
  Play{choices}.run();
  return 0;
}
