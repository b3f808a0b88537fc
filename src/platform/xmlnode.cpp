#include "xmlnode.hpp"

#include "preconditions.hpp"

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>

using namespace varro2;

static_assert(offsetof(XmlNode, name) == 0);
static_assert(offsetof(XmlNode, children) == sizeof(void *));
static_assert(offsetof(XmlNode, text) == 2 * sizeof(void *));
static_assert(offsetof(XmlNode, attributes) == 3 * sizeof(void *));

namespace {

// A node as it is allocated. The ends of its lists are kept, since finding the end for every
// appended child would make building a tree quadratic.
struct NodeRecord {
  XmlNode node;
  GList *last_child;
  GList *last_attribute;
};
static_assert(std::is_standard_layout_v<NodeRecord> && offsetof(NodeRecord, node) == 0);

NodeRecord &record_of(XmlNode &node) {
  return reinterpret_cast<NodeRecord &>(node);
}

// An attribute as it is allocated: in one piece with its place in the list, its name and the value
// that it was made with.
struct AttributeRecord {
  XmlAttribute attribute;
  GList link;
  char *first_value;
};
static_assert(std::is_standard_layout_v<AttributeRecord> &&
              offsetof(AttributeRecord, attribute) == 0);

AttributeRecord &record_of(XmlAttribute &attribute) {
  return reinterpret_cast<AttributeRecord &>(attribute);
}

void set_value(XmlAttribute &attribute, char *value) {
  if (attribute.value != record_of(attribute).first_value)
    g_free(attribute.value);
  attribute.value = value;
}

void append(GList *&first, GList *&last, GList *link) {
  link->prev = last;
  (last ? last->next : first) = link;
  last = link;
}

char *put_text(char *at, std::string_view text) {
  text.copy(at, text.size());
  at[text.size()] = '\0';
  return at + text.size() + 1;
}

XmlAttribute *find_attribute(const XmlNode &node, const char *name) {
  for (GList *link = node.attributes; link; link = link->next) {
    auto *attribute = static_cast<XmlAttribute *>(link->data);
    if (std::strcmp(attribute->name, name) == 0)
      return attribute;
  }
  return nullptr;
}

void free_node(XmlNode *node) {
  g_free(node->name);
  g_free(node->text);
  for (GList *link = node->attributes; link;) {
    auto &attribute = *static_cast<XmlAttribute *>(link->data);
    link = link->next;
    set_value(attribute, nullptr);
    g_free(&record_of(attribute));
  }
  g_free(&record_of(*node));
}

} // namespace

void varro2::append_xml_attribute(XmlNode &node, std::string_view name, std::string_view value) {
  void *memory = g_malloc(sizeof(AttributeRecord) + name.size() + 1 + value.size() + 1);
  auto *record = new (memory) AttributeRecord{};
  record->attribute.name = reinterpret_cast<char *>(record + 1);
  record->first_value = put_text(record->attribute.name, name);
  put_text(record->first_value, value);
  record->attribute.value = record->first_value;
  record->link.data = &record->attribute;
  append(node.attributes, record_of(node).last_attribute, &record->link);
}

XmlNode *xmlnode_create_node(void) noexcept {
  auto *record = g_new0(NodeRecord, 1);
  return &record->node;
}

void xmlnode_add_attribute(XmlNode *node, const char *name, const char *value) noexcept {
  VARRO2_EXPECT(node != NULL);
  VARRO2_EXPECT(name != NULL);
  VARRO2_EXPECT(value != NULL);
  if (XmlAttribute *present = find_attribute(*node, name)) {
    set_value(*present, g_strdup(value));
    return;
  }
  append_xml_attribute(*node, name, value);
}

const char *xmlnode_get_attribute_value(const XmlNode *node, const char *name) noexcept {
  VARRO2_EXPECT(node != NULL, nullptr);
  VARRO2_EXPECT(name != NULL, nullptr);
  const XmlAttribute *attribute = find_attribute(*node, name);
  return attribute ? attribute->value : nullptr;
}

void xmlnode_add_child(XmlNode *parent, XmlNode *child) noexcept {
  VARRO2_EXPECT(parent != NULL);
  VARRO2_EXPECT(child != NULL);
  append(parent->children, record_of(*parent).last_child, g_list_prepend(nullptr, child));
}

char *xmlnode_get_xml(const XmlNode *node) noexcept {
  VARRO2_EXPECT(node != NULL, nullptr);
  VARRO2_EXPECT(node->name != NULL, nullptr);
  return write_xml(*node, XmlLineBreaks::as_they_are).release();
}

char *xmlnode_get_xml_escape_newline(const XmlNode *node) noexcept {
  VARRO2_EXPECT(node != NULL, nullptr);
  VARRO2_EXPECT(node->name != NULL, nullptr);
  return write_xml(*node, XmlLineBreaks::escaped).release();
}

void xmlnode_free_tree(XmlNode *node) noexcept {
  // Each freed node's children go to the front of one list of what is still to be freed, so that
  // the depth of the tree costs no stack.
  GList *waiting = node ? g_list_prepend(nullptr, node) : nullptr;
  while (waiting) {
    auto *next = static_cast<XmlNode *>(waiting->data);
    waiting = g_list_delete_link(waiting, waiting);
    if (next->children) {
      record_of(*next).last_child->next = waiting;
      if (waiting)
        waiting->prev = record_of(*next).last_child;
      waiting = next->children;
    }
    free_node(next);
  }
}

XmlNode *xmlnode_parse_string(const char *xml) noexcept {
  VARRO2_EXPECT(xml != NULL, nullptr);
  return parse_xml(xml, XmlNames::without_prefix).release();
}

XmlNode *xmlnode_parse_string_no_ns(const char *xml) noexcept {
  VARRO2_EXPECT(xml != NULL, nullptr);
  return parse_xml(xml, XmlNames::as_written).release();
}

XmlNode *xmlnode_load_file(const char *path) noexcept {
  VARRO2_EXPECT(path != NULL, nullptr);
  return load_xml(path).release();
}
