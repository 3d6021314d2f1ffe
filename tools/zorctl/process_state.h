// What the system says about a process of this machine.
#ifndef ZORCTL_PROCESS_STATE_H
#define ZORCTL_PROCESS_STATE_H

namespace zor::ctl {

struct ProcessState {
  char letter = '?';    // as /proc has it; '?': unknown
  bool inLoop = false;  // it does nothing but sleep in the loop, where no answer in particular is waited for
};

// inLoop stays false where the system does not say, which it does to root and, mostly, to the process's user.
ProcessState StateOf(int pid);

}  // namespace zor::ctl

#endif
