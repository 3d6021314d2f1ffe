// The state of a process on this machine.
#ifndef PROGRAMS_PROCESS_STATE_H
#define PROGRAMS_PROCESS_STATE_H

namespace zor::daemon {

struct ProcessState {
  char letter = '?';    // as in /proc; '?': unknown
  bool inLoop = false;  // it sleeps in the loop, where it waits for no particular reply
};

// inLoop is false where it cannot be read; root and, mostly, the process's user can.
ProcessState StateOf(int pid);

}  // namespace zor::daemon

#endif
