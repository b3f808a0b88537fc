// Any text as a document to be checked: every remark has a place in it, and what is found usable
// the library reads.
#include "xmlcheck.hpp"
#include "target.hpp"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2;
  using namespace varro2::fuzz;
  const std::string text{reinterpret_cast<const char *>(data), size};
  const cli::Document document = cli::check_document(text);
  const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n')) +
                     static_cast<std::size_t>(std::count(text.begin(), text.end(), '\r')) + 1;
  for (const cli::Problem &problem : document.problems) {
    VARRO2_ASSERT(problem.line >= 1 && problem.line <= lines);
    VARRO2_ASSERT(problem.column >= 1 && problem.column <= size + 1);
    VARRO2_ASSERT(!problem.text.empty());
  }
  if (!document.usable())
    return 0;
  VARRO2_ASSERT(document.kind != cli::DocumentKind::unknown);
  const MemoryFile file{data, size};
  const XmlOwner root{xmlnode_load_file(file.path().c_str())};
  VARRO2_ASSERT(root != nullptr);
  if (document.kind == cli::DocumentKind::declaration)
    VARRO2_ASSERT(DeclarationOwner{event_declaration_deserialize_xmlnode(root.get())} != nullptr);
  else if (document.kind == cli::DocumentKind::expression)
    VARRO2_ASSERT(ExpressionOwner{subscribe_expression_deserialize_xmlnode(root.get())} != nullptr);
  else
    VARRO2_ASSERT(StateOwner{property_state_deserialize_xmlnode(root.get())} != nullptr);
  return 0;
}
