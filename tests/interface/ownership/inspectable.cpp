// inspectable.h: building blocks; what is broken ends the process. What is lent belongs to the
// container, lists are the caller's.
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = aborts("inspect != NULL");
const Null no_key = aborts("key != NULL");
const Null no_tag = aborts("tag != NULL");

const char *const events_only = "inspect->type == IT_EVENT";
const char *const declarations_only = "inspect->type == IT_EVENT_DECLARATION";
const char *const valued = "inspect->type == IT_EVENT || inspect->type == IT_EVENT_DECLARATION";
const char *const positioned = "inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE";
const char *const named =
    "inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_SUBSCRIBE_EXPRESSION || "
    "inspect->type == IT_PROPERTY_STATE";
const char *const key_tagged =
    "inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_PROPERTY_STATE || "
    "inspect->type == IT_EVENT";
const char *const tagged = "inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT";

// The keys are in the order in which they were added.
constexpr guint32 text = 1;

Inspectable *declaration(Objects &of) {
  return of.container(IT_EVENT_DECLARATION);
}
Inspectable *expression(Objects &of) {
  return of.container(IT_SUBSCRIBE_EXPRESSION);
}

Inspectable *open_keys(Objects &of) {
  return event_declaration_get_inspectable(of.declaration());
}

// "fixed" was added with its value.
Inspectable *fixed_key(Objects &of) {
  Inspectable *container = open_keys(of);
  inspectable_add_key_value(container, "fixed", FALSE, "value", FALSE, FALSE);
  return container;
}

XmlNode *content(Objects &of) {
  return of.node("<a><expression><keyvalue key='k' value='v'/></expression></a>");
}

// Its only key has the text that is no truth value.
Inspectable *broken_truth(Objects &of) {
  EventDeclaration *made = of.keep(event_declaration_new(FALSE), event_declaration_free);
  event_declaration_add_key(made, "truth", VALUE_TYPE_BOOL);
  Inspectable *container = event_declaration_get_inspectable(made);
  inspectable_set_value_as_string(container, "truth", "perhaps");
  return of.keep(inspectable_copy(container, IT_EVENT), inspectable_free);
}

ROW(inspectable_new, given<inspectable_free>, NULLS(), IT_EVENT)
ROW(inspectable_free, nothing, NULLS(accepted),
    of.give<Inspectable>(inspectable_new(IT_EVENT), inspectable_free))
ROW(inspectable_copy, given<inspectable_free>, NULLS(aborts("source != NULL")), of.container(),
    IT_EVENT)
ROW(inspectable_or, lent, NULLS(none), expression(of))
ROW(inspectable_add_key_value, lent,
    NULLS(none, aborts("key != NULL || key_wildcard == TRUE"),
          aborts("value != NULL || value_wildcard == TRUE")),
    of.container(), "new", FALSE, "value", FALSE, FALSE)
ROW(inspectable_set_value, lent, NULLS(none, no_key, aborts("value != NULL")), open_keys(of),
    "text", "value")
ROW(inspectable_set_value_as_string, lent, NULLS(none, no_key, aborts("value != NULL")),
    open_keys(of), "count", "12")
ROW(inspectable_set_value_user_string, lent, NULLS(none, no_key, accepted), declaration(of), "text",
    "user string")
ROW(inspectable_set_nice_names, lent, NULLS(none, no_key, accepted, accepted), declaration(of),
    "text", "Text", "Value")
ROW(inspectable_set_name_space, lent, NULLS(none, no_key, accepted), declaration(of), "text", "ns")
ROW(inspectable_set_complex_type_name, lent, NULLS(none, no_key, accepted), declaration(of), "text",
    "complex")
ROW(inspectable_set_value_type, lent, NULLS(none, no_key), declaration(of), "text", VALUE_TYPE_INT)
ROW(inspectable_set_internal, lent, NULLS(none), of.container(), TRUE)
ROW(inspectable_add_key_tag, lent, NULLS(none, no_key, no_tag), of.container(), "text", "another")
ROW(inspectable_add_tag, lent, NULLS(none, no_tag), of.container(), "another")
ROW(inspectable_get_key_value, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_value, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_name_space, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_complex_type_name, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_value_user_string, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_key_nice_name, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_value_nice_name, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_get_internal, lent, NULLS(none), of.container())
ROW(inspectable_get_tags, given<free_string_list>, NULLS(none), of.container())
ROW(inspectable_has_tag, lent, NULLS(none, no_tag), of.container(), "tag")
ROW(inspectable_get_key_count, lent, NULLS(none), of.container())
ROW(inspectable_get_key_at, lent, NULLS(none), of.container(), text)
ROW(inspectable_get_value_at, lent, NULLS(none), of.container(), text)
ROW(inspectable_get_name_space_at, lent, NULLS(none), of.container(), text)
ROW(inspectable_get_complex_type_name_at, lent, NULLS(none), of.container(), text)
ROW(inspectable_get_tags_at, given<free_string_list>, NULLS(none), of.container(), text)
ROW(inspectable_has_tag_at, lent, NULLS(none, no_tag), of.container(), text, "tag")
ROW(inspectable_has_keyvalue_with_tag, lent, NULLS(none, no_tag), of.container(), "tag")
ROW(inspectable_get_index, lent, NULLS(none, no_key), of.container(), "text")
ROW(inspectable_has_value_at, lent, NULLS(none), of.container(), text)
ROW(inspectable_get_type_at, lent, NULLS(none), of.container(), text)
// Lends the container's own text.
ROW(inspectable_get_typed_value_at, lent, NULLS(none, aborts("out != NULL")), of.container(), text,
    of.text_slot())
ROW(inspectable_contains, lent, NULLS(aborts("container != NULL"), aborts("containee != NULL")),
    of.container(), expression(of))
ROW(inspectable_is_equal, lent, NULLS(aborts("inspect1 != NULL"), aborts("inspect2 != NULL")),
    of.container(), of.container())
ROW(inspectable_is_complete, lent, NULLS(none), of.container())
ROW(inspectable_serialize_internal, nothing, NULLS(none, aborts("array != NULL")), of.container(),
    of.bytes())
ROW(inspectable_deserialize_internal, given<inspectable_free>,
    NULLS(aborts("array != NULL"), aborts("indx != NULL")),
    of.record<inspectable_serialize_internal>(of.container()), of.index())
ROW(inspectable_serialize_xml, given<xmlnode_free_tree>, NULLS(aborts("insp != NULL")),
    of.container())
ROW(inspectable_deserialize_xml, given<inspectable_free>, NULLS(aborts("node != NULL")),
    content(of), IT_EVENT)
ROW(inspectable_print, nothing, NULLS(none), of.container())
ROW(inspectable_get_raw, given<inspectable_free_raw>, NULLS(none), of.container())
ROW(inspectable_free_raw, nothing, NULLS(accepted),
    of.give<GList>(inspectable_get_raw(of.container()), inspectable_free_raw))

// ---- Of another type
REFUSAL(inspectable_or, of_an_event, lent,
        warned("Only subscribe expressions support the OR statement."), of.container())
REFUSAL(inspectable_set_value, of_an_expression, lent, aborts(valued), expression(of), "text", "x")
REFUSAL(inspectable_set_value_as_string, of_an_expression, lent, aborts(valued), expression(of),
        "text", "x")
REFUSAL(inspectable_set_value_user_string, of_an_event, lent, aborts(declarations_only),
        of.container(), "text", "x")
REFUSAL(inspectable_set_nice_names, of_an_event, lent, aborts(declarations_only), of.container(),
        "text", "x", "x")
REFUSAL(inspectable_set_name_space, of_an_event, lent, aborts(named), of.container(), "text", "x")
REFUSAL(inspectable_set_complex_type_name, of_an_event, lent, aborts(named), of.container(), "text",
        "x")
REFUSAL(inspectable_set_value_type, of_an_event, lent, aborts(declarations_only), of.container(),
        "text", VALUE_TYPE_INT)
REFUSAL(inspectable_add_key_tag, of_an_expression, lent, aborts(key_tagged), expression(of), "text",
        "x")
REFUSAL(inspectable_add_tag, of_an_expression, lent, aborts(tagged), expression(of), "x")
REFUSAL(inspectable_get_key_nice_name, of_a_declaration, lent, aborts(events_only), declaration(of),
        "text")
REFUSAL(inspectable_get_value_nice_name, of_a_declaration, lent, aborts(events_only),
        declaration(of), "text")
REFUSAL(inspectable_get_key_count, of_a_declaration, lent, aborts(positioned), declaration(of))
REFUSAL(inspectable_get_key_at, of_a_declaration, lent, aborts(positioned), declaration(of), text)
REFUSAL(inspectable_get_value_at, of_a_declaration, lent, aborts(positioned), declaration(of), text)
REFUSAL(inspectable_get_name_space_at, of_a_declaration, lent, aborts(positioned), declaration(of),
        text)
REFUSAL(inspectable_get_complex_type_name_at, of_a_declaration, lent, aborts(positioned),
        declaration(of), text)
REFUSAL(inspectable_get_tags_at, of_a_declaration, lent, aborts(positioned), declaration(of), text)
REFUSAL(inspectable_has_tag_at, of_a_declaration, lent, aborts(positioned), declaration(of), text,
        "tag")
REFUSAL(inspectable_has_keyvalue_with_tag, of_an_expression, lent,
        aborts("inspect->type == IT_EVENT || inspect->type == IT_PROPERTY_STATE || "
               "inspect->type == IT_EVENT_DECLARATION"),
        expression(of), "tag")
REFUSAL(inspectable_get_index, of_a_declaration, lent, aborts(events_only), declaration(of), "text")
REFUSAL(inspectable_has_value_at, of_a_declaration, lent, aborts(events_only), declaration(of),
        text)
REFUSAL(inspectable_get_type_at, of_a_declaration, lent, aborts(events_only), declaration(of), text)
REFUSAL(inspectable_get_typed_value_at, of_a_declaration, lent, aborts(events_only),
        declaration(of), text, of.text_slot())
REFUSAL(inspectable_is_complete, of_an_expression, lent,
        aborts("inspect->type == IT_EVENT_DECLARATION || inspect->type == IT_EVENT"),
        expression(of))

// ---- No such type
REFUSAL(inspectable_new, of_no_type, lent, aborts("type <= IT_PROPERTY_STATE"), 4)
REFUSAL(inspectable_copy, of_no_type, lent, aborts("new_type <= IT_PROPERTY_STATE"), of.container(),
        4)
REFUSAL(inspectable_deserialize_xml, of_no_type, lent, aborts("type <= IT_PROPERTY_STATE"),
        content(of), 4)
REFUSAL(inspectable_set_value_type, no_type, lent,
        aborts("value_type >= VALUE_TYPE_INT && value_type <= VALUE_TYPE_STRING"), declaration(of),
        "text", 5)

// ---- No such key or position
REFUSAL(inspectable_get_key_value, unknown, lent, neutral, of.container(), "unknown")
REFUSAL(inspectable_get_value, unknown, lent, neutral, of.container(), "unknown")
REFUSAL(inspectable_get_index, unknown, otherwise(INSPECTABLE_NO_INDEX), neutral, of.container(),
        "unknown")
REFUSAL(inspectable_set_value, unknown, lent, neutral, open_keys(of), "unknown", "x")
REFUSAL(inspectable_set_value, fixed, lent, neutral, fixed_key(of), "fixed", "x")
REFUSAL(inspectable_set_name_space, unknown, lent, neutral, declaration(of), "unknown", "x")
REFUSAL(inspectable_set_value_type, unknown, lent, aborts("key_value != NULL"), declaration(of),
        "unknown", VALUE_TYPE_INT)
REFUSAL(inspectable_add_key_tag, unknown, lent, neutral, of.container(), "unknown", "x")
REFUSAL(inspectable_get_key_at, past_the_end, lent, neutral, of.container(), 3)
REFUSAL(inspectable_get_tags_at, past_the_end, lent, neutral, of.container(), 3)
REFUSAL(inspectable_get_type_at, past_the_end, lent, neutral, of.container(), 3)
REFUSAL(inspectable_get_typed_value_at, past_the_end, lent, neutral, of.container(), 3,
        of.text_slot())
REFUSAL(inspectable_has_value_at, past_the_end, lent, neutral, of.container(), 3)

// ---- What does not fit
REFUSAL(inspectable_add_key_value, key_twice, lent,
        aborts("inspectable_get_value(inspect, key) == NULL"), of.container(), "text", FALSE, "x",
        FALSE, FALSE)
REFUSAL(inspectable_add_key_value, both_wildcards, lent,
        aborts("key_wildcard == FALSE || value_wildcard == FALSE"), expression(of), "x", TRUE, "x",
        TRUE, FALSE)
REFUSAL(inspectable_add_key_value, any_key, lent, aborts("key_wildcard == FALSE"), of.container(),
        nullptr, TRUE, "x", FALSE, FALSE)
REFUSAL(inspectable_get_typed_value_at, no_truth_value, lent, aborts("FALSE"), broken_truth(of), 0,
        of.flag())
REFUSAL(inspectable_deserialize_internal, another_record, lent,
        aborts("type == SERIALIZE_ID_INSPECTABLE"), of.record<event_serialize_internal>(of.event()),
        of.index())
REFUSAL(inspectable_deserialize_xml, no_expressions, lent,
        warned("There are no expressions in the xml"), of.node("<a/>"), IT_EVENT)
REFUSAL(inspectable_deserialize_xml, another_element, lent,
        warned("Expected xml tag 'expression' or 'tag' and got 'a'"), of.node("<a><b/></a>"),
        IT_EVENT)

} // namespace
} // namespace varro2::test
