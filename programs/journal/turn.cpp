#include "programs/journal/turn.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <optional>

#include "common/attached_descriptor.h"

namespace zor::daemon {
namespace {

// The number of bytes is stored by the kernel; a failure stores nothing, and nothing was sent.
ssize_t Send(mmsghdr &message, int socket) {
  int result;
  do {
    result = ::sendmmsg(socket, &message, 1, MSG_DONTWAIT | MSG_NOSIGNAL);
  } while (result < 0 && errno == EINTR);
  if (result < 0) return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
  return static_cast<ssize_t>(message.msg_len);
}

// What the call before it has moved is committed first, since its number of bytes goes.
mmsghdr &Prepare(Journal &journal, mmsghdr &message, std::span<iovec> pieces) {
  journal.Commit();
  message.msg_len = 0;
  message.msg_hdr = {};
  message.msg_hdr.msg_iov = pieces.data();
  message.msg_hdr.msg_iovlen = pieces.size();
  return message;
}

}  // namespace

size_t BeginTurn(JournalSlot &from) {
  Journal &journal = from.journal();
  const size_t kept = from.inputBytes();
  const journal::Notes &notes = from.notes();
  from.CopyInput(journal.buffer());
  journal.readMessage().msg_len = 0;
  journal.SetFrameAt(journal::kNoFrame);
  journal::Turn &turn = journal.EditTurn();
  turn.reader = from.index();
  turn.kept = static_cast<uint32_t>(kept);
  turn.routed = 0;
  turn.suspectAt = notes.suspectAt;
  turn.crashes = notes.crashes;
  turn.servedUpTo = notes.servedUpTo;
  turn.lastTarget = notes.lastTarget;
  journal.Commit();
  return kept;
}

ssize_t ReadInTurn(Journal &journal, int socket, std::span<std::byte> control, size_t most) {
  const std::span<std::byte> whole = journal.buffer().subspan(journal.turn().kept);
  const std::span<std::byte> room = whole.first(std::min(most, whole.size()));
  iovec vector = {room.data(), room.size()};
  mmsghdr &message = Prepare(journal, journal.readMessage(), std::span(&vector, 1));
  message.msg_hdr.msg_control = control.data();
  message.msg_hdr.msg_controllen = control.size();
  int result;
  do {
    result = ::recvmmsg(socket, &message, 1, MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
  } while (result < 0 && errno == EINTR);
  return result < 0 ? -1 : static_cast<ssize_t>(message.msg_len);
}

void CommitRouted(Journal &journal, size_t routed, uint64_t lastTarget) {
  journal::Turn &turn = journal.EditTurn();
  turn.routed = static_cast<uint32_t>(routed);
  turn.writeTo = journal::kNone;
  turn.writeEnd = 0;
  turn.servedUpTo = 0;
  turn.lastTarget = lastTarget;
  journal.Commit();
}

void SetServed(Journal &journal, uint64_t place) {
  journal::Turn &turn = journal.EditTurn();
  turn.writeTo = journal::kNone;
  turn.writeEnd = 0;
  turn.servedUpTo = place;
}

bool EndTurn(JournalSlot &from, std::span<const std::byte> rest) {
  const journal::Turn &turn = from.journal().turn();
  from.ClearInput();
  const bool kept = from.AppendInput(rest);
  const journal::Notes &notes = from.notes();
  if (notes.crashes != 0 || notes.servedUpTo != 0 || notes.lastTarget != turn.lastTarget) {
    // A suspected frame may still be to come.
    const bool ahead = notes.crashes > 0 && !rest.empty() && turn.suspectAt >= turn.routed;
    journal::Notes &edited = from.EditNotes();
    edited.suspectAt = ahead ? turn.suspectAt - turn.routed : 0;
    edited.crashes = ahead ? turn.crashes : 0;
    edited.servedUpTo = turn.servedUpTo;
    edited.lastTarget = turn.lastTarget;
  }
  LeaveTurn(from.journal());
  return kept;
}

void LeaveTurn(Journal &journal) {
  journal::Turn &turn = journal.EditTurn();
  turn.reader = journal::kNone;
  turn.writeTo = journal::kNone;
  turn.writeEnd = 0;
  journal.Commit();
}

ssize_t WriteInTurn(JournalSlot &to, int socket, size_t end, Receiver receiver) {
  Journal &journal = to.journal();
  const size_t begin = journal.turn().routed;
  const std::span<std::byte> bytes = journal.buffer().subspan(begin, end - begin);
  iovec vector = {bytes.data(), bytes.size()};
  mmsghdr &message = Prepare(journal, journal.writeMessage(), std::span(&vector, 1));
  journal::Turn &turn = journal.EditTurn();
  turn.writeTo = to.index();
  turn.writeEnd = static_cast<uint32_t>(end);
  turn.receiver = static_cast<uint32_t>(receiver);
  journal.Commit();
  return Send(message, socket);
}

ssize_t BeginFlush(JournalSlot &to, int socket, std::span<iovec> pieces, int descriptor) {
  Journal &journal = to.journal();
  mmsghdr &message = Prepare(journal, journal.writeMessage(), pieces);
  std::optional<AttachedDescriptor> attached;
  if (descriptor >= 0) attached.emplace(message.msg_hdr, descriptor);
  journal.EditTurn().flushing = to.index();
  journal.Commit();
  return Send(message, socket);
}

void EndFlush(Journal &journal) {
  journal.EditTurn().flushing = journal::kNone;
  journal.Commit();
}

}  // namespace zor::daemon
