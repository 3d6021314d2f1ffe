// Redirected standard streams: a pipe each, with a watcher at our end.
#include <fcntl.h>
#include <unistd.h>
#include <zor/status.h>

#include <utility>

#include "base/alloc.h"
#include "sdk/loop/child/process.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"

namespace zor {
namespace {

struct Pipe {
  UniqueFd readEnd;
  UniqueFd writeEnd;
};

// Moves a descriptor away from the standard streams, which are replaced one after another in the child.
UniqueFd Lifted(int fd) {
  UniqueFd original(fd);
  if (fd > 2) return original;
  return UniqueFd(::fcntl(fd, F_DUPFD_CLOEXEC, 3));
}

// False when there is none to be had.
bool MakePipe(Pipe &pipe) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return false;
  pipe.readEnd = Lifted(ends[0]);
  pipe.writeEnd = Lifted(ends[1]);
  return pipe.readEnd.valid() && pipe.writeEnd.valid();
}

// The process outlives the call, whatever the caller's callback does.
void OnWritable(UvIO *stream, std::uint32_t event) {
  auto *process = static_cast<UvProcess *>(stream->header.data);
  if (process == nullptr || event != UV_WRITABLE || process->inputCallback == nullptr) return;
  const CallFrame frame(&process->header);
  const lag::Span span(ZOR_UV_LAG_DESCRIPTOR, process->inputCallback);
  process->inputCallback(process, stream);
}

template <std::uint32_t streamId>
void OnReadable(UvIO *stream, std::uint32_t event) {
  auto *process = static_cast<UvProcess *>(stream->header.data);
  if (process == nullptr || event != UV_READABLE || process->outputCallback == nullptr) return;
  const CallFrame frame(&process->header);
  const lag::Span span(ZOR_UV_LAG_DESCRIPTOR, process->outputCallback);
  process->outputCallback(process, stream, streamId);
}

struct Stream {
  std::uint32_t flag;
  UV_IO_CALLBACK callback;
};

constexpr std::array kStreams = {
    Stream{UV_PROCESS_STDIN, OnWritable},
    Stream{UV_PROCESS_STDOUT, OnReadable<UV_PROCESS_STDOUT>},
    Stream{UV_PROCESS_STDERR, OnReadable<UV_PROCESS_STDERR>},
};

bool IsWanted(const Stream &stream, const UvProcessOptions &options) {
  if ((options.flags & stream.flag) == 0) return false;
  return stream.flag == UV_PROCESS_STDIN ? options.inputCallback != nullptr : options.outputCallback != nullptr;
}

// A watcher that closes the descriptor when it is deleted; null when the loop cannot watch it.
UvIO *Watch(UvProcess &process, UniqueFd fd, std::uint32_t event, UV_IO_CALLBACK callback) {
  auto watcher = GuardedNew<UvIO>();
  if (watcher == nullptr) return nullptr;
  if (ZOR_UV_IOInit(process.header.loop, watcher.get(), fd.get(), callback) != ZOR_OK) return nullptr;
  static_cast<void>(fd.release());
  watcher->header.data = &process;
  watcher->header.flags |= UV_WATCHER_STDIO;
  ZOR_UV_IOStart(watcher.get(), event);
  return watcher.release();
}

}  // namespace

bool MakeStreams(UvProcess &process, const UvProcessOptions &options, ChildStreams &childEnds) noexcept {
  for (std::size_t i = 0; i < kStreams.size(); ++i) {
    Pipe pipe;
    if (!IsWanted(kStreams[i], options) || !MakePipe(pipe)) continue;
    const bool isInput = kStreams[i].flag == UV_PROCESS_STDIN;
    childEnds[i] = std::move(isInput ? pipe.readEnd : pipe.writeEnd);
    UniqueFd ours = std::move(isInput ? pipe.writeEnd : pipe.readEnd);
    process.stdio[i] = Watch(process, std::move(ours), isInput ? UV_WRITABLE : UV_READABLE, kStreams[i].callback);
    if (process.stdio[i] == nullptr) return false;
  }
  return true;
}

void DeleteStreams(UvProcess &process) noexcept {
  for (UvIO *stream : process.stdio) ZOR_UV_ProcessDeleteRedirectIO(&process, stream);
}

}  // namespace zor

void ZOR_UV_ProcessDeleteRedirectIO(UvProcess *process, UvIO *stream) {
  if (process == nullptr || stream == nullptr) return;
  for (UvIO *&slot : process->stdio) {
    if (slot != stream) continue;
    slot = nullptr;
    stream->header.data = nullptr;
    ZOR_UV_IODelete(stream);
  }
}
