// Restores the terminal when a signal ends the program: no destructor runs then.
#ifndef ZORCTL_TERMINAL_GUARD_H
#define ZORCTL_TERMINAL_GUARD_H

namespace zor::ctl {

class TerminalGuard {
 public:
  // Takes down the modes of the terminal, as they are to be afterwards. There is at most one such object.
  explicit TerminalGuard(int fd);
  ~TerminalGuard();
  TerminalGuard(const TerminalGuard &) = delete;
  TerminalGuard &operator=(const TerminalGuard &) = delete;

  // Call it when the terminal's description has been read.
  void Arm();
};

}  // namespace zor::ctl

#endif
