// Timers as the rest of the loop sees them.
#ifndef SDK_LOOP_TIMER_TIMER_H
#define SDK_LOOP_TIMER_TIMER_H

#include <zor/uv_timer.h>

#include <cstdint>

#include "sdk/loop/core/survey.h"

namespace zor {

// How many timers have been started or given another period, on any loop of this thread.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uint64_t timerStarts;

// The timer pass, which is the first walk and also computes how long the wait may last.
Survey RunTimerPass(UvLoop &loop, UvTime &timeout) noexcept;

// Lowers the time-out for timers that were started after the timer pass, which would otherwise fire late.
void LowerForStartedTimers(const UvLoop &loop, UvTime &timeout) noexcept;

// A timer in a block of its own, started on this loop; null without memory. The loop frees it after its deletion.
UvTimer *AddTimer(UvLoop *loop, std::uint32_t intervalMs, std::uint32_t repeatCount, UV_TIMER_CALLBACK callback,
                  void *data) noexcept;

}  // namespace zor

#endif
