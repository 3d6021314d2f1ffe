#include "sdk/loop/io/io_pass.h"

#include <sys/stat.h>
#include <unistd.h>
#include <zor/trace.h>

#include <cerrno>

#include "sdk/loop/core/watcher.h"
#include "sdk/loop/io/descriptor_set.h"
#include "sdk/loop/io/forced.h"
#include "sdk/loop/lag/lag.h"
#include "trace/trace_line.h"

namespace zor {

bool IsOpenDescriptor(std::int32_t fd) noexcept {
  struct stat ignored = {};
  return ::fstat(fd, &ignored) == 0;
}

DescriptorPasses::DescriptorPasses(UvLoop &loop, const Survey &survey) noexcept
    : loop_(loop), survey_(survey), watchesAll_(ZOR_TRACE_IsModuleEnabled("sockbase", ZOR_TRACE_INFO) != 0) {}

bool DescriptorPasses::SurveyHolds() const noexcept {
  return survey_.changes == listChanges && (survey_.flags & UV_WATCHER_DELETED) == 0;
}

// Ends early behind the last descriptor watcher of the survey, and is left out when the set is empty too, as long as
// there is nothing to sweep.
void DescriptorPasses::Run(std::uint32_t event, const fd_set &ready) noexcept {
  loop_.flags &= ~UV_LOOP_SKIP_PASS;
  if (SurveyHolds() && !watchesAll_ && IsEmpty(ready, loop_.maxFd)) return;
  std::uint32_t visited = 0;
  for (Walk walk(loop_); UvWatcher *watcher = walk.Next();) {
    if ((watcher->flags & UV_WATCHER_DELETED) != 0) {
      SweepWatcher(loop_, watcher);
    } else if ((watcher->flags & UV_WATCHER_IO) != 0) {
      auto &io = RecordOf<UvIO>(watcher);
      Visit(io, event, Contains(ready, io.fd));
      if ((loop_.flags & UV_LOOP_SKIP_PASS) != 0) return;
      if (++visited == survey_.descriptorCount && SurveyHolds()) return;
    }
  }
}

void DescriptorPasses::Visit(UvIO &watcher, std::uint32_t event, bool ready) noexcept {
  const bool doubted = ready ? !proved_ : watchesAll_ && watcher.fd != -1;
  if (doubted && !IsOpenDescriptor(watcher.fd)) {
    Trace("sockbase", ZOR_TRACE_INFO, "Invalid fd %d:%d detected.\n", watcher.fd, errno);
    Trace("sockbase", ZOR_TRACE_INFO, "get pid %d in Invalid fd.\n", static_cast<int>(::getpid()));
    return;
  }
  if (ready && watcher.ioCallback != nullptr) Call(watcher, event);
}

void DescriptorPasses::Call(UvIO &watcher, std::uint32_t event) noexcept {
  if (loop_.forcedEvents != nullptr) DropForcedEvent(loop_, watcher, event);
  const CallFrame frame(&watcher.header);
  const UV_IO_CALLBACK callback = watcher.ioCallback;
  const std::int32_t fd = watcher.fd;
  proved_ = false;
  Trace("track", ZOR_TRACE_INFO, "[start io %lld:%d:%d] proc %p", static_cast<long long>(loop_.iteration),
        static_cast<int>(event), fd, reinterpret_cast<void *>(callback));
  {
    const lag::Span span(ZOR_UV_LAG_DESCRIPTOR, callback);
    callback(&watcher, event);
  }
  Trace("track", ZOR_TRACE_INFO, "[end io %lld:%d:%d] proc %p", static_cast<long long>(loop_.iteration),
        static_cast<int>(event), fd, reinterpret_cast<void *>(callback));
}

}  // namespace zor
