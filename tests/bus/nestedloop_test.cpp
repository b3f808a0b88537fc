// Callbacks that iterate the main loop while more messages wait on their connection.
#include "live.hpp"

#include <utility>

namespace varro2::test {
namespace {

class NestedLoop : public Live {
 protected:
  FakeProducer peer_;
};

struct Iterating {
  int events = 0;
  int depth = 0;
  int deepest = 0;
};

// Messages of one connection are served one after the other, whatever a callback does meanwhile,
// and the connection survives it.
TEST_F(NestedLoop, EveryEventComesOnceAndNoneInsideAnother) {
  switch_.come();
  ConsumerHandle consumer{"listener"};
  Iterating state;
  const guint32 token = event_consumer_subscribe(
      consumer.get(), wants("topic0", "Greeting").get(),
      [](Event *event, gpointer data) {
        auto &self = *static_cast<Iterating *>(data);
        event_free(event);
        self.deepest = std::max(self.deepest, ++self.depth);
        for (int count = 0; count < 5; ++count)
          g_main_context_iteration(nullptr, FALSE);
        --self.depth;
        ++self.events;
      },
      &state);
  ASSERT_TRUE(switch_.wait_for("Subscribe"));
  const Call subscribed = switch_.calls("Subscribe").front();
  constexpr int sent = 50;
  for (int number = 0; number < sent; ++number)
    peer_.post(
        subscribed.sender, subscribed.text(0), "com.quor.Event.Consumer", "Event",
        g_variant_new("(@ayu)",
                      bytes_variant(wire::stamped_event({}, greeting_pairs("hi", number))).get(),
                      token));
  peer_.fence(subscribed.sender);
  EXPECT_EQ(state.events, sent);
  EXPECT_EQ(state.deepest, 1);
}

} // namespace
} // namespace varro2::test
