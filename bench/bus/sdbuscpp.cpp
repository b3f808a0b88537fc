// sdbus-c++: the same bytes through its objects and proxies.
#include "harness.hpp"

#include <sdbus-c++/sdbus-c++.h>

#include <cstdio>
#include <cstdlib>

namespace {

using namespace bench;

constexpr const char *path = "/bench/consumer";
constexpr const char *interface = "com.quor.Event.Consumer";

template <typename Base>
class Connected : public Base {
 public:
  Connected() : connection_{sdbus::createSystemBusConnection()} {}

  void watch(int descriptor, std::function<void()> readable) override {
    loop_.watch(descriptor, std::move(readable));
  }
  void run() override {
    while (loop_.running) {
      while (connection_->processPendingRequest()) {
      }
      const auto data = connection_->getEventLoopPollData();
      loop_.wait(data.fd, data.events, data.getPollTimeout());
    }
  }
  void quit() override { loop_.running = false; }

 protected:
  std::unique_ptr<sdbus::IConnection> connection_;
  PollLoop loop_;
};

class Consumer final : public Connected<ConsumerSide> {
 public:
  explicit Consumer(const Options &options)
      : payload_{options.payload}, object_{sdbus::createObject(*connection_, path)} {
    object_->registerMethod("Event").onInterface(interface).implementedAs(
        [this](const std::vector<std::uint8_t> &bytes, std::uint32_t) {
          received(payload_.stamp_of({reinterpret_cast<const char *>(bytes.data()), bytes.size()}));
        });
    object_->finishRegistration();
  }

  std::string address() override { return connection_->getUniqueName(); }

 private:
  Payload payload_;
  std::unique_ptr<sdbus::IObject> object_;
};

class Producer final : public Connected<ProducerSide> {
 public:
  explicit Producer(const Options &options) : payload_{options.payload} {
    for (const std::string &address : options.addresses)
      proxies_.push_back(sdbus::createProxy(*connection_, address, path));
  }

  bool counts_answers() const override { return true; }

  void send() override {
    payload_.stamp();
    const std::vector<std::uint8_t> bytes{payload_.bytes().begin(), payload_.bytes().end()};
    for (const auto &proxy : proxies_)
      proxy->callMethodAsync("Event")
          .onInterface(interface)
          .withTimeout(std::uint64_t{60'000'000})
          .withArguments(bytes, std::uint32_t{1})
          .uponReplyInvoke([this](const sdbus::Error *error) {
            if (error != nullptr) {
              std::fprintf(stderr, "%s\n", error->what());
              std::exit(1);
            }
            answered();
          });
  }

 private:
  Payload payload_;
  std::vector<std::unique_ptr<sdbus::IProxy>> proxies_;
};

} // namespace

int main(int argc, char **argv) {
  return run_side(
      argc, argv, [](const Options &options) { return std::make_unique<Consumer>(options); },
      [](const Options &options) { return std::make_unique<Producer>(options); });
}
