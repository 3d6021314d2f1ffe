// The loop record, the default loop and one run. An iteration is: clock, timers, idle hooks, then the wait with what it
// brings. Runs nest freely; see watcher.h for what makes that safe.
#include "sdk/loop/core/loop.h"

#include <zor/status.h>

#include "base/list.h"
#include "sdk/loop/core/clock.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/message/msg_watcher.h"

namespace zor {
namespace {

// Runs on the stack of this thread, innermost first, and the last turn number given out.
thread_local Run *innermostRun = nullptr;
thread_local std::uint64_t lastTurn = 0;

// Waits for replies end with the loop that holds their guards, those included whose watcher was freed before.
void FreePendingReplies(const UvLoop &loop) {
  for (UvWatcher *watcher : ListView<UvWatcher>(loop.watchers)) {
    if ((watcher->flags & UV_WATCHER_TIMER) != 0) FreeGuardedReply(RecordOf<UvTimer>(watcher));
  }
}

}  // namespace

UvLoop *defaultLoopOverride = nullptr;

UvLoop &MainLoop() noexcept {
  static UvLoop loop;
  if ((loop.flags & UV_LOOP_INITIALISED) == 0) ZOR_UV_LoopInit(&loop);
  return loop;
}

Run::Run(const UvLoop &loop) noexcept : loop_(loop), outer_(innermostRun) {
  innermostRun = this;
}

Run::~Run() {
  innermostRun = outer_;
}

void Run::BeginTurn() noexcept {
  turn_ = ++lastTurn;
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

void ZOR_UV_LoopInit(UvLoop *loop) {
  if (loop == nullptr) return;
  *loop = {};
  loop->flags = UV_LOOP_INITIALISED;
}

UvLoop *ZOR_UV_LoopGetDefault(void) {
  return zor::defaultLoopOverride != nullptr ? zor::defaultLoopOverride : &zor::MainLoop();
}

uint32_t ZOR_UV_LoopRun(UvLoop *loop, uint32_t idleTimeMs) {
  UvLoop *running = zor::LoopOrDefault(loop);
  if (running == nullptr) return ZOR_E_ARGUMENT;
  running->idleTimeMs = idleTimeMs;
  running->iteration = 0;
  uint32_t status = ZOR_OK;
  zor::Run run(*running);
  const auto mustLeave = [&] { return run.ended() || (running->flags & UV_LOOP_STOP) != 0; };
  while (!mustLeave()) {
    run.BeginTurn();
    running->now = zor::MonotonicNow();
    const zor::Survey survey = zor::RunTimerPass(*running, running->selectTimeout);
    const bool mayHaveHooks = (survey.flags & UV_WATCHER_IDLE) != 0 || survey.changes != zor::listChanges;
    if (mayHaveHooks) zor::RunIdleHooks(*running);
    if (survey.timerStarts != zor::timerStarts) zor::HeedStartedTimers(*running, running->selectTimeout);
    if (mustLeave()) break;
    status = zor::WaitAndDispatch(*running, survey);
    if (status != ZOR_OK) running->flags |= UV_LOOP_STOP;
    ++running->iteration;
  }
  running->flags &= ~UV_LOOP_STOP;
  return status;
}

void ZOR_UV_LoopStop(UvLoop *loop) {
  if (loop != nullptr) loop->flags |= UV_LOOP_STOP;
}

// Not a minimum of the two times: callers rely on each field being lowered by itself.
void ZOR_UV_LoopUpdateSelectTimeout(UvLoop *loop, const UvTime *timeout) {
  UvLoop *updated = zor::LoopOrDefault(loop);
  if (updated == nullptr || timeout == nullptr) return;
  UvTime &pending = updated->selectTimeout;
  if (timeout->seconds < pending.seconds) {
    pending = *timeout;
  } else if (timeout->microseconds < pending.microseconds) {
    pending.microseconds = timeout->microseconds;
  }
}

void ZOR_UV_LoopSetIdleTime(UvLoop *loop, uint32_t idleTimeMs) {
  if (UvLoop *changed = zor::LoopOrDefault(loop); changed != nullptr) changed->idleTimeMs = idleTimeMs;
}

uint32_t ZOR_UV_LoopGetIdleTime(UvLoop *loop) {
  const UvLoop *asked = zor::LoopOrDefault(loop);
  return asked == nullptr ? 0 : asked->idleTimeMs;
}

int32_t ZOR_UV_LoopGetMaxFd(UvLoop *loop) {
  const UvLoop *asked = zor::LoopOrDefault(loop);
  return asked == nullptr ? 0 : asked->maxFd;
}

uint64_t ZOR_UV_LoopGetCurIdx(UvLoop *loop) {
  const UvLoop *asked = zor::LoopOrDefault(loop);
  return asked == nullptr ? 0 : asked->iteration;
}

void ZOR_UV_LoopDestroy(UvLoop *loop) {
  if (loop == nullptr) return;
  zor::FreeAllNow(*loop);
  ZOR_UTIL_ListDeleteAll(&loop->forcedEvents, nullptr);
  zor::FreePendingReplies(*loop);
  while (loop->watchers != nullptr) zor::RemoveWatcher(*loop, loop->watchers);
  ZOR_UV_LoopInit(loop);
}
