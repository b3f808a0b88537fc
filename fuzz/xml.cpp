// Documents of the three kinds. The first byte says which, the others are the text.
#include "use.hpp"

namespace varro2::fuzz {
namespace {

// Tags of the whole object are for declarations and events; a document that gives them to another
// breaks a precondition.
bool breaks_precondition(const char *text, guint32 type) {
  if (type == IT_EVENT_DECLARATION)
    return false;
  const XmlOwner root{xmlnode_parse_string(text)};
  if (root)
    for (const GList *at = root->children; at != nullptr; at = at->next)
      if (std::strcmp(static_cast<const XmlNode *>(at->data)->name, "tag") == 0)
        return true;
  return false;
}

template <typename T>
void check(const char *text, guint32 type, char *(*write)(const T *), void (*release)(T *),
           Inspectable *(*container)(const T *)) {
  T *first = static_cast<T *>(event_utils_deserialize_xml(text, type));
  if (first == nullptr)
    return;
  use(*first);
  const OwnedText written{write(first)};
  T *second = static_cast<T *>(event_utils_deserialize_xml(written.get(), type));
  // A line feed in an attribute, written as it is, comes back as a space, and two keys or tags may
  // become one by that.
  const bool carried = std::strpbrk(written.get(), "\n\r\t") == nullptr;
  if (carried)
    VARRO2_ASSERT(second != nullptr && inspectable_is_equal(container(first), container(second)));
  if (second != nullptr) {
    const OwnedText again{write(second)};
    if (carried)
      VARRO2_ASSERT(std::strcmp(written.get(), again.get()) == 0);
    release(second);
  }
  release(first);
}

} // namespace
} // namespace varro2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
  using namespace varro2;
  using namespace varro2::fuzz;
  if (size == 0)
    return 0;
  static constexpr guint32 types[] = {IT_EVENT_DECLARATION, IT_SUBSCRIBE_EXPRESSION,
                                      IT_PROPERTY_STATE};
  const guint32 type = types[data[0] % 3];
  const OwnedText text = exact_text(data + 1, size - 1);
  if (breaks_precondition(text.get(), type))
    return 0;
  if (type == IT_EVENT_DECLARATION)
    check(text.get(), type, event_declaration_serialize_xml, event_declaration_free,
          event_declaration_get_inspectable);
  else if (type == IT_SUBSCRIBE_EXPRESSION)
    check(text.get(), type, subscribe_expression_serialize_xml, subscribe_expression_free,
          subscribe_expression_get_inspectable);
  else
    check(text.get(), type, property_state_serialize_xml, property_state_free,
          property_state_get_inspectable);
  return 0;
}
