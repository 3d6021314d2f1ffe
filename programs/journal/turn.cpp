#include "programs/journal/turn.h"

#include <sys/socket.h>

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

// Call it while no step is under way.
mmsghdr &Prepare(mmsghdr &message, std::span<iovec> pieces) {
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
  journal.SetFrameAt(0);
  journal::Turn &turn = journal.EditTurn();
  turn.reader = from.index();
  turn.kept = static_cast<uint32_t>(kept);
  turn.routed = 0;
  turn.suspectAt = notes.suspectAt;
  turn.crashes = notes.crashes;
  turn.servedUpTo = notes.servedUpTo;
  journal.Commit();
  return kept;
}

ssize_t ReadInTurn(Journal &journal, int socket, std::span<std::byte> control) {
  const std::span<std::byte> room = journal.buffer().subspan(journal.turn().kept);
  iovec vector = {room.data(), room.size()};
  mmsghdr &message = Prepare(journal.readMessage(), std::span(&vector, 1));
  message.msg_hdr.msg_control = control.data();
  message.msg_hdr.msg_controllen = control.size();
  int result;
  do {
    result = ::recvmmsg(socket, &message, 1, MSG_DONTWAIT | MSG_CMSG_CLOEXEC, nullptr);
  } while (result < 0 && errno == EINTR);
  return result < 0 ? -1 : static_cast<ssize_t>(message.msg_len);
}

void CommitRouted(Journal &journal, size_t routed) {
  journal::Turn &turn = journal.EditTurn();
  turn.routed = static_cast<uint32_t>(routed);
  turn.writeTo = journal::kNone;
  turn.writeEnd = 0;
  turn.servedUpTo = 0;
  journal.Commit();
}

bool EndTurn(JournalSlot &from, std::span<const std::byte> rest) {
  from.ClearInput();
  const bool kept = from.AppendInput(rest);
  const journal::Notes &notes = from.notes();
  if (notes.suspectAt != 0 || notes.crashes != 0 || notes.servedUpTo != 0) {
    journal::Notes &edited = from.EditNotes();
    edited.suspectAt = edited.crashes = 0;
    edited.servedUpTo = 0;
  }
  from.journal().EditTurn().reader = journal::kNone;
  from.journal().Commit();
  return kept;
}

ssize_t WriteInTurn(JournalSlot &to, int socket, size_t end) {
  Journal &journal = to.journal();
  const size_t begin = journal.turn().routed;
  const std::span<std::byte> bytes = journal.buffer().subspan(begin, end - begin);
  iovec vector = {bytes.data(), bytes.size()};
  mmsghdr &message = Prepare(journal.writeMessage(), std::span(&vector, 1));
  journal::Turn &turn = journal.EditTurn();
  turn.writeTo = to.index();
  turn.writeEnd = static_cast<uint32_t>(end);
  journal.Commit();
  return Send(message, socket);
}

ssize_t BeginFlush(JournalSlot &to, int socket, std::span<iovec> pieces, int descriptor) {
  Journal &journal = to.journal();
  mmsghdr &message = Prepare(journal.writeMessage(), pieces);
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
