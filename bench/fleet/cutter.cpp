// The line between gateways and a broker, which can be cut: passes bytes on, and counts them.
// SIGUSR1 resets all connections; SIGUSR2 lets nothing through any more, SIGHUP lets it through again.
// Usage: cutter port PORT [listen 0]     prints the port that it listens on, then a line for each second with traffic
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>

#include "common/unique_fd.h"
#include "fleet/arguments.h"

namespace {

using zor::UniqueFd;
using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t cut = 0;
volatile std::sig_atomic_t frozen = 0;

sockaddr_in Loopback(int port) {
  return {AF_INET, htons(static_cast<uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
}

struct Half {
  UniqueFd socket;
  std::string unsent;     // for this one's peer
  Half *other = nullptr;  // of the same connection
  bool isUp = false;      // what comes from it goes up, to the broker
};

struct Counts {
  uint64_t connections = 0, up = 0, down = 0;
};

class Cutter {
 public:
  explicit Cutter(int port) : broker_(Loopback(port)), epoll_(::epoll_create1(EPOLL_CLOEXEC)) {}

  // The port; 0: it cannot listen.
  int Listen(int port) {
    listener_.reset(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int on = 1;
    ::setsockopt(listener_.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = Loopback(port);
    socklen_t size = sizeof address;
    if (::bind(listener_.get(), reinterpret_cast<sockaddr *>(&address), size) != 0 ||
        ::listen(listener_.get(), 4096) != 0) {
      return 0;
    }
    ::getsockname(listener_.get(), reinterpret_cast<sockaddr *>(&address), &size);
    Watch(listener_.get(), EPOLLIN, EPOLL_CTL_ADD);
    return ntohs(address.sin_port);
  }

  void Turn() {
    std::array<epoll_event, 256> ready;
    const int count = ::epoll_wait(epoll_.get(), ready.data(), ready.size(), frozen ? 20 : 200);
    if (cut != 0) CutAll();
    if (frozen != 0) {
      // What is ready stays so.
      const timespec pause = {0, 20'000'000};
      ::nanosleep(&pause, nullptr);
      return;
    }
    for (int i = 0; i < count; ++i) {
      const int socket = ready[static_cast<std::size_t>(i)].data.fd;
      if (socket == listener_.get()) {
        Accept();
      } else if (const auto found = halves_.find(socket); found != halves_.end()) {
        Pass(*found->second);
      }
    }
  }
  const Counts &counts() const { return counts_; }
  std::size_t open() const { return halves_.size() / 2; }

 private:
  void Watch(int socket, uint32_t events, int how) {
    epoll_event event = {};
    event.events = events;
    event.data.fd = socket;
    ::epoll_ctl(epoll_.get(), how, socket, &event);
  }

  void Accept() {
    for (;;) {
      UniqueFd client(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
      if (!client.valid()) return;
      UniqueFd broker(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
      // On the loopback this is at once; without a broker the client is refused a little late.
      if (::connect(broker.get(), reinterpret_cast<const sockaddr *>(&broker_), sizeof broker_) != 0) continue;
      const int on = 1;
      ::setsockopt(client.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      ::setsockopt(broker.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      ++counts_.connections;
      auto up = std::make_unique<Half>(), down = std::make_unique<Half>();
      up->socket = std::move(client);
      down->socket = std::move(broker);
      up->isUp = true;
      up->other = down.get();
      down->other = up.get();
      for (auto *half : {&up, &down}) {
        const int socket = (*half)->socket.get();
        Watch(socket, EPOLLIN, EPOLL_CTL_ADD);
        halves_[socket] = std::move(*half);
      }
    }
  }

  // From one side to the other. What the other does not take at once waits, and nothing more is read until it has.
  void Pass(Half &half) {
    Half &other = *half.other;
    if (!other.unsent.empty() && !Flush(other)) return Close(half);
    if (!half.unsent.empty()) return;
    std::array<char, 65536> bytes;
    const ssize_t count = ::recv(half.socket.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) return Close(half);
    (half.isUp ? counts_.up : counts_.down) += static_cast<uint64_t>(count);
    half.unsent.assign(bytes.data(), static_cast<std::size_t>(count));
    if (!Flush(half)) Close(half);
  }

  // Sends what has come from this side; false: the connection has ended.
  bool Flush(Half &from) {
    const int to = from.other->socket.get();
    const ssize_t count = ::send(to, from.unsent.data(), from.unsent.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno != EAGAIN) return false;
    if (count > 0) from.unsent.erase(0, static_cast<std::size_t>(count));
    const bool waits = !from.unsent.empty();
    Watch(to, EPOLLIN | (waits ? EPOLLOUT : 0u), EPOLL_CTL_MOD);
    Watch(from.socket.get(), waits ? 0u : EPOLLIN, EPOLL_CTL_MOD);
    return true;
  }

  // By a reset, as from a router that has forgotten the connection.
  void Close(Half &half) {
    const linger reset = {1, 0};
    const int sockets[] = {half.other->socket.get(), half.socket.get()};
    for (const int socket : sockets) {
      ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &reset, sizeof reset);
      halves_.erase(socket);
    }
  }

  void CutAll() {
    cut = 0;
    while (!halves_.empty()) Close(*halves_.begin()->second);
  }

  sockaddr_in broker_;
  UniqueFd epoll_, listener_;
  std::unordered_map<int, std::unique_ptr<Half>> halves_;
  Counts counts_;
};

}  // namespace

int main(int argc, char **argv) {
  const zor::fleet::Arguments arguments(argc, argv);
  rlimit limit = {};
  ::getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  ::setrlimit(RLIMIT_NOFILE, &limit);
  std::signal(SIGUSR1, [](int) { cut = 1; });
  std::signal(SIGUSR2, [](int) { frozen = 1; });
  std::signal(SIGHUP, [](int) { frozen = 0; });
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Cutter cutter(arguments.Count("port", 0));
  const int port = cutter.Listen(arguments.Count("listen", 0));
  if (port == 0 || argc % 2 == 0) {
    std::fprintf(stderr, "usage: cutter port PORT [listen PORT]\n");
    return 2;
  }
  std::printf("%d\n", port);
  uint64_t printed = 0;
  for (Clock::time_point next = Clock::now() + std::chrono::seconds(1);;) {
    cutter.Turn();
    if (Clock::now() < next) continue;
    next += std::chrono::seconds(1);
    const Counts &counts = cutter.counts();
    if (counts.up + counts.down == printed) continue;
    printed = counts.up + counts.down;
    std::printf("cutter: %zu open, %llu connections, %llu bytes up, %llu bytes down\n", cutter.open(),
                static_cast<unsigned long long>(counts.connections), static_cast<unsigned long long>(counts.up),
                static_cast<unsigned long long>(counts.down));
  }
}
