// Owners for what C libraries hand out.
#pragma once

#include <varro2/varro2.h>

#include <jansson.h>
#include <systemd/sd-bus.h>

#include <memory>

namespace varro2::cli {

template <auto release>
struct Releaser {
  template <typename T>
  void operator()(T *object) const noexcept {
    release(object);
  }
};
template <typename T, auto release>
using Owned = std::unique_ptr<T, Releaser<release>>;

// Functions of two names where a macro stands in the way.
inline void release_json(json_t *json) noexcept {
  json_decref(json);
}
inline void release_malloc(void *memory) noexcept {
  ::free(memory);
}
inline void release_declarations(GList *list) noexcept {
  g_list_free_full(list, [](gpointer declaration) {
    event_declaration_free(static_cast<EventDeclaration *>(declaration));
  });
}

using OwnedText = Owned<char, g_free>;
using OwnedCText = Owned<char, release_malloc>;
using OwnedError = Owned<GError, g_error_free>;
using OwnedBytes = Owned<GByteArray, g_byte_array_unref>;
using OwnedDateTime = Owned<GDateTime, g_date_time_unref>;
using OwnedJson = Owned<json_t, release_json>;
using OwnedJsonOptions = Owned<JsonOptions, json_options_free>;
using OwnedEvent = Owned<::Event, event_free>;
using OwnedNotification = Owned<::Notification, notification_free>;
using OwnedDeclaration = Owned<EventDeclaration, event_declaration_free>;
using OwnedDeclarations = Owned<GList, release_declarations>;
using OwnedExpression = Owned<SubscribeExpression, subscribe_expression_free>;
using OwnedPropertyState = Owned<PropertyState, property_state_free>;
using OwnedXml = Owned<XmlNode, xmlnode_free_tree>;
using OwnedMessage = Owned<sd_bus_message, sd_bus_message_unref>;
using OwnedQuery = Owned<EventQuery, event_query_free>;

} // namespace varro2::cli
