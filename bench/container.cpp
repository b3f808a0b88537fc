// The container of an 8-key event of about 600 bytes, beside the plain way to write it. Reported
// with the time: how many allocations one round takes.
#include "counting.hpp"
#include "owning.hpp"
#include "plaincontainer.hpp"

#include <varro2/inspectable.h>
#include <varro2/serialize.h>

namespace {

using bench::measure;

struct Key {
  const char *key;
  const char *value; // what an open key is filled with
  const char *name_space;
  const char *nice_name;
  bool open;
};

constexpr Key keys[] = {
    {"topic0", "Device", "tns1", "", false},
    {"topic1", "Trigger", "tns1", "", false},
    {"topic2", "DigitalInput", "tns1", "Digital input port", false},
    {"InputToken", "port-17", "", "Input", true},
    {"LogicalState", "1", "", "State", true},
    {"temperature", "36.600000", "", "Temperature of the board", true},
    {"sequence", "123456", "", "Number", true},
    {"source", "camera-front-door", "", "Source of the event", true},
};

struct Library {
  using Container = varro2::Owned<Inspectable, inspectable_free>;

  static Container declaration() {
    Container container{inspectable_new(IT_EVENT_DECLARATION)};
    for (const Key &key : keys) {
      inspectable_add_key_value(container.get(), key.key, FALSE, key.value, key.open, FALSE);
      inspectable_set_name_space(container.get(), key.key, key.name_space);
      inspectable_set_nice_names(container.get(), key.key, key.nice_name, "");
    }
    return container;
  }
  static Container event(const Container &declaration) {
    return Container{inspectable_copy(declaration.get(), IT_EVENT)};
  }
  static void set(const Container &container, const char *key, const char *value) {
    inspectable_set_value_as_string(container.get(), key, value);
  }
  static void write(const Container &container, GByteArray *array) {
    inspectable_serialize_internal(container.get(), array);
  }
  static Container read(const GByteArray *array) {
    guint32 at = 0;
    return Container{inspectable_deserialize_internal(array, &at)};
  }
  static Container tests() { return Container{inspectable_new(IT_SUBSCRIBE_EXPRESSION)}; }
  static void test(const Container &tests, const char *key, const char *value) {
    inspectable_add_key_value(tests.get(), key, FALSE, value, FALSE, FALSE);
  }
  static bool contains(const Container &container, const Container &tests) {
    return inspectable_contains(container.get(), tests.get());
  }
};

struct Plain {
  using Container = varro2::Owned<plain::Container, plain::container_free>;

  static Container declaration() {
    Container container{plain::container_new(IT_EVENT_DECLARATION)};
    for (const Key &key : keys)
      plain::container_add(container.get(), key.key, key.open ? "" : key.value, key.name_space,
                           key.nice_name, key.open);
    return container;
  }
  static Container event(const Container &declaration) {
    return Container{plain::container_copy(declaration.get())};
  }
  static void set(const Container &container, const char *key, const char *value) {
    plain::container_set_value(container.get(), key, value);
  }
  static void write(const Container &container, GByteArray *array) {
    plain::container_serialize(container.get(), array);
  }
  static Container read(const GByteArray *array) {
    return Container{plain::container_deserialize(array)};
  }
  static Container tests() { return Container{plain::container_new(IT_SUBSCRIBE_EXPRESSION)}; }
  static void test(const Container &tests, const char *key, const char *value) {
    plain::container_add(tests.get(), key, value, "", "", FALSE);
  }
  static bool contains(const Container &container, const Container &tests) {
    return plain::container_contains(container.get(), tests.get());
  }
};

template <typename Way>
void fill(const typename Way::Container &event) {
  for (const Key &key : keys)
    if (key.open)
      Way::set(event, key.key, key.value);
}

template <typename Way>
typename Way::Container filled_event() {
  auto event = Way::event(Way::declaration());
  fill<Way>(event);
  return event;
}

template <typename Way>
void declare(benchmark::State &state) {
  measure(state, [] { benchmark::DoNotOptimize(Way::declaration()); });
}

template <typename Way>
void copy_prepared(benchmark::State &state) {
  const auto event = Way::event(Way::declaration());
  measure(state, [&] { benchmark::DoNotOptimize(Way::event(event)); });
}

template <typename Way>
void copy_filled(benchmark::State &state) {
  const auto event = filled_event<Way>();
  measure(state, [&] { benchmark::DoNotOptimize(Way::event(event)); });
}

template <typename Way>
void copy_received(benchmark::State &state) {
  const auto array = varro2::new_bytes();
  Way::write(filled_event<Way>(), array.get());
  const auto event = Way::read(array.get());
  measure(state, [&] { benchmark::DoNotOptimize(Way::event(event)); });
}

template <typename Way>
void copy_and_fill(benchmark::State &state) {
  const auto prepared = Way::event(Way::declaration());
  measure(state, [&] {
    const auto event = Way::event(prepared);
    fill<Way>(event);
    benchmark::DoNotOptimize(event.get());
  });
}

template <typename Way>
void serialise(benchmark::State &state) {
  const auto event = filled_event<Way>();
  measure(state, [&] {
    const auto array = varro2::BytesRef::adopt(serialize_create_array());
    Way::write(event, array.get());
    benchmark::DoNotOptimize(array->data);
  });
}

template <typename Way>
void copy_fill_and_serialise(benchmark::State &state) {
  const auto prepared = Way::event(Way::declaration());
  measure(state, [&] {
    const auto event = Way::event(prepared);
    fill<Way>(event);
    const auto array = varro2::BytesRef::adopt(serialize_create_array());
    Way::write(event, array.get());
    benchmark::DoNotOptimize(array->data);
  });
}

template <typename Way>
void read_back(benchmark::State &state) {
  const auto array = varro2::new_bytes();
  Way::write(filled_event<Way>(), array.get());
  state.counters["record"] = array->len;
  measure(state, [&] { benchmark::DoNotOptimize(Way::read(array.get())); });
}

template <typename Way>
void match_3_tests(benchmark::State &state) {
  const auto event = filled_event<Way>();
  const auto tests = Way::tests();
  for (const Key *key : {&keys[0], &keys[2], &keys[4]})
    Way::test(tests, key->key, key->value);
  if (!Way::contains(event, tests))
    state.SkipWithError("does not match");
  measure(state, [&] { benchmark::DoNotOptimize(Way::contains(event, tests)); });
}

// Bytes that one container holds, over a thousand of them.
template <typename Way, typename Make>
void hold(benchmark::State &state, Make make) {
  std::vector<typename Way::Container> held(1000);
  double bytes = 0;
  for (auto _ : state) {
    const auto before = mallinfo2().uordblks;
    for (auto &container : held)
      container = make();
    bytes = static_cast<double>(mallinfo2().uordblks - before) / static_cast<double>(held.size());
    for (auto &container : held)
      container.reset();
  }
  state.counters["bytes"] = bytes;
}
template <typename Way>
void hold_declaration(benchmark::State &state) {
  hold<Way>(state, [] { return Way::declaration(); });
}
template <typename Way>
void hold_event(benchmark::State &state) {
  const auto event = filled_event<Way>();
  hold<Way>(state, [&] { return Way::event(event); });
}
template <typename Way>
void hold_received_event(benchmark::State &state) {
  const auto array = varro2::new_bytes();
  Way::write(filled_event<Way>(), array.get());
  hold<Way>(state, [&] { return Way::read(array.get()); });
}

BENCHMARK(declare<Library>);
BENCHMARK(declare<Plain>);
BENCHMARK(copy_prepared<Library>);
BENCHMARK(copy_prepared<Plain>);
BENCHMARK(copy_filled<Library>);
BENCHMARK(copy_filled<Plain>);
BENCHMARK(copy_received<Library>);
BENCHMARK(copy_received<Plain>);
BENCHMARK(copy_and_fill<Library>);
BENCHMARK(copy_and_fill<Plain>);
BENCHMARK(serialise<Library>);
BENCHMARK(serialise<Plain>);
BENCHMARK(copy_fill_and_serialise<Library>);
BENCHMARK(copy_fill_and_serialise<Plain>);
BENCHMARK(read_back<Library>);
BENCHMARK(read_back<Plain>);
BENCHMARK(match_3_tests<Library>);
BENCHMARK(match_3_tests<Plain>);
BENCHMARK(hold_declaration<Library>)->Iterations(1);
BENCHMARK(hold_declaration<Plain>)->Iterations(1);
BENCHMARK(hold_event<Library>)->Iterations(1);
BENCHMARK(hold_event<Plain>)->Iterations(1);
BENCHMARK(hold_received_event<Library>)->Iterations(1);
BENCHMARK(hold_received_event<Plain>)->Iterations(1);

} // namespace
