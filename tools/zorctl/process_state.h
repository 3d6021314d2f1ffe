// The state of a process on this machine.
#ifndef ZORCTL_PROCESS_STATE_H
#define ZORCTL_PROCESS_STATE_H

namespace zor::ctl {

struct ProcessState {
  char letter = '?';    // as in /proc; '?': unknown
  bool inLoop = false;  // it sleeps in the loop, where it waits for no particular reply
};

// inLoop is false where it cannot be read; root and, mostly, the process's user can.
ProcessState StateOf(int pid);

}  // namespace zor::ctl

#endif
