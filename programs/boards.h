// Connections from other boards, which may lose power or their cable without a word.
#ifndef PROGRAMS_BOARDS_H
#define PROGRAMS_BOARDS_H

#include <netinet/in.h>

#include <chrono>

namespace zor::daemon {

// Small messages are sent at once, and the connection ends when the board has not answered for that long.
void SetUpBoard(int socket, std::chrono::seconds silence);

// The board's address; 0 if it is not known.
in_addr_t BoardAddress(int socket);

// Whether the board owes an answer, so that its connection is probably dead.
bool IsSilent(int socket);
// Makes the kernel ask at once whether the board is still there: the connection ends in a few seconds if it is not.
void Probe(int socket);

}  // namespace zor::daemon

#endif
