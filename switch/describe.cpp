#include "registry.hpp"
#include "texts.hpp"

#include <algorithm>

namespace varro2::switchd {
namespace {

using Row = std::vector<std::string>;

// Columns as wide as their widest cell, two spaces apart; the last one is not padded.
void append_table(std::vector<std::string> &lines, const std::vector<Row> &rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row &row : rows)
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], row[column].size());
  for (const Row &row : rows) {
    std::string line;
    for (std::size_t column = 0; column < row.size(); ++column) {
      line += "  " + row[column];
      if (column + 1 < row.size())
        line.append(widths[column] - row[column].size(), ' ');
    }
    lines.push_back(std::move(line));
  }
}

std::string kind_of(const EventDeclaration *declaration) {
  std::string kind = event_declaration_is_property(declaration) ? "property" : "event";
  if (event_declaration_is_internal(declaration))
    kind += ", internal";
  return kind;
}

std::string joined(const std::vector<std::uint32_t> &ids) {
  std::string text;
  for (const std::uint32_t id : ids)
    text += (text.empty() ? "" : " ") + std::to_string(id);
  return text.empty() ? "-" : text;
}

} // namespace

std::vector<std::string> describe(const Registry &registry) {
  std::vector<std::string> lines;
  lines.push_back("Producers: " + std::to_string(registry.producers().size()));
  std::vector<Row> rows{{"ID", "BUS NAME", "DECLARATIONS", "PATH", "NAME"}};
  for (const auto &[address, producer] : registry.producers())
    rows.push_back({std::to_string(producer.id), address.bus_name,
                    std::to_string(producer.declarations.size()), address.path, producer.name});
  append_table(lines, rows);

  lines.push_back("Declarations: " + std::to_string(registry.declarations().size()));
  rows = {{"ID", "PRODUCER", "LOCAL ID", "KIND", "TOPIC", "SUBSCRIPTIONS"}};
  for (const auto &[id, declared] : registry.declarations())
    rows.push_back({std::to_string(id), std::to_string(declared.producer_id),
                    std::to_string(declared.local_id), kind_of(declared.declaration.get()),
                    topic_of(declared.declaration.get()),
                    joined(ids_of(registry.matching(*declared.declaration)))});
  append_table(lines, rows);

  lines.push_back("Subscriptions: " + std::to_string(registry.subscriptions().size()));
  rows = {{"ID", "BUS NAME", "TOKEN", "PATH", "NAME", "DECLARATIONS"}};
  for (const auto &[id, subscription] : registry.subscriptions())
    rows.push_back({std::to_string(id), subscription.consumer.bus_name,
                    std::to_string(subscription.token), subscription.consumer.path,
                    subscription.name,
                    joined(ids_of(registry.matching(*subscription.expression)))});
  append_table(lines, rows);
  return lines;
}

} // namespace varro2::switchd
