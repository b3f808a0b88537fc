#include "jsonelement.hpp"

#include <cstring>
#include <string>

namespace varro2 {

namespace {

void append(const JsonRef &array, JsonRef value) {
  json_array_append_new(array.get(), value.release());
}

// A name that is there already gets an array of what it had and what comes.
void add_member(const JsonRef &object, const char *name, JsonRef value) {
  if (!value)
    return;
  const auto present = JsonRef::share(json_object_get(object.get(), name));
  if (json_is_array(present.get())) {
    append(present, std::move(value));
  } else if (present) {
    const auto array = JsonRef::adopt(json_array());
    append(array, present);
    append(array, std::move(value));
    put_member(object, name, array);
  } else {
    put_member(object, name, std::move(value));
  }
}

} // namespace

const char *without_prefix(const char *name) noexcept {
  const char *colon = std::strchr(name, ':');
  return colon ? colon + 1 : name;
}

JsonRef element_to_json(const XmlNode &element) {
  if (!element.children && !element.attributes)
    return json_text(element.text);
  auto object = json_object_value();
  for (const GList *at = element.children; at; at = at->next) {
    const auto &child = *static_cast<const XmlNode *>(at->data);
    add_member(object, without_prefix(child.name), element_to_json(child));
  }
  for (const GList *at = element.attributes; at; at = at->next) {
    const auto &attribute = *static_cast<const XmlAttribute *>(at->data);
    add_member(object, ("@" + std::string{attribute.name}).c_str(), json_text(attribute.value));
  }
  add_member(object, "#text", json_text(element.text));
  return object;
}

} // namespace varro2
