#include "programs/output_queue.h"

#include <sys/socket.h>
#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "programs/journal/turn.h"
#include "programs/limits.h"

namespace zor::daemon {
namespace {

using journal::kNone;
using journal::MessageHead;

// Pieces of messages that one system call takes from the queue.
constexpr size_t kGatherMax = 64;

constexpr size_t Padding(size_t messageSize) {
  return (sizeof(MessageHead) - messageSize % sizeof(MessageHead)) % sizeof(MessageHead);
}

}  // namespace

size_t OutputQueue::CostOf(size_t messageSize) {
  return sizeof(MessageHead) + messageSize + Padding(messageSize);
}

ssize_t SendNow(int socket, std::span<const std::byte> bytes) {
  iovec vector = {const_cast<std::byte *>(bytes.data()), bytes.size()};
  msghdr message = {};
  message.msg_iov = &vector;
  message.msg_iovlen = 1;
  ssize_t count;
  do {
    count = ::sendmsg(socket, &message, MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? 0 : count;
}

bool OutputQueue::Push(std::span<const std::byte> message, size_t sent, UniqueFd &&descriptor) {
  const size_t cost = CostOf(message.size());
  const bool attached = descriptor.valid();
  if (attached ? descriptorCount() == limits::kUnreadDescriptors : cost > Room()) return false;
  if (attached) ReserveDescriptor();
  if (!MakeRoom(cost, sent > 0)) return false;
  journal::Queue &queue = edit();
  const MessageHead head = {static_cast<uint32_t>(message.size()), attached ? 1u : 0u};
  Place place = {queue.last, queue.end};
  if (queue.messages == 0) place = {queue.first, 0};
  Put(place, std::as_bytes(std::span(&head, 1)));
  Put(place, message);
  place.offset += static_cast<uint32_t>(Padding(message.size()));
  queue.last = place.block;
  queue.end = place.offset;
  if (queue.messages == 0) queue.sent = static_cast<uint32_t>(sent);
  ++queue.messages;
  queue.cost += cost;
  queue.left += message.size() - sent;
  if (attached) descriptors_->push_back(std::move(descriptor));
  return true;
}

void OutputQueue::ReserveDescriptor() {
  if (descriptors_ == nullptr) descriptors_ = std::make_unique<std::vector<UniqueFd>>();
  descriptors_->reserve(descriptors_->size() + 1);
}

void OutputQueue::DropDescriptor() {
  descriptors_->erase(descriptors_->begin());
  if (descriptors_->empty()) descriptors_.reset();
}

bool OutputQueue::Fits(std::initializer_list<size_t> sizes) const {
  size_t cost = 0;
  for (const size_t size : sizes) cost += CostOf(size);
  return cost <= Room();
}

OutputQueue::State OutputQueue::Flush(int socket) {
  while (!empty()) {
    const ssize_t count = SendFront(socket);
    if (count > 0) Advance(static_cast<size_t>(count));
    const int error = errno;
    EndFlush(slot_.journal());
    errno = error;
    if (count < 0) return State::kBroken;
    if (count == 0) return State::kBlocked;
  }
  return State::kDrained;
}

void OutputQueue::DropFront() {
  Place place = Front();
  Advance(TakeHead(place).size - queue().sent);
}

std::span<std::byte> OutputQueue::TakePiece(Place &place, size_t most) const {
  if (place.offset == blocks().payload()) place = {blocks().HeadOf(place.block).next, 0};
  const auto size = static_cast<uint32_t>(std::min<size_t>(most, blocks().payload() - place.offset));
  const std::span piece(blocks().PayloadOf(place.block) + place.offset, size);
  place.offset += size;
  return piece;
}

// A head never lies across two blocks, since all offsets are multiples of its size.
MessageHead OutputQueue::TakeHead(Place &place) const {
  MessageHead head;
  std::memcpy(&head, TakePiece(place, sizeof head).data(), sizeof head);
  return head;
}

// In place if the message is in one block.
std::span<const std::byte> OutputQueue::TakeBytes(Place &place, size_t size, std::vector<std::byte> &gathered) const {
  std::span<const std::byte> bytes = TakePiece(place, size);
  if (bytes.size() < size) {
    gathered.assign(bytes.begin(), bytes.end());
    while (gathered.size() < size) {
      const auto piece = TakePiece(place, size - gathered.size());
      gathered.insert(gathered.end(), piece.begin(), piece.end());
    }
    bytes = gathered;
  }
  place.offset += static_cast<uint32_t>(Padding(size));
  return bytes;
}

void OutputQueue::Put(Place &place, std::span<const std::byte> bytes) {
  while (!bytes.empty()) {
    const auto piece = TakePiece(place, bytes.size());
    std::memcpy(piece.data(), bytes.data(), piece.size());
    bytes = bytes.subspan(piece.size());
  }
}

// Adds the blocks that so many bytes more need.
bool OutputQueue::MakeRoom(size_t bytes, bool urgent) {
  const size_t payload = blocks().payload();
  const size_t room = queue().first == kNone ? 0 : payload - queue().end;
  if (bytes <= room) return true;
  const auto added = journal::AllocateLinked(blocks(), (bytes - room + payload - 1) / payload, urgent);
  if (added.first == kNone) return false;
  if (queue().first == kNone) {
    edit().first = added.first;
  } else {
    blocks().HeadOf(queue().last).next = added.first;
  }
  return true;
}

// As many messages as one call takes, but one with a descriptor alone: its receiver expects the descriptor with the
// first byte that it reads.
ssize_t OutputQueue::SendFront(int socket) {
  std::array<iovec, kGatherMax> vectors;
  size_t used = 0;
  int descriptor = -1;
  size_t skipped = queue().sent;
  Place place = Front();
  for (uint32_t left = queue().messages; left > 0 && used < vectors.size() && descriptor < 0; --left, skipped = 0) {
    const MessageHead head = TakeHead(place);
    if (head.hasDescriptor != 0 && skipped == 0) {
      if (used > 0) break;
      descriptor = descriptors_->front().get();
    }
    for (size_t taken = 0; taken < head.size && used < vectors.size();) {
      const auto piece = TakePiece(place, head.size - taken);
      taken += piece.size();
      const size_t cut = std::min(skipped, piece.size());
      skipped -= cut;
      if (cut < piece.size()) vectors[used++] = {piece.data() + cut, piece.size() - cut};
    }
    place.offset += static_cast<uint32_t>(Padding(head.size));
  }
  return BeginFlush(slot_, socket, std::span(vectors).first(used), descriptor);
}

void OutputQueue::Advance(size_t count) {
  journal::Queue &queue = edit();
  queue.left -= count;
  while (count > 0) {
    Place place = Front();
    const MessageHead head = TakeHead(place);
    if (head.hasDescriptor != 0 && queue.sent == 0) DropDescriptor();
    const size_t taken = std::min<size_t>(count, head.size - queue.sent);
    queue.sent += static_cast<uint32_t>(taken);
    count -= taken;
    if (queue.sent == head.size) RemoveFront();
  }
}

void OutputQueue::RemoveFront() {
  journal::Queue &queue = edit();
  Place place = Front();
  const MessageHead head = TakeHead(place);
  queue.sent = 0;
  queue.cost -= CostOf(head.size);
  if (--queue.messages == 0) {
    journal::ReleaseLinked(blocks(), queue.first, queue.last);
    queue = {};
    return;
  }
  size_t left = head.size + Padding(head.size);
  while (left > 0) left -= TakePiece(place, left).size();
  if (place.offset == blocks().payload()) place = {blocks().HeadOf(place.block).next, 0};
  for (uint32_t block = queue.first; block != place.block;) {
    const uint32_t next = blocks().HeadOf(block).next;
    blocks().Release(block);
    block = next;
  }
  queue.first = place.block;
  queue.front = place.offset;
}

}  // namespace zor::daemon
