#include "programs/event_poll.h"

namespace zor::daemon {

std::span<const epoll_event> EventPoll::Wait(int timeoutMs) {
  const int count = ::epoll_wait(fd_.get(), ready_.data(), static_cast<int>(ready_.size()), timeoutMs);
  return {ready_.data(), count > 0 ? static_cast<size_t>(count) : 0};
}

bool EventPoll::Control(int operation, int fd, uint32_t events, void *tag) {
  epoll_event event = {};
  event.events = events;
  event.data.ptr = tag;
  return ::epoll_ctl(fd_.get(), operation, fd, &event) == 0;
}

}  // namespace zor::daemon
