// Waiting for descriptors: an epoll instance. The tag given with a descriptor identifies its owner.
#ifndef PROGRAMS_EVENT_POLL_H
#define PROGRAMS_EVENT_POLL_H

#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <span>

#include "common/unique_fd.h"

namespace zor::daemon {

class EventPoll {
 public:
  EventPoll() : fd_(::epoll_create1(EPOLL_CLOEXEC)) {}

  // False, with errno, when the system gave no instance.
  bool valid() const { return fd_.valid(); }
  // Readable while something is ready, so that instances can be nested.
  int fd() const { return fd_.get(); }
  // Each is false, with errno, when the system refuses. events are EPOLL flags.
  bool Add(int fd, uint32_t events, void *tag) { return Control(EPOLL_CTL_ADD, fd, events, tag); }
  bool Change(int fd, uint32_t events, void *tag) { return Control(EPOLL_CTL_MOD, fd, events, tag); }
  bool Remove(int fd) { return Control(EPOLL_CTL_DEL, fd, 0, nullptr); }

  // What is ready; empty after the time-out (-1: none) or a signal. Valid until the next call. A tag in it may belong
  // to something that an earlier entry of the same result has ended: release owners only after the whole result.
  std::span<const epoll_event> Wait(int timeoutMs);

 private:
  bool Control(int operation, int fd, uint32_t events, void *tag);

  UniqueFd fd_;
  std::array<epoll_event, 64> ready_;
};

}  // namespace zor::daemon

#endif
