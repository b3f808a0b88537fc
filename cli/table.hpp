// Rows in columns.
#pragma once

#include "output.hpp"
#include "terminal.hpp"

#include <string>
#include <vector>

namespace varro2::cli {

class Table {
 public:
  explicit Table(std::vector<std::string> head) : head_{std::move(head)} {}

  struct Cell {
    std::string plain; // gives the width
    std::string shown; // with its colours
    Cell(std::string text) : plain{text}, shown{std::move(text)} {}
    Cell(const char *text) : plain{text}, shown{text} {}
    Cell(std::string text, std::string coloured)
        : plain{std::move(text)}, shown{std::move(coloured)} {}
  };
  void add(std::vector<Cell> row) { rows_.push_back(std::move(row)); }
  bool empty() const { return rows_.empty(); }
  // Columns in which no row has anything are left out.
  void write(Output &out, const Style &style, const std::string &indent = {}) const;

 private:
  std::vector<std::string> head_;
  std::vector<std::vector<Cell>> rows_;
};

} // namespace varro2::cli
