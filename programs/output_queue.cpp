#include "programs/output_queue.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "common/attached_descriptor.h"
#include "programs/limits.h"

namespace zor::daemon {
namespace {

// Messages that one system call takes from the queue.
constexpr size_t kGatherMax = 64;

size_t CostOf(size_t messageSize) {
  return messageSize + sizeof(OutputQueue::Message) + 2 * sizeof(void *);
}

ssize_t SendMessage(int socket, const msghdr &message) {
  ssize_t count;
  do {
    count = ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : count;
}

ssize_t SendWithDescriptor(int socket, msghdr &message, int descriptor) {
  const AttachedDescriptor attached(message, descriptor);
  return SendMessage(socket, message);
}

iovec VectorOf(std::span<const std::byte> bytes) {
  return {const_cast<std::byte *>(bytes.data()), bytes.size()};
}

}  // namespace

ssize_t SendNow(int socket, std::span<const std::byte> bytes, int descriptor) {
  iovec vector = VectorOf(bytes);
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  return descriptor < 0 ? SendMessage(socket, message) : SendWithDescriptor(socket, message, descriptor);
}

bool OutputQueue::Push(std::span<const std::byte> message, size_t sent, UniqueFd &&descriptor) {
  const size_t cost = CostOf(message.size());
  if (cost > maxBytes_ - bytes_ || (descriptor.valid() && descriptors_ == limits::kUnreadDescriptors)) return false;
  messages_.push_back({{message.begin(), message.end()}, sent, UniqueFd()});  // throws with nothing changed
  bytes_ += cost;
  if (descriptor.valid()) ++descriptors_;
  messages_.back().descriptor = std::move(descriptor);
  return true;
}

bool OutputQueue::Fits(std::initializer_list<size_t> sizes) const {
  size_t cost = 0;
  for (const size_t size : sizes) cost += CostOf(size);
  return cost <= maxBytes_ - bytes_;
}

OutputQueue::State OutputQueue::Flush(int socket) {
  while (!messages_.empty()) {
    const ssize_t count = SendFront(socket);
    if (count < 0) return State::kBroken;
    if (count == 0) return State::kBlocked;
    Advance(static_cast<size_t>(count));
  }
  return State::kDrained;
}

size_t OutputQueue::bytesLeft() const {
  size_t left = 0;
  for (const Message &message : messages_) left += message.bytes.size() - message.sent;
  return left;
}

void OutputQueue::DropFront() {
  Advance(messages_.front().bytes.size() - messages_.front().sent);
}

// As many messages as one call takes, but one with a descriptor alone: its receiver expects the descriptor with the
// first byte that it reads.
ssize_t OutputQueue::SendFront(int socket) {
  std::array<iovec, kGatherMax> vectors;
  size_t used = 0;
  for (const Message &message : messages_) {
    if (used == vectors.size() || (used > 0 && message.descriptor.valid())) break;
    vectors[used++] = VectorOf(std::span(message.bytes).subspan(message.sent));
    if (message.descriptor.valid()) break;
  }
  msghdr gathered = {};
  gathered.msg_iov = vectors.data();
  gathered.msg_iovlen = used;
  const int descriptor = messages_.front().descriptor.get();
  return descriptor < 0 ? SendMessage(socket, gathered) : SendWithDescriptor(socket, gathered, descriptor);
}

void OutputQueue::Advance(size_t count) {
  while (count > 0) {
    Message &front = messages_.front();
    if (front.descriptor.valid()) {
      front.descriptor.reset();
      --descriptors_;
    }
    const size_t taken = std::min(count, front.bytes.size() - front.sent);
    front.sent += taken;
    count -= taken;
    if (front.sent < front.bytes.size()) return;
    bytes_ -= CostOf(front.bytes.size());
    messages_.pop_front();
  }
}

}  // namespace zor::daemon
