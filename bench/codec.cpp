// An event's way from its values to bytes and back, beside what one would otherwise take for it.
// The number in a row's name is that of the event's keys.
#include "counting.hpp"
#include "libraryevent.hpp"

#include "event.pb.h"
#include "event_generated.h"

#include <google/protobuf/arena.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

using bench::Fact;
using bench::facts;
using bench::key_counts;
using bench::Library;
using bench::measure;
using Row = benchmark::internal::Benchmark;

// ---- The ways ----

class Variant {
 public:
  explicit Variant(const std::vector<Fact> &all) : facts_{all}, bytes_{make_bytes()} {}
  ~Variant() { g_bytes_unref(bytes_); }

  void write() const { g_bytes_unref(make_bytes()); }
  void read() const {
    GVariant *event = g_variant_ref_sink(
        g_variant_new_from_bytes(G_VARIANT_TYPE("(uuxa(ssssub))"), bytes_, FALSE));
    GVariantIter *pairs = nullptr;
    g_variant_get(event, "(uuxa(ssssub))", nullptr, nullptr, nullptr, &pairs);
    const char *texts[4];
    guint32 type = 0;
    gboolean open = FALSE;
    while (g_variant_iter_next(pairs, "(&s&s&s&sub)", &texts[0], &texts[1], &texts[2], &texts[3],
                               &type, &open))
      benchmark::DoNotOptimize(texts[1]);
    g_variant_iter_free(pairs);
    g_variant_unref(event);
  }
  std::size_t size() const { return g_bytes_get_size(bytes_); }

 private:
  GBytes *make_bytes() const {
    GVariantBuilder pairs;
    g_variant_builder_init(&pairs, G_VARIANT_TYPE("a(ssssub)"));
    for (const Fact &fact : facts_)
      g_variant_builder_add(&pairs, "(ssssub)", fact.key.c_str(), fact.value.c_str(),
                            fact.name_space.c_str(), fact.nice_name.c_str(), 4U, FALSE);
    GVariant *event =
        g_variant_ref_sink(g_variant_new("(uuxa(ssssub))", 1U, 1U, g_get_real_time(), &pairs));
    GBytes *bytes = g_variant_get_data_as_bytes(event);
    g_variant_unref(event);
    return bytes;
  }

  std::vector<Fact> facts_;
  GBytes *bytes_;
};

class Protobuf {
 public:
  explicit Protobuf(const std::vector<Fact> &all) : facts_{all}, bytes_{make_bytes()} {}

  void write() const { benchmark::DoNotOptimize(make_bytes()); }
  void read() const {
    google::protobuf::Arena arena;
    auto *event = google::protobuf::Arena::CreateMessage<bench::protobuf::Event>(&arena);
    event->ParseFromString(bytes_);
    for (const auto &pair : event->pairs())
      benchmark::DoNotOptimize(pair.value().data());
  }
  std::size_t size() const { return bytes_.size(); }

 private:
  std::string make_bytes() const {
    google::protobuf::Arena arena;
    auto *event = google::protobuf::Arena::CreateMessage<bench::protobuf::Event>(&arena);
    event->set_declaration(1);
    event->set_producer(1);
    event->set_time(g_get_real_time());
    for (const Fact &fact : facts_) {
      auto *pair = event->add_pairs();
      pair->set_key(fact.key);
      pair->set_value(fact.value);
      pair->set_name_space(fact.name_space);
      pair->set_nice_name(fact.nice_name);
      pair->set_type(4);
    }
    return event->SerializeAsString();
  }

  std::vector<Fact> facts_;
  std::string bytes_;
};

class FlatBuffer {
 public:
  explicit FlatBuffer(const std::vector<Fact> &all) : facts_{all} {
    flatbuffers::FlatBufferBuilder builder;
    build(builder);
    bytes_.assign(builder.GetBufferPointer(), builder.GetBufferPointer() + builder.GetSize());
  }

  void write() const {
    flatbuffers::FlatBufferBuilder builder;
    build(builder);
    benchmark::DoNotOptimize(builder.GetBufferPointer());
  }
  // There is no object to make: the bytes are checked and looked at.
  void read() const {
    flatbuffers::Verifier verifier{bytes_.data(), bytes_.size(), 64, 1'000'000};
    if (!bench::flatbuffer::VerifyEventBuffer(verifier))
      std::abort();
    for (const auto *pair : *bench::flatbuffer::GetEvent(bytes_.data())->pairs())
      benchmark::DoNotOptimize(pair->value()->c_str());
  }
  std::size_t size() const { return bytes_.size(); }

 private:
  void build(flatbuffers::FlatBufferBuilder &builder) const {
    std::vector<flatbuffers::Offset<bench::flatbuffer::Pair>> pairs;
    for (const Fact &fact : facts_)
      pairs.push_back(bench::flatbuffer::CreatePair(
          builder, builder.CreateString(fact.key), builder.CreateString(fact.value),
          builder.CreateString(fact.name_space), builder.CreateString(fact.nice_name), 4, false));
    builder.Finish(bench::flatbuffer::CreateEvent(builder, 1, 1, g_get_real_time(),
                                                  builder.CreateVector(pairs)));
  }

  std::vector<Fact> facts_;
  std::vector<std::uint8_t> bytes_;
};

// ---- The rows ----

template <typename Way>
void build_and_serialise(benchmark::State &state) {
  const Way way{facts(state.range(0))};
  state.counters["bytes"] = static_cast<double>(way.size());
  measure(state, [&] { way.write(); });
}
template <typename Way>
void read_back(benchmark::State &state) {
  const Way way{facts(state.range(0))};
  measure(state, [&] { way.read(); });
}

BENCHMARK(build_and_serialise<Library>)->Apply(key_counts<Row>);
BENCHMARK(build_and_serialise<Variant>)->Apply(key_counts<Row>);
BENCHMARK(build_and_serialise<Protobuf>)->Apply(key_counts<Row>);
BENCHMARK(build_and_serialise<FlatBuffer>)->Apply(key_counts<Row>);
BENCHMARK(read_back<Library>)->Apply(key_counts<Row>);
BENCHMARK(read_back<Variant>)->Apply(key_counts<Row>);
BENCHMARK(read_back<Protobuf>)->Apply(key_counts<Row>);
BENCHMARK(read_back<FlatBuffer>)->Apply(key_counts<Row>);

} // namespace
