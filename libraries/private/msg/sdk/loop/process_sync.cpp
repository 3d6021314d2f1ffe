// The synchronous spawn: a private loop with one child on it.
#include <zor/status.h>
#include <zor/trace.h>

#include <csignal>

#include "base/scoped_value.h"
#include "sdk/loop/lookup.h"
#include "sdk/loop/loop.h"
#include "sdk/loop/process.h"

namespace zor {
namespace {

// What the caller's options held, while they hold the wrappers. It is the data of the process, but the caller's data
// is while a callback of the caller runs.
struct SyncSpawn {
  const UvProcessOptions &wanted;
  std::uint32_t result;
};

SyncSpawn &ContextOf(const UvProcess &process) {
  return *static_cast<SyncSpawn *>(process.header.data);
}

void OnExit(UvProcess *process, std::int32_t pid, std::int32_t exitCode, std::int32_t termSignal) {
  SyncSpawn &context = ContextOf(*process);
  context.result = termSignal == SIGKILL ? ZOR_E_TIMEOUT : static_cast<std::uint32_t>(exitCode);
  ZOR_UV_LoopStop(defaultLoopOverride);
  if (context.wanted.exitCallback == nullptr) return;
  const ScopedValue<void *> data(process->header.data, context.wanted.data);
  context.wanted.exitCallback(process, pid, exitCode, termSignal);
}

void OnOutput(UvProcess *process, UvIO *stream, std::uint32_t streamId) {
  const SyncSpawn &context = ContextOf(*process);
  const ScopedValue<void *> data(process->header.data, context.wanted.data);
  context.wanted.outputCallback(process, stream, streamId);
}

void OnInput(UvProcess *process, UvIO *stream) {
  const SyncSpawn &context = ContextOf(*process);
  const ScopedValue<void *> data(process->header.data, context.wanted.data);
  context.wanted.inputCallback(process, stream);
}

// A wrapper of a callback that is not there would have a pipe made that nobody reads.
UvProcessOptions Wrapped(SyncSpawn &context) {
  UvProcessOptions options = context.wanted;
  options.exitCallback = OnExit;
  if (options.outputCallback != nullptr) options.outputCallback = OnOutput;
  if (options.inputCallback != nullptr) options.inputCallback = OnInput;
  options.data = &context;
  return options;
}

void TraceEnd(std::int32_t pid, const UvProcess &process) {
  ZOR_TRACE_PrintInfo("process_sync.cpp", __LINE__, 0, "track", ZOR_TRACE_INFO, "[end spawn %d:%s] in loop %lld", pid,
                      process.cmdLine, static_cast<long long>(ZOR_UV_LoopGetCurIdx(nullptr)));
}

std::uint32_t RunToEnd(UvLoop &loop, SyncSpawn &context, std::uint32_t idleTimeMs) {
  const UvProcessOptions options = Wrapped(context);
  UvProcess *process = nullptr;
  std::int32_t pid = -1;
  {
    const ScopedValue<UvLoop *> override(defaultLoopOverride, &loop);
    const std::uint32_t status = ZOR_UV_ProcessSpawn(&loop, &process, &options);
    if (status != ZOR_OK) return status;
    pid = process->pid;
    ZOR_UV_LoopRun(&loop, idleTimeMs);
  }
  if (IsOnLoop(&loop, &process->header)) TraceEnd(pid, *process);
  return context.result;
}

}  // namespace
}  // namespace zor

uint32_t ZOR_UV_ProcessSpawnSync(const UvProcessOptions *options, uint32_t idleTimeMs) {
  if (options == nullptr) return ZOR_E_ARGUMENT;
  if (zor::defaultLoopOverride != nullptr) return ZOR_E_BUSY;
  UvLoop loop;
  ZOR_UV_LoopInit(&loop);
  zor::SyncSpawn context = {*options, 0};
  const uint32_t result = zor::RunToEnd(loop, context, idleTimeMs);
  ZOR_UV_LoopDestroy(&loop);
  return result;
}
