#include "notifyserver/client.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "programs/peer.h"
namespace zor::notifyserver {
namespace {

// An input buffer that has grown for a long frame is released after it.
constexpr size_t kKeptInputBytes = 4096;

}  // namespace

Client::Client(UniqueFd socket, daemon::EventPoll &poll, std::vector<Client *> &ended, const Limits &limits)
    : socket_(std::move(socket)),
      poll_(poll),
      endedClients_(ended),
      peer_(daemon::PeerOf(socket_.get())),
      output_(limits.queueBytes) {}

std::string Client::Label() const {
  const std::string name = registered() ? "module " + std::to_string(mid) : "an unregistered client";
  return name + " (pid " + std::to_string(peer_.pid) + ")";
}

void Client::Read(std::span<std::byte> scratch) {
  const ssize_t count = ::recv(socket_.get(), scratch.data(), scratch.size(), MSG_DONTWAIT);
  if (count > 0) {
    input_.insert(input_.end(), scratch.begin(), scratch.begin() + count);
  } else if (count == 0 || errno == ECONNRESET) {  // reset: the peer closed with unread data
    End();
  } else if (errno != EAGAIN && errno != EINTR) {
    End(std::strerror(errno));
  }
}

void Client::CompactInput() {
  input_.erase(input_.begin(), input_.begin() + static_cast<ptrdiff_t>(consumed_));
  consumed_ = 0;
  if (input_.empty() && input_.capacity() > kKeptInputBytes) std::vector<std::byte>().swap(input_);
}

void Client::Deliver(std::span<const std::byte> message) {
  if (!reachable()) {
    ++lost_;
    return;
  }
  ++counts.out;
  size_t sent = 0;
  const bool wasEmpty = output_.empty();
  if (wasEmpty) {
    const ssize_t count = daemon::SendNow(socket_.get(), message);
    if (count < 0) {
      ++lost_;
      BreakOutput();
      return;
    }
    sent = static_cast<size_t>(count);
    if (sent == message.size()) return;
  }
  if (!output_.Push(message, sent)) {
    ++lost_;
    End("its output queue is full");
  } else if (wasEmpty) {
    WaitForOutput(true);
  }
}

void Client::Flush() {
  if (!reachable()) return;
  const auto state = output_.Flush(socket_.get());
  if (state == daemon::OutputQueue::State::kDrained) WaitForOutput(false);
  if (state == daemon::OutputQueue::State::kBroken) BreakOutput();
}

void Client::End(std::string reason) {
  if (ended_) return;
  ended_ = true;
  reason_ = std::move(reason);
  endedClients_.push_back(this);
}

Client::Unread Client::unread() const {
  Unread unread = {0, output_.messages().size(), 0};
  for (const auto &message : output_.messages()) unread.bytes += message.bytes.size() - message.sent;
  int held = 0;
  if (::ioctl(socket_.get(), SIOCOUTQ, &held) == 0 && held > 0) unread.socket = static_cast<size_t>(held);
  return unread;
}

// The peer no longer reads. The socket may still hold data that it sent before, so it ends only after that is read.
void Client::BreakOutput() {
  outputBroken_ = true;
  WaitForOutput(false);
}

void Client::WaitForOutput(bool on) {
  const uint32_t events = on ? uint32_t{EPOLLIN} | uint32_t{EPOLLOUT} : uint32_t{EPOLLIN};
  if (!poll_.Change(socket_.get(), events, this)) End(std::strerror(errno));
}

}  // namespace zor::notifyserver
