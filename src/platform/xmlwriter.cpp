#include "xmlnode.hpp"

#include "preconditions.hpp"

#include <utility>
#include <vector>

using namespace varro2;

namespace {

constexpr const char *replacement_character = "\xEF\xBF\xBD"; // U+FFFD

// A character as XML has it to be written, or nullptr when it stands for itself.
const char *escaped_form(gunichar character, bool in_attribute, XmlLineBreaks line_breaks) {
  switch (character) {
  case '&':
    return "&amp;";
  case '<':
    return "&lt;";
  case '>':
    return "&gt;";
  case '"':
    return "&quot;";
  case '\'':
    return "&apos;";
  case '\n':
    return in_attribute && line_breaks == XmlLineBreaks::escaped ? "&#10;" : nullptr;
  case '\t':
    return in_attribute && line_breaks == XmlLineBreaks::escaped ? "&#9;" : nullptr;
  case '\r':
    // In a text, too, a reader would turn a bare one into a line feed.
    return !in_attribute || line_breaks == XmlLineBreaks::escaped ? "&#13;" : nullptr;
  case 0xFFFE:
  case 0xFFFF:
    return replacement_character;
  default:
    return character < 0x20 ? replacement_character : nullptr;
  }
}

void append_escaped(GString &out, const char *text, bool in_attribute, XmlLineBreaks line_breaks) {
  const char *unwritten = text;
  while (*text) {
    const gunichar character = g_utf8_get_char_validated(text, -1);
    const bool is_utf8 = character < 0x110000;
    const char *next = is_utf8 ? g_utf8_next_char(text) : text + 1;
    const char *escaped =
        is_utf8 ? escaped_form(character, in_attribute, line_breaks) : replacement_character;
    if (escaped) {
      g_string_append_len(&out, unwritten, text - unwritten);
      g_string_append(&out, escaped);
      unwritten = next;
    }
    text = next;
  }
  g_string_append(&out, unwritten);
}

// A tree is written with a stack of its own: one made by hand may have any depth.
class Writer {
 public:
  explicit Writer(XmlLineBreaks line_breaks)
      : line_breaks_{line_breaks}, out_{g_string_new(nullptr)} {}
  Writer(const Writer &) = delete;
  Writer &operator=(const Writer &) = delete;
  ~Writer() {
    if (out_)
      g_string_free(out_, TRUE);
  }

  bool write(const XmlNode &root) {
    if (!write_element(root))
      return false;
    while (!levels_.empty()) {
      Level &level = levels_.back();
      if (!level.next_child) {
        g_string_append_printf(out_, "</%s>", level.node->name);
        levels_.pop_back();
        continue;
      }
      const auto *child = static_cast<const XmlNode *>(level.next_child->data);
      level.next_child = level.next_child->next;
      if (!write_element(*child))
        return false;
    }
    return true;
  }

  OwnedText finish() { return OwnedText{g_string_free(std::exchange(out_, nullptr), FALSE)}; }

 private:
  struct Level {
    const XmlNode *node;
    const GList *next_child;
  };

  bool write_element(const XmlNode &node) {
    VARRO2_EXPECT(node.name != NULL, false);
    g_string_append_c(out_, '<');
    g_string_append(out_, node.name);
    for (const GList *link = node.attributes; link; link = link->next)
      write_attribute(*static_cast<const XmlAttribute *>(link->data));
    if (!node.text && !node.children) {
      g_string_append(out_, "/>");
      return true;
    }
    g_string_append_c(out_, '>');
    if (node.text)
      append_escaped(*out_, node.text, false, line_breaks_);
    levels_.push_back({&node, node.children});
    return true;
  }

  void write_attribute(const XmlAttribute &attribute) {
    g_string_append_printf(out_, " %s=\"", attribute.name);
    append_escaped(*out_, attribute.value, true, line_breaks_);
    g_string_append_c(out_, '"');
  }

  XmlLineBreaks line_breaks_;
  GString *out_;
  std::vector<Level> levels_;
};

} // namespace

OwnedText varro2::write_xml(const XmlNode &root, XmlLineBreaks line_breaks) {
  Writer writer{line_breaks};
  return writer.write(root) ? writer.finish() : OwnedText{};
}
