// The wait of an iteration and what follows from its outcome.
#include <sys/select.h>
#include <unistd.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <ctime>

#include "base/list.h"
#include "common/child_signal.h"
#include "sdk/loop/core/clock.h"
#include "sdk/loop/core/process_watcher.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/io/descriptor_set.h"
#include "sdk/loop/io/forced.h"
#include "sdk/loop/io/io_pass.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/loop/run/run.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

constexpr UvTime kForcedWait = {0, 1};
constexpr UvTime kLastLook = {0, 100};

struct ReadySets {
  fd_set readable;
  fd_set exceptional;
  fd_set writable;
};

// The kernel need not copy a set in which it can find nothing.
fd_set *NullIfEmpty(fd_set &set, std::int32_t maxFd) {
  return IsEmpty(set, maxFd) ? nullptr : &set;
}

// The kernel overwrites the sets that it is given, so they are copies. The signal mask holds during the wait; null
// leaves it as it is.
int Select(const UvLoop &loop, UvTime timeout, ReadySets &ready, const sigset_t *mask = nullptr) {
  ready = {loop.readSet, loop.exceptSet, loop.writeSet};
  const timespec remaining = {timeout.seconds, timeout.microseconds * 1000L};
  const std::int32_t maxFd = std::min(loop.maxFd, FD_SETSIZE - 1);
  return ::pselect(maxFd + 1, NullIfEmpty(ready.readable, maxFd), NullIfEmpty(ready.writable, maxFd),
                   NullIfEmpty(ready.exceptional, maxFd), &remaining, mask);
}

// A child that ends between the idle pass, which finishes children, and the wait must not be forgotten for the length
// of the wait: its signal is held back until the wait has begun.
int SelectBesideChildren(const UvLoop &loop, UvTime timeout, ReadySets &ready) {
  const ChildSignalBlock block;
  if (!HasReapedChild(loop)) return Select(loop, timeout, ready, &block.before());
  errno = EINTR;
  return -1;
}

// Hooks may have added children since the survey.
bool MayHaveChildren(const UvLoop &loop, const Survey &survey) {
  return loop.processIdle != nullptr && ((survey.flags & UV_WATCHER_PROCESS) != 0 || survey.changes != listChanges);
}

int Wait(const UvLoop &loop, const Survey &survey, UvTime timeout, ReadySets &ready) {
  const lag::Pause pause(loop);
  return MayHaveChildren(loop, survey) ? SelectBesideChildren(loop, timeout, ready) : Select(loop, timeout, ready);
}

// Whether no timer is due before the idle period ends. Compares whole seconds only.
bool MayEndRun(const UvLoop &loop) {
  return loop.idleTimeMs != 0 && FromMilliseconds(loop.idleTimeMs).seconds <= loop.selectTimeout.seconds;
}

void Sweep(UvLoop &loop) {
  for (Walk walk(loop); UvWatcher *watcher = walk.Next();) {
    if ((watcher->flags & UV_WATCHER_DELETED) != 0) SweepWatcher(loop, watcher);
  }
}

bool IsBad(std::int32_t fd) {
  return fd >= 0 && !IsOpenDescriptor(fd) && errno == EBADF;
}

void Disarm(UvLoop &loop, UvIO &watcher) {
  Trace("sockbase", ZOR_TRACE_INFO, "Bogus fd %d with flag %d detected.\n", watcher.fd,
        static_cast<int>(watcher.header.flags));
  Trace("sockbase", ZOR_TRACE_INFO, "get pid %d in Bogus fd.\n", static_cast<int>(::getpid()));
  RemoveFrom(loop.readSet, watcher.fd);
  watcher.fd = -1;
}

bool DisarmBadWatchers(UvLoop &loop) {
  bool found = false;
  for (UvWatcher *watcher : ListView<UvWatcher>(loop.watchers)) {
    if ((watcher->flags & UV_WATCHER_IO) == 0) continue;
    auto &io = RecordOf<UvIO>(watcher);
    if (!IsBad(io.fd)) continue;
    Disarm(loop, io);
    found = true;
  }
  return found;
}

// Bits that no watcher stands for any more, such as the write bit of a watcher disarmed before: select would fail on
// them for ever.
void DropBadBits(UvLoop &loop) {
  for (std::int32_t fd = 0; fd <= loop.maxFd; ++fd) {
    if (!IsBad(fd)) continue;
    for (fd_set *set : {&loop.readSet, &loop.exceptSet, &loop.writeSet}) RemoveFrom(*set, fd);
  }
}

std::uint32_t OnTimeOut(UvLoop &loop, const Survey &survey, bool mayEndRun) {
  ReadySets ready;
  if (mayEndRun && Wait(loop, survey, kLastLook, ready) == 0) return ZOR_E_TIMEOUT;
  RunForcedEvents(loop);
  Sweep(loop);
  return ZOR_OK;
}

std::uint32_t OnFailure(UvLoop &loop, int error) {
  if (error == EBADF) {
    if (!DisarmBadWatchers(loop)) DropBadBits(loop);
    return ZOR_OK;
  }
  if (error == EINTR) return ZOR_OK;
  std::printf("Sock base select err %d.\n", error);
  return ZOR_E_IO;
}

// Forced events come first; when one ran, the ready descriptors are left to the next select.
void OnReady(UvLoop &loop, const Survey &survey, const ReadySets &ready) {
  if (RunForcedEvents(loop)) return;
  DescriptorPasses passes(loop, survey);
  passes.Run(UV_READABLE, ready.readable);
  passes.Run(UV_EXCEPTIONAL, ready.exceptional);
  passes.Run(UV_WRITABLE, ready.writable);
}

}  // namespace

std::uint32_t WaitAndDispatch(UvLoop &loop, const Survey &survey) noexcept {
  const bool mayEndRun = MayEndRun(loop);
  UvTime timeout = kForcedWait;
  if (loop.forcedEvents == nullptr) timeout = loop.selectTimeout = Normalised(loop.selectTimeout);
  ReadySets ready;
  const int count = Wait(loop, survey, timeout, ready);
  if (count < 0) return OnFailure(loop, errno);
  if (count == 0) return OnTimeOut(loop, survey, mayEndRun);
  OnReady(loop, survey, ready);
  return ZOR_OK;
}

}  // namespace zor
