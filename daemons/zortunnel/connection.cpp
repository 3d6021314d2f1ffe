#include "zortunnel/connection.h"

#include <openssl/err.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "programs/tcp_listener.h"
#include "zortunnel/board_certificate.h"

namespace zor::tunnel {
namespace {

// Before others have their turn.
constexpr int kRounds = 8;

// The end of a local peer that has not read everything is reported once, and before its last words.
ssize_t Receive(int socket, std::span<std::byte> room) {
  ssize_t count = ::recv(socket, room.data(), room.size(), MSG_DONTWAIT);
  if (count < 0 && errno == ECONNRESET) count = ::recv(socket, room.data(), room.size(), MSG_DONTWAIT);
  return count;
}

// From the result of SSL_get_error; errno must be as the call left it.
std::string FailureOf(const SSL *ssl, int error) {
  const int systemError = errno;
  const long verified = SSL_get_verify_result(ssl);
  if (error == SSL_ERROR_SYSCALL && ERR_peek_error() == 0) {
    return systemError == 0 ? "the other side has closed the connection" : std::strerror(systemError);
  }
  if (error == SSL_ERROR_SSL && ERR_GET_REASON(ERR_peek_error()) == SSL_R_UNEXPECTED_EOF_WHILE_READING) {
    tls::TakeErrors();
    return "the other side has closed the connection";
  }
  std::string text = tls::TakeErrors();
  if (verified == X509_V_ERR_APPLICATION_VERIFICATION) {
    text = kNameRule;
  } else if (verified != X509_V_OK) {
    text += std::string(": ") + X509_verify_cert_error_string(verified);
  }
  return text;
}

}  // namespace

daemon::Holder Connection::holder() const {
  return {static_cast<uid_t>(-1), static_cast<int64_t>(address_.sin_addr.s_addr)};
}

std::string Connection::Label() const {
  const std::string address = daemon::TextOf(address_);
  return name_.empty() ? address : name_ + " (" + address + ')';
}

void Connection::End(std::string problem) {
  if (state_ == State::kEnded) return;
  state_ = State::kEnded;
  if (problem_.empty()) problem_ = std::move(problem);
}

bool Connection::CheckConnected() {
  int error = 0;
  socklen_t size = sizeof error;
  sockaddr_in peer = {};
  socklen_t peerSize = sizeof peer;
  if (::getsockopt(other_.get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0) error = errno;
  if (error != 0) {
    End(std::string("cannot connect: ") + std::strerror(error));
  } else if (::getpeername(other_.get(), reinterpret_cast<sockaddr *>(&peer), &peerSize) == 0) {
    state_ = State::kHandshake;
  }
  return state_ == State::kHandshake;
}

bool Connection::Establish() {
  if (state_ == State::kConnecting && !CheckConnected()) return false;
  ERR_clear_error();
  errno = 0;
  const int result = SSL_do_handshake(ssl_.get());
  if (result == 1) {
    const tls::CertificatePtr certificate(SSL_get1_peer_certificate(ssl_.get()));
    name_ = BoardNameIn(certificate.get());
    return true;
  }
  const int error = SSL_get_error(ssl_.get(), result);
  if (error != SSL_ERROR_WANT_READ && error != SSL_ERROR_WANT_WRITE) {
    End("handshake failed: " + FailureOf(ssl_.get(), error));
  }
  return false;
}

void Connection::Open() {
  toPlain_.Allocate();
  toOther_.Allocate();
  deadline.reset();
  state_ = State::kOpen;
}

void Connection::Open(UniqueFd plain) {
  plain_ = std::move(plain);
  Open();
}

bool Connection::Move(std::chrono::seconds endTime) {
  if (state_ != State::kOpen) return false;
  bool moved = true;
  for (int round = 0; moved && round < kRounds; ++round) {
    moved = ReadOther();
    moved = WritePlain() || moved;
    moved = ReadPlain() || moved;
    moved = WriteOther() || moved;
  }
  const bool ending = otherBroken_ || plainBroken_ || endSaid_;
  if (ending && !deadline) deadline = Clock::now() + endTime;
  if (IsDone()) End();
  return moved && state_ == State::kOpen;
}

bool Connection::IsDone() const {
  const bool allDelivered = otherEnd_ && (endPassed_ || plainBroken_);
  return allDelivered && (otherBroken_ || endSaid_);
}

bool Connection::ReadOther() {
  const auto room = toPlain_.Room();
  if (otherEnd_ || room.empty()) return false;
  ERR_clear_error();
  errno = 0;
  std::size_t count = 0;
  const int result = SSL_read_ex(ssl_.get(), room.data(), room.size(), &count);
  if (result != 1) return FailOther(result);
  heard_ = true;
  if (!plainBroken_) toPlain_.Add(count);
  return true;
}

// Returns whether that is an end.
bool Connection::FailOther(int result) {
  const int error = SSL_get_error(ssl_.get(), result);
  if (error == SSL_ERROR_WANT_READ || error == SSL_ERROR_WANT_WRITE) return false;
  if (error != SSL_ERROR_ZERO_RETURN) {
    if (problem_.empty()) problem_ = FailureOf(ssl_.get(), error);
    otherBroken_ = true;
    toOther_.Clear();
  }
  plainEndFirst_ = plainEndFirst_ || (plainEnd_ && !otherEnd_);
  otherEnd_ = true;
  return true;
}

bool Connection::WritePlain() {
  bool moved = false;
  while (!toPlain_.empty()) {
    const auto content = toPlain_.content();
    const ssize_t count = ::send(plain_.get(), content.data(), content.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0 && errno == EAGAIN) return moved;
    moved = true;
    if (count < 0) {
      plainBroken_ = true;
      toPlain_.Clear();
      break;
    }
    toPlain_.Remove(static_cast<std::size_t>(count));
  }
  if (!otherEnd_ || endPassed_) return moved;
  ::shutdown(plain_.get(), SHUT_WR);
  endPassed_ = true;
  return true;
}

bool Connection::ReadPlain() {
  const auto room = toOther_.Room();
  if (plainEnd_ || room.empty()) return false;
  const ssize_t count = Receive(plain_.get(), room);
  if (count < 0 && (errno == EAGAIN || errno == EINTR)) return errno == EINTR;
  if (count <= 0) {
    plainEnd_ = true;
  } else if (!otherBroken_) {
    toOther_.Add(static_cast<std::size_t>(count));
  }
  return true;
}

bool Connection::WriteOther() {
  bool moved = false;
  while (!toOther_.empty()) {
    const auto content = toOther_.content();
    ERR_clear_error();
    errno = 0;
    std::size_t count = 0;
    const int result = SSL_write_ex(ssl_.get(), content.data(), content.size(), &count);
    if (result != 1) return FailOther(result) || moved;
    toOther_.Remove(count);
    moved = true;
  }
  if (!plainEnd_ || endSaid_ || otherBroken_) return moved;
  // The alert waits in OpenSSL's own buffer if the socket does not take it; a later call sends it.
  ERR_clear_error();
  endSaid_ = SSL_shutdown(ssl_.get()) >= 0;
  return endSaid_ || moved;
}

}  // namespace zor::tunnel
