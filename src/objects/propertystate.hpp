#pragma once

#include "inspectable.hpp"
#include "serialize.hpp"
#include "subscribeexpression.hpp"

#include <varro2/propertystate.h>

#include <memory>

struct PropertyState final {
  template <typename Sink>
  void write(Sink &sink) const {
    sink.u8(SERIALIZE_ID_PROPERTY_STATE);
    inspectable.write(sink);
  }

  Inspectable inspectable{IT_PROPERTY_STATE};
  // No key can be added any more: both expressions are there.
  gboolean locked = FALSE;
  std::unique_ptr<SubscribeExpression> subscribe_expression;
  std::unique_ptr<SubscribeExpression> inverted_subscribe_expression;
};
