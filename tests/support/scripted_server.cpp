#include "support/scripted_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <zor/paths.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace zor::test {
namespace {

using Clock = std::chrono::steady_clock;

// Aborts the test when the machine cannot provide its sockets.
int Check(int result, const char *what) {
  if (result >= 0) return result;
  std::perror(what);
  std::abort();
}

bool Readable(int fd, Clock::time_point end) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
  pollfd entry = {fd, POLLIN, 0};
  return ::poll(&entry, 1, left > 0 ? static_cast<int>(left) : 0) == 1;
}

void PutName(char (&field)[ZOR_MSG_NAME_SIZE], const std::string &name) {
  std::memcpy(field, name.data(), std::min(name.size(), sizeof field));
}

int Bound(int domain, int type, const void *address, socklen_t length) {
  const int fd = Check(::socket(domain, type | SOCK_CLOEXEC, 0), "socket");
  Check(::bind(fd, static_cast<const sockaddr *>(address), length), "bind");
  if (type == SOCK_STREAM) Check(::listen(fd, 1), "listen");
  return fd;
}

int ListenLocal(const std::string &path) {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) std::abort();
  std::memcpy(address.sun_path, path.c_str(), path.size());
  return Bound(AF_UNIX, SOCK_STREAM, &address, sizeof address);
}

int BoundToLoopback(int type) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return Bound(AF_INET, type, &address, sizeof address);
}

uint16_t PortOf(int fd) {
  sockaddr_in address = {};
  socklen_t length = sizeof address;
  Check(::getsockname(fd, reinterpret_cast<sockaddr *>(&address), &length), "getsockname");
  return ntohs(address.sin_port);
}

}  // namespace

std::string Message::Bytes() const {
  std::string bytes(sizeof header, '\0');
  std::memcpy(bytes.data(), &header, sizeof header);
  return bytes + body;
}

Message MakeMessage(uint32_t type, const std::string &source, const std::string &destination, uint32_t data,
                    std::string body, uint32_t sequence) {
  Message message;
  message.header.type = type;
  message.header.sequence = sequence;
  PutName(message.header.source, source);
  PutName(message.header.destination, destination);
  message.header.data = data;
  message.header.bodyLength = static_cast<uint32_t>(body.size());
  message.body = std::move(body);
  return message;
}

Message MakeRegistrationReply(const std::string &grantedName, uint32_t data, std::string body) {
  return MakeMessage(ZOR_MSG_REGISTER_APP, "", grantedName, data, std::move(body));
}

BusPeer::BusPeer(BusPeer &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

BusPeer &BusPeer::operator=(BusPeer &&other) noexcept {
  std::swap(fd_, other.fd_);
  return *this;
}

void BusPeer::Send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return;  // the other end has closed; the test notices by what it does not receive
    bytes.remove_prefix(static_cast<size_t>(count));
  }
}

std::string BusPeer::Receive(std::size_t count, std::chrono::milliseconds deadline) const {
  const auto end = Clock::now() + deadline;
  std::string bytes(count, '\0');
  std::size_t have = 0;
  while (have < count && Readable(fd_, end)) {
    const ssize_t got = ::recv(fd_, bytes.data() + have, count - have, 0);
    if (got <= 0) break;
    have += static_cast<size_t>(got);
  }
  bytes.resize(have);
  return bytes;
}

std::optional<Message> BusPeer::ReceiveMessage(std::chrono::milliseconds deadline) const {
  Message message;
  const std::string head = Receive(sizeof message.header, deadline);
  if (head.size() != sizeof message.header) return std::nullopt;
  std::memcpy(&message.header, head.data(), sizeof message.header);
  message.body = Receive(message.header.bodyLength, deadline);
  if (message.body.size() != message.header.bodyLength) return std::nullopt;
  return message;
}

bool BusPeer::NothingArrived() const {
  char byte;
  return ::recv(fd_, &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 && errno == EAGAIN;
}

bool BusPeer::ClosedByOther(std::chrono::milliseconds deadline) const {
  char byte;
  if (!Readable(fd_, Clock::now() + deadline)) return false;
  const ssize_t count = ::recv(fd_, &byte, 1, MSG_DONTWAIT);
  return count == 0 || (count < 0 && errno == ECONNRESET);  // reset: it closed before it had read everything
}

void BusPeer::Close() {
  if (fd_ >= 0) ::close(std::exchange(fd_, -1));
}

int BusPeer::Release() {
  return std::exchange(fd_, -1);
}

SocketPair::SocketPair() {
  int ends[2];
  Check(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), "socketpair");
  near = BusPeer(ends[0]);
  far = BusPeer(ends[1]);
}

UdpReceiver::UdpReceiver() : socket_(BoundToLoopback(SOCK_DGRAM)), port_(PortOf(socket_.fd())) {}

std::string UdpReceiver::Next() const {
  char text[8192];
  const ssize_t size =
      Readable(socket_.fd(), Clock::now() + kPatience) ? ::recv(socket_.fd(), text, sizeof text, 0) : 0;
  return {text, static_cast<size_t>(std::max<ssize_t>(size, 0))};
}

ScriptedServer::ScriptedServer(const TempRoot &root, Script script)
    : listener_(ListenLocal(root.Path(ZOR_PATH_MSGSVR))), thread_(&ScriptedServer::Run, this, std::move(script)) {}

ScriptedServer::ScriptedServer(Script script)
    : listener_(BoundToLoopback(SOCK_STREAM)),
      port_(PortOf(listener_)),
      thread_(&ScriptedServer::Run, this, std::move(script)) {}

ScriptedServer::~ScriptedServer() {
  ::shutdown(listener_, SHUT_RDWR);  // ends a pending accept
  thread_.join();
  ::close(listener_);
}

BusPeer ScriptedServer::TakeOver() {
  return done_.get_future().get();
}

void ScriptedServer::Run(Script script) {
  BusPeer peer(::accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC));
  if (peer.fd() >= 0) script(peer);
  done_.set_value(std::move(peer));
}

ScriptedServer::Script ReplyToRegistration(const Message &reply) {
  return [reply](const BusPeer &peer) {
    if (peer.ReceiveMessage()) peer.Send(reply);
  };
}

}  // namespace zor::test
