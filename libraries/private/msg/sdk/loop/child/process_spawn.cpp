// Spawning: the record, the pipes, the fork, and what the parent does beside it.
#include "sdk/loop/child/process.h"

#include <unistd.h>
#include <zor/platform/bounded.h>
#include <zor/platform/memory.h>
#include <zor/status.h>
#include <zor/trace.h>

#include <csignal>
#include <cstdio>
#include <cstring>

#include "common/child_signal.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "trace/trace_line.h"

static_assert(sizeof(void *) != 4 || sizeof(UvProcess) == 60);
static_assert(sizeof(void *) != 4 || sizeof(UvProcessOptions) == 64);

namespace zor {

namespace {

// Room for the arguments with a blank behind each.
std::size_t CommandLineSize(const char *const *args) {
  std::size_t size = 3;
  for (; *args != nullptr; ++args) size += std::strlen(*args) + 1;
  return size;
}

void JoinArguments(const char *const *args, char *out, std::size_t room) {
  for (; *args != nullptr; ++args) {
    const std::size_t length = std::strlen(*args);
    if (length + 2 > room) return;
    if (strcpy_s(out, room, *args) != 0) std::printf("strcpy_s() fail");
    if (args[1] != nullptr) out[length] = ' ';
    out += length + 1;
    room -= length + 1;
  }
}

UvProcess *NewProcess(UvLoop *loop, const UvProcessOptions &options) {
  const std::size_t size = CommandLineSize(options.args);
  void *commandLine = nullptr;
  auto *process = static_cast<UvProcess *>(ZOR_UTIL_CallocVarg(sizeof(UvProcess), size, &commandLine));
  if (process == nullptr) return nullptr;
  process->cmdLine = static_cast<char *>(commandLine);
  JoinArguments(options.args, process->cmdLine, size);
  ZOR_UV_WatcherInit(loop, &process->header, UV_WATCHER_PROCESS);
  process->header.data = options.data;
  process->exitCallback = options.exitCallback;
  process->reapCallback = options.reapCallback;
  process->outputCallback = options.outputCallback;
  process->inputCallback = options.inputCallback;
  return process;
}

// The signal is held back meanwhile: even a child that is killed at the gate is reaped under its process id.
bool Launch(UvProcess &process, const UvProcessOptions &options, UvProcess **outProcess) {
  UvLoop &loop = *process.header.loop;
  StartGate gate;
  ChildStreams streams;
  if (!EnsureChildrenAreFinished(loop) || !gate.Make() || !MakeStreams(process, options, streams)) return false;
  const ChildSignalBlock block;
  const pid_t pid = ::fork();
  if (pid < 0) return false;
  if (pid == 0) {
    block.Restore();
    RunChild(options, loop, gate, streams);
  }
  gate.LeaveToChild();
  for (UniqueFd &end : streams) end.reset();
  process.pid = pid;
  if (outProcess != nullptr) *outProcess = &process;
  gate.Open();
  ZOR_UV_WatcherStart(&process.header);
  Trace("track", ZOR_TRACE_INFO, "[start spawn %d:%s] in loop %lld", pid, process.cmdLine,
        static_cast<long long>(ZOR_UV_LoopGetCurIdx(nullptr)));
  return true;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_UV_ProcessSpawn(UvLoop *loop, UvProcess **outProcess, const UvProcessOptions *options) {
  if (outProcess != nullptr) *outProcess = nullptr;
  if (options == nullptr || options->file == nullptr || options->args == nullptr || options->args[0] == nullptr) {
    return ZOR_E_ARGUMENT;
  }
  UvProcess *process = zor::NewProcess(loop, *options);
  if (process == nullptr) return ZOR_E_NO_MEMORY;
  if (zor::Launch(*process, *options, outProcess)) return ZOR_OK;
  zor::DeleteStreams(*process);
  ZOR_UV_WatcherDelete(&process->header);
  return ZOR_E_IO;
}

// A child that was reaped has no process id any more: by now another process may have it.
void ZOR_UV_ProcessKill(UvProcess *process, int32_t signalNumber) {
  if (process != nullptr && process->pid > 0 && process->exited == 0) ::kill(process->pid, signalNumber);
}
