// One wait on one descriptor. Uses poll, so any descriptor number will do; callers choose what an interruption means.
#ifndef BASE_WAIT_H
#define BASE_WAIT_H

namespace zor {

enum class WaitResult {
  kReady,  // readable, writable, or in a state that the next read or write reports
  kTimedOut,
  kInterrupted,  // a signal, or a passing shortage of memory: wait again
  kFailed,       // not an open descriptor; errno is set
};

// timeoutMs below 0 waits without limit.
WaitResult WaitReadable(int fd, int timeoutMs) noexcept;
WaitResult WaitWritable(int fd, int timeoutMs) noexcept;

}  // namespace zor

#endif
