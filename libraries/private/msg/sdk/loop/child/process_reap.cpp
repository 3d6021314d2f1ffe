// The end of children. The handler of SIGCHLD only notes it in the process record; an idle hook of the loop does the
// rest. The handler may interrupt a change of the watcher list: watchers are linked and unlinked by one store of a
// pointer each, and freed only after that, so what it walks is always a list.
#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <zor/trace.h>

#include <cerrno>
#include <csignal>

#include "common/unique_fd.h"
#include "sdk/loop/child/process.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/process_watcher.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

std::int32_t TermSignalOf(std::int32_t status) {
  const std::int32_t signal = status & 0x7f;
  return signal == 0x7f ? 0 : signal;
}

std::int32_t ExitCodeOf(std::int32_t status) {
  return (status >> 8) & 0xff;
}

void InstallHandler();

// The loop looks at errno after its wait.
void OnChildSignal(int) {
  const int error = errno;
  uvProcessWaitpid(nullptr);
  InstallHandler();
  errno = error;
}

// Without SA_RESTART: waits and reads that a child's end interrupts have to return.
void InstallHandler() {
  struct sigaction action = {};
  action.sa_handler = OnChildSignal;
  action.sa_flags = SA_NOCLDSTOP;
  sigemptyset(&action.sa_mask);
  ::sigaction(SIGCHLD, &action, nullptr);
}

int BytesIn(int fd) {
  int bytes = 0;
  return ::ioctl(fd, FIONREAD, &bytes) == 0 ? bytes : 0;
}

// Whether no process can write to the pipe any more, so that its end comes by itself.
bool HasHungUp(int fd) {
  pollfd polled = {fd, POLLIN, 0};
  return ::poll(&polled, 1, 0) == 1 && (polled.revents & POLLHUP) != 0;
}

// Another process that has the pipe open could keep its reader waiting for ever, so the reader gets an empty file in
// its place.
bool GiveEndOfFile(int fd) {
  const UniqueFd empty(::open("/dev/null", O_RDONLY | O_CLOEXEC));
  return empty.valid() && ::dup3(empty.get(), fd, O_CLOEXEC) == fd;
}

// Calls until all that the child has written was read. While another process can still write, the pipe is cut off once
// it is empty, or after as many calls as the child has left bytes: the other process may keep writing.
void Drain(UvIO *const &slot, const CallFrame &process) {
  if (slot == nullptr) return;
  int callsLeft = BytesIn(slot->fd);
  for (bool ended = false; !process.freed() && slot != nullptr; --callsLeft) {
    if (!ended && !HasHungUp(slot->fd) && (callsLeft <= 0 || BytesIn(slot->fd) == 0)) {
      if (!GiveEndOfFile(slot->fd)) return;
      ended = true;
    }
    const CallFrame frame(&slot->header);
    const lag::Span span(ZOR_UV_LAG_DESCRIPTOR, slot->ioCallback);
    slot->ioCallback(slot, UV_READABLE);
  }
}

bool IsTraced() {
  return defaultLoopOverride == nullptr;
}

// Each callback may destroy the loop; the record alone is still there then.
void Finish(UvProcess &process) {
  const CallFrame frame(&process.header);
  const std::int32_t pid = process.pid;
  const std::int32_t signal = TermSignalOf(process.waitStatus);
  const std::int32_t code = ExitCodeOf(process.waitStatus);
  const auto iteration = [] { return static_cast<long long>(ZOR_UV_LoopGetCurIdx(nullptr)); };
  const UV_PROCESS_EXIT callback = process.exitCallback;
  if (IsTraced()) {
    Trace("track", ZOR_TRACE_INFO, "[end spawn %d:%s] in loop %lld", pid, process.cmdLine, iteration());
    Trace("track", ZOR_TRACE_INFO, "[start exit-proc %lld:%d:%s] sig %d, status %d %p", iteration(), pid,
          process.cmdLine, signal, code, reinterpret_cast<void *>(callback));
  }
  process.pid = -1;
  process.exited = 0;
  Drain(process.stdio[1], frame);
  Drain(process.stdio[2], frame);
  if (frame.freed()) return;
  DeleteStreams(process);
  if (callback != nullptr) {
    const lag::Span span(ZOR_UV_LAG_CHILD, callback);
    callback(&process, pid, code, signal);
  }
  if (IsTraced()) {  // "start" again: log readers know the end by its shorter form
    Trace("track", ZOR_TRACE_INFO, "[start exit-proc %lld:%d:%s] %p", iteration(), pid, process.cmdLine,
          reinterpret_cast<void *>(callback));
  }
  if (!frame.freed()) ZOR_UV_WatcherDelete(&process.header);
}

void FinishChildren(UvIdle *, std::uint32_t) {
  uvProcessWaitpid(nullptr);
  for (Walk walk(*ZOR_UV_LoopGetDefault()); UvWatcher *watcher = walk.Next();) {
    if (IsProcess(*watcher) && RecordOf<UvProcess>(watcher).exited != 0) Finish(RecordOf<UvProcess>(watcher));
  }
}

}  // namespace

bool EnsureChildrenAreFinished(UvLoop &loop) noexcept {
  if (loop.processIdle != nullptr) return true;
  InstallHandler();
  loop.processIdle = ZOR_UV_IdleStart(&loop, FinishChildren);
  return loop.processIdle != nullptr;
}

}  // namespace zor

void uvProcessWaitpid(UvWaitRecord *record) {
  int status = 0;
  for (pid_t pid; (pid = ::waitpid(-1, &status, WNOHANG)) > 0;) {
    UvProcess *process = zor::FindProcess(*ZOR_UV_LoopGetDefault(), [pid](const UvProcess &p) { return p.pid == pid; });
    if (process != nullptr) {
      process->exited = 1;
      process->waitStatus = status;
      if (process->reapCallback == nullptr) continue;
      process->reapCallback(process, pid, zor::TermSignalOf(status), zor::ExitCodeOf(status));
    } else if (record != nullptr && record->pid == pid) {
      record->status = status;
    }
  }
}
