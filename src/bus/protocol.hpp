// Names on the bus, and every method that is called on it.
#pragma once

namespace varro2 {

struct BusAddress {
  const char *service; // a bus name
  const char *object;  // an object path
};

struct BusMethod {
  const char *interface;
  const char *member;
  const char *stub; // the exported function that calls it: answers for mistakes in the call
};

inline constexpr const char *bus_driver_name = "org.freedesktop.DBus";

inline constexpr BusAddress switch_address{"com.quor.Event.Switch", "/com/quor/Event/Switch"};

inline constexpr const char *producer_interface = "com.quor.Event.Producer";
inline constexpr const char *consumer_interface = "com.quor.Event.Consumer";
inline constexpr const char *event_error_prefix = "com.quor.Event.Error";

// What the switch serves.
namespace switch_producer {
inline constexpr const char *interface = "com.quor.Event.Switch.Producer";
inline constexpr BusMethod declare{interface, "Declare",
                                   "com_quor_Event_Switch_Producer_declare_async"};
inline constexpr BusMethod undeclare{interface, "Undeclare",
                                     "com_quor_Event_Switch_Producer_undeclare_async"};
inline constexpr BusMethod add_declaration{interface, "AddDeclaration",
                                           "com_quor_Event_Switch_Producer_add_declaration_async"};
inline constexpr BusMethod remove_declaration{
    interface, "RemoveDeclaration", "com_quor_Event_Switch_Producer_remove_declaration_async"};
inline constexpr BusMethod disconnect{interface, "Disconnect",
                                      "com_quor_Event_Switch_Producer_disconnect_async"};
} // namespace switch_producer

namespace switch_consumer {
inline constexpr const char *interface = "com.quor.Event.Switch.Consumer";
inline constexpr BusMethod subscribe{interface, "Subscribe",
                                     "com_quor_Event_Switch_Consumer_subscribe_async"};
inline constexpr BusMethod unsubscribe{interface, "Unsubscribe",
                                       "com_quor_Event_Switch_Consumer_unsubscribe_async"};
inline constexpr BusMethod refresh_property{
    interface, "RefreshProperty", "com_quor_Event_Switch_Consumer_refresh_property_async"};
inline constexpr BusMethod disconnect{interface, "Disconnect",
                                      "com_quor_Event_Switch_Consumer_disconnect_async"};
inline constexpr BusMethod get_property_state{interface, "GetPropertyState",
                                              "com_quor_Event_Switch_Consumer_get_property_state"};
} // namespace switch_consumer

namespace switch_query {
inline constexpr const char *interface = "com.quor.Event.Switch.Query";
inline constexpr BusMethod get_all_declarations{interface, "GetAllDeclarations",
                                                "com_quor_Event_Switch_Query_get_all_declarations"};
inline constexpr BusMethod get_declaration_types{
    interface, "GetDeclarationTypes", "com_quor_Event_Switch_Query_get_declaration_types"};
} // namespace switch_query

namespace switch_control {
inline constexpr BusMethod debug{"com.quor.Event.Switch", "Debug", "com_quor_Event_Switch_debug"};
inline constexpr BusMethod quit{"com.quor.Event.Switch", "Quit", "com_quor_Event_Switch_quit"};
} // namespace switch_control

// What producers and consumers serve.
namespace served_producer {
inline constexpr BusMethod global_declare_id{producer_interface, "GlobalDeclareId",
                                             "com_quor_Event_Producer_global_declare_id_async"};
inline constexpr BusMethod declaration_complete{
    producer_interface, "DeclarationComplete",
    "com_quor_Event_Producer_declaration_complete_async"};
inline constexpr BusMethod subscribe{producer_interface, "Subscribe",
                                     "com_quor_Event_Producer_subscribe_async"};
inline constexpr BusMethod refresh_property{producer_interface, "RefreshProperty",
                                            "com_quor_Event_Producer_refresh_property_async"};
inline constexpr BusMethod unsubscribe{producer_interface, "Unsubscribe",
                                       "com_quor_Event_Producer_unsubscribe_async"};
} // namespace served_producer

namespace served_consumer {
inline constexpr BusMethod event{consumer_interface, "Event",
                                 "com_quor_Event_Consumer_event_async"};
inline constexpr BusMethod notification{consumer_interface, "Notification",
                                        "com_quor_Event_Consumer_notification_async"};
} // namespace served_consumer

} // namespace varro2
