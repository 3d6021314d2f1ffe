// What the parts of one loop iteration share.
#ifndef SDK_LOOP_CORE_LOOP_H
#define SDK_LOOP_CORE_LOOP_H

#include <zor/uv_io.h>
#include <zor/uv_timer.h>

#include <cstdint>

namespace zor {

// While set, this loop is the default loop: a synchronous spawn runs a private loop.
extern UvLoop *defaultLoopOverride;

// The process's own default loop, also during a synchronous spawn: for what outlives the spawn.
UvLoop &MainLoop() noexcept;

// Null stands for the default loop.
inline UvLoop *LoopOrDefault(UvLoop *loop) noexcept {
  return loop != nullptr ? loop : ZOR_UV_LoopGetDefault();
}

// A run of a loop. Runs nest, on the same loop or on different ones. Every iteration of any run has a turn number of
// its own.
class Run {
 public:
  explicit Run(const UvLoop &loop) noexcept;
  ~Run();
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void BeginTurn() noexcept;
  // Whether End was called for this run.
  bool ended() const noexcept { return ended_; }

  // Ends every run of the loop that is on the stack at its next look. A stop ends the innermost one only.
  static void End(const UvLoop &loop) noexcept;
  // The turn that the loop is in; of nested runs the innermost. 0 outside a run.
  static std::uint64_t TurnOf(const UvLoop &loop) noexcept;
  static bool InProgress(std::uint64_t turn) noexcept;

 private:
  const UvLoop &loop_;
  std::uint64_t turn_ = 0;
  bool ended_ = false;
  Run *const outer_;
};

// What the first walk of an iteration has found. Later passes need not look for what is not there.
struct Survey {
  std::uint64_t changes;              // listChanges when the walk began
  std::uint64_t timerStarts;          // timerStarts when it had ended
  std::uint32_t flags = 0;            // of all watchers, or'ed together
  std::uint32_t descriptorCount = 0;  // descriptor watchers
};

// How many timers have been started or given another period, on any loop of this thread.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local std::uint64_t timerStarts;

// The timer pass, which is the first walk and also computes how long the wait may last.
Survey RunTimerPass(UvLoop &loop, UvTime &timeout) noexcept;
// Lowers the time-out for timers that were started behind the back of the timer pass, which would else fire late.
void HeedStartedTimers(const UvLoop &loop, UvTime &timeout) noexcept;

// A timer in a block of its own, started on this loop; null without memory. The loop frees it after its deletion.
UvTimer *AddTimer(UvLoop *loop, std::uint32_t intervalMs, std::uint32_t repeatCount, UV_TIMER_CALLBACK callback,
                  void *data) noexcept;

// The idle pass.
void RunIdleHooks(UvLoop &loop) noexcept;

// Waits for descriptors or the time-out and calls what is due. Any other status than 0 ends the run.
std::uint32_t WaitAndDispatch(UvLoop &loop, const Survey &survey) noexcept;

// Runs the forced events that are queued now; those that their callbacks queue wait for the next iteration. True when
// a callback was called.
bool RunForcedEvents(UvLoop &loop) noexcept;
// Takes away the first forced event of this watcher that a real event has made needless.
void DropForcedEvent(UvLoop &loop, const UvIO &watcher, std::uint32_t events) noexcept;

// Frees at once what was handed over for deferred freeing.
void FreeAllNow(UvLoop &loop) noexcept;

}  // namespace zor

#endif
