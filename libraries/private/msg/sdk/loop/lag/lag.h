// How long callbacks hold the loop. Every place that calls a callback has a Span around the call, and the wait has a
// Pause. While nothing is measured, which is the default, each costs one look at a pointer.
//
// Spans nest as the calls do. The time of a span that ends is taken off the span around it, so each has the time of its
// own callback, and every moment counts once.
#ifndef SDK_LOOP_LAG_LAG_H
#define SDK_LOOP_LAG_LAG_H

#include <zor/msg_wire.h>
#include <zor/uv_lag.h>
#include <zor/uv_loop.h>

#include <cstdint>

namespace zor::lag {

class Meter;

// What this thread measures with; null: not at all.
[[gnu::tls_model("initial-exec")]] extern constinit thread_local Meter *meter;

class Span {
 public:
  // Of a handler: the message. Its header is copied, since handlers reuse the block.
  template <class Result, class... Arguments>
  Span(std::uint32_t kind, Result (*function)(Arguments...), const ZOR_MSG_HEAD *msg = nullptr) noexcept
      : meter_(meter) {
    if (meter_ != nullptr) [[unlikely]]  // NOLINT(clang-analyzer-optin.cplusplus.UninitializedObject): on purpose
      Begin(kind, reinterpret_cast<const void *>(function), msg);
  }
  ~Span() {
    if (meter_ != nullptr) [[unlikely]]
      End();
  }
  Span(const Span &) = delete;
  Span &operator=(const Span &) = delete;

 private:
  friend class Meter;

  void Begin(std::uint32_t kind, const void *function, const ZOR_MSG_HEAD *msg) noexcept;
  void End() noexcept;

  Meter *const meter_;
  // The rest is set only while something is measured.
  std::uint32_t generation_;
  std::uint32_t kind_;
  std::uint32_t type_;
  char source_[ZOR_MSG_NAME_SIZE];
  const void *function_;
  Span *outer_;
  std::uint64_t startNs_;
  std::uint64_t othersNs_;  // what belongs to spans inside this one, and to waits
};

// The loop waits: a turn ends, and the next one begins after it. A loop that a callback runs besides the one that
// called it is no turn of that one, which hangs meanwhile.
class Pause {
 public:
  explicit Pause(const UvLoop &loop) noexcept : meter_(meter) {
    if (meter_ != nullptr) [[unlikely]]  // NOLINT(clang-analyzer-optin.cplusplus.UninitializedObject): on purpose
      Begin(loop);
  }
  ~Pause() {
    if (meter_ != nullptr) [[unlikely]]
      End();
  }
  Pause(const Pause &) = delete;
  Pause &operator=(const Pause &) = delete;

 private:
  void Begin(const UvLoop &loop) noexcept;
  void End() noexcept;

  Meter *meter_;
  std::uint64_t startNs_;
};

// A run of a loop begins: the time since the last run is no turn. The first one in the process looks at ZOR_LAG_US.
void OnRun() noexcept;
// A run has ended: so has its last turn, without a wait.
void OnRunEnd() noexcept;

}  // namespace zor::lag

#endif
