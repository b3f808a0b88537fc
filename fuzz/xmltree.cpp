// Any text as an XML document, with and without name spaces: the tree is as it is promised, is
// written and read as the same tree, and becomes JSON member by member.
#include "target.hpp"

#include <jansson.h>

#include <set>

namespace varro2::fuzz {
namespace {

using JsonOwner = Owned<json_t, json_decref>;

bool is_blank(std::string_view text) {
  return text.find_first_not_of(" \t\r\n") == std::string_view::npos;
}

template <typename T>
const T &in(const GList *at) {
  return *static_cast<const T *>(at->data);
}

void check_node(const XmlNode &node, int depth, bool name_spaces) {
  VARRO2_ASSERT(depth <= 1024);
  VARRO2_ASSERT(node.name != nullptr && *node.name != '\0');
  VARRO2_ASSERT(!name_spaces || std::strchr(node.name, ':') == nullptr);
  VARRO2_ASSERT(node.text == nullptr || !is_blank(node.text));
  std::set<std::string> names;
  for (const GList *at = node.attributes; at != nullptr; at = at->next) {
    const auto &attribute = in<XmlAttribute>(at);
    VARRO2_ASSERT(names.insert(attribute.name).second);
    VARRO2_ASSERT(xmlnode_get_attribute_value(&node, attribute.name) == attribute.value);
  }
  for (const GList *at = node.children; at != nullptr; at = at->next)
    check_node(in<XmlNode>(at), depth + 1, name_spaces);
}

bool same(const XmlNode &one, const XmlNode &other) {
  if (std::strcmp(one.name, other.name) != 0 || g_strcmp0(one.text, other.text) != 0)
    return false;
  const GList *attribute = other.attributes;
  for (const GList *at = one.attributes; at != nullptr; at = at->next, attribute = attribute->next)
    if (attribute == nullptr ||
        std::strcmp(in<XmlAttribute>(at).name, in<XmlAttribute>(attribute).name) != 0 ||
        std::strcmp(in<XmlAttribute>(at).value, in<XmlAttribute>(attribute).value) != 0)
      return false;
  const GList *child = other.children;
  for (const GList *at = one.children; at != nullptr; at = at->next, child = child->next)
    if (child == nullptr || !same(in<XmlNode>(at), in<XmlNode>(child)))
      return false;
  return attribute == nullptr && child == nullptr;
}

// ---- The tree as JSON

const char *after_colon(const char *name) {
  const char *colon = std::strchr(name, ':');
  return colon != nullptr ? colon + 1 : name;
}

void add(json_t *object, const std::string &name, json_t *value) {
  if (value == nullptr)
    return;
  json_t *present = json_object_get(object, name.c_str());
  if (json_is_array(present)) {
    json_array_append_new(present, value);
  } else if (present != nullptr) {
    json_t *both = json_array();
    json_array_append(both, present);
    json_array_append_new(both, value);
    json_object_set_new(object, name.c_str(), both);
  } else {
    json_object_set_new(object, name.c_str(), value);
  }
}

json_t *converted(const XmlNode &node) {
  if (node.children == nullptr && node.attributes == nullptr)
    return node.text != nullptr ? json_string(node.text) : nullptr;
  json_t *object = json_object();
  for (const GList *at = node.children; at != nullptr; at = at->next)
    add(object, after_colon(in<XmlNode>(at).name), converted(in<XmlNode>(at)));
  for (const GList *at = node.attributes; at != nullptr; at = at->next)
    add(object, std::string{"@"} + in<XmlAttribute>(at).name,
        json_string(in<XmlAttribute>(at).value));
  if (node.text != nullptr)
    add(object, "#text", json_string(node.text));
  return object;
}

int depth_of(const XmlNode &node) {
  int deepest = 0;
  for (const GList *at = node.children; at != nullptr; at = at->next)
    deepest = std::max(deepest, depth_of(in<XmlNode>(at)));
  return 1 + deepest;
}

void check_json(const char *text, const XmlNode *root) {
  // Arrays may double the depth, and Jansson reads 2,048 levels.
  if (root != nullptr && depth_of(*root) > 1000)
    return;
  const DeclarationOwner declaration{event_declaration_new(FALSE)};
  event_declaration_add_key(declaration.get(), "Conf", VALUE_TYPE_STRING);
  event_declaration_add_key_tag(declaration.get(), "Conf", "onvif-data");
  event_declaration_add_key_tag(declaration.get(), "Conf", "onvif-element");
  const EventOwner event{event_declaration_generate_event(declaration.get())};
  inspectable_set_value_as_string(event_get_inspectable(event.get()), "Conf", text);
  const Owned<JsonOptions, json_options_free> options{json_options_new()};
  json_options_set_format(options.get(), JSON_FORMAT_ONVIF);
  char *written = event_get_json(event.get(), options.get());
  VARRO2_ASSERT(written != nullptr);
  const JsonOwner read{json_loads(written, 0, nullptr)};
  ::free(written);
  VARRO2_ASSERT(read != nullptr);
  const json_t *conf = json_object_get(json_object_get(read.get(), "Data"), "Conf");
  if (root == nullptr) {
    VARRO2_ASSERT(conf == nullptr);
    return;
  }
  const JsonOwner expected{json_object()};
  add(expected.get(), after_colon(root->name), converted(*root));
  VARRO2_ASSERT(json_equal(conf, expected.get()));
}

void check_tree(const XmlNode *root, bool name_spaces) {
  if (root == nullptr)
    return;
  check_node(*root, 1, name_spaces);
  const OwnedText written{xmlnode_get_xml_escape_newline(root)};
  const XmlOwner again{xmlnode_parse_string_no_ns(written.get())};
  VARRO2_ASSERT(again != nullptr && same(*root, *again));
  const OwnedText plain{xmlnode_get_xml(root)};
  VARRO2_ASSERT(XmlOwner{xmlnode_parse_string_no_ns(plain.get())} != nullptr);
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2;
  using namespace varro2::fuzz;
  const OwnedText text = exact_text(data, size);
  const XmlOwner with{xmlnode_parse_string(text.get())};
  const XmlOwner without{xmlnode_parse_string_no_ns(text.get())};
  // Name spaces only make it stricter.
  VARRO2_ASSERT(with == nullptr || without != nullptr);
  check_tree(with.get(), true);
  check_tree(without.get(), false);
  check_json(text.get(), without.get());
  return 0;
}
