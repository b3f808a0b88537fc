#include "windowcall.hpp"

#include "event.hpp"
#include "preconditions.hpp"

#include <algorithm>
#include <span>

namespace varro2 {

namespace {

// The bound counts what is to be delivered, so that users can reckon with it. What an entry costs
// beside that is of the same order, as long as small ones do not count for nothing.
constexpr std::size_t least_size = 64;

// Its size is known already.
void append_record(const BusMethod &method, sd_bus_message *message, const Event &event,
                   std::size_t size) {
  void *space = nullptr;
  const int r = sd_bus_message_append_array_space(message, SD_BUS_TYPE_BYTE, size, &space);
  VARRO2_ASSERT_AS(method.stub, "r >= 0", r >= 0);
  write_record(event, static_cast<guint8 *>(space));
}

} // namespace

WindowCall make_window_call(const BusMethod &method, const char *object, BytesRef payload,
                            std::initializer_list<guint32> numbers, CallCompletion completion) {
  WindowCall call{.method = method,
                  .object = object,
                  .payload = std::move(payload),
                  .number_count = numbers.size(),
                  .completion = std::move(completion)};
  std::copy(numbers.begin(), numbers.end(), call.numbers.begin());
  call.size = std::max<std::size_t>(call.payload ? call.payload->len : 0, least_size);
  return call;
}

WindowCall make_window_call(const BusMethod &method, const char *object, const Event &event,
                            guint32 number) {
  return {.method = method,
          .object = object,
          .event = &event,
          .numbers = {number},
          .number_count = 1,
          .size = record_size_of(event)};
}

WindowCall make_window_call(MessageRef message, std::size_t size, CallCompletion completion) {
  return {.message = std::move(message),
          .size = std::max(size, least_size),
          .completion = std::move(completion)};
}

void WindowCall::keep(std::string &usual_object) {
  size = std::max(size, least_size);
  if (event != nullptr)
    payload = BytesRef::adopt(event_serialize(std::exchange(event, nullptr)));
  if (object == nullptr)
    return;
  if (usual_object.empty())
    usual_object = object;
  if (usual_object != object)
    kept_object.reset(g_strdup(object));
  object = kept_object ? kept_object.get() : usual_object.c_str();
}

MessageRef WindowCall::message_to(sd_bus *bus, const char *receiver) const {
  if (message)
    return message;
  MessageRef made = new_call(bus, {receiver, object}, method);
  if (event != nullptr)
    append_record(method, made.get(), *event, size);
  else if (payload)
    append_argument(method, made.get(), payload.get());
  for (const guint32 number : std::span{numbers}.first(number_count))
    append_argument(method, made.get(), number);
  return made;
}

} // namespace varro2
