#include "loop/loop_fixture.h"

#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace zor::test {
namespace {

void Act(void *data, uint32_t event) {
  const auto action = *static_cast<std::function<void(uint32_t)> *>(data);
  action(event);
}

}  // namespace

SocketPair::SocketPair() {
  int ends[2];
  if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) std::abort();
  near = ends[0];
  far = ends[1];
}

void SocketPair::MakeReadable() const {
  if (::write(far, "x", 1) != 1) std::abort();
}

UvTimer *LoopTest::AddTimer(uint32_t intervalMs, uint32_t repeatCount, std::function<void()> action) {
  auto *timer = NewRecord<UvTimer>();
  ZOR_UV_TimerInit(&loop_, timer);
  void *data = Keep([action = std::move(action)](uint32_t) { action(); });
  ZOR_UV_TimerStart(
      timer, intervalMs, repeatCount, [](void *kept) { Act(kept, 0); }, data);
  return timer;
}

UvIO *LoopTest::AddWatcher(int fd, uint32_t events, std::function<void(uint32_t)> action) {
  auto *watcher = NewRecord<UvIO>();
  ZOR_UV_IOInit(&loop_, watcher, fd, [](UvIO *io, uint32_t event) { Act(io->header.data, event); });
  watcher->header.data = Keep(std::move(action));
  ZOR_UV_IOStart(watcher, events);
  return watcher;
}

UvIdle *LoopTest::AddIdle(std::function<void()> action) {
  UvIdle *hook = ZOR_UV_IdleStart(&loop_, [](UvIdle *idle, uint32_t) { Act(idle->header.data, 0); });
  hook->header.data = Keep([action = std::move(action)](uint32_t) { action(); });
  return hook;
}

bool LoopTest::IsListed(const void *watcher) const {
  for (const UvWatcher *each = loop_.watchers; each != nullptr; each = each->next) {
    if (each == watcher) return true;
  }
  return false;
}

}  // namespace zor::test
