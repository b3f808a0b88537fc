// Declaration, expression and property documents, checked before the library reads them: it reports
// one mistake without its place, and takes some for broken preconditions.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace varro2::cli {

enum class DocumentKind { unknown, declaration, expression, property };

struct Problem {
  std::size_t line;
  std::size_t column;
  bool error; // or a warning: it can be read, but is probably not what was meant
  std::string text;
};

struct Document {
  DocumentKind kind = DocumentKind::unknown;
  std::vector<Problem> problems; // in the order of their places
  bool usable() const;
};

Document check_document(std::string_view text);

const char *name_of(DocumentKind kind);

} // namespace varro2::cli
