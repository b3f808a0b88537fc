#include "xmlnode.hpp"

#include <expat.h>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

using namespace varro2;

namespace {

using Expat = Owned<std::remove_pointer_t<XML_Parser>, XML_ParserFree>;

// With name spaces expat writes a name as URI, separator and local name. No local name can hold a
// line feed, whatever the URI holds.
constexpr char name_space_separator = '\n';

std::string_view local_name(std::string_view name) {
  const auto separator = name.rfind(name_space_separator);
  return separator == std::string_view::npos ? name : name.substr(separator + 1);
}

bool is_prefixed(std::string_view name) {
  return name.find(name_space_separator) != std::string_view::npos;
}

bool is_white_space(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

class Parser {
 public:
  explicit Parser(XmlNames names)
      : expat_{names == XmlNames::without_prefix ? XML_ParserCreateNS(nullptr, name_space_separator)
                                                 : XML_ParserCreate(nullptr)} {
    XML_SetUserData(expat_.get(), this);
    XML_SetElementHandler(expat_.get(), on_start, on_end);
    XML_SetCharacterDataHandler(expat_.get(), on_text);
    XML_SetStartDoctypeDeclHandler(expat_.get(), on_doctype);
    XML_SetEntityDeclHandler(expat_.get(), on_entity);
    XML_SetAttlistDeclHandler(expat_.get(), on_attribute_list);
    XML_SetNotStandaloneHandler(expat_.get(), on_not_standalone);
  }

  XmlTree parse(std::string_view document) {
    // expat counts a piece's bytes in an int.
    constexpr std::size_t piece_limit = 1 << 20;
    bool is_final = false;
    while (!is_final) {
      const std::string_view piece = document.substr(0, piece_limit);
      document.remove_prefix(piece.size());
      is_final = document.empty();
      if (XML_Parse(expat_.get(), piece.data(), static_cast<int>(piece.size()), is_final) !=
          XML_STATUS_OK)
        return {};
    }
    return std::move(root_);
  }

  XmlFault fault() const {
    const char *message = refusal_ ? refusal_ : XML_ErrorString(XML_GetErrorCode(expat_.get()));
    return {message, XML_GetCurrentLineNumber(expat_.get()),
            XML_GetCurrentColumnNumber(expat_.get()) + 1};
  }

 private:
  struct OpenElement {
    XmlNode *node; // owned by the tree
    std::string text;
  };

  static Parser &self(void *data) { return *static_cast<Parser *>(data); }

  static void on_start(void *data, const char *name, const char **attributes) noexcept {
    self(data).start(name, attributes);
  }
  static void on_end(void *data, const char *) noexcept { self(data).end(); }
  static void on_text(void *data, const char *text, int length) noexcept {
    self(data).add_text({text, static_cast<std::size_t>(length)});
  }
  static void on_doctype(void *data, const char *, const char *system_id, const char *public_id,
                         int) noexcept {
    if (system_id || public_id)
      self(data).refuse("the document type refers to another document");
  }
  static void on_entity(void *data, const char *, int, const char *, int, const char *,
                        const char *, const char *, const char *) noexcept {
    self(data).refuse("the document type declares an entity");
  }
  static void on_attribute_list(void *data, const char *, const char *, const char *, const char *,
                                int) noexcept {
    self(data).refuse("the document type declares attributes");
  }
  // After a reference to a parameter entity expat would pass over unknown entities in silence.
  static int on_not_standalone(void *) noexcept { return XML_STATUS_ERROR; }

  // What follows may still be reported once or twice.
  void refuse(const char *reason) {
    if (refusal_)
      return;
    refusal_ = reason;
    XML_StopParser(expat_.get(), XML_FALSE);
  }

  void start(const char *name, const char **attributes) {
    if (refusal_)
      return;
    if (open_.size() == xml_depth_limit)
      return refuse("the elements are nested too deep");
    XmlTree node{xmlnode_create_node()};
    const std::string_view local = local_name(name);
    node->name = g_strndup(local.data(), local.size());
    add_attributes(*node, attributes);
    open_.push_back({node.get(), {}});
    if (open_.size() == 1)
      root_ = std::move(node);
    else
      xmlnode_add_child(open_[open_.size() - 2].node, node.release());
  }

  // expat has seen to it that no two are written alike, but without their prefixes they may be.
  static void add_attributes(XmlNode &node, const char **attributes) {
    bool any_prefixed = false;
    for (const char **next = attributes; *next && !any_prefixed; next += 2)
      any_prefixed = is_prefixed(*next);
    std::unordered_set<std::string_view> taken;
    for (const char **next = attributes; *next && any_prefixed; next += 2)
      if (!is_prefixed(*next))
        taken.insert(*next);
    for (const char **next = attributes; *next; next += 2)
      if (!is_prefixed(*next) || taken.insert(local_name(*next)).second)
        append_xml_attribute(node, local_name(*next), next[1]);
  }

  void add_text(std::string_view text) {
    if (!refusal_ && !open_.empty())
      open_.back().text += text;
  }

  void end() {
    if (refusal_)
      return;
    const OpenElement &element = open_.back();
    if (!is_white_space(element.text))
      element.node->text = g_strndup(element.text.data(), element.text.size());
    open_.pop_back();
  }

  Expat expat_;
  XmlTree root_;
  std::vector<OpenElement> open_;
  const char *refusal_ = nullptr;
};

} // namespace

XmlTree varro2::parse_xml(std::string_view document, XmlNames names, XmlFault *fault) {
  Parser parser{names};
  XmlTree tree = parser.parse(document);
  if (!tree && fault)
    *fault = parser.fault();
  return tree;
}
