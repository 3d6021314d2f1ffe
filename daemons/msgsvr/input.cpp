#include "msgsvr/input.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "msgsvr/unread.h"
#include "programs/journal/turn.h"

namespace zor::msgsvr {
namespace {

// Room for two, so that a second descriptor is noticed and closed.
constexpr size_t kControlSize = CMSG_SPACE(2 * sizeof(int));
constexpr size_t kDescriptorFrameSize = 2;

void TakeDescriptors(const cmsghdr &control, Received &received) {
  if (control.cmsg_level != SOL_SOCKET || control.cmsg_type != SCM_RIGHTS) {
    received.excessive = true;
    return;
  }
  const size_t count = (control.cmsg_len - CMSG_LEN(0)) / sizeof(int);
  for (size_t i = 0; i < count; ++i) {
    int descriptor;
    std::memcpy(&descriptor, CMSG_DATA(&control) + i * sizeof descriptor, sizeof descriptor);
    if (received.descriptor.valid()) received.excessive = true;
    received.descriptor.reset(descriptor);
  }
}

// What came beside the bytes. The kernel ends a read after the bytes that carry a descriptor, so a descriptor always
// belongs to the last bytes.
void TakeControl(msghdr &message, Received &received) {
  for (cmsghdr *head = CMSG_FIRSTHDR(&message); head != nullptr; head = CMSG_NXTHDR(&message, head)) {
    TakeDescriptors(*head, received);
  }
  if ((message.msg_flags & MSG_CTRUNC) != 0) received.excessive = true;
}

bool IsZero(std::span<const std::byte> bytes) {
  return std::all_of(bytes.begin(), bytes.end(), [](std::byte byte) { return byte == std::byte{0}; });
}

// Ends the turn of a client also when there is no memory for it.
class OpenTurn {
 public:
  explicit OpenTurn(daemon::Journal &journal) : journal_(journal) {}
  OpenTurn(const OpenTurn &) = delete;
  OpenTurn &operator=(const OpenTurn &) = delete;
  ~OpenTurn() {
    if (journal_.turn().reader != daemon::journal::kNone) daemon::LeaveTurn(journal_);
  }

 private:
  daemon::Journal &journal_;
};

}  // namespace

void Input::Read(Client &client) {
  const size_t kept = daemon::BeginTurn(client.slot);
  const OpenTurn turn(journal_);
  Received received;
  size_t count = 0;
  if (client.backlog) {
    client.backlog = false;
    received.descriptor = std::move(client.halfDescriptor);
  } else {
    count = ReadMore(client, received);
    if (count == 0) return;
  }
  Handle(client, journal_.buffer().first(kept + count), std::move(received.descriptor));
}

// Returns 0 if there is nothing to handle.
size_t Input::ReadMore(Client &client, Received &received) {
  const size_t room = std::min<size_t>(client.readSize, journal_.buffer().size() - client.slot.inputBytes());
  received = Receive(client, room);
  if (received.count < 0 && errno == EAGAIN && !client.deaf) {
    client.readable = false;
    return 0;
  }
  if (received.count <= 0) {
    if (client.peer.local && HasLeftUnread(client.socket.get())) client.reset = true;
    bus_.End(client);
    return 0;
  }
  // A short read means that nothing is left, unless a descriptor ended the read or the end of the stream is still
  // pending, which no further event will announce.
  const auto count = static_cast<size_t>(received.count);
  client.readable = count == room || received.descriptor.valid() || client.hungUp || client.deaf;
  if (count == room) client.readSize = static_cast<uint32_t>(std::min(2 * count, journal_.buffer().size()));
  if (!received.excessive) return count;
  bus_.CutOff(client, "it sent more than one descriptor at a time");
  return 0;
}

// That the peer has gone is reported once, and before its last words, which are still to be read.
Received Input::Receive(Client &client, size_t most) {
  alignas(cmsghdr) std::array<std::byte, kControlSize> control;
  Received received;
  received.count = daemon::ReadInTurn(journal_, client.socket.get(), control, most);
  if (received.count < 0 && (errno == ECONNRESET || errno == ETIMEDOUT)) {
    client.reset = true;
    received.count = daemon::ReadInTurn(journal_, client.socket.get(), control, most);
  }
  msghdr &message = journal_.readMessage().msg_hdr;
  const bool hasControl = message.msg_controllen > 0 || (message.msg_flags & MSG_CTRUNC) != 0;
  if (received.count >= 0 && hasControl) TakeControl(message, received);
  return received;
}

void Input::Handle(Client &client, std::span<std::byte> bytes, UniqueFd descriptor) {
  size_t routed = 0;
  if (client.halfDescriptor.valid()) {
    // It arrived with the first of its two bytes, because the buffer ended there.
    Pass(client, bytes.first(kDescriptorFrameSize), std::move(client.halfDescriptor));
    routed = kDescriptorFrameSize;
  }
  routed += router_.Route(client, bytes.subspan(routed));
  const auto rest = bytes.subspan(routed);
  if (client.ended || KeepBacklog(client, routed, rest, descriptor)) return;
  if (!descriptor.valid()) return Keep(client, rest);
  if (rest.size() == 1 && IsZero(rest)) {
    client.halfDescriptor = std::move(descriptor);
    return Keep(client, rest);
  }
  Pass(client, rest, std::move(descriptor));
  if (!client.ended) Keep(client, {});
}

// What is more than the client's due in one turn waits for the next. Of a client that often sends so much, less is
// read.
bool Input::KeepBacklog(Client &client, size_t routed, std::span<std::byte> rest, UniqueFd &descriptor) {
  if (rest.empty() || ParseFrame(rest).state == Parsed::State::kPartial) return false;
  client.halfDescriptor = std::move(descriptor);
  client.backlog = true;
  client.readable = true;
  client.readSize = static_cast<uint32_t>(std::max(routed, 2 * kMaxFrameSize));
  Keep(client, rest);
  return true;
}

// After the last complete frame there must be the two zero bytes that carry a descriptor, and nothing else.
void Input::Pass(Client &client, std::span<const std::byte> frame, UniqueFd descriptor) {
  if (!client.registered() || frame.size() != kDescriptorFrameSize || !IsZero(frame)) {
    return bus_.CutOff(client, "it sent a descriptor out of place");
  }
  router_.delivery().PassDescriptor(client, std::move(descriptor));
  router_.delivery().EndFrame(client, frame);
  router_.delivery().FlushPosted();
}

void Input::Keep(Client &client, std::span<const std::byte> rest) {
  const uint32_t half = client.halfDescriptor.valid() ? 1 : 0;
  if (client.slot.notes().halfDescriptor != half) client.slot.EditNotes().halfDescriptor = half;
  if (!daemon::EndTurn(client.slot, rest)) bus_.CutOff(client, "no memory for what it sent");
}

}  // namespace zor::msgsvr
