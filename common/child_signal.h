// Holds SIGCHLD back for a scope. A loop that has spawned reaps every child of the process in its signal handler, so
// code that waits for a child of its own blocks the signal from before the fork until the wait has ended.
#ifndef COMMON_CHILD_SIGNAL_H
#define COMMON_CHILD_SIGNAL_H

#include <csignal>

namespace zor {

class ChildSignalBlock {
 public:
  ChildSignalBlock() noexcept {
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGCHLD);
    ::pthread_sigmask(SIG_BLOCK, &blocked, &before_);
  }
  ~ChildSignalBlock() { Restore(); }
  ChildSignalBlock(const ChildSignalBlock &) = delete;
  ChildSignalBlock &operator=(const ChildSignalBlock &) = delete;

  // The signal mask as it was: for a forked child, which must not inherit the block, and for a wait that lets the
  // signal in.
  const sigset_t &before() const noexcept { return before_; }
  void Restore() const noexcept { ::pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_;
};

}  // namespace zor

#endif
