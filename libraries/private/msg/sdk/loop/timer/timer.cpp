// Timers: examined once per iteration in the order of registration, never sorted.
#include "sdk/loop/timer/timer.h"

#include <zor/status.h>
#include <zor/trace.h>

#include <algorithm>

#include "base/alloc.h"
#include "base/list.h"
#include "sdk/loop/core/clock.h"
#include "sdk/loop/core/loop.h"
#include "sdk/loop/core/watcher.h"
#include "sdk/loop/lag/lag.h"
#include "trace/trace_line.h"

static_assert(sizeof(void *) != 4 || sizeof(UvTimer) == 36);

namespace zor {
namespace {

constexpr std::uint32_t kShortestFirstPeriodMs = 10;
constexpr std::uint32_t kLongestFirstPeriodMs = 0x7fffffff;

// One number that orders like the time: comparing both fields one by one costs more than all else in the timer pass.
constexpr std::int64_t OrderOf(UvTime time) {
  return time.seconds * (std::int64_t{1} << 32) + time.microseconds;
}

bool Before(UvTime one, UvTime other) {
  return OrderOf(one) < OrderOf(other);
}

UvTime Expiry(const UvTimer &timer) {
  return {timer.expirySeconds, timer.expiryMicroseconds};
}

void SetExpiry(UvTimer &timer, UvTime expiry) {
  timer.expirySeconds = expiry.seconds;
  timer.expiryMicroseconds = expiry.microseconds;
}

void Call(const UvLoop &loop, const UvTimer &timer) {
  void *const data = timer.header.data;
  const UV_TIMER_CALLBACK callback = timer.callback;
  Trace("track", ZOR_TRACE_INFO, "[start timer %lld:%p:%p]", static_cast<long long>(loop.iteration), data,
        reinterpret_cast<void *>(callback));
  {
    const lag::Span span(ZOR_UV_LAG_TIMER, callback);
    callback(data);
  }
  Trace("track", ZOR_TRACE_INFO, "[end timer %lld:%p:%p]", static_cast<long long>(loop.iteration), data,
        reinterpret_cast<void *>(callback));
}

// Calls a timer that is due. True when it stays armed: its next expiry counts from the start of the iteration, so
// lateness is not made up. One that its own callback has parked stays so: arming it with its interval of 0 would make
// the next wait none at all, which ends an idle run of less than a second.
bool Fire(const UvLoop &loop, UvTimer &timer) {
  const CallFrame frame(&timer.header);
  Call(loop, timer);
  if (frame.freed()) return false;
  if (timer.repeatCount == 1) {  // also when the callback has started it anew for one firing
    timer.callback = nullptr;
    return false;
  }
  if (timer.repeatCount != 0) --timer.repeatCount;
  if (timer.intervalMs == 0) return false;
  SetExpiry(timer, After(loop.now, timer.intervalMs));
  return true;
}

// Looks at one timer; true when it has an expiry to wait for. A timer whose callback is on the stack is not due in a
// nested run, since it is re-armed only when the callback has returned.
bool Examine(const UvLoop &loop, UvTimer &timer) {
  if (timer.callback == nullptr) {
    Trace("timer", ZOR_TRACE_INFO, "delete timer %p now ...", static_cast<void *>(&timer));
    ZOR_UV_TimerDelete(&timer);
    return false;
  }
  if (timer.intervalMs == 0 || CallFrame::Holds(&timer.header)) return false;
  return Before(loop.now, Expiry(timer)) || Fire(loop, timer);
}

// The time left until a nested run has perhaps already passed it.
UvTime TimeUntil(UvTime expiry, UvTime now) {
  UvTime left = {};
  if (Before(now, expiry)) ZOR_UTIL_TimerGetIntv(&expiry, &now, &left);
  return left;
}

void LowerTo(UvTime expiry, const UvLoop &loop, UvTime &timeout) {
  if (!Before(expiry, kEndless)) return;
  const UvTime left = TimeUntil(expiry, loop.now);
  if (Before(left, timeout)) timeout = left;
}

void SetFirstExpiry(UvTimer &timer, UvTime expiry) {
  SetExpiry(timer, expiry);
  ++timerStarts;
}

}  // namespace

constinit thread_local std::uint64_t timerStarts = 0;

// Neither the started nor the deleted bit is looked at: a deleted timer may fire until it is swept. A callback may
// start a timer that the walk has already passed. The idle time is the one from before the callbacks, which may change
// it, also by a run of their own.
Survey RunTimerPass(UvLoop &loop, UvTime &timeout) noexcept {
  Survey survey = {listChanges, timerStarts};
  const UvTime idleTime = loop.idleTimeMs != 0 ? FromMilliseconds(loop.idleTimeMs) : kEndless;
  UvTime earliest = kEndless;
  for (Walk walk(loop, Walk::Appended::kVisit); UvWatcher *watcher = walk.Next();) {
    survey.flags |= watcher->flags;
    if ((watcher->flags & UV_WATCHER_IO) != 0) ++survey.descriptorCount;
    if ((watcher->flags & UV_WATCHER_TIMER) == 0) continue;
    auto &timer = RecordOf<UvTimer>(watcher);
    if (Examine(loop, timer) && Before(Expiry(timer), earliest)) earliest = Expiry(timer);
  }
  timeout = idleTime;
  LowerTo(earliest, loop, timeout);
  if (survey.timerStarts != timerStarts) LowerForStartedTimers(loop, timeout);
  survey.timerStarts = timerStarts;
  return survey;
}

UvTimer *AddTimer(UvLoop *loop, std::uint32_t intervalMs, std::uint32_t repeatCount, UV_TIMER_CALLBACK callback,
                  void *data) noexcept {
  auto timer = GuardedNew<UvTimer>();
  if (timer == nullptr || ZOR_UV_TimerInit(loop, timer.get()) != ZOR_OK) return nullptr;
  ZOR_UV_TimerStart(timer.get(), intervalMs, repeatCount, callback, data);
  return timer.release();
}

void LowerForStartedTimers(const UvLoop &loop, UvTime &timeout) noexcept {
  for (UvWatcher *watcher : ListView<UvWatcher>(loop.watchers)) {
    if ((watcher->flags & UV_WATCHER_TIMER) == 0 || CallFrame::Holds(watcher)) continue;
    const auto &timer = RecordOf<UvTimer>(watcher);
    if (timer.callback != nullptr && timer.intervalMs != 0) LowerTo(Expiry(timer), loop, timeout);
  }
}

}  // namespace zor

uint32_t ZOR_UV_TimerInit(UvLoop *loop, UvTimer *timer) {
  if (timer == nullptr) return ZOR_E_ARGUMENT;
  const uint32_t status = ZOR_UV_WatcherInit(loop, &timer->header, UV_WATCHER_TIMER);
  if (status != ZOR_OK) return status;
  timer->callback = nullptr;
  timer->intervalMs = 0;
  return ZOR_OK;
}

uint32_t ZOR_UV_TimerStart(UvTimer *timer, uint32_t intervalMs, uint32_t repeatCount, UV_TIMER_CALLBACK callback,
                           void *data) {
  if (timer == nullptr) return ZOR_E_ARGUMENT;
  timer->intervalMs = intervalMs;
  timer->repeatCount = repeatCount;
  timer->callback = callback;
  timer->header.data = data;
  if (intervalMs != 0) zor::SetFirstExpiry(*timer, zor::After(zor::MonotonicNow(), intervalMs));
  ZOR_UV_WatcherStart(&timer->header);
  return ZOR_OK;
}

uint32_t ZOR_UV_TimerDelete(UvTimer *timer) {
  return timer == nullptr ? ZOR_E_ARGUMENT : ZOR_UV_WatcherDelete(&timer->header);
}

uint32_t ZOR_UV_RunTimers(UvLoop *loop, UvTime *timeoutOut) {
  UvLoop *running = zor::LoopOrDefault(loop);
  if (running == nullptr || timeoutOut == nullptr) return ZOR_E_ARGUMENT;
  zor::RunTimerPass(*running, *timeoutOut);
  return ZOR_OK;
}

UvTimer *ZOR_UTIL_TimerAdd(uint32_t intervalMs, uint32_t repeatCount, UV_TIMER_CALLBACK callback, void *data) {
  return zor::AddTimer(nullptr, intervalMs, repeatCount, callback, data);
}

void ZOR_UTIL_TimerDel(UvTimer *timer) {
  if (timer != nullptr) timer->callback = nullptr;
}

// The bounds hold for the first expiry only; later ones follow the period as it was given.
void ZOR_UTIL_TimerChgPeriod(UvTimer *timer, uint32_t periodMs) {
  if (timer == nullptr) return;
  timer->intervalMs = periodMs;
  const uint32_t firstMs = std::clamp(periodMs, zor::kShortestFirstPeriodMs, zor::kLongestFirstPeriodMs);
  zor::SetFirstExpiry(*timer, periodMs == 0 ? zor::kEndless : zor::After(zor::MonotonicNow(), firstMs));
}

// Clamps the seconds alone: an earlier time that is later by seconds but not by microseconds gives the difference of
// the microseconds.
void ZOR_UTIL_TimerGetIntv(const UvTime *later, const UvTime *earlier, UvTime *out) {
  if (later == nullptr || earlier == nullptr || out == nullptr) return;
  UvTime interval = {std::max(later->seconds - earlier->seconds, 0), later->microseconds - earlier->microseconds};
  if (interval.microseconds < 0) {
    const bool borrow = interval.seconds > 0;
    interval.seconds -= borrow ? 1 : 0;
    interval.microseconds = borrow ? interval.microseconds + zor::kMicrosecondsPerSecond : 0;
  }
  *out = interval;
}
