// Files of events as JSON: each is refused with a place, or can be declared, sent and written, and
// what is written is read as the same.
#include "eventfile.hpp"
#include "failure.hpp"
#include "recordjson.hpp"
#include "target.hpp"

namespace varro2::fuzz {
namespace {

std::string written(const cli::Record &record) {
  return cli::dump(cli::to_json(record).get());
}

void check_event(const cli::EventLine &line) {
  VARRO2_ASSERT(line.line >= 1);
  const std::string first = written(line.record);
  const auto again = cli::parse_event(first, "written", 1);
  VARRO2_ASSERT(again.has_value());
  VARRO2_ASSERT(written(again->record) == first);

  const cli::OwnedEvent event = cli::make_event(line.record);
  const cli::Record read = cli::read_event(*event);
  VARRO2_ASSERT(read.pairs.size() == line.record.pairs.size());
  for (const cli::Pair &pair : line.record.pairs) {
    const cli::Pair *found = read.find(pair.key);
    VARRO2_ASSERT(found != nullptr && found->open == pair.open && found->type == pair.type);
    VARRO2_ASSERT(pair.open || found->value == pair.value);
  }
  // Sent, an event of this shape gets its values one by one.
  for (const cli::Pair &pair : line.record.pairs)
    if (!pair.open && cli::why_no_value(pair.value, pair.type).empty())
      cli::set_event_value(event.get(), pair.key, pair.value, pair.type);
  cli::topic_of(read);
  const cli::OwnedBytes bytes{event_serialize(event.get())};
  VARRO2_ASSERT(serialize_is_valid_record(bytes.get(), 0, SERIALIZE_ID_EVENT));
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2;
  using namespace varro2::fuzz;
  const MemoryFile file{data, size};
  std::vector<cli::EventLine> lines;
  try {
    lines = cli::read_event_file(file.path());
  } catch (const cli::Failure &failure) {
    // A file without a line holds no event, which is no mistake in it.
    VARRO2_ASSERT(failure.code() == cli::exit_failed || failure.code() == cli::exit_nothing);
    VARRO2_ASSERT(*failure.what() != '\0');
  }
  for (const cli::EventLine &line : lines)
    check_event(line);
  return 0;
}
