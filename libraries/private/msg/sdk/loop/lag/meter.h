// What a thread measures with. There is one in a process; sdk/loop/lag/lag.h has what the loop sees of it.
#ifndef SDK_LOOP_LAG_METER_H
#define SDK_LOOP_LAG_METER_H

#include <zor/uv_lag.h>
#include <zor/uv_loop.h>

#include <atomic>
#include <cstdint>

#include "sdk/loop/lag/callback_table.h"
#include "sdk/loop/lag/lag.h"
#include "sdk/loop/lag/page_memory.h"

namespace zor::lag {

class Meter {
 public:
  // A status; after a failure it is off.
  std::uint32_t Start(const ZOR_UV_LAG_OPTIONS &options) noexcept;
  void Stop() noexcept;
  // In a forked child: it is off, and the parent's file stays.
  void Forget() noexcept;
  // The process ends.
  void RemoveFile() noexcept { memory_.RemoveFile(); }

  void Read(ZOR_UV_LAG &figures) const noexcept;

  void OnRun() noexcept;
  void OnRunEnd() noexcept;
  void Begin(Span &span) noexcept;
  void End(Span &span) noexcept;
  // False when this loop's waits are not looked at.
  bool BeginPause(const UvLoop &loop, std::uint64_t nowNs) noexcept;
  void EndPause(std::uint64_t startNs, std::uint64_t nowNs) noexcept;

 private:
  void EndTurn(std::uint64_t nowNs) noexcept;
  void Record(const Span &span, std::uint64_t ownNs) noexcept;
  void Report(const Callback &entry, const Span &span, std::uint32_t us) noexcept;

  PageMemory memory_;
  CallbackTable table_ = {};
  ZOR_UV_LAG_OPTIONS options_ = {};
  Span *innermost_ = nullptr;
  const UvLoop *loop_ = nullptr;  // whose turns are measured
  std::uint64_t turnStartNs_ = 0;
  // Changes at each start and stop: spans that began before do not count. Atomic because such a span may end on a
  // thread that has stopped measuring.
  std::atomic<std::uint32_t> generation_ = 0;
};

}  // namespace zor::lag

#endif
