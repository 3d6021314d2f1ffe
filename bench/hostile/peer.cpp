#include "hostile/peer.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zor::hostile {
namespace {

std::function<void()> lastAction;

sockaddr_un AddressOf(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return address;
}

// A socket of a hostile process may have any name, even none in the file system: "@name".
socklen_t LengthOf(sockaddr_un &address) {
  if (address.sun_path[0] != '@') return sizeof address;
  const std::size_t length = std::strlen(address.sun_path);
  address.sun_path[0] = '\0';
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length);
}

bool Connect(int socket, const std::string &path) {
  const sockaddr_un address = AddressOf(path);
  return ::connect(socket, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
}

void AwaitEvent(int socket, short events) {
  pollfd ready = {socket, events, 0};
  const int count = ::poll(&ready, 1, kPatienceMs);
  if (count == 0) Fail("the server neither takes nor sends anything");
}

}  // namespace

void Fail(const char *what) {
  std::fflush(stdout);
  std::fprintf(stderr, "hostile: failed: %s\n", what);
  if (const auto last = std::exchange(lastAction, {})) last();
  std::exit(1);
}

void OnFailure(std::function<void()> action) {
  lastAction = std::move(action);
}

UniqueFd DatagramSocket(const std::string &own, const std::string &to) {
  UniqueFd socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!own.empty()) {
    sockaddr_un address = AddressOf(own);
    ::unlink(own.c_str());
    const socklen_t length = LengthOf(address);
    if (::bind(socket.get(), reinterpret_cast<const sockaddr *>(&address), length) != 0) return {};
  }
  if (!Connect(socket.get(), to)) socket.reset();
  return socket;
}

Peer::Peer(const std::string &path) : socket_(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
  while (socket_.valid() && !Connect(socket_.get(), path)) {
    if (errno == EAGAIN) {
      ::usleep(1000);  // the server's queue of connections is full
    } else {
      socket_.reset();
    }
  }
}

bool Peer::Send(std::string_view bytes, std::span<const int> descriptors) {
  while (open() && !bytes.empty()) {
    iovec part = {const_cast<char *>(bytes.data()), bytes.size()};
    alignas(cmsghdr) std::array<char, CMSG_SPACE(8 * sizeof(int))> control = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    if (!descriptors.empty()) {
      message.msg_control = control.data();
      message.msg_controllen = CMSG_SPACE(descriptors.size_bytes());
      cmsghdr *head = CMSG_FIRSTHDR(&message);
      *head = {CMSG_LEN(descriptors.size_bytes()), SOL_SOCKET, SCM_RIGHTS};
      std::memcpy(CMSG_DATA(head), descriptors.data(), descriptors.size_bytes());
    }
    const ssize_t sent = ::sendmsg(fd(), &message, MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(sent));
      descriptors = {};
    } else if (errno == EAGAIN) {
      AwaitEvent(fd(), POLLIN | POLLOUT);
      Drain();
    } else {
      Close();
    }
  }
  return open();
}

bool Peer::Receive(std::string *to) {
  static char buffer[65536];
  for (;;) {
    const ssize_t count = ::recv(fd(), buffer, sizeof buffer, 0);
    if (count < 0 && errno == EAGAIN) return true;
    if (count <= 0) {
      Close();
      return false;
    }
    if (to != nullptr) to->append(buffer, static_cast<std::size_t>(count));
  }
}

void Peer::Drain() {
  if (open()) Receive(nullptr);
}

std::string Peer::Await(std::size_t (*sizeOf)(std::string_view), const std::function<bool(std::string_view)> &matches) {
  while (open()) {
    for (std::size_t size; (size = sizeOf(received_)) != 0 && size <= received_.size();) {
      std::string frame = received_.substr(0, size);
      received_.erase(0, size);
      if (matches(frame)) return frame;
    }
    AwaitEvent(fd(), POLLIN);
    Receive(&received_);
  }
  return {};
}

}  // namespace zor::hostile
