// What a consumer asks for. Its fields stand in the order of its record.
#pragma once

#include "inspectable.hpp"
#include "serialize.hpp"

#include <varro2/subscribeexpression.h>

#include <string>

struct SubscribeExpression final {
  guint32 id = 0;
  std::string dbus_service{};
  std::string dbus_object{};
  guint32 consumer_token = 0;
  gboolean clandestine = FALSE;
  Inspectable inspectable{IT_SUBSCRIBE_EXPRESSION};

  template <typename Sink>
  void write(Sink &sink) const {
    sink.u8(SERIALIZE_ID_SUBSCRIBE_EXPRESSION);
    sink.u32(id);
    sink.text(dbus_service);
    sink.text(dbus_object);
    sink.u32(consumer_token);
    sink.u8(static_cast<guint32>(clandestine));
    inspectable.write(sink);
  }
  static SubscribeExpression read(varro2::Reader &reader);
};
