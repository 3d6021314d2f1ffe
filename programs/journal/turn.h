// Reading and writing so that no byte is ever in doubt.
//
// What a read or write has moved must be known although the process may be killed at any instruction. So the calls for
// several messages are used for one: the kernel stores the number of bytes in the journal before it returns. Each step
// is between two commits: the first says what is being done, the second what has become of it.
#ifndef PROGRAMS_JOURNAL_TURN_H
#define PROGRAMS_JOURNAL_TURN_H

#include <sys/types.h>
#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <span>

#include "programs/journal/slot.h"

namespace zor::daemon {

// Begins the work for a client: its input so far moves to the start of the buffer. Returns its length.
size_t BeginTurn(JournalSlot &from);
// Reads from its socket into the rest of the buffer, at most so many bytes. Returns the number of bytes, 0 at the end
// of the stream; -1 with errno, which may be an error of the connection before its last bytes: read again. The message
// describes what else came; the kernel writes to `control`.
ssize_t ReadInTurn(Journal &journal, int socket, std::span<std::byte> control, size_t most = SIZE_MAX);
// The effects of the buffer's bytes up to there are complete; the last of them went to that client, by id, if the
// server needs to know.
void CommitRouted(Journal &journal, size_t routed, uint64_t lastTarget = 0);
// Ends the work: the bytes behind those that are routed are the client's input. False if there is no room for them.
bool EndTurn(JournalSlot &from, std::span<const std::byte> rest);
// The same, but the client's input has not changed. A write that was not followed by CommitRouted is over too: what it
// left is queued or lost.
void LeaveTurn(Journal &journal);

// Who gets bytes of the buffer: one client, or each subscriber of an event. Those that only observe are served after
// all others, so that these do not wait for them.
enum class Receiver : uint32_t { kOnly = 0, kSubscriber = 1, kObserver = 2 };

// The place of a client among the subscribers of an event: they are served in this order.
constexpr uint64_t PlaceOf(uint64_t id, Receiver receiver) {
  return receiver == Receiver::kObserver ? id | uint64_t{1} << 63 : id;
}

// Writes bytes of the buffer to a client whose queue is empty, from what has been routed to that offset. The result is
// that of SendNow. The caller then queues what is left, if any, and commits with CommitRouted; if the bytes are an
// event, with SetServed, which is valid with the next commit.
ssize_t WriteInTurn(JournalSlot &to, int socket, size_t end, Receiver receiver);
void SetServed(Journal &journal, uint64_t place);
// Writes the first bytes of a client's queue. The caller takes them off the queue, and commits with EndFlush.
ssize_t BeginFlush(JournalSlot &to, int socket, std::span<iovec> pieces, int descriptor);
void EndFlush(Journal &journal);

}  // namespace zor::daemon

#endif
