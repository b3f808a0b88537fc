#include "busproxy.hpp"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace varro2::test {
namespace {

constexpr std::size_t header_size = 16; // enough to tell a message's length
constexpr int standstill = 20;          // milliseconds in which nothing moves

int require(int result, const char *what) {
  if (result < 0)
    throw std::runtime_error{std::string{what} + ": " + std::strerror(errno)};
  return result;
}

class Descriptor {
 public:
  explicit Descriptor(int number) : number_{number} {}
  ~Descriptor() {
    if (number_ >= 0)
      close(number_);
  }
  Descriptor(Descriptor &&other) noexcept : number_{std::exchange(other.number_, -1)} {}
  Descriptor &operator=(Descriptor &&) = delete;

  int get() const { return number_; }

 private:
  int number_;
};

Descriptor new_socket() {
  return Descriptor{require(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0), "socket")};
}

sockaddr_un place(const std::string &path) {
  sockaddr_un name{.sun_family = AF_UNIX, .sun_path = {}};
  if (path.size() >= sizeof name.sun_path)
    throw std::runtime_error{"too long for a socket: " + path};
  path.copy(name.sun_path, path.size());
  return name;
}

struct MessageRelease {
  void operator()(GDBusMessage *message) const noexcept { g_object_unref(message); }
};
using Message = std::unique_ptr<GDBusMessage, MessageRelease>;

Message parse(std::string_view bytes) {
  auto *data = reinterpret_cast<guchar *>(const_cast<char *>(bytes.data()));
  return Message{g_dbus_message_new_from_blob(data, bytes.size(),
                                              G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr)};
}

// What the bus would have answered, had it refused the call.
std::string refusal(GDBusMessage *call, const std::string &error) {
  static std::atomic<guint32> serial{0x4000'0000};
  const Message answer{
      g_dbus_message_new_method_error_literal(call, error.c_str(), "Refused on the way.")};
  g_dbus_message_set_serial(answer.get(), ++serial);
  g_dbus_message_set_sender(answer.get(), "org.freedesktop.DBus");
  gsize size = 0;
  guchar *blob =
      g_dbus_message_to_blob(answer.get(), &size, G_DBUS_CAPABILITY_FLAGS_UNIX_FD_PASSING, nullptr);
  std::string bytes{reinterpret_cast<char *>(blob), size};
  g_free(blob);
  return bytes;
}

bool wants_answer(GDBusMessage *message) {
  return g_dbus_message_get_message_type(message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL &&
         !(g_dbus_message_get_flags(message) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED);
}

// A line of the handshake, or a message.
struct Piece {
  std::size_t size;
  bool message;
};

// One direction of one connection.
struct Stream {
  explicit Stream(BusProxy::Way direction) : way{direction} {}

  BusProxy::Way way;
  std::string read{};    // not yet looked at
  std::string written{}; // to be passed on
  bool messages = false; // the handshake is over
  bool held = false;
  bool judged = false; // the next message has been, and was held

  // Nothing when no piece is whole yet.
  std::optional<Piece> next_piece() {
    if (!messages && way == BusProxy::Way::from_bus)
      messages = !read.empty() && (read.front() == 'l' || read.front() == 'B');
    if (!messages)
      return next_line();
    if (read.size() < header_size)
      return std::nullopt;
    auto *header = reinterpret_cast<guchar *>(read.data());
    const auto needed = g_dbus_message_bytes_needed(header, header_size, nullptr);
    if (needed <= 0 || static_cast<std::size_t>(needed) > read.size())
      return std::nullopt;
    return Piece{static_cast<std::size_t>(needed), true};
  }

 private:
  std::optional<Piece> next_line() {
    constexpr std::string_view end = "\r\n";
    const auto at = read.find(end);
    if (at == std::string::npos)
      return std::nullopt;
    messages = way == BusProxy::Way::to_bus && std::string_view{read}.substr(0, at) == "BEGIN";
    return Piece{at + end.size(), false};
  }
};

struct Link {
  Link(Descriptor client, Descriptor server) : party{std::move(client)}, bus{std::move(server)} {}

  Descriptor party;
  Descriptor bus;
  Stream out{BusProxy::Way::to_bus};
  Stream in{BusProxy::Way::from_bus};
  bool ended = false;
};

} // namespace

class BusProxy::Relay {
 public:
  Relay(const std::string &socket_path, const std::string &bus_path)
      : bus_path_{bus_path}, listener_{new_socket()}, wake_{require(
                                                          eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK),
                                                          "eventfd")} {
    const auto name = place(socket_path);
    require(bind(listener_.get(), reinterpret_cast<const sockaddr *>(&name), sizeof name), "bind");
    require(listen(listener_.get(), 16), "listen");
    thread_ = std::thread{[this] { run(); }};
  }

  ~Relay() {
    ending_ = true;
    wake();
    thread_.join();
  }

  void judge(Judge judge) {
    const std::scoped_lock lock{mutex_};
    judge_ = std::move(judge);
    passed_ = 0;
  }

  int passed() const {
    const std::scoped_lock lock{mutex_};
    return passed_;
  }

 private:
  void wake() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_.get(), &one, sizeof one);
  }

  void run() {
    while (!ending_) {
      if (!wait())
        for (Link &link : links_)
          link.out.held = link.in.held = false;
      for (Link &link : links_)
        serve(link);
      links_.remove_if([](const Link &link) { return link.ended; });
    }
  }

  bool holds() const {
    return std::any_of(links_.begin(), links_.end(),
                       [](const Link &link) { return link.out.held || link.in.held; });
  }

  // Whether anything moves. Returns without only while something is held back.
  bool wait() {
    std::vector<pollfd> polled{{listener_.get(), POLLIN, 0}, {wake_.get(), POLLIN, 0}};
    for (const Link &link : links_) {
      polled.push_back({link.party.get(), interest(link.in), 0});
      polled.push_back({link.bus.get(), interest(link.out), 0});
    }
    const int ready = poll(polled.data(), polled.size(), holds() ? standstill : -1);
    std::uint64_t count = 0;
    [[maybe_unused]] const auto read_back = read(wake_.get(), &count, sizeof count);
    if (polled[0].revents)
      accept_one();
    return ready != 0;
  }

  // Of the end that a stream is written to.
  static short interest(const Stream &stream) {
    return static_cast<short>(stream.written.empty() ? POLLIN : POLLIN | POLLOUT);
  }

  void accept_one() {
    Descriptor party{accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)};
    Descriptor bus = new_socket();
    const auto name = place(bus_path_);
    // A bus that is not there: the party sees its connection end.
    if (party.get() < 0 ||
        connect(bus.get(), reinterpret_cast<const sockaddr *>(&name), sizeof name) < 0)
      return;
    links_.emplace_back(std::move(party), std::move(bus));
  }

  void serve(Link &link) {
    take(link, link.party.get(), link.out);
    take(link, link.bus.get(), link.in);
    pass_pieces(link, link.out);
    pass_pieces(link, link.in);
    give(link, link.bus.get(), link.out);
    give(link, link.party.get(), link.in);
  }

  static void take(Link &link, int descriptor, Stream &stream) {
    char buffer[65536];
    ssize_t length = 0;
    while ((length = recv(descriptor, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
      stream.read.append(buffer, static_cast<std::size_t>(length));
    if (length == 0 || (length < 0 && errno != EAGAIN && errno != EINTR))
      link.ended = true;
  }

  static void give(Link &link, int descriptor, Stream &stream) {
    while (!stream.written.empty()) {
      const auto length = send(descriptor, stream.written.data(), stream.written.size(),
                               MSG_DONTWAIT | MSG_NOSIGNAL);
      if (length < 0) {
        link.ended = link.ended || (errno != EAGAIN && errno != EINTR);
        return;
      }
      stream.written.erase(0, static_cast<std::size_t>(length));
    }
  }

  void pass_pieces(Link &link, Stream &stream) {
    while (!stream.held && !link.ended) {
      const auto piece = stream.next_piece();
      if (!piece)
        return;
      const std::string bytes = stream.read.substr(0, piece->size);
      if (!piece->message || std::exchange(stream.judged, false))
        stream.written += bytes;
      else if (!pass_message(link, stream, bytes))
        return;
      stream.read.erase(0, piece->size);
    }
  }

  // Whether the message is done with.
  bool pass_message(Link &link, Stream &stream, const std::string &bytes) {
    const Message message = parse(bytes);
    const Verdict verdict = ask(stream.way, message.get());
    if (verdict.fate == Fate::delay)
      stream.held = stream.judged = true;
    else if (verdict.fate == Fate::cut)
      link.ended = true;
    else if (verdict.fate == Fate::refuse && wants_answer(message.get()))
      (stream.way == Way::to_bus ? link.in : link.out).written +=
          refusal(message.get(), verdict.error);
    else
      stream.written += bytes;
    return verdict.fate == Fate::pass || verdict.fate == Fate::refuse;
  }

  Verdict ask(Way way, GDBusMessage *message) {
    const std::scoped_lock lock{mutex_};
    ++passed_;
    return judge_ ? judge_({passed_, way, message}) : Verdict{};
  }

  std::string bus_path_;
  Descriptor listener_;
  Descriptor wake_;
  std::list<Link> links_; // of the proxy's thread
  std::atomic<bool> ending_{false};
  mutable std::mutex mutex_; // guards what follows
  Judge judge_;
  int passed_ = 0;
  std::thread thread_;
};

BusProxy::BusProxy(const std::string &socket, const std::string &bus_address)
    : address_{"unix:path=" + socket}, relay_{std::make_unique<Relay>(
                                           socket, bus_address.substr(bus_address.find('=') + 1))} {
}

BusProxy::~BusProxy() = default;

void BusProxy::judge(Judge judge) {
  relay_->judge(std::move(judge));
}

int BusProxy::passed() const {
  return relay_->passed();
}

} // namespace varro2::test
