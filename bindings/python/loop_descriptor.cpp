#include "loop_descriptor.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <zor/msg_head.h>
#include <zor/uv.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>

#include "common/unique_fd.h"

namespace zor::py {
namespace {

constexpr std::int64_t kNever = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kAtOnce = 0;

struct Copy {
  UniqueFd set;
  UniqueFd timer;
  std::array<std::uint32_t, FD_SETSIZE> events = {};
  int end = 0;                     // behind the highest descriptor that was in the set
  std::int64_t expiryUs = kNever;  // as the timer is set
};
Copy copy;

std::uint32_t EventsOf(const UvLoop &loop, int fd) {
  std::uint32_t events = 0;
  if (FD_ISSET(fd, &loop.readSet)) events |= EPOLLIN;
  if (FD_ISSET(fd, &loop.writeSet)) events |= EPOLLOUT;
  if (FD_ISSET(fd, &loop.exceptSet)) events |= EPOLLPRI;
  return events;
}

void Change(int fd, std::uint32_t events) {
  epoll_event event = {};
  event.events = events;
  event.data.fd = fd;
  std::uint32_t &known = copy.events[static_cast<std::size_t>(fd)];
  if (events == known) return;
  const int operation = known == 0 ? EPOLL_CTL_ADD : events == 0 ? EPOLL_CTL_DEL : EPOLL_CTL_MOD;
  const bool done = ::epoll_ctl(copy.set.get(), operation, fd, &event) == 0;
  known = done ? events : 0;
}

void EarlierTimer(UvWatcher *watcher, void *expiry) {
  if ((watcher->flags & UV_WATCHER_TIMER) == 0) return;
  const auto *timer = reinterpret_cast<const UvTimer *>(watcher);
  const bool fires = (watcher->flags & UV_WATCHER_DELETED) == 0 && timer->callback != nullptr && timer->intervalMs != 0;
  if (!fires) return;
  auto &earliest = *static_cast<std::int64_t *>(expiry);
  earliest = std::min(earliest, std::int64_t{timer->expirySeconds} * 1'000'000 + timer->expiryMicroseconds);
}

std::int64_t NextExpiry(UvLoop *loop) {
  if (g_stMsgCtx.pending != nullptr || loop->forcedEvents != nullptr) return kAtOnce;
  std::int64_t expiry = kNever;
  ZOR_UV_WatcherIterateItem(loop, &expiry, EarlierTimer);
  return expiry;
}

// A time of zero would disarm it.
void SetTimer(std::int64_t expiryUs) {
  if (expiryUs == copy.expiryUs && expiryUs != kAtOnce) return;
  copy.expiryUs = expiryUs;
  itimerspec at = {};
  if (expiryUs != kNever) {
    at.it_value.tv_sec = static_cast<time_t>(expiryUs / 1'000'000);
    at.it_value.tv_nsec = static_cast<long>(expiryUs % 1'000'000) * 1000 + 1;
  }
  ::timerfd_settime(copy.timer.get(), TFD_TIMER_ABSTIME, &at, nullptr);
}

}  // namespace

int OpenDescriptor() noexcept {
  if (copy.set.valid()) return copy.set.get();
  copy.set = UniqueFd(::epoll_create1(EPOLL_CLOEXEC));
  copy.timer = UniqueFd(::timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.fd = copy.timer.get();
  const bool done = copy.set.valid() && copy.timer.valid() &&
                    ::epoll_ctl(copy.set.get(), EPOLL_CTL_ADD, copy.timer.get(), &event) == 0;
  if (!done) CloseDescriptor();
  SyncDescriptor();
  return copy.set.get();
}

void CloseDescriptor() noexcept {
  copy = Copy();
}

void SyncDescriptor() noexcept {
  if (!copy.set.valid()) return;
  UvLoop *loop = ZOR_UV_LoopGetDefault();
  const int end = std::min(ZOR_UV_LoopGetMaxFd(loop) + 1, FD_SETSIZE);
  for (int fd = 0; fd < std::max(end, copy.end); ++fd) Change(fd, EventsOf(*loop, fd));
  copy.end = end;
  SetTimer(NextExpiry(loop));
}

void ForgetDescriptors() noexcept {
  if (!copy.set.valid()) return;
  for (int fd = 0; fd < copy.end; ++fd) Change(fd, 0);
  copy.events = {};
}

}  // namespace zor::py
