// The synchronous spawn: a private loop with one child on it.
#include <zor/status.h>
#include <zor/trace.h>

#include <csignal>

#include "base/scoped_value.h"
#include "sdk/loop/child/process.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/process_watcher.h"
#include "sdk/loop/run/run.h"
#include "trace/trace_line.h"

namespace zor {
namespace {

// The private loop of a spawn, with what the caller's options hold while a copy of them holds the wrappers. Callbacks
// find it through the loop of their process: the data of the process is the caller's.
struct SyncSpawn : UvLoop {
  const UvProcessOptions *wanted;
  std::uint32_t result;
  bool ended;
};

SyncSpawn &ContextOf(const UvProcess &process) {
  return static_cast<SyncSpawn &>(*process.header.loop);
}

// The options that the caller gave. A callback may have left something else in the data of the process.
const UvProcessOptions &BeginCall(UvProcess &process) {
  const UvProcessOptions &wanted = *ContextOf(process).wanted;
  process.header.data = wanted.data;
  return wanted;
}

// The runs end even when one that the callback starts takes the stop for its own.
void OnExit(UvProcess *process, std::int32_t pid, std::int32_t exitCode, std::int32_t termSignal) {
  SyncSpawn &context = ContextOf(*process);
  context.result = termSignal == SIGKILL ? ZOR_E_TIMEOUT : static_cast<std::uint32_t>(exitCode);
  context.ended = true;
  Run::End(context);
  ZOR_UV_LoopStop(&context);
  const UvProcessOptions &wanted = BeginCall(*process);
  if (wanted.exitCallback != nullptr) wanted.exitCallback(process, pid, exitCode, termSignal);
}

void OnOutput(UvProcess *process, UvIO *stream, std::uint32_t streamId) {
  BeginCall(*process).outputCallback(process, stream, streamId);
}

void OnInput(UvProcess *process, UvIO *stream) {
  BeginCall(*process).inputCallback(process, stream);
}

// A wrapper without a callback behind it would get a pipe that is never read.
UvProcessOptions Wrapped(const UvProcessOptions &wanted) {
  UvProcessOptions options = wanted;
  options.exitCallback = OnExit;
  if (options.outputCallback != nullptr) options.outputCallback = OnOutput;
  if (options.inputCallback != nullptr) options.inputCallback = OnInput;
  return options;
}

void TraceEnd(std::int32_t pid, const UvProcess &process) {
  Trace("track", ZOR_TRACE_INFO, "[end spawn %d:%s] in loop %lld", pid, process.cmdLine,
        static_cast<long long>(ZOR_UV_LoopGetCurIdx(nullptr)));
}

// Whether the process is still on the loop. When it is not, its address may already be that of another watcher.
bool IsOnLoop(const UvLoop &loop, const UvProcess *process) {
  return FindProcess(loop, [process](const UvProcess &listed) { return &listed == process; }) != nullptr;
}

// A callback may stop the loop, which is not the end of the child, or even destroy it: then nothing is left to wait
// for.
void RunToEnd(SyncSpawn &context, const UvProcess *process, std::uint32_t idleTimeMs) {
  context.idleTimeMs = idleTimeMs;
  while (ZOR_UV_LoopRun(&context, context.idleTimeMs) == ZOR_OK && !context.ended && IsOnLoop(context, process)) {
  }
}

std::uint32_t SpawnAndRun(SyncSpawn &context, std::uint32_t idleTimeMs) {
  const UvProcessOptions options = Wrapped(*context.wanted);
  UvProcess *process = nullptr;
  std::int32_t pid = -1;
  {
    const ScopedValue<UvLoop *> override(defaultLoopOverride, &context);
    const std::uint32_t status = ZOR_UV_ProcessSpawn(&context, &process, &options);
    if (status != ZOR_OK) return status;
    pid = process->pid;
    RunToEnd(context, process, idleTimeMs);
  }
  if (IsOnLoop(context, process)) TraceEnd(pid, *process);
  return context.result;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_UV_ProcessSpawnSync(const UvProcessOptions *options, uint32_t idleTimeMs) {
  if (options == nullptr) return ZOR_E_ARGUMENT;
  if (zor::defaultLoopOverride != nullptr) return ZOR_E_BUSY;
  zor::SyncSpawn context = {};
  context.wanted = options;
  ZOR_UV_LoopInit(&context);
  const uint32_t result = zor::SpawnAndRun(context, idleTimeMs);
  ZOR_UV_LoopDestroy(&context);
  return result;
}
