// Small declarations and expressions for the tests of the switch.
#pragma once

#include "registry.hpp"

#include <varro2/eventutils.h>

namespace varro2::switchd {

inline OwnedDeclaration topic(const char *name, std::uint32_t local_id) {
  OwnedDeclaration declaration{event_declaration_new(FALSE)};
  event_declaration_add_key_value(declaration.get(), "topic0", name, VALUE_TYPE_STRING);
  event_declaration_set_local_id(declaration.get(), local_id);
  return declaration;
}

inline OwnedExpression wants(const char *name) {
  OwnedExpression expression{subscribe_expression_new()};
  subscribe_expression_add_key_value(expression.get(), "topic0", name);
  return expression;
}

} // namespace varro2::switchd
