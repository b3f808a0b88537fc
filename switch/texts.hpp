// What operators are shown of a record.
#pragma once

#include <varro2/eventdeclaration.h>
#include <varro2/subscribeexpression.h>

#include <string>

namespace varro2::switchd {

// The values of topic0, topic1, ... up to the first level that has none, with slashes between.
std::string topic_of(const EventDeclaration *declaration);

// In the form in which the command line takes an expression; empty for one that fits everything.
std::string text_of(const SubscribeExpression &expression);

} // namespace varro2::switchd
