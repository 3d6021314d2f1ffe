#include "programs/farewell.h"

#include <sys/ioctl.h>

namespace zor::daemon {

size_t UnroutedBytes(const JournalSlot &slot, int socket) {
  int bytes = 0;
  return slot.inputBytes() + (::ioctl(socket, FIONREAD, &bytes) == 0 ? static_cast<size_t>(bytes) : 0);
}

void Farewell::Say(Clock::duration time, const std::function<bool()> &somethingQueued,
                   const std::function<void(void *)> &flush) {
  const bool watched = poll_.valid() && poll_.Add(signals_.fd(), EPOLLIN, &signals_);
  const Clock::time_point end = Clock::now() + time;
  for (Clock::time_point now = Clock::now(); watched && now < end && !hurried_ && somethingQueued();
       now = Clock::now()) {
    for (const epoll_event &event :
         poll_.Wait(static_cast<int>(std::chrono::ceil<std::chrono::milliseconds>(end - now).count()))) {
      if (event.data.ptr == &signals_) {
        hurried_ = signals_.Take() == ServerSignals::Request::kStop || hurried_;
      } else {
        flush(event.data.ptr);
      }
    }
  }
}

}  // namespace zor::daemon
