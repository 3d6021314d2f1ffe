#include "sdk/loop/run/run.h"

#include <zor/platform/list.h>
#include <zor/status.h>

#include <utility>

#include "sdk/loop/core/clock.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/idle/idle.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/loop/timer/timer.h"

namespace zor {
namespace {

// Runs on the stack of this thread, innermost first, and the last turn number given out.
thread_local Run *innermostRun = nullptr;
thread_local std::uint64_t lastTurn = 0;

}  // namespace

Run::Run(const UvLoop &loop) noexcept : loop_(loop), outer_(innermostRun) {
  innermostRun = this;
}

Run::~Run() {
  innermostRun = outer_;
}

void Run::BeginTurn() noexcept {
  turn_ = ++lastTurn;
}

bool Run::IsNested() const noexcept {
  const Run *run = outer_;
  while (run != nullptr && &run->loop_ != &loop_) run = run->outer_;
  return run != nullptr;
}

void Run::End(const UvLoop &loop) noexcept {
  for (Run *run = innermostRun; run != nullptr; run = run->outer_) {
    if (&run->loop_ == &loop) run->ended_ = true;
  }
}

std::uint64_t Run::TurnOf(const UvLoop &loop) noexcept {
  const Run *run = innermostRun;
  while (run != nullptr && &run->loop_ != &loop) run = run->outer_;
  return run == nullptr ? 0 : run->turn_;
}

bool Run::InProgress(std::uint64_t turn) noexcept {
  const Run *run = innermostRun;
  while (run != nullptr && run->turn_ != turn) run = run->outer_;
  return run != nullptr;
}

}  // namespace zor

uint32_t ZOR_UV_LoopRun(UvLoop *loop, uint32_t idleTimeMs) {
  UvLoop *running = zor::LoopOrDefault(loop);
  if (running == nullptr) return ZOR_E_ARGUMENT;
  const uint32_t outerIdleTimeMs = std::exchange(running->idleTimeMs, idleTimeMs);
  running->iteration = 0;
  uint32_t status = ZOR_OK;
  zor::Run run(*running);
  zor::lag::OnRun();
  const auto mustLeave = [&] { return run.ended() || (running->flags & UV_LOOP_STOP) != 0; };
  while (!mustLeave()) {
    run.BeginTurn();
    running->now = zor::MonotonicNow();
    const zor::Survey survey = zor::RunTimerPass(*running, running->selectTimeout);
    const bool mayHaveHooks = (survey.flags & UV_WATCHER_IDLE) != 0 || survey.changes != zor::listChanges;
    if (mayHaveHooks) zor::RunIdleHooks(*running);
    if (survey.timerStarts != zor::timerStarts) zor::LowerForStartedTimers(*running, running->selectTimeout);
    if (mustLeave()) break;
    status = zor::WaitAndDispatch(*running, survey);
    if (status != ZOR_OK) running->flags |= UV_LOOP_STOP;
    ++running->iteration;
  }
  zor::lag::OnRunEnd();
  running->flags &= ~UV_LOOP_STOP;
  // A synchronous spawn waits as long as its caller said, whatever its callbacks run.
  if (running == zor::defaultLoopOverride && run.IsNested()) running->idleTimeMs = outerIdleTimeMs;
  return status;
}

void ZOR_UV_LoopDestroy(UvLoop *loop) {
  if (loop == nullptr) return;
  zor::FreeAllNow(*loop);
  ZOR_UTIL_ListDeleteAll(&loop->forcedEvents, nullptr);
  while (loop->watchers != nullptr) zor::RemoveWatcher(*loop, loop->watchers);
  ZOR_UV_LoopInit(loop);
}
