// XML documents as trees whose elements know their places.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace varro2::cli {

// Names come without their prefixes. Lines and columns count from 1.
struct Element {
  std::string name;
  std::size_t line = 1;
  std::size_t column = 1;
  std::vector<std::pair<std::string, std::string>> attributes;
  std::vector<std::unique_ptr<Element>> children;
  bool has_text = false; // other than white space

  const std::string *find(std::string_view attribute) const;
  std::string get(std::string_view attribute) const; // empty when it is not there
  bool is_true(std::string_view attribute) const;
};

struct XmlMistake {
  std::size_t line = 1;
  std::size_t column = 1;
  std::string text;
};

// Nothing when the text is no XML: where and why goes to the mistake.
std::unique_ptr<Element> read_xml_tree(std::string_view text, XmlMistake &mistake);

} // namespace varro2::cli
