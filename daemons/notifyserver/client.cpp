#include "notifyserver/client.h"

#include <linux/sockios.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <utility>

#include "programs/peer.h"
namespace zor::notifyserver {
namespace {

// An input buffer that has grown for a long frame is released after it.
constexpr size_t kKeptInputBytes = 4096;

}  // namespace

Client::Client(UniqueFd socket, const ucred &peer, daemon::EventPoll &poll, std::vector<Client *> &ended,
               daemon::Accounts &accounts, daemon::Journal &journal, uint64_t id, const Limits &limits)
    : socket_(std::move(socket)),
      poll_(poll),
      endedClients_(ended),
      peer_(peer),
      charge_(accounts, {peer.uid, peer.pid}),
      slot_(journal, id),
      output_(slot_, limits.queueBytes) {}

bool Client::Watch() {
  errno = ENOMEM;
  return slot_.valid() && poll_.Add(socket_.get(), EPOLLIN, this);
}

Client::Text Client::Label() const {
  Text label;
  if (registered()) {
    std::snprintf(label.text_.data(), label.text_.size(), "module %u (pid %d)", mid, peer_.pid);
  } else {
    std::snprintf(label.text_.data(), label.text_.size(), "an unregistered client (pid %d)", peer_.pid);
  }
  return label;
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
  UpdateCharge();
}

bool Client::Deliver(std::span<const std::byte> message) {
  if (!reachable()) {
    ++lost_;
    return false;
  }
  ssize_t sent = 0;
  if (output_.empty()) {
    sent = daemon::SendNow(socket_.get(), message);
    if (sent < 0) {
      ++lost_;
      BreakOutput();
      return false;
    }
  }
  if (static_cast<size_t>(sent) < message.size() && !Queue(message, static_cast<size_t>(sent))) {
    ++lost_;
    return false;
  }
  ++counts.out;
  return true;
}

bool Client::Queue(std::span<const std::byte> message, size_t sent) {
  const bool wasEmpty = output_.empty();
  try {
    if (!output_.Push(message, sent)) {
      End("its output queue is full");
      return false;
    }
  } catch (const std::bad_alloc &) {
    // After the first part of a message nothing but the rest of it can follow.
    if (sent > 0) End("no memory for its output");
    return false;
  }
  UpdateCharge();
  if (wasEmpty) WaitForOutput(true);
  return true;
}

void Client::Flush() {
  if (!reachable()) return;
  const auto state = output_.Flush(socket_.get());
  if (state == daemon::OutputQueue::State::kBroken) BreakOutput();
  UpdateCharge();
  if (state == daemon::OutputQueue::State::kDrained) WaitForOutput(false);
}

void Client::End(const char *reason) {
  if (ended_) return;
  ended_ = true;
  reason_ = reason;
  endedClients_.push_back(this);
}

Client::Unread Client::unread() const {
  Unread unread = {output_.bytesLeft(), output_.messageCount(), 0};
  int held = 0;
  if (::ioctl(socket_.get(), SIOCOUTQ, &held) == 0 && held > 0) unread.socket = static_cast<size_t>(held);
  return unread;
}

// A peer that no longer reads ends only after the data that it sent before is read. Any other failure would leave it
// waiting for messages that never come.
void Client::BreakOutput() {
  if (errno != EPIPE && errno != ECONNRESET) return End(std::strerror(errno));
  outputBroken_ = true;
  WaitForOutput(false);
}

void Client::WaitForOutput(bool on) {
  const uint32_t events = on ? uint32_t{EPOLLIN} | uint32_t{EPOLLOUT} : uint32_t{EPOLLIN};
  if (!poll_.Change(socket_.get(), events, this)) End(std::strerror(errno));
}

void Client::UpdateCharge() {
  charge_.Set(input_.capacity() + output_.bytes());
}

}  // namespace zor::notifyserver
