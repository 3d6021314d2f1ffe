// Runs of a loop. An iteration is: clock, timers, idle hooks, then the wait with what it brings. Runs nest freely, on
// the same loop or on different ones; core/watcher.h says what makes that safe.
#ifndef SDK_LOOP_RUN_RUN_H
#define SDK_LOOP_RUN_RUN_H

#include <zor/uv_loop.h>

#include <cstdint>

#include "sdk/loop/core/survey.h"

namespace zor {

// A run on the stack. Every iteration of any run has a turn number of its own.
class Run {
 public:
  explicit Run(const UvLoop &loop) noexcept;
  ~Run();
  Run(const Run &) = delete;
  Run &operator=(const Run &) = delete;

  void BeginTurn() noexcept;
  // Whether End was called for this run.
  bool ended() const noexcept { return ended_; }
  // Whether an outer run of the same loop is on the stack.
  bool IsNested() const noexcept;

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

// Waits for descriptors or the time-out and calls what is due. Any status but 0 ends the run.
std::uint32_t WaitAndDispatch(UvLoop &loop, const Survey &survey) noexcept;

// Frees at once what was handed over for deferred freeing.
void FreeAllNow(UvLoop &loop) noexcept;

}  // namespace zor

#endif
