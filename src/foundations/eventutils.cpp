#include "eventutils.hpp"

#include "preconditions.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <vector>

using namespace varro2;

namespace {

template <typename T>
T read_as(gconstpointer value) {
  T result;
  std::memcpy(&result, value, sizeof result);
  return result;
}

// As "%f" in the C locale: whoever reads the text does so without regard to the locale.
char *print_double(char *first, char *last, double value) {
  if (std::isfinite(value))
    return std::to_chars(first, last, value, std::chars_format::fixed, 6).ptr;
  if (std::signbit(value))
    *first++ = '-';
  return std::copy_n(std::isnan(value) ? "nan" : "inf", 3, first);
}

struct TypeName {
  const char *name;
  guint32 type;
};

// The first name of a type is the one that is written.
constexpr TypeName type_names[] = {
    {"int", VALUE_TYPE_INT},      {"integer", VALUE_TYPE_INT},   {"bool", VALUE_TYPE_BOOL},
    {"boolean", VALUE_TYPE_BOOL}, {"double", VALUE_TYPE_DOUBLE}, {"float", VALUE_TYPE_DOUBLE},
};

std::vector<const char *> sorted_texts(const GList *list) {
  std::vector<const char *> texts;
  for (; list; list = list->next)
    texts.push_back(static_cast<const char *>(list->data));
  std::sort(texts.begin(), texts.end(),
            [](const char *a, const char *b) { return g_strcmp0(a, b) < 0; });
  return texts;
}

} // namespace

ValueText::ValueText(gconstpointer value, guint32 type) noexcept {
  if (type == VALUE_TYPE_STRING)
    text_ = static_cast<const char *>(value);
  if (type == VALUE_TYPE_STRING || !is_value_type(type))
    return;
  VARRO2_ASSERT_AS("event_utils_value_type_to_string", "value != NULL", value != nullptr);
  char *const last = buffer_ + capacity - 1;
  char *end = buffer_;
  if (type == VALUE_TYPE_INT)
    end = std::to_chars(buffer_, last, read_as<gint32>(value)).ptr;
  else if (type == VALUE_TYPE_BOOL)
    *end++ = read_as<gboolean>(value) ? '1' : '0';
  else
    end = print_double(buffer_, last, read_as<double>(value));
  *end = '\0';
  text_ = buffer_;
}

char *event_utils_value_type_to_string(gconstpointer value, guint32 type) noexcept {
  return g_strdup(ValueText{value, type}.c_str());
}

const char *xml_get_attribute(const XmlNode *node, const char *name) noexcept {
  VARRO2_ASSERT(node != NULL);
  VARRO2_ASSERT(name != NULL);
  const char *value = xmlnode_get_attribute_value(node, name);
  return value ? value : "";
}

void xml_set_attribute(XmlNode *node, const char *name, const char *value) noexcept {
  VARRO2_ASSERT(node != NULL);
  VARRO2_ASSERT(name != NULL);
  if (value && *value)
    xmlnode_add_attribute(node, name, value);
}

gboolean xml_get_boolean(const XmlNode *node, const char *name) noexcept {
  VARRO2_ASSERT(node != NULL);
  VARRO2_ASSERT(name != NULL);
  return g_ascii_strcasecmp(xml_get_attribute(node, name), "true") == 0;
}

void xml_set_boolean(XmlNode *node, const char *name, gboolean value) noexcept {
  VARRO2_ASSERT(node != NULL);
  VARRO2_ASSERT(name != NULL);
  if (value == TRUE)
    xmlnode_add_attribute(node, name, "true");
}

guint32 xml_get_value_type(const XmlNode *node, const char *name) noexcept {
  VARRO2_ASSERT(node != NULL);
  VARRO2_ASSERT(name != NULL);
  const char *text = xml_get_attribute(node, name);
  for (const TypeName &known : type_names)
    if (g_ascii_strcasecmp(text, known.name) == 0)
      return known.type;
  return VALUE_TYPE_STRING;
}

void xml_set_value_type(XmlNode *node, const char *name, guint32 type) noexcept {
  VARRO2_ASSERT(node != NULL);
  VARRO2_ASSERT(name != NULL);
  for (const TypeName &known : type_names)
    if (type == known.type)
      return xmlnode_add_attribute(node, name, known.name);
}

gboolean event_utils_tag_list_is_equal(const GList *list1, const GList *list2) noexcept {
  // Mostly the lists are copies of each other: only what comes after the common start is sorted.
  while (list1 && list2 &&
         g_strcmp0(static_cast<const char *>(list1->data),
                   static_cast<const char *>(list2->data)) == 0) {
    list1 = list1->next;
    list2 = list2->next;
  }
  if (!list1 || !list2)
    return list1 == list2;
  const auto texts1 = sorted_texts(list1);
  const auto texts2 = sorted_texts(list2);
  return std::equal(texts1.begin(), texts1.end(), texts2.begin(), texts2.end(),
                    [](const char *a, const char *b) { return g_strcmp0(a, b) == 0; });
}
