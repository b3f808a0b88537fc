#include "windowcall.hpp"

#include <algorithm>
#include <span>

namespace varro2 {

namespace {

// The bound counts what is to be delivered, so that users can reckon with it. What an entry costs
// beside that is of the same order, as long as small ones do not count for nothing.
constexpr std::size_t least_size = 64;

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

WindowCall make_window_call(MessageRef message, std::size_t size, CallCompletion completion) {
  return {.message = std::move(message),
          .size = std::max(size, least_size),
          .completion = std::move(completion)};
}

void WindowCall::keep(std::string &usual_object) {
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
  if (payload)
    append_argument(method, made.get(), payload.get());
  for (const guint32 number : std::span{numbers}.first(number_count))
    append_argument(method, made.get(), number);
  return made;
}

} // namespace varro2
