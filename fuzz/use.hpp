// What programs do with objects that came from elsewhere.
#pragma once

#include "target.hpp"

namespace varro2::fuzz {

void use(const KeyValue &pair);
void use(const Inspectable &container);
void use(const Event &event);
void use(const EventDeclaration &declaration);
void use(const SubscribeExpression &expression);
void use(const PropertyState &state);
void use(const Notification &notification);

// Reads the record at `start`, which the walk has accepted, and holds the reader against the walk
// and against the writer. Returns where the record ends.
guint32 check_record(const GByteArray *array, guint32 start, guint32 type_id);

} // namespace varro2::fuzz
