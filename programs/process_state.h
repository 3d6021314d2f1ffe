// The state of a process on this machine.
#ifndef PROGRAMS_PROCESS_STATE_H
#define PROGRAMS_PROCESS_STATE_H

#include <cstdint>

namespace zor::daemon {

struct ProcessState {
  char letter = '?';           // as in /proc; '?': unknown
  bool inLoop = false;         // it sleeps in the loop, where it waits for no particular reply
  uint64_t startedTicks = 0;   // since the machine started: distinguishes processes that had one number
  uint64_t cpuMs = 0;          // processor time that it has used
  uint64_t residentBytes = 0;  // memory that it has
};

// inLoop is false where it cannot be read; root and, mostly, the process's user can.
ProcessState StateOf(int pid);

}  // namespace zor::daemon

#endif
