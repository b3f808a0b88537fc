// A declaration came or went. Its fields stand in the order of its record.
#pragma once

#include "eventdeclaration.hpp"
#include "serialize.hpp"
#include "subscribeexpression.hpp"
#include "timestamp.hpp"
#include "userdata.hpp"

#include <varro2/notification.h>

#include <optional>

struct Notification final {
  varro2::UserData user_data{};
  varro2::Timestamp timestamp{};
  guint32 subscription_id = 0;
  guint32 declaration_id = 0;
  guint32 type = NOTIFY_DECLARATION_ADDED;
  std::optional<SubscribeExpression> subscribe_expression{};
  std::optional<EventDeclaration> declaration{};

  // Both parts must be there: the record has no form for a missing one.
  template <typename Sink>
  void write(Sink &sink) const {
    sink.u8(SERIALIZE_ID_NOTIFICATION);
    user_data.write(sink);
    varro2::write_timestamp(sink, timestamp);
    sink.u32(subscription_id);
    sink.u32(declaration_id);
    sink.u8(type != NOTIFY_DECLARATION_ADDED);
    write_part(sink, *subscribe_expression);
    write_part(sink, *declaration);
  }

  static Notification read(varro2::Reader &reader);

 private:
  template <typename Sink, typename Part>
  static void write_part(Sink &sink, const Part &part) {
    sink.u32(static_cast<guint32>(varro2::record_size(part)));
    part.write(sink);
  }
};
