// An XML document becomes the object that its reader asks for.
#include "log.hpp"
#include "preconditions.hpp"
#include "xmlnode.hpp"

#include <varro2/eventdeclaration.h>
#include <varro2/eventutils.h>
#include <varro2/propertystate.h>
#include <varro2/subscribeexpression.h>

gpointer event_utils_deserialize_xml(const char *xml, guint32 type) noexcept {
  VARRO2_EXPECT(xml != NULL, nullptr);
  const varro2::XmlTree tree{xmlnode_parse_string(xml)};
  if (!tree) {
    VARRO2_WARNING("%sCould not parse XML '%s'", xml);
    return nullptr;
  }

  gpointer object = nullptr;
  switch (type) {
  case IT_EVENT_DECLARATION:
    object = event_declaration_deserialize_xmlnode(tree.get());
    break;
  case IT_SUBSCRIBE_EXPRESSION:
    object = subscribe_expression_deserialize_xmlnode(tree.get());
    break;
  case IT_PROPERTY_STATE:
    object = property_state_deserialize_xmlnode(tree.get());
    break;
  default:
    VARRO2_CRITICAL("%sUnknown type to deserialize: %d", static_cast<gint>(type));
    VARRO2_ASSERT(FALSE);
  }

  if (!object) {
    const varro2::OwnedText text{xmlnode_get_xml(tree.get())};
    VARRO2_WARNING("%sFailed when deserializing '%s'", text.get());
  }
  return object;
}
