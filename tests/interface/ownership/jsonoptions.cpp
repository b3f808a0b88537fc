// jsonoptions.h and idgenerator.h
#include "table.hpp"

namespace varro2::test {
namespace {

const Null none = refused("options != NULL");
const Null no_generator = aborts("idgen != NULL");

ROW(json_options_new, given<json_options_free>, NULLS())
ROW(json_options_free, nothing, NULLS(accepted),
    of.give<JsonOptions>(json_options_new(), json_options_free))
ROW(json_options_set_pretty_printing, nothing, NULLS(none), of.options(), TRUE)
ROW(json_options_get_pretty_printing, lent, NULLS(unchecked), of.options())
ROW(json_options_use_only_strings_in_message, nothing, NULLS(none), of.options(), TRUE)
ROW(json_options_get_if_only_strings_in_message, lent, NULLS(unchecked), of.options())
ROW(json_options_set_serialnumber, nothing, NULLS(none, accepted), of.options(), "another")
ROW(json_options_get_serialnumber, lent, NULLS(none), of.options())
ROW(json_options_set_onvif_namespace, nothing, NULLS(none, refused("ns != NULL")), of.options(),
    "x")
ROW(json_options_get_onvif_namespace, lent, NULLS(none), of.options())
ROW(json_options_set_quor_namespace, nothing, NULLS(none, refused("ns != NULL")), of.options(), "x")
ROW(json_options_get_quor_namespace, lent, NULLS(none), of.options())
ROW(json_options_set_format, nothing, NULLS(unchecked), of.options(), JSON_FORMAT_TAMLO)
ROW(json_options_get_format, lent, NULLS(unchecked), of.options())

ROW(idgenerator_new, given<idgenerator_free>, NULLS())
ROW(idgenerator_free, nothing, NULLS(accepted),
    of.give<IdGenerator>(idgenerator_new(), idgenerator_free))
ROW(idgenerator_reserve, lent, NULLS(no_generator), of.generator())
ROW(idgenerator_release, nothing, NULLS(no_generator), of.generator(), 1)

} // namespace
} // namespace varro2::test
