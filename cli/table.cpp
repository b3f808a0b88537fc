#include "table.hpp"

#include "text.hpp"

#include <algorithm>

namespace varro2::cli {

void Table::write(Output &out, const Style &style, const std::string &indent) const {
  std::vector<std::size_t> widths(head_.size(), 0);
  for (const auto &row : rows_)
    for (std::size_t column = 0; column < row.size(); ++column)
      widths[column] = std::max(widths[column], width_of(row[column].plain));

  const auto line = [&](const std::vector<Cell> &row) {
    std::string text = indent;
    std::size_t owed = 0; // spaces that only a further cell makes necessary
    for (std::size_t column = 0; column < row.size(); ++column) {
      if (widths[column] == 0)
        continue;
      const std::size_t width = std::max(widths[column], width_of(head_[column]));
      const std::size_t taken = width_of(row[column].plain);
      if (taken > 0) {
        text.append(owed, ' ');
        text += row[column].shown;
        owed = 0;
      }
      owed += width - taken + 2;
    }
    out.line(text);
  };
  std::vector<Cell> head;
  for (const std::string &title : head_)
    head.emplace_back(title, style.dim(title));
  line(head);
  for (const auto &row : rows_)
    line(row);
}

} // namespace varro2::cli
